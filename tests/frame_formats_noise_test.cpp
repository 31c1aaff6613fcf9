#include "frame/add_noise.h"
#include "records/run_state.h"
#include "support/hash.h"
#include "testing/host_of_tasks.h"
#include "testing/ops_formats.h"

#include <cmath>
#include <set>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr int width = 203, height = 37;

// The plug-in that the noise is of.
struct LoadedPlugin {
    LoadedPlugin() { Globals_V4 = &record; }
    GlobalsV4Record record = {};
} plugin;

// The noise of a row of zeros, through the line function.
std::vector<int32_t> line_noise(const rinfo& dest, int row, int first, int count, int channel) {
    const std::vector<int32_t> zeros(static_cast<size_t>(count));
    const int32_t* lines[4] = {zeros.data(), zeros.data(), zeros.data(), zeros.data()};
    fix_add_noise_to_line(lines, 4, row, first, count, dest);
    return {lines[channel], lines[channel] + count};
}

rinfo noisy_dest(const HostOfTasks& host, float amount) {
    rinfo dest;
    fill_host_raster(&dest, host.info, 1, 0);
    dest.add_noise = amount;
    reserve_noise_lines(dest);
    return dest;
}

}  // namespace

// By hand: from seed 0 the three steps are 150889, 560608, 96857.
static_assert(random_table[0] == (96857u << 18) + (560608u << 8) + (150889u >> 2));
static_assert(bit_hash(0) == [] {
    uint32_t x = random_table[0];
    for (int i = 0; i < 3; ++i) x = x / 256 + random_table[x % 256];
    return x;
}());

TEST(AddNoise, AmplitudeAndMean) {
    const HostOfTasks host(1, width, height);
    const struct {
        float amount;
        int lowest, highest;  // of (byte * 16 - 2048) * amount / 256, towards zero
    } rows[] = {{1.0f, -8, 7}, {16.0f, -128, 127}, {0.02f, 0, 0}, {100000.0f, -800000, 793750}};
    for (const auto& row : rows) {
        const rinfo dest = noisy_dest(host, row.amount);
        int lowest = 0, highest = 0;
        double sum = 0;
        for (int y = 0; y < height; ++y)
            for (const int32_t n : line_noise(dest, y, 0, width, 1)) {
                lowest = std::min(lowest, n);
                highest = std::max(highest, n);
                sum += n;
            }
        EXPECT_EQ(lowest, row.lowest) << row.amount;
        EXPECT_EQ(highest, row.highest) << row.amount;
        EXPECT_LT(std::abs(sum / (width * height)), 0.04 * row.amount * 8 + 0.1) << row.amount;
    }
    free_forked_buffers();
}

TEST(AddNoise, EveryRowChannelAndFrameHasItsOwn) {
    const HostOfTasks host(1, width, height);
    const rinfo dest = noisy_dest(host, 256.0f);
    std::set<std::vector<int32_t>> seen;
    int n = 0;
    for (const float frame : {0.0f, 1.0f, 2.0f, 1000.0f}) {
        the_frame->time_globals.frame = frame;
        for (int row = 0; row < height; ++row)
            for (int c = 0; c < 4; ++c, ++n) seen.insert(line_noise(dest, row, 0, width, c));
    }
    EXPECT_EQ(static_cast<int>(seen.size()), n);
    the_frame->time_globals.frame = 0;
    free_forked_buffers();
}

// Plug-ins in a chain do not add up: what one adds says nothing about what another does.
TEST(AddNoise, PluginsHaveTheirOwn) {
    const HostOfTasks host(1, width, height);
    const rinfo dest = noisy_dest(host, 256.0f);
    std::set<uint32_t> seeds;
    std::vector<std::vector<int32_t>> noise;
    for (const char* name : {"Glow", "Glow2", "wolG", "glow", "Blur"})
        for (int n_loaded = 1; n_loaded < 5; ++n_loaded) {
            EXPECT_EQ(plugin_noise_seed(name, n_loaded), plugin_noise_seed(name, n_loaded));
            seeds.insert(plugin_noise_seed(name, n_loaded));
            plugin.record.noise_seed = plugin_noise_seed(name, n_loaded);
            noise.emplace_back();
            for (int row = 0; row < height; ++row)
                for (const int32_t n : line_noise(dest, row, 0, width, 0)) noise.back().push_back(n);
        }
    plugin.record.noise_seed = 0;
    EXPECT_EQ(seeds.size(), noise.size());
    // The bytes are even from 0 to 255 about 128, so noise has a variance of 16 * 16 * (256 * 256 - 1) / 12; the mean
    // product of n independent ones lies within 5 times that over the root of n.
    const double n = width * height, variance = 256.0 * 65535 / 12;
    for (size_t a = 0; a < noise.size(); ++a)
        for (size_t b = a + 1; b < noise.size(); ++b) {
            double sum = 0;
            for (size_t i = 0; i < noise[a].size(); ++i) sum += (noise[a][i] + 8.0) * (noise[b][i] + 8.0);
            EXPECT_LT(std::abs(sum / n), 5 * variance / std::sqrt(n)) << a << " " << b;
        }
    free_forked_buffers();
}

