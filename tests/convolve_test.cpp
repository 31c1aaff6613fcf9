// The convolution in all its ways of running against direct sums in double precision.
#include "operators/convolve/convolution.h"

#include "hosts/common/host.h"
#include "operators/fft/fft_config.h"
#include "operators/fft/fft_sizes.h"
#include "records/frame.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"
#include "testing/edge_position.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

using namespace velloran;
using velloran_tests::edge_position;

namespace {

using Plane = std::vector<FixPixel>;

struct Kernel {
    int width, height, centre_x, centre_y;
    std::vector<std::vector<float>> planes;
};

struct Crop {
    int x, y, w, h;
};

Plane random_plane(int width, int height, unsigned seed = 1, int low = 0, int high = 4095) {
    std::mt19937 rng(seed);
    Plane plane(static_cast<size_t>(width) * height);
    for (FixPixel& v : plane) v = static_cast<FixPixel>(std::uniform_int_distribution<int>(low, high)(rng));
    return plane;
}

Kernel random_kernel(int width, int height, int centre_x, int centre_y, int channels = 1, unsigned seed = 5) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> values(-0.2f, 1.2f);
    Kernel k = {width, height, centre_x, centre_y, {}};
    k.planes.resize(channels, std::vector<float>(static_cast<size_t>(width) * height));
    for (auto& plane : k.planes)
        for (float& v : plane) v = values(rng);
    return k;
}

Kernel disc(int radius) {
    Kernel k = {2 * radius + 1, 2 * radius + 1, radius, radius, {{}}};
    for (int y = -radius; y <= radius; ++y)
        for (int x = -radius; x <= radius; ++x) k.planes[0].push_back(x * x + y * y <= radius * radius ? 1.0f : 0.0f);
    return k;
}

double divisor(const Kernel& k, int channel, int autoscale) {
    std::vector<double> sums, counts;
    int left = k.width, right = -1, bottom = k.height, top = -1;
    for (const auto& plane : k.planes) {
        double sum = 0, count = 0;
        for (int i = 0; i < k.width * k.height; ++i) {
            sum += plane[i];
            if (plane[i] == 0) continue;
            ++count;
            left = std::min(left, i % k.width);
            right = std::max(right, i % k.width);
            bottom = std::min(bottom, i / k.width);
            top = std::max(top, i / k.width);
        }
        sums.push_back(sum);
        counts.push_back(count);
    }
    switch (autoscale) {
        case 0:
            return 1;
        case 1:
            return (right - left + 1) * (top - bottom + 1);
        case 3:
            return channel == 3 ? 1 : sums.size() >= 3 ? 0.3 * sums[0] + 0.5 * sums[1] + 0.2 * sums[2] : sums[0];
        case 4:
            return sums[channel];
        case 5:
            return *std::max_element(counts.begin(), counts.end());
        default:
            return *std::max_element(sums.begin(), sums.end());
    }
}

double model(const Plane& in, int width, int height, int x, int y, const Kernel& k, int channel, int autoscale,
             int edge_x, int edge_y) {
    double sum = 0;
    for (int j = 0; j < k.height; ++j)
        for (int i = 0; i < k.width; ++i) {
            const int from_x = edge_position(x - (i - k.centre_x), width, edge_x);
            const int from_y = edge_position(y - (j - k.centre_y), height, edge_y);
            if (from_x >= 0 && from_y >= 0)
                sum += double{k.planes[channel][j * k.width + i]} * in[from_y * width + from_x];
        }
    const double d = divisor(k, channel, autoscale);
    return d == 0 ? 0 : std::clamp(sum / d, -32767.0, 32767.0);
}

