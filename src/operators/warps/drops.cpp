// Rings that spread on water.
#include "engine/evaluate.h"
#include "operators/warps/pattern_rows.h"
#include "operators/warps/warp_functions.h"
#include "operators/warps/warp_lines.h"
#include "records/frame.h"
#include "support/hash.h"
#include "support/memory.h"

#include <cmath>

namespace velloran {
namespace {

enum DropsArg : int {
    arg_image,
    arg_coords,
    arg_amplitude,
    arg_frequency,
    arg_phase,
    arg_rotate,
    arg_in_out_rads,
    arg_in_out_soft,
    arg_max_centers
};

constexpr int most_drops = 1024;
constexpr uint32_t drops_seed = 0x64726f70;

struct DropsJob {
    const Drop* drops;
    int count;
    float c, s;  // of the turn of the movements
    fix_plane planes[2];
};
DropsJob job;

float between(float a, float b, uint32_t hash) { return a + (b - a) * static_cast<float>(unit_hash(hash)); }

// Drop number k where the picture is white; half_height of the frame in coordinates.
Drop make_drop(const Node* node, uint32_t k, float half_height) {
    uint32_t hash = bit_hash2(drops_seed, k);
    const auto next = [&] { return hash = bit_hash(hash + k); };
    Drop drop = {};
    drop.x = between(-1.0f, 1.0f, next());
    drop.y = between(-half_height, half_height, next());
    drop.amplitude = warp_arg_float(node, arg_amplitude) * between(0.5f, 1.0f, next());
    drop.frequency = between(warp_arg_float(node, arg_frequency, 0), warp_arg_float(node, arg_frequency, 1), next());
    drop.phase = warp_arg_float(node, arg_phase) + between(0.0f, 1.0f, next());
    const auto slope = [](float softness) { return 1.0f / std::max(softness, 1e-4f); };
    const float inner_soft = warp_arg_float(node, arg_in_out_soft, 0),
                outer_soft = std::max(warp_arg_float(node, arg_in_out_soft, 1), 0.0f);
    drop.inner = warp_arg_float(node, arg_in_out_rads, 0);
    drop.outer = warp_arg_float(node, arg_in_out_rads, 1);
    drop.inner_slope = slope(inner_soft);
    drop.outer_slope = slope(outer_soft);
    drop.reach = drop.outer + std::max(outer_soft, 1e-4f);
    return drop;
}

// The picture at a drop.
float picture_at(const Node* image, const FixPixel* plane, const Drop& drop, float half_height) {
    if (is_constant(image)) return static_cast<float>(image->vals[0]) * fix_to_float_scale;
    const rinfo& planes = the_frame->temp_raster_info;
    const RenderInfo& frame = the_frame->render_info;
    const int step = std::max(planes.render_step, 1);
    const auto sample = [&](float share, int pixels, int start, int n) {
        return std::clamp(static_cast<int>(share * static_cast<float>(pixels)) / step - start / step, 0, n - 1);
    };
    const int x = sample(0.5f + 0.5f * drop.x, frame.full_ren.w, planes.x, planes.width);
    const int y = sample(0.5f + 0.5f * drop.y / half_height, frame.full_ren.h, planes.y, planes.height);
    return static_cast<float>(plane[ptrdiff_t{y} * planes.width + x]) * fix_to_float_scale;
}

float frame_half_height() {
    const RasterRect& frame = the_frame->render_info.full_ren;
    return std::max(
        static_cast<float>(frame.h) / static_cast<float>(std::max(frame.w, 1)) * the_frame->pixel_aspect_ratio, 1e-6f);
}

Drop* make_drops(const Node* node, const FixPixel* plane, int* count) {
    const int wanted = std::clamp(warp_arg(node, arg_max_centers) >> fix_bits, 0, most_drops);
    const float half_height = frame_half_height();
    auto* const drops = frame_array<Drop>(static_cast<size_t>(std::max(wanted, 1)));
    *count = 0;
    for (int k = 0; k < wanted; ++k) {
        Drop drop = make_drop(node, static_cast<uint32_t>(k), half_height);
        drop.amplitude *= picture_at(node->args[arg_image], plane, drop, half_height);
        if (drop.amplitude != 0.0f) drops[(*count)++] = drop;
    }
    return drops;
}

// The movements at n places.
void add_drops(const float* x, const float* y, float* moved_x, float* moved_y, int n) {
    std::fill_n(moved_x, look_up_block, 0.0f);
    std::fill_n(moved_y, look_up_block, 0.0f);
    const auto [left, right] = std::minmax_element(x, x + n);
    const auto [low, high] = std::minmax_element(y, y + n);
    for (int k = 0; k < job.count; ++k) {
        const Drop& drop = job.drops[k];
        const bool reaches = drop.x + drop.reach >= *left && drop.x - drop.reach <= *right &&
                             drop.y + drop.reach >= *low && drop.y - drop.reach <= *high;
        if (reaches) pattern_rows().rings(drop, x, y, moved_x, moved_y, n);
    }
}

void drops_line(Node* root, int, int, int offset) {
    const PatternRows& rows = pattern_rows();
    const Node* const coords = root->args[0];
    for_each_block(n_pixels, [&](int first, int n) {
        alignas(64) float place[2][look_up_block] = {}, moved[2][look_up_block];
        for (int e = 0; e < 2; ++e) {
            const int32_t* const line = root->arg_lines[0][std::min(e, coords->elnum - 1)];
            if (is_constant(coords))
                std::fill_n(place[e], n, static_cast<float>(*line) * fix_to_float_scale);
            else
                rows.coordinates(line + first, 0.0f, fix_to_float_scale, place[e], n);
        }
        add_drops(place[0], place[1], moved[0], moved[1], n);
        rows.turned(moved[0], moved[1], job.c, -job.s, job.planes[0] + offset + first, n);
        rows.turned(moved[0], moved[1], job.s, job.c, job.planes[1] + offset + first, n);
    });
}

void set_turn(const Node* node) {
    const double angle = 6.283185307179586 * warp_arg_float(node, arg_rotate);
    job.c = static_cast<float>(std::cos(angle));
    job.s = static_cast<float>(std::sin(angle));
}

}  // namespace

// Up to max_centers drops fall at random places of the frame, each with a strength of the picture there times 0.5 to 1.
// Round each there are rings: at distance r of coords from the place, the movement is amplitude * strength * sin(2 pi
// (f
// * r - phase - p)) away from it, f between the two elements of frequency and p, from 0 to 1, its own. It is whole
// between the two radii of in_out_rads, and fades within and beyond them over in_out_soft. rotate turns its direction.
// Movements of all drops are added up; to be added to coordinates.
void image_drops(Node* node) {
    if (!is_constant(node->args[arg_image]))
        eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    Drop* const drops = make_drops(node, node->images[0], &job.count);
    job.drops = drops;
    set_turn(node);
    std::copy_n(node->images, 2, job.planes);
    Node* const values[] = {node->args[arg_coords]};
    eval_node_trees_pixel_loop(values, 1, drops_line);
    frame_free(drops);
}

// One place, if nothing varies.
void fold_drops(Node* node) {
    Drop* const drops = make_drops(node, nullptr, &job.count);
    job.drops = drops;
    set_turn(node);
    float x[look_up_block] = {warp_arg_float(node, arg_coords, 0)},
          y[look_up_block] = {warp_arg_float(node, arg_coords, 1)};
    float moved_x[look_up_block], moved_y[look_up_block];
    add_drops(x, y, moved_x, moved_y, 1);
    FixPixel out[2];
    pattern_rows().turned(moved_x, moved_y, job.c, -job.s, &out[0], 1);
    pattern_rows().turned(moved_x, moved_y, job.s, job.c, &out[1], 1);
    for (int e = 0; e < 4; ++e) node->vals[e] = out[std::min(e, 1)];
    frame_free(drops);
}

}  // namespace velloran
