// Whole frames of a text with a convolution by a picture, against direct sums over the planes: at steps of the sample
// grid, cropped, and on fields.
#include "engine/images.h"
#include "operators/convolve/convolution.h"
#include "testing/edge_position.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace velloran;
using namespace velloran_tests;

namespace {

struct Point {
    int x, y;
};

struct Setting {
    const char* what;
    Shape shape;
    Point corner_1, corner_2, center;  // of the kernel, in pixels
    int edge = 1;
    int colors = 1;
    int field = 0;
    const char* around = "";  // what the picture goes through after the convolution
};

std::string pair_of(Point p) { return "[" + std::to_string(p.x) + " " + std::to_string(p.y) + "]"; }

std::string text_of(const Setting& s) {
    const std::string edge = std::to_string(s.edge);
    return "spread = (convolve Source Back " + pair_of(s.corner_1) + " " + pair_of(s.corner_2) + " " +
           pair_of(s.center) + " [1 1] 1 1 " + std::to_string(s.colors) + " 0 [" + edge + " " + edge +
           "] 2 [0 0 0] 0 0.8) dest = " + (s.around[0] ? s.around : "spread");
}

// A channel of an input as its planes hold it: the sample at the phase of each block of step pixels; on fields the rows
// of the other field are the means of their neighbours.
struct Plane {
    int width, height;
    std::vector<int> samples;
    int& at(int x, int y) { return samples[static_cast<size_t>(y) * static_cast<size_t>(width) + x]; }
    int at(int x, int y) const { return const_cast<Plane*>(this)->at(x, y); }
};

// Rows that are not of the field in hand from the rows around them; as planes are made the first row stays.
Plane one_field(const Plane& in, int field, bool first_row_stays) {
    Plane out = in;
    for (int y = 0; y < in.height && field; ++y) {
        if ((y & 1) != field - 1 || (y == 0 && first_row_stays)) continue;
        const int below = y > 0 ? y - 1 : 1, above = y + 1 < in.height ? y + 1 : below;
        for (int x = 0; x < in.width; ++x) out.at(x, y) = (in.at(x, below) + in.at(x, above)) >> 1;
    }
    return out;
}

Plane plane_of_input(const EngineRig& rig, int input, int channel, int field) {
    const int step = rig.shape.step, phase = (step - 1) / 2;
    Plane plane = {(rig.shape.width + step - 1) / step, (rig.shape.height + step - 1) / step, {}};
    for (int j = 0; j < plane.height; ++j)
        for (int i = 0; i < plane.width; ++i)
            plane.samples.push_back(rig.source(input, std::min(i * step + phase, rig.shape.width - 1),
                                               std::min(j * step + phase, rig.shape.height - 1), channel));
    return one_field(plane, field, true);
}

// The sum of one channel, by each channel's own sum or that of the kernel's luminance.
std::vector<double> model(const EngineRig& rig, const Setting& s, int channel) {
    const int step = s.shape.step;
    const Plane in = one_field(plane_of_input(rig, 0, channel, s.field), s.field, false);
    const Plane red = plane_of_input(rig, 1, 0, s.field), green = plane_of_input(rig, 1, 1, s.field),
                blue = plane_of_input(rig, 1, 2, s.field), own = plane_of_input(rig, 1, channel, s.field);
    // Corners and centre to samples: what a corner's pixel lies in belongs to the part.
    const auto first = [&](int a, int b) { return std::min(a, b) / step; };
    const auto end = [&](int a, int b) { return (std::max(a, b) + step - 1) / step; };
    const int x0 = first(s.corner_1.x, s.corner_2.x), x1 = end(s.corner_1.x, s.corner_2.x);
    const int y0 = first(s.corner_1.y, s.corner_2.y), y1 = end(s.corner_1.y, s.corner_2.y);
    const int cx = (s.shape.width / 2 + s.center.x) / step, cy = (s.shape.height / 2 + s.center.y) / step;
    double divisor = 0;
    std::vector<double> sums(in.samples.size());
    for (int ky = y0; ky < y1; ++ky)
        for (int kx = x0; kx < x1; ++kx) {
            const double v =
                s.colors ? own.at(kx, ky) : 0.3 * red.at(kx, ky) + 0.5 * green.at(kx, ky) + 0.2 * blue.at(kx, ky);
            divisor += v;
            for (int y = 0; y < in.height; ++y)
                for (int x = 0; x < in.width; ++x) {
                    const int from_x = edge_position(x - (kx - cx), in.width, s.edge);
                    const int from_y = edge_position(y - (ky - cy), in.height, s.edge);
                    if (from_x >= 0 && from_y >= 0) sums[y * in.width + x] += v * in.at(from_x, from_y);
                }
        }
    for (double& v : sums) v /= divisor;
    return sums;
}

void expect_model(const EngineRig& rig, const Setting& s) {
    const int step = s.shape.step, width = (s.shape.width + step - 1) / step;
    const RasterRect all = {0, 0, s.shape.width, s.shape.height}, crop = s.shape.crop.w ? s.shape.crop : all;
    for (int c = 0; c < 3; ++c) {
        const std::vector<double> want = model(rig, s, c);
        for (int y = 0; y < s.shape.height; ++y)
            for (int x = 0; x < s.shape.width; ++x) {
                const bool inside = x >= crop.x && x < crop.x + crop.w && y >= crop.y && y < crop.y + crop.h;
                const bool written = !s.field || (y / step & 1) != s.field - 1;
                const double sum = want[static_cast<size_t>(y / step * width + x / step)];
                ASSERT_NEAR(rig.result(x, y, c), inside && written ? std::min(sum, 4095.0) : 0, 1.03)
                    << x << "," << y << "," << c;
            }
    }
}

const Shape full = {61, 44, 1}, third = {121, 92, 3};

const Setting settings[] = {
    {"whole frame", full, {8, 30}, {19, 12}, {-11, 2}},
    {"third of the size", third, {23, 70}, {52, 31}, {-20, 7}},
    {"third of the size, by luminance, wrapped", third, {60, 10}, {91, 38}, {31, -40}, 2, 0},
    {"third of the size, black outside", third, {0, 0}, {31, 30}, {-50, -40}, 0},
    {"third of the size, first field", third, {23, 70}, {52, 31}, {-20, 7}, 3, 1, 1},
    {"third of the size, second field", third, {23, 70}, {52, 31}, {-20, 7}, 1, 1, 2},
    {"first field", full, {8, 30}, {19, 12}, {-11, 2}, 1, 1, 1},
    {"few samples: sums along runs", third, {30, 30}, {46, 46}, {-22, -8}, 1, 0},
};

}  // namespace

