// gamma: expt on whole images. The planes are worked in blocks through the kernel of expt.
#include "engine/evaluate.h"
#include "operators/pixel/fix_expt.h"
#include "operators/pixel/node_rows.h"
#include "operators/pixel/pixel_funs.h"
#include "records/frame.h"
#include "support/errors.h"
#include "support/memory.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

int32_t fix_expt(int32_t x, int32_t power) {
    if (x < 0) log_error("fix_expt: x was negative.");
    const int32_t* in[2] = {&x, &power};
    int32_t result;
    int32_t* out[1] = {&result};
    pixel_rows().fun[row_expt][0](in, out, 1, nullptr);
    return result;
}

namespace {

enum GammaArg : int { arg_base, arg_power };

constexpr unsigned power_constant = 2;  // pattern of the kernel

void widen(const FixPixel* in, int32_t* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = in[i];
}

// powers_of: a plane for each element of the power, null where the power is constant.
void gamma_rows(const Node* node, const fix_plane* powers_of, int first, int rows) {
    const int width = the_frame->temp_raster_info.width;
    const int bases = arg_elnum(node, arg_base);
    constexpr int block = 512;
    int32_t samples[block], powers[block];
    const int64_t start = static_cast<int64_t>(first) * width, end = start + static_cast<int64_t>(rows) * width;
    for (int64_t x = start; x < end; x += block) {
        const int n = static_cast<int>(std::min<int64_t>(block, end - x));
        // From the last element down: where the base has one element its plane is that of the first.
        for (int e = node->elnum - 1; e >= 0; --e) {
            widen(node->images[std::min(e, bases - 1)] + x, samples, n);
            const int32_t* in[2] = {samples, node->arg_vals[arg_power] + std::min(e, arg_elnum(node, arg_power) - 1)};
            unsigned pattern = power_constant;
            if (const fix_plane own = powers_of[std::min(e, arg_elnum(node, arg_power) - 1)]) {
                widen(own + x, powers, n);
                in[1] = powers;
                pattern = 0;
            }
            int32_t* out[1] = {samples};
            pixel_rows().fun[row_expt][pattern](in, out, n, nullptr);
            FixPixel* result = node->images[e] + x;
            for (int i = 0; i < n; ++i) result[i] = clip_to_image(samples[i]);
        }
    }
}

}  // namespace

void image_gamma(Node* node) {
    eval_node_tree_into_images(node->args[arg_base], node->images, node->image_index, 1);
    fix_plane powers[4] = {};
    if (!arg_constant(node, 1)) {
        const size_t size = static_cast<size_t>(the_frame->temp_raster_info.width) *
                            static_cast<size_t>(the_frame->temp_raster_info.height);
        for (int e = 0; e < arg_elnum(node, arg_power); ++e) powers[e] = frame_array<FixPixel>(size);
        eval_node_tree_into_images(node->args[arg_power], powers, node->image_index, 1);
    }
    fork_rows(the_frame->temp_raster_info.height, [&](int first, int rows) { gamma_rows(node, powers, first, rows); });
    for (fix_plane plane : powers) frame_free(plane);
}

}  // namespace velloran
