#include "frame/pixel_types.h"
#include "testing/caught_messages.h"
#include "testing/ops_formats.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

rinfo raster_of(int x, int y, int w, int h) {
    rinfo raster = {};
    raster.x = x;
    raster.y = y;
    raster.w = raster.width = w;
    raster.h = raster.height = h;
    return raster;
}

}  // namespace

TEST(Rasters, SizesOfReducedFrames) {
    const SparkInfoStruct info = frame_info(form_cases[1], 10, 7);
    rinfo raster;
    fill_host_raster(&raster, info, 3, 1);
    EXPECT_EQ(raster.width, 4);
    EXPECT_EQ(raster.height, 3);
    EXPECT_EQ(raster.w, 10);
    EXPECT_EQ(raster.h, 7);
    EXPECT_EQ(byte_row_pitch(raster), 4 * 6);
    EXPECT_EQ(host_row_pitch(raster), 60u);
    raster.stride = 5;
    EXPECT_EQ(byte_row_pitch(raster), 4 * 6 + 5) << "an extra element of the 10-bit form counts as one byte";
    raster.bit_depth = 16;
    EXPECT_EQ(byte_row_pitch(raster), 4 * 6 + 10);
}

TEST(Rasters, PixelOffsetsAreHeldToTheStoredSize) {
    rinfo raster = raster_of(100, 50, 40, 30);
    raster.bytes_per_pixel = 3;
    raster.width = 20;
    raster.height = 15;
    const struct {
        int x, y, offset;
    } rows[] = {{100, 50, 0}, {101, 51, 63}, {99, 0, 0}, {119, 64, 57 + 14 * 60}, {139, 79, 57 + 14 * 60}};
    for (const auto& row : rows) EXPECT_EQ(pixel_offset(raster, row.x, row.y), row.offset) << row.x << "," << row.y;
}

TEST(Rasters, WorkingAreaStandsOnTheGridInsideTheFrame) {
    const SparkInfoStruct info = frame_info(form_cases[2], 100, 50);
    const struct {
        int step;
        RasterRect area, expected;
        int width, height;
    } rows[] = {
        {1, {10, 5, 20, 30}, {10, 5, 20, 30}, 20, 30},      {4, {10, 5, 20, 30}, {8, 4, 22, 31}, 6, 8},
        {3, {-5, -5, 1000, 1000}, {0, 0, 100, 50}, 34, 17}, {32, {99, 49, 1, 1}, {96, 32, 4, 18}, 1, 1},
        {2, {300, 200, 5, 5}, {98, 48, 2, 2}, 1, 1},  // beside the frame: its last block
        {2, {-30, -20, 5, 5}, {0, 0, 1, 1}, 1, 1},
    };
    for (const auto& row : rows) {
        rinfo raster;
        fill_temp_raster(&raster, info, row.step, 0, &row.area);
        SCOPED_TRACE(testing::Message() << row.area.x << " step " << row.step);
        EXPECT_EQ(raster.x, row.expected.x);
        EXPECT_EQ(raster.y, row.expected.y);
        EXPECT_EQ(raster.w, row.expected.w);
        EXPECT_EQ(raster.h, row.expected.h);
        EXPECT_EQ(raster.width, row.width);
        EXPECT_EQ(raster.height, row.height);
        EXPECT_EQ(raster.bit_depth, 32);
        EXPECT_EQ(raster.bytes_per_pixel, 16);
    }
}

TEST(Rasters, RenderInfoOfACrop) {
    const SparkInfoStruct info = frame_info(form_cases[0], 720, 486);
    const RasterRect crop = {11, 7, 100, 50};
    RenderInfo render;
    fill_render_info(&render, info, 3, 1, &crop);
    EXPECT_EQ(render.downsampled.x, 3);
    EXPECT_EQ(render.downsampled.y, 2);
    EXPECT_EQ(render.downsampled.w, 34);
    EXPECT_EQ(render.downsampled.h, 17);
    char text[400];
    render_info_text(text, sizeof(text), "now", &render);
    EXPECT_STREQ(text,
                 " now render info: pix scale: 1,\n\tcroprect=100x50 (11,7->110,56); full_ren=720x486 (0,0->719,485)\n"
                 "\tdownsampled = (3,2->34,16)\n");
    fill_render_info(&render, info, 1, 0, nullptr);
    render_info_text(text, sizeof(text), "now", &render);
    EXPECT_STREQ(text,
                 " now render info: pix scale: 1,\n\tcroprect=720x486 (0,0->719,485); full_ren=720x486 "
                 "(0,0->719,485)\n");
}

