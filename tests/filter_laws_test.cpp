// What holds for every filter, whatever it computes: a crop shows the inside of the whole frame, and the number of
// tasks does not show. Random pictures, arguments, frames, steps of the sample grid, fields and crops; frames are
// small, so that radii and kernels are large against them.
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>

using namespace velloran;
using namespace velloran_tests;

namespace {

// Letters stand for random numbers: A an amount, mostly small; S a factor of -2 to 2; P a positive factor; Q a switch;
// T an angle in turns; N one of 0 to 3; O a sample's offset in pixels.
const struct {
    const char *name, *value;
    int rounds = 60, larger = 1;  // frames are so many times as large
} filters[] = {
    {"blur", "(blur Source [A A] N [P P S] Q)"},
    {"blur_channels", "(blur_channels Source [A A] [P P P] N [P P P] Q)"},
    {"masked_blur", "(masked_blur Source (* 1.5 (max_element Back)) [A A] N Q)"},
    {"dir_blur", "(dir_blur Source [A A A] T [S S S] N P S N)"},
    {"dir_blur, alike", "(dir_blur Source [0.3 0.3 0.3] T [0 0 0] N 1 0 2)"},
    {"dir_blur, by transforms", "(dir_blur Source [P P P] T [0 0.5 0] N 1 0 N)", 20, 5},
    {"masked_dir_blur", "(masked_dir_blur Source (max_element Back) [A A A] T [S S S] N P S N)"},
    {"band_pass", "(band_pass Source [A A] [A A] S)"},
    {"sharpen", "(sharpen Source [S P S] A)"},
    {"edge_detect", "(edge_detect Source A P Q)"},
    {"grad_direction", "(grad_direction Source A S Q)"},
    {"grad_in_direction", "(grad_in_direction Source [S S] A Q)"},
    {"grad_in_direction, of each pixel", "(grad_in_direction Source (v2 (sin (* x 9)) y) A Q)"},
    {"grad", "(+ (* 0 Source) (+ 0.5 (max_element (grad (max_element Source) A P Q))))"},
    {"grad_for_mipmap", "(* 0.2 (+ (* 0 Source) (max_element (grad_for_mipmap (+ xy (max_element Source)) P Q))))"},
    {"emboss", "(emboss (max_element Source) A P Back [1 P 1] [S S] P 8 Q)"},
    {"convolve", "(convolve Source Back [-O O] [O -O] [O -O] [1 1] P P Q Q [N N] N [0 0 0] Q 0.7)"},
    {"blur of a blur", "(blur (sharpen (blur Source [A A] N 1 Q) 1 A) A N 1 Q)"},
};

class Random {
public:
    explicit Random(unsigned seed) : rng_(seed) {}
    int below(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }
    double unit() { return below(1000) / 1000.0; }
    std::string number(char what) {
        double v = 0;
        switch (what) {
            case 'A':
                v = below(4) ? unit() * 0.6 : below(3) ? unit() * 6 : 0;
                break;
            case 'S':
                v = below(5) ? unit() * 4 - 2 : 0;
                break;
            case 'P':
                v = below(3) ? unit() * 2 : 1;
                break;
            case 'Q':
                v = below(2);
                break;
            case 'T':
                v = below(2) ? unit() : below(4) * 0.25;
                break;
            case 'N':
                v = below(4);
                break;
            default:
                v = below(30);
        }
        char text[32];
        std::snprintf(text, sizeof text, "%g", v);
        return text;
    }
    std::string text(const char* pattern) {
        std::string out;
        bool word = false;  // a letter within a name stands for itself
        for (const char* p = pattern; *p; ++p) {
            const bool next = std::isalpha(static_cast<unsigned char>(p[1])) || p[1] == '_';
            if (std::strchr("ASPQTNO", *p) && !word && !next)
                out += number(*p);
            else
                out += *p;
            word = std::isalpha(static_cast<unsigned char>(*p)) || *p == '_';
        }
        return out;
    }

private:
    std::mt19937 rng_;
};

// rendering(rig) for a random frame of each filter.
template <class Law>
void for_random_frames(unsigned seed, const Law& law) {
    Random random(seed);
    for (const auto& filter : filters)
        for (int round = 0; round < filter.rounds; ++round) {
            const Shape shape = {.width = (2 + random.below(70)) * filter.larger,
                                 .height = (2 + random.below(50)) * filter.larger,
                                 .step = 1 + random.below(3)};
            const std::string value = random.text(filter.value);
            const int field = random.below(4) == 0 ? 1 + random.below(2) : 0;
            SCOPED_TRACE(std::string(filter.name) + " " + std::to_string(shape.width) + "x" +
                         std::to_string(shape.height) + " step " + std::to_string(shape.step) + " field " +
                         std::to_string(field) + ": " + value);
            law(random, shape, "dest = " + value, shape.step == 1 ? field : 0);
            if (testing::Test::HasFatalFailure()) return;
        }
}

HostFrame rendered(int tasks, const Shape& shape, const std::string& body, int field) {
    EngineRig rig(tasks, shape);
    the_frame->render_field = field;
    EXPECT_TRUE(rig.load_body(body));
    EXPECT_EQ(rig.render(), 0);
    the_frame->render_field = 0;
    return rig.dest;
}

}  // namespace

TEST(FilterLaws, ACropShowsTheInsideOfTheWhole) {
    for_random_frames(5, [](Random& random, const Shape& shape, const std::string& body, int field) {
        const HostFrame whole = rendered(1, shape, body, field);
        for (int again = 0; again < 3; ++again) {
            Shape cropped = shape;
            RasterRect& crop = cropped.crop;
            crop.x = random.below(shape.width);
            crop.y = random.below(shape.height);
            crop.w = 1 + random.below(std::min(shape.width - crop.x, 1 + random.below(40)));
            crop.h = 1 + random.below(std::min(shape.height - crop.y, 1 + random.below(40)));
            const HostFrame inside = rendered(1, cropped, body, field);
            for (int y = crop.y; y < crop.y + crop.h; ++y)
                for (int x = crop.x; x < crop.x + crop.w; ++x)
                    for (int c = 0; c < 3; ++c) {
                        const size_t at =
                            (static_cast<size_t>(y) * static_cast<size_t>(shape.width) + static_cast<size_t>(x)) * 3 +
                            static_cast<size_t>(c);
                        ASSERT_EQ(inside[at] >> 4, whole[at] >> 4) << "at " << x << "," << y << " of " << crop.x << " "
                                                                   << crop.y << " " << crop.w << " " << crop.h;
                    }
        }
    });
}

TEST(FilterLaws, TheNumberOfTasksDoesNotShow) {
    for_random_frames(6, [](Random&, const Shape& shape, const std::string& body, int field) {
        const HostFrame one = rendered(1, shape, body, field);
        for (const int tasks : {2, 5}) ASSERT_EQ(rendered(tasks, shape, body, field), one) << tasks;
    });
}