class Convolve : public testing::Test {
protected:
    void SetUp() override {
        spark_host::use_host(&mine);
        tasks(2);
        reset_abort();
        fft_forced_mode = 0;
        fft_fail_with = 0;
        caught().clear();
        set_error_printer([](int, const char* text) { caught().push_back(text); });
    }
    void TearDown() override {
        set_error_printer(nullptr);
        free_fft();
        spark_host::use_host(nullptr);
    }
    void tasks(int n) {
        mine.processors = n;
        set_cpu_count(n, 1);
    }
    static std::vector<std::string>& caught() {
        static std::vector<std::string> texts;
        return texts;
    }
    // Sets the kernel if it is not there, and convolves with each of its channels.
    std::vector<Plane> run(const Plane& in, int width, int height, const Kernel& k, Crop crop, int autoscale,
                           int edge_x, int edge_y, const char* key = "kernel", int field = 0) {
        fft_info_t* info = get_fft_info();
        fft_set_crop(info, {width, height, width, height, crop.x, crop.y, crop.w, crop.h, field});
        std::vector<const float*> planes;
        for (const auto& plane : k.planes) planes.push_back(plane.data());
        if (need_to_set_kernel(info, key))
            fft_set_kernel_float(info, planes.data(),
                                 {k.width, k.height, static_cast<int>(planes.size()), k.centre_x, k.centre_y, autoscale,
                                  edge_x, edge_y, key});
        std::vector<Plane> out(planes.size(), Plane(in.size(), untouched));
        for (size_t c = 0; c < planes.size(); ++c)
            convolve_fix_fix(info, in.data(), out[c].data(), 1, static_cast<int>(c));
        return out;
    }
    void expect_model(const Plane& in, int width, int height, const Kernel& k, Crop crop, int autoscale, int edge_x,
                      int edge_y) {
        free_fft_bufs(get_fft_info());
        const std::vector<Plane> out = run(in, width, height, k, crop, autoscale, edge_x, edge_y);
        double worst = 0;
        for (size_t c = 0; c < out.size(); ++c)
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const FixPixel got = out[c][y * width + x];
                    if (x < crop.x || x >= crop.x + crop.w || y < crop.y || y >= crop.y + crop.h) {
                        ASSERT_EQ(got, untouched) << "outside the crop, " << x << ", " << y;
                        continue;
                    }
                    const double want =
                        model(in, width, height, x, y, k, static_cast<int>(c), autoscale, edge_x, edge_y);
                    worst = std::max(worst, std::fabs(got - want));
                    ASSERT_NEAR(got, want, 1.03) << "channel " << c << " at " << x << ", " << y << " mode "
                                                 << get_fft_info()->mode << " edges " << edge_x << edge_y;
                }
        EXPECT_LT(worst, 1.03);
    }
    static constexpr FixPixel untouched = -12345;
    spark_host::Host mine;
};

}  // namespace

TEST_F(Convolve, EveryWayAndEdgeEqualsTheSum) {
    const int width = 61, height = 47;
    const Plane in = random_plane(width, height);
    const Kernel kernels[] = {random_kernel(9, 7, 4, 3), random_kernel(5, 12, 0, 11), random_kernel(8, 3, 20, -6)};
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles_in_turn, convolve_tiles})
        for (const Kernel& k : kernels)
            for (int edges = 0; edges < 16; ++edges) {
                fft_forced_mode = mode;
                const Crop crop = edges & 1 ? Crop{7, 5, 40, 33} : Crop{0, 0, width, height};
                expect_model(in, width, height, k, crop, autoscale_each, edges / 4, edges % 4);
                if (HasFatalFailure()) return;
            }
    EXPECT_TRUE(caught().empty());
}

TEST_F(Convolve, EveryAutoscale) {
    const int width = 33, height = 21;
    const Plane in = random_plane(width, height, 3, -1000, 1000);
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles})
        for (int channels = 1; channels <= 4; ++channels)
            for (int autoscale = 0; autoscale <= 5; ++autoscale) {
                fft_forced_mode = mode;
                SCOPED_TRACE(autoscale);
                Kernel k = random_kernel(5, 5, 2, 2, channels);
                for (auto& plane : k.planes) plane[3] = plane[4] = plane[0] = 0;
                expect_model(in, width, height, k, {0, 0, width, height}, autoscale, 1, 3);
            }
}

