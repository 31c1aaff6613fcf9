#include "functions/function_table.h"

#include "functions/rows.h"
#include "genotype/node_fun_table.h"
#include "support/abort.h"
#include "support/errors.h"

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
    // By number: two rows of one number, or a number without a row, would shift what stands behind.
    const FunRow* by_number[MAX_FUN_NUMBER] = {};
    int count = 0;
    for (const FunRows* family : families) {
        for (int i = 0; i < family->count; ++i) {
            const FunRow& row = family->rows[i];
            if (row.number < 0 || row.number >= MAX_FUN_NUMBER || by_number[row.number]) {
                V_error(level_error, "%s: the number %d is taken or beyond the table.", row.name, row.number);
                fatal_abort(1);
                return;
            }
            by_number[row.number] = &row;
            ++count;
        }
    }
    for (int n = 0; n < count; ++n) {
        if (by_number[n]) continue;
        V_error(level_error, "The function table has no row %d.", n);
        fatal_abort(1);
        return;
    }
    fill_node_fun_tables_with(by_number, count);
}

}  // namespace velloran
