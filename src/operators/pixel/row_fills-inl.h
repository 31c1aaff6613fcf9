// The parts of the table of pixel rows, each filled by its own file with the kernels of the present target.

#if defined(VELLORAN_PIXEL_ROW_FILLS_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_PIXEL_ROW_FILLS_INL_H
#undef VELLORAN_PIXEL_ROW_FILLS_INL_H
#else
#define VELLORAN_PIXEL_ROW_FILLS_INL_H
#endif

#include "hwy/highway.h"
#include "operators/pixel/row_table.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {

void fill_arithmetic_rows(RowTable& table);
void fill_color_rows(RowTable& table);
void fill_function_rows(RowTable& table);
void fill_transform_rows(RowTable& table);
void fill_vector_rows(RowTable& table);

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