TEST_F(Convolve, ChoosesTheWayByTheKernel) {
    const struct {
        const char* what;
        Kernel kernel;
        int width, height, processors, mode;
    } rows[] = {
        {"disc of few rows", disc(10), 100, 80, 2, convolve_direct},
        {"65 single samples on a small image", random_kernel(65, 1, 32, 0), 100, 30, 2, convolve_one_transform},
        {"64 single samples", random_kernel(64, 1, 32, 0), 100, 30, 2, convolve_direct},
        {"small kernel, large image", random_kernel(17, 17, 8, 8), 150, 400, 2, convolve_tiles},
        {"kernel larger than the image", random_kernel(90, 70, 44, 30), 31, 25, 2, convolve_one_transform},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        tasks(row.processors);
        expect_model(random_plane(row.width, row.height), row.width, row.height, row.kernel,
                     {0, 0, row.width, row.height}, autoscale_largest, 3, 1);
        EXPECT_EQ(get_fft_info()->mode, row.mode);
    }
    // A stretch of ones counts its beginning and its end, so 32 of them are 64.
    for (const int stretches : {32, 33}) {
        Kernel k = {200, 1, 100, 0, {std::vector<float>(200)}};
        for (int i = 0; i < stretches; ++i)
            for (int j = 0; j < 4; ++j) k.planes[0][6 * i + j] = 1;
        expect_model(random_plane(90, 40), 90, 40, k, {0, 0, 90, 40}, autoscale_largest, 2, 0);
        EXPECT_EQ(get_fft_info()->mode == convolve_direct, stretches == 32);
    }
}

TEST_F(Convolve, SingleSampleAndNothing) {
    const Plane in = random_plane(40, 30, 2, -5000, 9000);
    Kernel one = {5, 5, 2, 2, {std::vector<float>(25)}};
    one.planes[0][12] = 2;
    expect_model(in, 40, 30, one, {3, 4, 30, 20}, autoscale_none, 0, 0);
    expect_model(in, 40, 30, one, {0, 0, 40, 30}, autoscale_each, 0, 0);
    one.planes[0][12] = 0;
    one.planes[0][0] = 2;  // off centre it moves the picture
    expect_model(in, 40, 30, one, {0, 0, 40, 30}, autoscale_none, 1, 2);
    one.planes[0][0] = 0;
    EXPECT_EQ(run(in, 40, 30, one, {0, 0, 40, 30}, autoscale_each, 0, 0, "nothing")[0], Plane(in.size(), 0));
    EXPECT_EQ(run(in, 40, 30, one, {0, 0, 40, 30}, autoscale_none, 0, 0, "nothing at all")[0], Plane(in.size(), 0));
}

TEST_F(Convolve, TasksAndTargetsDoNotShow) {
    const int width = 301, height = 260;
    const Plane in = random_plane(width, height);
    const Kernel kernels[] = {random_kernel(21, 17, 10, 8), disc(9)};
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles}) {
        const Kernel& k = kernels[mode == convolve_direct];
        fft_forced_mode = mode;
        tasks(1);
        const std::vector<Plane> want = run(in, width, height, k, {1, 2, 290, 250}, autoscale_each, 3, 3, "one");
        for (int n = 2; n <= 8; ++n) {
            tasks(n);
            free_fft_bufs(get_fft_info());
            EXPECT_EQ(run(in, width, height, k, {1, 2, 290, 250}, autoscale_each, 3, 3), want)
                << n << " tasks, mode " << mode;
        }
        velloran_tests::for_each_row_target([&](int64_t) {
            free_fft_bufs(get_fft_info());
            EXPECT_EQ(run(in, width, height, k, {1, 2, 290, 250}, autoscale_each, 3, 3), want);
        });
        Plane plane = in;  // in place
        const fft_info_t* info = get_fft_info();
        ASSERT_EQ(info->mode, mode);
        convolve_fix_fix(get_fft_info(), plane.data(), plane.data(), 1, 0);
        for (int y = 2; y < 252; ++y)
            for (int x = 1; x < 291; ++x) ASSERT_EQ(plane[y * width + x], want[0][y * width + x]);
    }
}

