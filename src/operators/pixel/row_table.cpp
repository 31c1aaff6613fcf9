#include "operators/pixel/row_table.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/row_table.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/row_fills-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

RowTable make_table() {
    RowTable table{};
    fill_arithmetic_rows(table);
    fill_function_rows(table);
    fill_vector_rows(table);
    fill_color_rows(table);
    fill_transform_rows(table);
    return table;
}

}  // namespace

const RowTable* pixel_rows_of_target() {
    static const RowTable table = make_table();
    return &table;
}

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(pixel_rows_of_target);
const RowTable& pixel_rows() { return *HWY_DYNAMIC_DISPATCH(pixel_rows_of_target)(); }
}  // namespace velloran
#endif