TEST(ConvolveFrames, AreTheSumOverTheirPlanes) {
    for (const Setting& setting : settings)
        for (const RasterRect crop : {RasterRect{0, 0, 0, 0}, RasterRect{17, 10, 23, 19}}) {
            Setting s = setting;
            s.shape.crop = crop;
            SCOPED_TRACE(std::string(s.what) + (crop.w ? ", cropped" : ""));
            EngineRig rig(2, s.shape);
            the_frame->render_field = s.field;
            ASSERT_TRUE(rig.load_body(text_of(s)));
            ASSERT_EQ(rig.render(), 0);
            expect_model(rig, s);
            free_fft();
            if (HasFatalFailure()) return;
        }
}

TEST(ConvolveFrames, KernelsStandUntilTheyChange) {
    for (const int step : {1, 3}) {
        SCOPED_TRACE(step);
        Setting s = {"", {120, 90, step}, {23, 70}, {52, 31}, {-20, 7}};
        EngineRig rig(2, s.shape);
        ASSERT_TRUE(rig.load_body(text_of(s)));
        const int before = fft_kernels_built;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(fft_kernels_built, before + 1);
        ASSERT_EQ(rig.render(), 0);
        std::reverse(rig.inputs[0].begin(), rig.inputs[0].end());  // another picture to spread
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(fft_kernels_built, before + 1);
        expect_model(rig, s);
        // A corner that leaves its sample, of a part of the same size.
        s.corner_1.x -= 3;
        s.corner_2.x -= 3;
        ASSERT_TRUE(rig.load_body(text_of(s)));
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(fft_kernels_built, before + 2);
        expect_model(rig, s);
        // The area to be computed, with the same text.
        fft_info_t* info = get_fft_info();
        const std::string key = info->kernel_key;
        EXPECT_FALSE(need_to_set_kernel(info, key.c_str()));
        const RenderInfo outer = the_frame->render_info;
        the_frame->render_info.croprect = {31, 20, 50, 31};
        the_frame->render_info.downsampled = downsampled_rect({31, 20, 50, 31}, step);
        fft_set_std_crop(info);
        the_frame->render_info = outer;
        EXPECT_TRUE(need_to_set_kernel(info, key.c_str()));
        free_fft();
    }
}

