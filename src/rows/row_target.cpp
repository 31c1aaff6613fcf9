#include "rows/row_target.h"

#include "hwy/targets.h"

namespace velloran {

std::atomic<int> row_target_changes{1};

void force_row_target(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    ++row_target_changes;
}

}  // namespace velloran
