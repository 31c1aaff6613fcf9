// For tests of row functions: runs a body once for each target that this machine supports, with that target in force,
// so that the table fetched inside is the target's own.
#pragma once

#include "rows/row_target.h"

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <cstdint>
#include <cstdio>
#include <vector>

namespace velloran_tests {

// The plain target: the reference.
constexpr int64_t plain_target = HWY_STATIC_TARGET;

// Puts a target in force until the end of the scope.
class TargetScope {
public:
    explicit TargetScope(int64_t target) { velloran::force_row_target(target); }
    ~TargetScope() { velloran::force_row_target(0); }
    TargetScope(const TargetScope&) = delete;
    TargetScope& operator=(const TargetScope&) = delete;
};

// body(target) for the plain target and every other one. Targets that were compiled but that the machine lacks are
// named on standard output.
template <class Body>
void for_each_row_target(Body body) {
    static const std::vector<int64_t> supported = [] {
        const std::vector<int64_t> targets = hwy::SupportedAndGeneratedTargets();
        int64_t missing = HWY_TARGETS;
        for (const int64_t target : targets) missing &= ~target;
        for (; missing; missing &= missing - 1)
            std::printf("[  SKIPPED ] target %s: not on this machine\n", hwy::TargetName(missing & -missing));
        return targets;
    }();
    for (const int64_t target : supported) {
        SCOPED_TRACE(hwy::TargetName(target));
        const TargetScope scope(target);
        body(target);
        if (testing::Test::HasFatalFailure()) return;
    }
}

// What body(...) gives on the plain target.
template <class Body>
auto on_plain_target(Body body) {
    const TargetScope scope(plain_target);
    return body();
}

}  // namespace velloran_tests
