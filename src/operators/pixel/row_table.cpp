#include "operators/pixel/row_table.h"

#include "rows/row_target.h"

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

// Asked for once for each node and block of a line, so the dispatch is not gone through each time.
const RowTable& pixel_rows() {
    static constinit std::atomic<const RowTable*> chosen{nullptr};
    static constinit std::atomic<int> chosen_at{0};
    const int now = row_target_changes.load(std::memory_order_relaxed);
    if (chosen_at.load(std::memory_order_acquire) != now) {
        chosen.store(HWY_DYNAMIC_DISPATCH(pixel_rows_of_target)(), std::memory_order_relaxed);
        chosen_at.store(now, std::memory_order_release);
    }
    return *chosen.load(std::memory_order_relaxed);
}

}  // namespace velloran
#endif
