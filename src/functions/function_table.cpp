#include "functions/function_table.h"

#include "functions/rows.h"
#include "genotype/node_fun_table.h"

namespace velloran {
namespace {

const FunRows* const families[] = {&blur_rows,          &convolve_rows,
                                   &defocus_rows,       &depth_rows,
                                   &edges_rows,         &fields_rows,
                                   &film_rows,          &flares_rows,
                                   &glare_rows,         &glow_rows,
                                   &lightning_rows,     &looks_rows,
                                   &noise_rows,         &pixel_arithmetic_rows,
                                   &pixel_queries_rows, &pixel_transforms_rows,
                                   &pixel_values_rows,  &pixel_vectors_rows,
                                   &polygons_rows,      &stamps_rows,
                                   &time_rows,          &warps_rows};

}  // namespace

void fill_node_fun_tables() {
    if (node_fun_tables_filled()) return;
    const FunRow* rows[MAX_FUN_NUMBER];
    int count = 0;
    for (const FunRows* family : families)
        for (int i = 0; i < family->count && count < MAX_FUN_NUMBER; ++i) rows[count++] = &family->rows[i];
    fill_node_fun_tables_with(rows, count);
}

}  // namespace velloran