// The way of running follows sizes alone: many tasks or one, and also where a kernel is kept while the tasks change,
// the sums are the same to the last bit.
TEST_F(Convolve, TheNumberOfTasksChoosesNothing) {
    std::mt19937 rng(21);
    const auto between = [&](int low, int high) { return low + static_cast<int>(rng() % unsigned(high - low + 1)); };
    for (int i = 0; i < 40; ++i) {
        const int width = between(1, 150), height = between(1, 150);
        const Plane in = random_plane(width, height, static_cast<unsigned>(i));
        const Kernel k = random_kernel(between(1, 40), between(1, 40), between(-3, 40), between(-3, 40), 1, rng());
        const int edge = between(0, 3);
        std::vector<float> want;
        int mode = 0;
        for (const int n : {1, 2, 5, 64, 3}) {
            tasks(n);
            if (n != 3) free_fft_bufs(get_fft_info());
            run(in, width, height, k, {0, 0, width, height}, autoscale_each, edge, 3 - edge);
            std::vector<float> sums(in.size());
            convolve_fix_float(get_fft_info(), in.data(), sums.data(), 1, 0);
            if (n == 1) {
                want = sums;
                mode = get_fft_info()->mode;
            }
            ASSERT_EQ(get_fft_info()->mode, mode) << i;
            ASSERT_EQ(sums, want) << i << ": " << width << "x" << height << " on " << n << ", mode " << mode;
        }
    }
}

// What of a kernel of samples is taken, told by its divisor: the area of the part that counts.
TEST_F(Convolve, EmptyRowsOfKernelsOfSamples) {
    const int width = 40, height = 30, size = 9;
    const Plane in = random_plane(width, height);
    const struct {
        const char* what;
        int centre_y, first, last;  // the kernel has samples in rows first .. last of 9, in columns 2 .. 6
        bool symmetrical;
        int counted;  // rows
    } rows[] = {{"either side of the centre", 4, 3, 5, false, 3},
                {"the same, kept symmetrical", 4, 3, 5, true, 3},
                {"above the centre", 4, 6, 7, false, 2},
                {"above the centre, counted from there", 4, 6, 7, true, 4},
                {"below the centre: the other walk goes past it", 4, 1, 2, true, 2},
                {"centre in the first row", 0, 5, 5, true, 6},
                {"centre below the kernel", -3, 5, 5, true, 6},
                {"centre above the kernel", 20, 5, 5, true, 1}};
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles})
        for (const auto& row : rows) {
            SCOPED_TRACE(row.what);
            fft_forced_mode = mode;
            Plane samples(size * size);
            Kernel k = {size, size, 4, row.centre_y, {std::vector<float>(size * size)}};
            for (int y = row.first; y <= row.last; ++y)
                for (int x = 2; x <= 6; ++x) {
                    samples[y * size + x] = static_cast<FixPixel>(4096 / (x + y));
                    k.planes[0][y * size + x] = static_cast<float>(4096 / (x + y)) / 4096;
                }
            fft_info_t* info = get_fft_info();
            fft_set_crop(info, {width, height, width, height, 0, 0, width, height, 0});
            const FixPixel* planes[] = {samples.data()};
            fft_set_kernel(info, planes,
                           {size, size, 1, 4, row.centre_y, autoscale_area, 2, 2, "samples", row.symmetrical});
            Plane out(in.size());
            convolve_fix_fix(info, in.data(), out.data(), 1, 0);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    ASSERT_NEAR(out[y * width + x],
                                model(in, width, height, x, y, k, 0, autoscale_none, 2, 2) / (5 * row.counted), 1.03);
        }
    // Nothing stays nothing.
    const Plane none(size * size);
    const FixPixel* planes[] = {none.data()};
    fft_set_kernel(get_fft_info(), planes, {size, size, 1, 4, 4, autoscale_area, 0, 0, "none", true});
    Plane out = in;
    convolve_fix_fix(get_fft_info(), in.data(), out.data(), 1, 0);
    EXPECT_EQ(out, Plane(in.size(), 0));
}

