#include "rows/row_targets.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

std::atomic<int> row_target_changes{1};

void force_row_target(int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    ++row_target_changes;
}

int64_t take_row_target_of_environment() {
    const char* name = std::getenv("VELLORAN_TARGET");
    if (!name || !*name) return 0;
    const int64_t usable = HWY_TARGETS & (hwy::SupportedTargets() | HWY_STATIC_TARGET);
    for (int64_t rest = usable; rest; rest &= rest - 1) {
        const int64_t target = rest & -rest;
        if (std::strcmp(hwy::TargetName(target), name) != 0) continue;
        hwy::DisableTargets(~target);
        return target;
    }
    std::fprintf(stderr, "VELLORAN_TARGET: no target %s here, but:", name);
    for (int64_t rest = usable; rest; rest &= rest - 1) std::fprintf(stderr, " %s", hwy::TargetName(rest & -rest));
    std::fputc('\n', stderr);
    return 0;
}

}  // namespace velloran
