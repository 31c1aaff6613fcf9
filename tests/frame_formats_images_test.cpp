// Whole frames to planes and back: geometry, stripes, fields, backgrounds, and stores that go past the caches.
#include "frame/pixel_formats_rows.h"
#include "testing/caught_messages.h"
#include "testing/host_of_tasks.h"
#include "testing/ops_formats.h"
#include "testing/row_targets.h"

#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr FixPixel poison = 0x5EAD;

// Four planes with guards.
struct Planes {
    Planes(int width, int height, int shift = 0) {
        for (int c = 0; c < 4; ++c) {
            samples[c].assign(static_cast<size_t>(width * height + 192), poison);
            at[c] = samples[c].data() + 64 + shift;
        }
    }
    void randomise(std::mt19937& rng) {
        for (auto& plane : samples)
            for (FixPixel& s : plane) s = random_sample<FixPixel>(rng);
    }
    std::vector<FixPixel> samples[4];
    FixPixel* at[4];
};

struct Geometry {
    int step;
    RasterRect area;  // of the working planes, in pixels, before it is put on the grid
    RasterRect crop;
};

constexpr int width = 101, height = 67;
const Geometry geometries[] = {
    {1, {0, 0, width, height}, {0, 0, width, height}},
    {1, {10, 5, 60, 40}, {11, 7, 33, 21}},
    {2, {0, 0, width, height}, {0, 0, width, height}},
    {2, {9, 9, 50, 41}, {13, 15, 31, 22}},
    {3, {20, 10, 81, 57}, {23, 11, 78, 56}},
    {6, {0, 0, width, height}, {7, 8, 17, 19}},
    {32, {33, 1, 68, 66}, {40, 2, 30, 61}},
    {32, {0, 0, width, height}, {0, 0, width, height}},
};

std::string describe(const FormCase& form, const Geometry& g, int tasks) {
    return std::string(form.name) + " step " + std::to_string(g.step) + " crop " + std::to_string(g.crop.x) + "," +
           std::to_string(g.crop.y) + " tasks " + std::to_string(tasks);
}

}  // namespace

TEST(FormatImages, SourceOnAnyNumberOfTasks) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(11);
        const RandomLuts luts(rng);
        for (const FormCase& form : form_cases)
            for (const Geometry& g : geometries)
                for (const int tasks : {1, 2, 5})
                    for (const bool lut : {false, true}) {
                        SCOPED_TRACE(describe(form, g, tasks));
                        const HostOfTasks host(tasks, width, height, form.depth);
                        TestFrame frame(form, width, height, rng);
                        const int phase = (g.step - 1) / 2;
                        rinfo source, working;
                        fill_host_raster(&source, host.info, g.step, phase);
                        fill_temp_raster(&working, host.info, g.step, phase, &g.area);
                        Planes planes(working.width, working.height);
                        source_converter(source, frame.data(), working, planes.at, 3, lut);
                        Planes expected(working.width, working.height);
                        for (int j = 0; j < working.height; ++j)
                            for (int i = 0; i < working.width; ++i)
                                for (int c = 0; c < 3; ++c) {
                                    const int x = std::min(working.x + i * g.step + phase, width - 1);
                                    const int y = std::min(working.y + j * g.step + phase, height - 1);
                                    expected.at[c][j * working.width + i] =
                                        static_cast<FixPixel>(expected_sample(form, frame.element(x, y, c), lut));
                                }
                        for (int c = 0; c < 4; ++c) ASSERT_EQ(planes.samples[c], expected.samples[c]) << "plane " << c;
                    }
    });
}

TEST(FormatImages, BackgroundAroundASourceSmallerThanTheArea) {
    const struct {
        const char* name;
        int x, y;  // where the source stands in the area
    } rows[] = {{"inside", 12, 8},        {"over the left edge", -20, 8},
                {"over the top", 12, 30}, {"beside", 200, 0},
                {"above", 0, 300},        {"below", 0, -300},
                {"touching", -32, 0},     {"one column", -31, 0}};
    const FormCase& form = form_cases[2];
    std::mt19937 rng(12);
    for (const int tasks : {1, 2, 5})
        for (const int area_width : {40, 1201})  // small fills do not fork
            for (const auto& row : rows) {
                SCOPED_TRACE(testing::Message() << row.name << " tasks " << tasks << " width " << area_width);
                constexpr int source_width = 32, source_height = 16, area_height = 40;
                const HostOfTasks host(tasks, area_width, area_height, form.depth);
                TestFrame frame(form, source_width, source_height, rng);
                rinfo source, working;
                fill_host_raster(&source, frame_info(form, source_width, source_height), 1, 0);
                fill_temp_raster(&working, host.info, 1, 0, nullptr);
                source.x = row.x;
                source.y = row.y;
                source.background[0] = 1.0f;
                source.background[1] = 0.0f;
                source.background[2] = -1.0f / 16;  // both bytes of the sample agree in none of the others
                const FixPixel background[] = {4096, 0, -256};
                Planes planes(area_width, area_height), expected(area_width, area_height);
                source_converter(source, frame.data(), working, planes.at, 3, false);
                for (int y = 0; y < area_height; ++y)
                    for (int x = 0; x < area_width; ++x)
                        for (int c = 0; c < 3; ++c) {
                            const int sx = x - row.x, sy = y - row.y;
                            const bool inside = sx >= 0 && sx < source_width && sy >= 0 && sy < source_height;
                            expected.at[c][y * area_width + x] = static_cast<FixPixel>(
                                inside ? expected_sample(form, frame.element(sx, sy, c), false) : background[c]);
                        }
                for (int c = 0; c < 4; ++c) ASSERT_EQ(planes.samples[c], expected.samples[c]) << "plane " << c;
            }
}