TEST_F(Convolve, CentroidOfAKernel) {
    Plane k(7 * 5);
    k[1 * 7 + 2] = 1000;
    k[3 * 7 + 5] = 3000;
    float x, y;
    fft_get_centroid(k.data(), 7, 5, &x, &y);
    EXPECT_FLOAT_EQ(x, (2 + 3 * 5) / 4.0f);
    EXPECT_FLOAT_EQ(y, (1 + 3 * 3) / 4.0f);
    k[3 * 7 + 5] = -1000;  // no weight at all: the middle
    fft_get_centroid(k.data(), 7, 5, &x, &y);
    EXPECT_EQ(x, 3);
    EXPECT_EQ(y, 2);
}

TEST_F(Convolve, KeepsTheKernelFromFrameToFrame) {
    const Plane in = random_plane(80, 60);
    const Kernel k = random_kernel(20, 20, 10, 10);
    const int before = fft_kernels_built;
    run(in, 80, 60, k, {0, 0, 80, 60}, autoscale_each, 1, 1, "a");
    run(in, 80, 60, k, {0, 0, 80, 60}, autoscale_each, 1, 1, "a");
    EXPECT_EQ(fft_kernels_built, before + 1);
    EXPECT_TRUE(need_to_set_kernel(get_fft_info(), "b"));
    EXPECT_TRUE(need_to_set_kernel(nullptr, "a"));
    const std::vector<Plane> cropped = run(in, 80, 60, k, {10, 10, 50, 40}, autoscale_each, 1, 1, "a");
    EXPECT_EQ(fft_kernels_built, before + 2);
    const double want = model(in, 80, 60, 10, 10, k, 0, autoscale_each, 1, 1);
    EXPECT_NEAR(cropped[0][10 * 80 + 10], want, 1.03);
    // A crop of the same size elsewhere needs no new kernel.
    const std::vector<Plane> moved = run(in, 80, 60, k, {20, 15, 50, 40}, autoscale_each, 1, 1, "a");
    EXPECT_EQ(fft_kernels_built, before + 2);
    EXPECT_NEAR(moved[0][15 * 80 + 20], model(in, 80, 60, 20, 15, k, 0, autoscale_each, 1, 1), 1.03);
}

// A crop within the one for which the kernel was set leaves every sample in it as it is, and the rest alone.
TEST_F(Convolve, SmallerCropsChangeNothingInside) {
    const int width = 211, height = 160;
    const Plane in = random_plane(width, height);
    const Kernel k = random_kernel(13, 11, 4, 8);
    std::mt19937 rng(8);
    const auto below = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles_in_turn, convolve_tiles}) {
        fft_forced_mode = mode;
        free_fft_bufs(get_fft_info());
        const Crop all = {3, 2, 200, 150};
        const Plane whole = run(in, width, height, k, all, autoscale_each, 2, 3)[0];
        std::vector<float> whole_sums(in.size());
        convolve_fix_float(get_fft_info(), in.data(), whole_sums.data(), 1, 0);
        for (int i = 0; i < 40; ++i) {
            const int x = all.x + below(all.w), y = all.y + below(all.h);
            const Crop crop = {x, y, 1 + below(all.x + all.w - x), 1 + below(all.y + all.h - y)};
            SCOPED_TRACE("mode " + std::to_string(mode) + ", " + std::to_string(crop.x) + " " + std::to_string(crop.y) +
                         " " + std::to_string(crop.w) + " " + std::to_string(crop.h));
            fft_set_crop(get_fft_info(), {width, height, width, height, crop.x, crop.y, crop.w, crop.h, 0});
            Plane out(in.size(), untouched);
            std::vector<float> sums(in.size(), -1e9f);
            convolve_fix_fix(get_fft_info(), in.data(), out.data(), 1, 0);
            convolve_fix_float(get_fft_info(), in.data(), sums.data(), 1, 0);
            for (int j = 0; j < width * height; ++j) {
                const bool inside = j % width >= crop.x && j % width < crop.x + crop.w && j / width >= crop.y &&
                                    j / width < crop.y + crop.h;
                ASSERT_EQ(out[j], inside ? whole[j] : untouched) << j % width << "," << j / width;
                ASSERT_EQ(sums[j], inside ? whole_sums[j] : -1e9f) << j % width << "," << j / width;
            }
        }
    }
}

