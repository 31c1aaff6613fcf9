// Look-up tables that bring the host's pixel values into linear work and back: a pair of LUT files, a gamma, or both.
// A pair lies in "luts" of the configuration directory and its names end in "-in.lut" and "-out.lut".
//
// A LUT file is plain text, split at blanks, tabs and line ends; a word that begins with # ends its line. Words up to
// "lut:" are skipped; then come the number of channels (not used), the number of entries, and the entries.
//
// The tables change on the host's thread only, outside forks; tasks read them.
#pragma once

#include "frame/lut_tables.h"

namespace velloran {

struct GlobalsV4Record;

// Whether the converters are to use the tables of lut_tables.h; they are null before.
extern int use_input_lut, use_output_lut;

extern int HaveInputLut_p, HaveOutputLut_p;  // there is a file; cleared if it cannot be used

// Chooses the pair that the next set_gamma reads, and frees the tables of the last one. Null or empty: none. The pair
// in force again changes nothing.
void set_lut_paths(const char* input, const char* output);

// Makes the tables for a gamma, reading the files if that has not been done. Values not above 0 count as 1.
void set_gamma(float gamma);

// The choice in force, to be taken up again after a render by another plug-in.
struct LutChoice {
    char input[640], output[640];  // paths, empty: none
    float gamma;
};
void note_lut_choice(LutChoice* out);
void use_lut_choice(const LutChoice& choice);

// Reads the two chosen files.
void load_luts();
void free_luts();
// No files, gamma 1, nothing in memory.
void reset_luts();

// Entries for a popup: "LUT: Linear", with the given paths (null or empty: none), then the pairs found, at most 32 in
// all. Fills lut_in_paths, lut_out_paths and n_luts of the record, whose former paths are freed, and stores as many
// labels; the caller frees all of them with safe_free.
void list_luts(GlobalsV4Record* record, const char* input_lut, const char* output_lut, char* entries[]);

// The number of entries; *table, to be freed with safe_free, and the largest value. 0 if the file cannot be opened or
// has no entries, -1 if it is wrong, both reported; then *table is null.
int read_lut_file(const char* path, int32_t** table, int32_t* max_value);

// x to the power e, held to [x / 16, 16 x]; 0 for x at or below 0.
double clamped_pow(double x, double e);

}  // namespace velloran
