// Collections of stamps: directories of stamp files under "stamps" in the configuration directory.
#pragma once

#include "operators/image_files/stamp.h"

namespace velloran {

// The file names of a directory that are stamps, in the order of their bytes, so that a collection is the same on every
// machine.
struct StampFileList {
    int count;
    bool told;                      // that there are too many
    const char* names[max_stamps];  // the caller's
};

// Takes up a name that ends in ".qmi", ".jpg" or ".jpeg" and does not begin with a dot; what comes after max_stamps of
// them is told once and left out. collection: its name, for the message.
void list_stamp_file(const char* name, const char* collection, StampFileList* list);

// The stamps of that name, read when they are first asked for and kept until the last plug-in goes. A directory that is
// not there has none. What is wrong with a file is told, and its other stamps are there. Null: a file could not be read
// now, which has been told; the next time it is tried again. Host's thread. Exhausted memory takes the fatal abort.
StampCollection* load_stamp_collection(const char* name);

// The pixels of a stamp of a collection. Null: there are none, since its file is bad, or, with *lost set, since it
// could not be read now.
const Stamp* stamp_with_pixels(Stamp* stamp, bool mirrored, bool* lost);

}  // namespace velloran
