// The files of lens flares and glares: reading definitions, and the tables that the functions draw from. Host's thread.
#pragma once

#include "operators/flares/lens_flare.h"

namespace velloran {

constexpr int max_flares_in_table = 200;

// Reads the definitions of a file into table, at most max_number; the answer is how many. A definition that cannot be
// read is reported and leaves its place to the next one. Without has_center the elements name no centre and lie on the
// hotspot. Names are prefix, a blank and the word of the file. What is in the table is the caller's.
int load_lens_flares_from_file(const char* path, LensFlare** table, int max_number, int has_center, const char* prefix);
void free_lens_flare(LensFlare* flare);

// A file's flares, read when they are first asked for and kept until the last plug-in goes.
struct FlareTable {
    LensFlare* flares[max_flares_in_table];
    char* names[max_flares_in_table];  // as people see them, with the prefix
    int count;
    bool loaded;
};
FlareTable& lens_flare_table();
FlareTable& glare_table();

// The flare of that number. One that is not in the table is reported and counts as number 0; null if there is none.
LensFlare* flare_of_type(FlareTable& table, int type);

}  // namespace velloran