TEST_F(Convolve, FieldsDoNotMix) {
    // Even rows 1000, odd rows 3000: each field alone is flat.
    const int width = 50, height = 41;
    Plane in(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) in[y * width + x] = y & 1 ? 3000 : 1000;
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles})
        for (const int field : {1, 2}) {
            fft_forced_mode = mode;
            const FixPixel own = field == 1 ? 3000 : 1000;  // field 1 renders the odd rows, 2 the even ones
            free_fft_bufs(get_fft_info());
            const Plane out = run(in, width, height, random_kernel(9, 9, 4, 4), {0, 0, width, height}, autoscale_each,
                                  1, 1, "k", field)[0];
            for (const FixPixel v : out) ASSERT_NEAR(v, own, 1) << "mode " << mode << " field " << field;
        }
}

TEST_F(Convolve, StopsWhenTheUserAborts) {
    const Plane in = random_plane(300, 300);
    mine.pen.pressure = 1;
    static double now;
    now = 0;
    double (*const clock)() = abort_clock;
    abort_clock = [] { return now += 3; };
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles}) {
        fft_forced_mode = mode;
        free_fft_bufs(get_fft_info());
        reset_abort();
        const Plane out = run(in, 300, 300, random_kernel(9, 9, 4, 4), {0, 0, 300, 300}, autoscale_each, 1, 1)[0];
        EXPECT_TRUE(render_aborted_p());
        EXPECT_NE(std::count(out.begin(), out.end(), untouched), 0) << mode;
    }
    abort_clock = clock;
    mine.pen.pressure = 0;
    reset_abort();
    expect_model(in, 300, 300, random_kernel(9, 9, 4, 4), {100, 100, 20, 20}, autoscale_each, 1, 1);
}

TEST_F(Convolve, FailingTransformsAreReported) {
    const Plane in = random_plane(80, 200);
    fft_forced_mode = convolve_tiles;
    fft_fail_with = fft_memory_error;
    run(in, 80, 200, random_kernel(9, 9, 4, 4), {0, 0, 80, 200}, autoscale_each, 1, 1, "failing");
    ASSERT_FALSE(caught().empty());
    EXPECT_EQ(caught()[0], "DftiCreateDescriptor error: 1 = Memory error");
    free_fft_bufs(get_fft_info());
    caught().clear();
    expect_model(in, 80, 200, random_kernel(9, 9, 4, 4), {0, 0, 80, 200}, autoscale_each, 1, 1);
    EXPECT_TRUE(caught().empty());
    // A plan that is lost after the kernel was set: the way back's, which is made first.
    tasks(1);
    fft_config_free();
    fft_fail_with = fft_memory_error;
    Plane out(in.size());
    convolve_fix_fix(get_fft_info(), in.data(), out.data(), 1, 0);
    for (const char* text : {"DftiCreateDescriptor error: 1 = Memory error",
                             "thread 0 dir 0 expecting cached fft_config, but didn't find it!\n",
                             "DftiComputeBackward error: 3 = Transform is not ready"})
        EXPECT_NE(std::count(caught().begin(), caught().end(), text), 0) << text;
    EXPECT_EQ(std::count(caught().begin(), caught().end(), "DftiComputeForward(1) error: 3 = Transform is not ready"),
              0);
    caught().clear();
    expect_model(in, 80, 200, random_kernel(9, 9, 4, 4), {0, 0, 80, 200}, autoscale_each, 1, 1);
    EXPECT_TRUE(caught().empty());
}

