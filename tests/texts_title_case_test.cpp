#include "texts/title_case.h"

#include <gtest/gtest.h>

using namespace velloran;

TEST(TitleCase, CapitalsAtWordStartsOnly) {
    struct Case {
        const char* name;
        int size;
        const char* shown;
    };
    const Case cases[] = {
        {"blur_amount", 32, "Blur Amount"},
        {"RGBmix_x2", 32, "RGBmix X2"},
        {"a__b__", 32, "A  B"},
        {"_x", 32, " X"},
        {"2nd pass", 32, "2nd Pass"},
        {"___", 32, ""},
        {"", 32, ""},
        {"ab_cd", 4, "Ab"},
        {"\xe9t\xe9", 32, "\xe9t\xe9"},
        {"abc", 1, ""},
    };
    for (const Case& c : cases) {
        char shown[32];
        param_display_name(shown, c.size, c.name);
        EXPECT_STREQ(shown, c.shown) << c.name;
    }
}
