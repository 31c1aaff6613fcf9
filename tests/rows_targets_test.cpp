// Which target the rows are worked on.
#include "rows/row_targets.h"

#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace velloran {
namespace {

// A run that was asked for one target has no other, also where tests put targets in force.
TEST(RowTargets, TheEnvironmentKeepsToOne) {
    const char* asked = std::getenv("VELLORAN_TARGET");
    const bool free = !asked || !*asked;
    const std::string name = free ? hwy::TargetName(HWY_STATIC_TARGET) : asked;
    setenv("VELLORAN_TARGET", name.c_str(), 1);
    const int64_t target = take_row_target_of_environment();
    EXPECT_STREQ(hwy::TargetName(target), name.c_str());
    std::vector<int64_t> seen;
    velloran_tests::for_each_row_target([&](int64_t one) { seen.push_back(one); });
    EXPECT_EQ(seen, std::vector<int64_t>{target});
    if (free) {
        hwy::DisableTargets(0);
        unsetenv("VELLORAN_TARGET");
    }
}

TEST(RowTargets, AnUnknownNameIsToldAndChangesNothing) {
    const std::string before = std::getenv("VELLORAN_TARGET") ? std::getenv("VELLORAN_TARGET") : "";
    const int64_t supported = hwy::SupportedTargets();
    for (const char* name : {"SSE", "scalar", "AVX22", "NEON"}) {
        setenv("VELLORAN_TARGET", name, 1);
        testing::internal::CaptureStderr();
        EXPECT_EQ(take_row_target_of_environment(), 0) << name;
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_NE(told.find(std::string("no target ") + name + " here"), std::string::npos) << told;
        EXPECT_EQ(hwy::SupportedTargets(), supported);
    }
    if (before.empty())
        unsetenv("VELLORAN_TARGET");
    else
        setenv("VELLORAN_TARGET", before.c_str(), 1);
}

}  // namespace
}  // namespace velloran