TEST(Rasters, WrapAreas) {
    const struct {
        const char* name;
        rinfo raster;
        double x, w, y, h;
        int step;
        WrapDims wrap;
    } rows[] = {
        {"whole", raster_of(0, 0, 100, 60), 0, 100, 0, 60, 1, {0, 0, 100, 60, 0, 0, 100, 60, 0}},
        {"inside", raster_of(0, 0, 100, 60), 10.6, 20.2, 5, 7, 1, {10, 5, 21, 7, 10, 5, 21, 7, 1}},
        {"outwards to the grid", raster_of(0, 0, 100, 60), 10, 21, 5, 7, 4, {8, 4, 24, 8, 2, 1, 6, 2, 1}},
        {"left of the raster", raster_of(20, 10, 100, 60), 4, 40, 0, 90, 1, {20, 10, 40, 90, 20, 10, 40, 90, 1}},
        {"right of the raster", raster_of(0, 0, 100, 60), 90, 30, 58, 10, 1, {70, 50, 30, 10, 70, 50, 30, 10, 1}},
        {"covering more", raster_of(4, 4, 8, 8), 0, 100, 0, 100, 1, {4, 4, 100, 100, 4, 4, 100, 100, 0}},
        {"no width", raster_of(0, 0, 100, 60), 5, 0, 5, -3, 1, {5, 5, 1, 1, 5, 5, 1, 1, 1}},
        // Longer than the raster, so moved to what fits from its end.
        {"not whole blocks", raster_of(0, 0, 10, 10), 0, 10, 0, 10, 3, {-2, -2, 12, 12, 0, 0, 4, 4, 0}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        rinfo raster = row.raster;
        raster_set_wrap_dims(&raster, row.x, row.w, row.y, row.h, row.step);
        const WrapDims &got = raster.wrap, &want = row.wrap;
        EXPECT_EQ(got.wrap_x, want.wrap_x);
        EXPECT_EQ(got.wrap_y, want.wrap_y);
        EXPECT_EQ(got.wrap_w, want.wrap_w);
        EXPECT_EQ(got.wrap_h, want.wrap_h);
        EXPECT_EQ(got.wrap_sx, want.wrap_sx);
        EXPECT_EQ(got.wrap_sy, want.wrap_sy);
        EXPECT_EQ(got.wrap_sw, want.wrap_sw);
        EXPECT_EQ(got.wrap_sh, want.wrap_sh);
        EXPECT_EQ(got.wrap_clipped, want.wrap_clipped);
    }
}

TEST(Rasters, ChangesOfLayout) {
    enum {
        a8 = 1,
        rgb8 = 2,
        rgba8 = 4,
        bgra8 = 5,
        rgb16 = 7,
        rgba16 = 8,
        bgra16 = 9,
        l16 = 16,
        la8 = 18,
        la16 = 19,
        rgbf = 12,
        rgbaf = 13,
        af = 11,
        laf = 20,
        rgb10 = 21,
        bgr8 = 3
    };
    const struct {
        const char* name;
        void (*change)(rinfo*);
        int type, layout, new_type, new_layout;
    } rows[] = {
        {"alpha to rgb8", raster_add_alpha, rgb8, layout_rgb, rgba8, layout_rgba},
        {"alpha to rgb10", raster_add_alpha, rgb10, layout_rgb, rgba16, layout_rgba},
        {"alpha to luminance", raster_add_alpha, l16, layout_l, la16, layout_la},
        {"alpha twice", raster_add_alpha, bgra8, layout_rgba, rgba8, layout_rgba},
        {"luminance to alpha", raster_add_luminance, a8, layout_a, la8, layout_la},
        {"luminance to colour", raster_add_luminance, rgb8, layout_rgb, rgb8, layout_rgb},
        {"luminance to float alpha", raster_add_luminance, af, layout_a, laf, layout_la},
        {"colour to alpha", raster_add_colour, af, layout_a, rgbaf, layout_rgba},
        {"colour to luminance", raster_add_colour, la8, layout_la, la8, layout_la},
        {"no alpha", raster_remove_alpha, bgra8, layout_rgba, bgr8, layout_rgb},
        {"no alpha, kept type", raster_remove_alpha, bgra16, layout_rgba, bgra16, layout_rgb},
        {"nothing but alpha", raster_remove_alpha, a8, layout_a, a8, layout_a},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        rinfo raster = {};
        raster.pixel_type = row.type;
        raster.layout = row.layout;
        row.change(&raster);
        EXPECT_EQ(raster.pixel_type, row.new_type);
        EXPECT_EQ(raster.layout, row.new_layout);
    }
}

TEST(Rasters, DebugTexts) {
    char text[200];
    rinfo raster;
    fill_host_raster(&raster, frame_info(form_cases[1], 720, 486), 1, 0);
    rinfo_text(text, sizeof(text), "dest", &raster);
    EXPECT_STREQ(text, "dest rinfo: 15??,10bit rgb (6 B), 720x486 (0,0->719,485)");
    raster.stride = 2;
    raster.pixel_type = 20;
    raster.layout = 99;
    rinfo_text(text, sizeof(text), "dest", &raster);
    EXPECT_STREQ(text, "dest rinfo: lafrgb10,10bit   ? (6 B), 720x486 (0,0->719,485), stride=2");
    rinfo_text(text, sizeof(text), "dest", nullptr);
    EXPECT_STREQ(text, " dest rinfo: NULL.\n");
}
