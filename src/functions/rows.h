// The rows of the function table, one file for each family of operators and with its name; the pixel functions, being
// many, have one file for each subject.
//
// To add a function: write its row here under the next free number, with its code and its rules (FunRules), which stand
// in the room of its family. A new family's file is also named in function_table.cpp.
#pragma once

#include "genotype/fun_row.h"

namespace velloran {

struct FunRows {
    const FunRow* rows;
    int count;
};

extern const FunRows blur_rows, convolve_rows, defocus_rows, depth_rows, edges_rows, fields_rows, film_rows,
    flares_rows, glare_rows, glow_rows, lightning_rows, looks_rows, noise_rows, pixel_arithmetic_rows,
    pixel_queries_rows, pixel_transforms_rows, pixel_values_rows, pixel_vectors_rows, polygons_rows, stamps_rows,
    time_rows, warps_rows;

}  // namespace velloran