TEST(FormatImages, DestOnAnyNumberOfTasks) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(13);
        const RandomLuts luts(rng);
        for (const FormCase& form : form_cases)
            for (const Geometry& g : geometries)
                for (const int tasks : {1, 2, 5})
                    for (const int field : {0, 1, 2}) {
                        SCOPED_TRACE(describe(form, g, tasks) + " field " + std::to_string(field));
                        const int vlen = 1 + static_cast<int>(rng() % 4);
                        const bool lut = rng() % 2;
                        const HostOfTasks host(tasks, width, height, form.depth);
                        TestFrame frame(form, width, height, rng), expected = frame;
                        rinfo dest, working;
                        RenderInfo area;
                        fill_host_raster(&dest, host.info, 1, 0);
                        fill_temp_raster(&working, host.info, g.step, (g.step - 1) / 2, &g.area);
                        fill_render_info(&area, host.info, g.step, (g.step - 1) / 2, &g.crop);
                        Planes planes(working.width, working.height);
                        planes.randomise(rng);
                        const Planes before = planes;
                        dest_img_converter(planes.at, vlen, working, area, dest, frame.data(), field, 1, lut);

                        // The first row of each block is written over what it held, the others are copies of it.
                        for (int y = g.crop.y; y < g.crop.y + g.crop.h; ++y) {
                            const int block = y / g.step;
                            if (field && block % 2 == field - 1) continue;
                            const int first_of_block = std::max(block * g.step, g.crop.y);
                            for (int x = g.crop.x; x < g.crop.x + g.crop.w; ++x)
                                for (int c = 0; c < 3; ++c) {
                                    const int index =
                                        (block - working.y / g.step) * working.width + x / g.step - working.x / g.step;
                                    const int value = y == first_of_block
                                                          ? expected_element(form, expected.element(x, y, c),
                                                                             planes.at[vlen < 3 ? 0 : c][index], lut)
                                                          : expected.element(x, first_of_block, c);
                                    expected.set_element(x, y, c, value);
                                }
                        }
                        ASSERT_EQ(frame.bytes(), expected.bytes()) << "vlen " << vlen;
                        for (int c = 0; c < 4; ++c) ASSERT_EQ(planes.samples[c], before.samples[c]);
                    }
    });
}

TEST(FormatImages, CropsBeyondTheRastersAreHeldToThem) {
    const FormCase& form = form_cases[0];
    std::mt19937 rng(14);
    const HostOfTasks host(2, width, height, form.depth);
    rinfo dest, working;
    RenderInfo area;
    fill_host_raster(&dest, host.info, 1, 0);
    const RasterRect planes_area = {8, 8, 40, 40};
    fill_temp_raster(&working, host.info, 4, 1, &planes_area);
    for (const RasterRect& crop : {RasterRect{-50, -50, 500, 500}, RasterRect{60, 0, 10, 10}, RasterRect{0, 0, 0, 0}}) {
        TestFrame frame(form, width, height, rng), expected = frame;
        fill_render_info(&area, host.info, 4, 1, &crop);
        Planes planes(working.width, working.height);
        planes.randomise(rng);
        dest_img_converter(planes.at, 3, working, area, dest, frame.data(), 0, 1, false);
        if (crop.x < 0)
            for (int y = 8; y < 48; ++y)
                for (int x = 8; x < 48; ++x)
                    for (int c = 0; c < 3; ++c)
                        expected.set_element(
                            x, y, c,
                            expected_element(form, 0, planes.at[c][(y / 4 - 2) * working.width + x / 4 - 2], false));
        EXPECT_EQ(frame.bytes(), expected.bytes());
    }
}