// How many threads a transform library may take is the user's to say.
TEST_F(Convolve, TheEnvironmentsThreadsStay) {
    const char* const name = "OMP_NUM_THREADS";
    const char* const outer = std::getenv(name);
    const std::string kept = outer ? outer : "";
    for (const bool given : {true, false}) {
        free_fft();
        if (given)
            setenv(name, "7", 1);
        else
            unsetenv(name);
        init_fft();
        const std::string wanted = given ? "7" : std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
        ASSERT_NE(std::getenv(name), nullptr);
        EXPECT_EQ(std::getenv(name), wanted);
    }
    if (outer)
        setenv(name, kept.c_str(), 1);
    else
        unsetenv(name);
}

TEST_F(Convolve, WrapAreaBoundsTheEdges) {
    const int width = 40, height = 30;
    const Plane in = random_plane(width, height);
    rinfo& raster = the_frame->temp_raster_info = {};
    raster.width = width;
    raster.height = height;
    raster.render_step = 1;
    raster.wrap = {8, 6, 20, 15, 8, 6, 20, 15, 1};
    Plane inner;
    for (int y = 6; y < 21; ++y)
        for (int x = 8; x < 28; ++x) inner.push_back(in[y * width + x]);
    const Kernel k = random_kernel(7, 7, 3, 3);
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles})
        for (int edge = 0; edge < 4; ++edge) {
            fft_forced_mode = mode;
            free_fft_bufs(get_fft_info());
            const Plane out = run(in, width, height, k, {8, 6, 20, 15}, autoscale_each, edge, edge)[0];
            for (int y = 0; y < 15; ++y)
                for (int x = 0; x < 20; ++x)
                    ASSERT_NEAR(out[(y + 6) * width + x + 8],
                                model(inner, 20, 15, x, y, k, 0, autoscale_each, edge, edge), 1.03);
        }
    raster.wrap.wrap_sw = 60;  // beyond the image: reported, and the image's own edges count
    for (const int mode : {convolve_direct, convolve_one_transform, convolve_tiles}) {
        caught().clear();
        fft_forced_mode = mode;
        free_fft_bufs(get_fft_info());
        const Plane out = run(in, width, height, k, {8, 6, 20, 15}, autoscale_each, 1, 1)[0];
        EXPECT_NEAR(out[6 * width + 8], model(in, width, height, 8, 6, k, 0, autoscale_each, 1, 1), 1.03);
        EXPECT_EQ(caught(), (std::vector<std::string>{"Copy_subimage: wrap dims err: 8, 6, 60, 15, vs 40x30\n"}));
    }
    the_frame->temp_raster_info = {};
}

TEST(FftSizes, AreEvenAndSmooth) {
    const int rows[][2] = {{1, 2},       {2, 2},     {7, 8},     {1001, 1024},
                           {1001, 1024}, {961, 972}, {127, 128}, {2049, 2160 - 110}};
    for (const auto& row : rows) {
        int n = row[0] + row[0] % 2;
        for (;; n += 2) {
            int m = n;
            for (const int f : {2, 3, 5})
                while (m % f == 0) m /= f;
            if (m == 1) break;
        }
        EXPECT_EQ(good_size(row[0]), n);
    }
    EXPECT_EQ(good_size(1001), 1024);
}
