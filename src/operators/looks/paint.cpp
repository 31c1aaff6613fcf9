#include "engine/evaluate.h"
#include "operators/blur/blur_image.h"
#include "operators/blur/filter_args.h"
#include "operators/looks/looks_functions.h"
#include "operators/looks/paint_strokes.h"
#include "operators/pixel/frame_coords.h"
#include "operators/pixel/luma.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

enum PaintArg : int { arg_image, arg_frequency, arg_pre_blur, arg_follow_grad, arg_grad_blur, arg_rand_seed };

constexpr int passes = 3;            // each brush half as wide as the one before
constexpr float least_brush = 2.5f;  // samples; finer than this there is no stroke to be seen

struct Painting {
    Canvas canvas;
    FilterFrame frame;
    FixPixel* picture[most_paint_channels];    // what is painted
    FixPixel* reference[most_paint_channels];  // the same as a brush sees it
    FixPixel* luma;
};

size_t plane_samples(const Painting& p) { return p.frame.bytes() / sizeof(FixPixel); }

void blur_planes(const Painting& p, FixPixel* const* from, FixPixel* const* to, int32_t radius) {
    const BlurSettings blur = {.x_radius = radius, .y_radius = radius, .passes = 2, .subpixel = true};
    for (int c = 0; c < p.canvas.channels; ++c) blur_image(from[c], to[c], blur, p.frame);
}

void make_luma(const Painting& p, int32_t radius) {
    const int width = p.frame.width;
    fork_rows_if_big_image(width, p.frame.height, [&](int first, int n) {
        const ptrdiff_t end = ptrdiff_t{first + n} * width;
        const bool colored = p.canvas.channels >= 3;
        for (ptrdiff_t i = ptrdiff_t{first} * width; i < end; ++i) {
            const float red = p.picture[0][i];
            const float luma = colored ? red * luma_red + static_cast<float>(p.picture[2][i]) * luma_blue +
                                             static_cast<float>(p.picture[1][i]) * (1.0f - luma_red - luma_blue)
                                       : red;
            p.luma[i] = static_cast<FixPixel>(luma);
        }
    });
    const BlurSettings blur = {.x_radius = radius, .y_radius = radius, .subpixel = true};
    blur_image(p.luma, p.luma, blur, p.frame);
}

// One brush: strokes are placed while the canvas rests, then laid down in a random order, each task on its own rows.
void paint_pass(const Painting& p, const Brush& brush) {
    const int columns = stroke_columns(p.canvas, brush), rows = stroke_rows(p.canvas, brush);
    const size_t cells = static_cast<size_t>(columns) * static_cast<size_t>(rows);
    Stroke* const strokes = frame_array<Stroke>(cells);
    fork_rows(rows, [&](int first, int n) {
        for (int row = first; row < first + n && !poll_abort(); ++row)
            place_strokes(p.canvas, p.reference, p.luma, brush, row, strokes + ptrdiff_t{row} * columns);
    });
    if (!poll_abort()) {
        Stroke* const end = std::remove_if(strokes, strokes + cells, [](const Stroke& s) { return s.seed == 0; });
        std::sort(strokes, end, [](const Stroke& a, const Stroke& b) {
            return a.seed != b.seed ? a.seed < b.seed : a.y != b.y ? a.y < b.y : a.x < b.x;
        });
        fork_rows_if_big_image(p.canvas.width, p.canvas.height, [&](int first, int n) {
            for (const Stroke* s = strokes; s < end; ++s) {
                if (((s - strokes) & 1023) == 0 && poll_abort()) return;
                draw_stroke(*s, p.canvas, first, first + n);
            }
        });
    }
    frame_free(strokes);
}

}  // namespace

// image as if it had been painted with three brushes, the finest of which has frequency strokes for a unit of the
// coordinates, and the others half and a quarter as many. The coarsest covers the picture; the finer ones mend it where
// it differs from image, blurred by a part of their own width. Strokes have the colour in their middle and run across
// the slope of brightness (blurred by grad_blur) as far as follow_grad says, else as a hand would go. pre_blur comes
// before all. Everything else is chance, by rand_seed alone. At a frequency of 0 and less nothing is painted.
void image_paint(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    Painting p = {};
    p.frame = filter_frame();
    p.canvas = {{}, node->elnum, p.frame.width, p.frame.height, 0.0f};
    const FrameCoords coords = frame_coords();
    p.canvas.row_height = coords.half_height * coords.width / coords.height;
    p.luma = node->images[node->elnum];
    for (int c = 0; c < node->elnum; ++c) p.canvas.planes[c] = node->images[c];
    blur_planes(p, p.canvas.planes, p.canvas.planes, filter_radius(filter_arg(node, arg_pre_blur)));
    const float frequency = filter_arg_float(node, arg_frequency);
    if (frequency <= 0.0f || poll_abort()) return;

    const size_t n = plane_samples(p), planes = static_cast<size_t>(node->elnum);
    FixPixel* const memory = frame_array<FixPixel>(2 * planes * n);
    for (size_t c = 0; c < planes; ++c) {
        p.picture[c] = memory + c * n;
        p.reference[c] = memory + (planes + c) * n;
        mp_memcpy(p.picture[c], p.canvas.planes[c], n * sizeof(FixPixel));
    }
    make_luma(p, filter_radius(filter_arg(node, arg_grad_blur)));
    const float finest = std::max(static_cast<float>(filter_frame_width()) / 2.0f / frequency, least_brush);
    const float widest = static_cast<float>(filter_frame_width());
    for (int pass = 0; pass < passes && !poll_abort(); ++pass) {
        Brush brush;
        brush.size = std::min(finest * static_cast<float>(1 << (passes - 1 - pass)), widest);
        brush.seed = bit_hash2(static_cast<uint32_t>(filter_arg(node, arg_rand_seed)), static_cast<uint32_t>(pass));
        brush.everywhere = pass == 0;
        brush.follow = std::clamp(filter_arg_float(node, arg_follow_grad), 0.0f, 1.0f);
        const auto radius = static_cast<int32_t>(std::min(brush.size * (pass == 0 ? 0.3f : 0.15f), 1e5f) * 4096.0f);
        blur_planes(p, p.picture, p.reference, radius);
        if (pass == 0)
            for (size_t c = 0; c < planes; ++c) mp_memcpy(p.canvas.planes[c], p.reference[c], n * sizeof(FixPixel));
        paint_pass(p, brush);
    }
    frame_free(memory);
}

}  // namespace velloran