TEST(FormatImages, StreamedRowsOnEveryTarget) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(15);
        const RandomLuts luts(rng);
        const PixelFormatRows& rows = pixel_format_rows();
        for (int form = 0; form < n_host_forms; ++form)
            for (const int n : {1, 5, 15, 16, 17, 63, 64, 65, 127, 200, 511})
                for (int shift = 0; shift < 40; shift += 3)
                    for (const bool apart : {false, true})
                        for (const bool lut : {false, true}) {
                            const FormCase& f = form_cases[form];
                            SCOPED_TRACE(testing::Message() << f.name << " n " << n << " shift " << shift);
                            TestFrame frame(f, n, 1, rng, static_cast<size_t>(shift * f.element_bytes));
                            TestFrame expected = frame;
                            Planes planes(n, 1, shift), expected_planes(n, 1, shift);
                            if (apart) ++planes.at[1], ++expected_planes.at[1];
                            const auto* pixels = static_cast<const uint8_t*>(frame.data());
                            const int32_t* in_table = form == form_rgb8 ? input_lut_8 : input_lut_12;
                            rows.to_planes[form][lut](pixels, planes.at, n, lut ? in_table : nullptr, stores_streamed);
                            rows.finish_stores();
                            for (int i = 0; i < n; ++i)
                                for (int c = 0; c < 3; ++c)
                                    expected_planes.at[c][i] =
                                        static_cast<FixPixel>(expected_sample(f, frame.element(i, 0, c), lut));
                            for (int c = 0; c < 4; ++c) ASSERT_EQ(planes.samples[c], expected_planes.samples[c]);

                            planes.randomise(rng);
                            const bool mono = apart;
                            const void* out_table =
                                form == form_rgb8 ? static_cast<const void*>(output_lut_8) : output_lut_16;
                            rows.from_planes[form][lut][mono](planes.at, static_cast<uint8_t*>(frame.data()), n,
                                                              lut ? out_table : nullptr, stores_streamed);
                            rows.finish_stores();
                            for (int i = 0; i < n; ++i)
                                for (int c = 0; c < 3; ++c)
                                    expected.set_element(i, 0, c,
                                                         expected_element(f, expected.element(i, 0, c),
                                                                          planes.at[mono ? 0 : c][i], lut));
                            ASSERT_EQ(frame.bytes(), expected.bytes());
                        }
    });
}

TEST(FormatImages, FramesTooLargeForTheCachesComeBackWhole) {
    std::mt19937 rng(16);
    constexpr int w = 2501, h = 2300;
    for (const FormCase& form : form_cases) {
        const HostOfTasks host(2, w, h, form.depth);
        TestFrame frame(form, w, h, rng), back = frame;
        rinfo raster, working;
        RenderInfo area;
        fill_host_raster(&raster, host.info, 1, 0);
        fill_temp_raster(&working, host.info, 1, 0, nullptr);
        fill_render_info(&area, host.info, 1, 0, nullptr);
        Planes planes(w, h);
        source_converter(raster, frame.data(), working, planes.at, 3, false);
        if (form.depth == SPARK_DEPTH_8) std::memset(back.data(), 0x55, static_cast<size_t>(host.info.FrameBytes));
        dest_img_converter(planes.at, 3, working, area, raster, back.data(), 0, 1, false);
        EXPECT_TRUE(back.bytes() == frame.bytes()) << form.name;  // low bits were there already
    }
}

TEST(FormatImages, Reports) {
    const HostOfTasks host(2, 8, 8);
    struct Row {
        int depth, vlen, alpha_mode;
        bool source;
        const char* message;
    };
    const Row rows[] = {
        {24, 3, 1, true, "8 No source converter defined for    ?"},
        {25, 4, 1, true, "8 No source converter defined for rgb8 to vlen=4"},
        {26, 1, 1, true, "8 No source converter defined for rgb10 to vlen=1"},
        {48, 2, 1, true, "8 No source converter defined for rgb16 to vlen=2"},
        {64, 3, 1, false, "8 No fix->native converters for pixel type 0 =    ?"},
        {26, 5, 1, false, "8 No fix->native conv for 4 to rgb10"},
        {25, 4, 2, false, "8 dest img converter: invalid alpha mode 2 for 4 -> rgb8"},
        {48, 2, 3, false, "8 dest img converter: invalid alpha mode 3 for 2 -> rgb16"},
    };
    std::mt19937 rng(17);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.message);
        Messages messages;
        SparkInfoStruct info = host.info;
        info.FrameDepth = row.depth;
        rinfo raster, working;
        RenderInfo area;
        fill_host_raster(&raster, info, 1, 0);
        fill_temp_raster(&working, info, 1, 0, nullptr);
        fill_render_info(&area, info, 1, 0, nullptr);
        messages.clear();
        the_frame->failed = false;
        TestFrame frame(form_cases[2], 8, 8, rng);
        const TestFrame before = frame;
        Planes planes(8, 8);
        if (row.source)
            source_converter(raster, frame.data(), working, planes.at, row.vlen, false);
        else
            dest_img_converter(planes.at, row.vlen, working, area, raster, frame.data(), 0, row.alpha_mode, false);
        EXPECT_EQ(messages.count(), 1);
        EXPECT_EQ(messages.count(row.message), 1);
        EXPECT_TRUE(the_frame->failed);
        EXPECT_EQ(frame.bytes(), before.bytes());
        EXPECT_EQ(planes.at[0][0], poison);
    }
}
