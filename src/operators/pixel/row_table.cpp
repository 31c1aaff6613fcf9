#include "operators/pixel/row_table.h"

#include "hwy/targets.h"

namespace velloran {
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

const RowTable* table_in_use = nullptr;

}  // namespace

const RowTable& pixel_rows() {
    static const RowTable table = make_table();
    return table_in_use ? *table_in_use : table;
}

RowTable pixel_rows_for(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    const RowTable table = make_table();
    hwy::SetSupportedTargetsForTest(0);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
    return table;
}

void use_pixel_rows(const RowTable* table) { table_in_use = table; }

}  // namespace velloran
