// What one frame leaves for the next: planes, slots and arrays that outlive a frame may not show in a later one. The
// measure is the same frame in a record that has rendered nothing yet.

#include "support/memory.h"
#include "tests/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr Shape small = {13, 9};

// Stands in for look-ups: each sample comes from an offset that the second argument gives, in quarters of 1.0. The
// image is copied first, as look-ups do, so the node's planes are free for the offsets.
void test_lookup(Node* node) {
    const int w = temp_raster_info->width, h = temp_raster_info->height;
    const size_t n = (size_t)w * (size_t)h;
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    auto* image = frame_array<FixPixel>(n * 4);
    for (int e = 0; e < node->elnum; ++e) std::copy_n(node->images[e], n, image + (size_t)e * n);
    auto* offsets = frame_array<FixPixel>(n * 2);
    fix_plane planes[4] = {offsets, offsets + n};
    eval_node_tree_into_images(node->args[1], planes, node->image_index, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const size_t at = (size_t)(y * w + x);
            const int from_x = std::clamp(x + (offsets[at] >> 10), 0, w - 1);
            const int from_y = std::clamp(y + (offsets[n + at] >> 10), 0, h - 1);
            for (int e = 0; e < node->elnum; ++e)
                node->images[e][at] = image[(size_t)e * n + (size_t)(from_y * w + from_x)];
        }
    frame_free(image);
    frame_free(offsets);
}

void use_image_function(const char* name, PixelFun function) {
    auto* fun = const_cast<NodeFun*>(find_node_fun(name));
    for (int c = 0; c < fun->arg_type_combo_number; ++c) fun->pixel_funs[c] = function;
}

// The node functions of these tests.
struct KeptRig : EngineRig {
    explicit KeptRig(int tasks = 1, Shape frame_shape = small) : EngineRig(tasks, frame_shape) {
        use_image_function("warp", test_lookup);
    }
};

// A param goes through values; every frame is what it is on its own.
TEST(EngineKept, ParamsLeaveNothingBehind) {
    struct {
        const char* body;
        std::vector<float> values;
    } const cases[] = {
        // A look-up that does not move passes its image on: the filter of it has changed, although none of the
        // look-up's
        // constants was decisive.
        {"p = 0 kept = (blur (warp x (+ xy p) [0 0] 0) 0.5 1 1 0) dest = (+ Source kept)", {0.5f, 0, 0.5f, 0, 0.25f}},
        {"p = 0 kept = (blur (+ x p) 0.5 1 1 0) dest = (+ Source kept)", {0.5f, 0, 0, 0.5f}},
    };
    for (const auto& c : cases) {
        std::vector<Frame> want;
        for (const float value : c.values) {
            KeptRig rig;
            ASSERT_TRUE(rig.load_body(c.body)) << c.body;
            rig.set_param("p", value);
            ASSERT_EQ(rig.render(), 0);
            want.push_back(rig.dest);
        }
        KeptRig rig;
        ASSERT_TRUE(rig.load_body(c.body));
        for (size_t i = 0; i < c.values.size(); ++i) {
            rig.set_param("p", c.values[i]);
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(rig.dest, want[i]) << c.body << " frame " << i;
        }
    }
}

}  // namespace