TEST(AddNoise, AnyPartOfARowIsThatPartOfTheRow) {
    const HostOfTasks host(1, width, height);
    const rinfo dest = noisy_dest(host, 64.0f);
    const std::vector<int32_t> whole = line_noise(dest, 9, 0, width, 2);
    for (const int first : {0, 1, 2, 3, 4, 7, 100, 202})
        for (const int count : {1, 2, 3, 4, 5, 9}) {
            if (first + count > width) continue;
            const std::vector<int32_t> part = line_noise(dest, 9, first, count, 2);
            EXPECT_EQ(part, std::vector<int32_t>(whole.begin() + first, whole.begin() + first + count)) << first;
        }
    free_forked_buffers();
}

TEST(AddNoise, LinesAndImagesOnAnyNumberOfTasksGiveOneOutput) {
    std::mt19937 rng(21);
    for (const FormCase& form : form_cases)
        for (const int step : {1, 3}) {
            const RasterRect crop = {4, 5, 111, 30};
            std::vector<uint8_t> first_output;
            for (const int tasks : {1, 2, 5}) {
                SCOPED_TRACE(testing::Message() << form.name << " step " << step << " tasks " << tasks);
                const HostOfTasks host(tasks, width, height, form.depth);
                std::mt19937 same(22);
                TestFrame by_image(form, width, height, same), by_lines = by_image;
                rinfo dest = noisy_dest(host, 700.0f), working;
                RenderInfo area;
                fill_temp_raster(&working, host.info, step, (step - 1) / 2, &crop);
                fill_render_info(&area, host.info, step, (step - 1) / 2, &crop);
                std::vector<FixPixel> planes[3];
                fix_plane at[3];
                for (int c = 0; c < 3; ++c) {
                    planes[c].resize(static_cast<size_t>(working.width * working.height));
                    for (FixPixel& s : planes[c]) s = random_sample<FixPixel>(same);
                    at[c] = planes[c].data();
                }
                const std::vector<int32_t> original[3] = {{planes[0].begin(), planes[0].end()},
                                                          {planes[1].begin(), planes[1].end()},
                                                          {planes[2].begin(), planes[2].end()}};
                for (int row = crop.y / step; row * step < crop.y + crop.h; ++row) {
                    const int y = std::max(row * step, crop.y), end = std::min((row + 1) * step, crop.y + crop.h);
                    for (int x = crop.x; x < crop.x + crop.w;) {
                        const int n = std::min(1 + static_cast<int>(rng() % 40), crop.x + crop.w - x);
                        const int32_t* lines[3];
                        for (int c = 0; c < 3; ++c)
                            lines[c] = original[c].data() + (row - working.y / step) * working.width + x / step -
                                       working.x / step;
                        dest_converter(dest, by_lines.data(), y, x, n, lines, 3, step, 1, false);
                        x += n;
                    }
                    repeat_dest_row(dest, by_lines.data(), y, end - y - 1, crop.x, crop.w);
                }
                dest_img_converter(at, 3, working, area, dest, by_image.data(), 0, 1, false);
                ASSERT_EQ(by_image.bytes(), by_lines.bytes());
                for (int c = 0; c < 3; ++c) {
                    const int noisy = working.width + 1;
                    const auto n = line_noise(dest, working.y / step + 1, working.x / step + 1, 1, c);
                    const int limit = fix_image_limit;
                    ASSERT_EQ(at[c][noisy], std::clamp(original[c][static_cast<size_t>(noisy)] + n[0], -limit, limit));
                }
                if (tasks == 1) first_output = by_image.bytes();
                ASSERT_EQ(by_image.bytes(), first_output);
                free_forked_buffers();
            }
        }
}