// A crop shows what the whole frame shows there, to the bit, whoever reads the convolved planes; and where the last
// pass alone does, no more than the crop is computed.
TEST(ConvolveFrames, CropsDoNotShow) {
    const struct {
        const char* what;
        const char* around;
        bool cropped;
    } readers[] = {
        {"nothing", "", true},
        {"sums", "(+ (* spread 0.5) (* spread Source))", true},
        {"filter", "(blur spread 0.5 1 1 0)", false},
        {"filter and sum", "(+ spread (blur (* spread 0.5) 0.5 1 1 0))", false},
        {"another convolution", "(convolve spread Source [0 0] [9 9] [0 0] [1 1] 1 1 1 1 [1 1] 2 [0 0 0] 0 0.8)", true},
        {"copy", "(+ (copy spread) (copy (* spread 0.25)))", false},
        {"a branch not taken", "(if+ -1 (blur spread 0.5 1 1 0) spread)", false},
    };
    const RasterRect crops[] = {{17, 10, 23, 19}, {0, 0, 5, 91}, {100, 70, 20, 20}, {53, 44, 1, 1}};
    for (const int step : {1, 3})
        for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles})
            for (const auto& reader : readers) {
                SCOPED_TRACE(std::string(reader.what) + " mode " + std::to_string(mode) + " step " +
                             std::to_string(step));
                Setting s = {"", {121, 92, step}, {60, 30}, {68, 36}, {2, -7}};
                s.around = reader.around;
                EngineRig rig(2, s.shape);
                fft_forced_mode = mode;
                const bool ready = rig.load_body(text_of(s)) && rig.render() == 0 && rig.render() == 0;
                const HostFrame whole = rig.dest;
                for (const RasterRect& crop : crops) {
                    rig.load_body(text_of(s));
                    rig.shape.crop = {0, 0, 0, 0};
                    rig.render();  // a frame without a crop is followed by one with
                    rig.shape.crop = crop;
                    rig.render();
                    if (reader.cropped) {
                        EXPECT_EQ(get_fft_info()->crop_w, (crop.x + crop.w + step - 1) / step - crop.x / step);
                        EXPECT_EQ(get_fft_info()->crop_h, (crop.y + crop.h + step - 1) / step - crop.y / step);
                    }
                    for (int y = crop.y; y < crop.y + crop.h; ++y)
                        for (int x = crop.x; x < crop.x + crop.w; ++x)
                            for (int c = 0; c < 3; ++c)
                                ASSERT_EQ(rig.result(x, y, c), whole[rig.index(x, y, c)] >> 4)
                                    << crop.x << "," << crop.y << " at " << x << "," << y;
                }
                fft_forced_mode = 0;
                free_fft();
                ASSERT_TRUE(ready);
            }
}

// Planes that outlive their frame are whole: the next frame may show another part of them.
TEST(ConvolveFrames, KeptPlanesServeAnyCrop) {
    const char* text =
        "spread = (convolve (v3 x y 0.5) (v3 (if> x 0.3 x 0) x 1) [50 20] [58 29] [0 0] [1 1] 1 1 1 0 [1 1] 2 [0 0 0] "
        "0 0.8) dest = (+ Source spread)";
    HostFrame whole;
    {
        EngineRig rig(2, {61, 44, 1});
        ASSERT_TRUE(rig.load_body(text));
        ASSERT_EQ(rig.render(), 0);
        whole = rig.dest;
    }
    EngineRig rig(2, {61, 44, 1});
    ASSERT_TRUE(rig.load_body(text));
    for (const RasterRect& crop : {RasterRect{0, 0, 20, 20}, RasterRect{30, 20, 20, 20}, RasterRect{5, 1, 50, 40}}) {
        rig.shape.crop = crop;
        ASSERT_EQ(rig.render(), 0);
        for (int y = crop.y; y < crop.y + crop.h; ++y)
            for (int x = crop.x; x < crop.x + crop.w; ++x)
                for (int c = 0; c < 3; ++c) ASSERT_EQ(rig.result(x, y, c), whole[rig.index(x, y, c)] >> 4);
    }
    free_fft();
}

// So are those whose output the next frame reads.
TEST(ConvolveFrames, FeedbackSeesTheWholeOutput) {
    const auto third_frame = [](const RasterRect& first, const RasterRect& second) {
        Setting s = {"", {61, 44, 1}, {50, 20}, {58, 29}, {0, 0}};
        s.around = "(dissolve spread (get_prev_dest 0) 0.5)";
        EngineRig rig(2, s.shape);
        EXPECT_TRUE(rig.load_body(text_of(s)));
        for (const RasterRect& crop : {first, second, RasterRect{0, 0, 0, 0}}) {
            rig.shape.crop = crop;
            EXPECT_EQ(rig.render(), 0);
        }
        free_fft();
        return rig.dest;
    };
    const RasterRect whole = {0, 0, 61, 44};
    EXPECT_EQ(third_frame({0, 0, 20, 20}, {30, 20, 20, 20}), third_frame(whole, whole));
}
