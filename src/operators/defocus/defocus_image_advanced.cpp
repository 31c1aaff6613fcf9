#include "operators/defocus/defocus_image_advanced.h"

#include "operators/blur/blur_image.h"
#include "operators/defocus/defocus_image.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

constexpr int points = 8;              // across a cell on the rim, of which the part inside is counted
constexpr float largest_ring = 0.95f;  // of the radius
constexpr float half_cell = 0.70711f;  // the farthest point of a cell from its middle

// Kernels of all channels on grids of one size, the centre in the middle.
struct LensKernels {
    float* planes[max_kernels];
    int n, width, height;
    int centre_x() const { return width / 2; }
    int centre_y() const { return height / 2; }
};

LensRadii held_radii(LensRadii r, const LensShape& shape, const FilterFrame& frame) {
    r.x = std::max(r.x, 0.0f);
    r.y = std::max(r.y, 0.0f);
    hold_aperture(&r.x, &r.y, shape.size, shape.size, true, frame.widest(), frame.highest());
    r.ring_x = std::clamp(r.ring_x, 0.0f, largest_ring * r.x);
    r.ring_y = std::clamp(r.ring_y, 0.0f, largest_ring * r.y);
    return r;
}

// An outline scaled to half axes in samples.
struct Ellipse {
    float x, y;
    float rim;  // depths this far from 1 may be on a cell with the rim in it
};

Ellipse ellipse(const LensShape& shape, float x, float y) {
    return {1.0f / x, 1.0f / y, half_cell * shape.steepness / std::min(x, y)};
}

float cell_weight(const LensShape& shape, const Ellipse& outer, const Ellipse* hole, float x, float y) {
    const auto weight_at = [&](float px, float py) {
        const float depth = lens_depth(shape, px * outer.x, py * outer.y);
        if (depth > 1.0f || (hole && lens_depth(shape, px * hole->x, py * hole->y) < 1.0f)) return 0.0f;
        return lens_brightness(shape, depth, px * outer.x, py * outer.y);
    };
    const float depth = lens_depth(shape, x * outer.x, y * outer.y);
    if (depth > 1.0f + outer.rim) return 0.0f;
    const bool on_hole = hole && std::fabs(lens_depth(shape, x * hole->x, y * hole->y) - 1.0f) <= hole->rim;
    if (depth < 1.0f - outer.rim && !on_hole) return weight_at(x, y);
    float sum = 0.0f;
    for (int j = 0; j < points; ++j)
        for (int i = 0; i < points; ++i)
            sum += weight_at(x + (static_cast<float>(i) + 0.5f) / points - 0.5f,
                             y + (static_cast<float>(j) + 0.5f) / points - 0.5f);
    return sum / (points * points);
}

void draw_kernel(const LensShape& shape, const LensRadii& radii, const LensKernels& kernels, float* plane) {
    const Ellipse outer = ellipse(shape, radii.x + 0.5f, radii.y + 0.5f);
    const bool ring = radii.ring_x > 0.0f && radii.ring_y > 0.0f;
    const Ellipse hole = ring ? ellipse(shape, radii.ring_x, radii.ring_y) : Ellipse{};
    fork_rows(kernels.height, [&](int first, int count) {
        for (int y = first; y < first + count; ++y)
            for (int x = 0; x < kernels.width; ++x)
                plane[static_cast<ptrdiff_t>(y) * kernels.width + x] =
                    cell_weight(shape, outer, ring ? &hole : nullptr, static_cast<float>(x - kernels.centre_x()),
                                static_cast<float>(y - kernels.centre_y()));
    });
    // There is always something to spread by.
    float& centre = plane[static_cast<ptrdiff_t>(kernels.centre_y()) * kernels.width + kernels.centre_x()];
    const size_t n = static_cast<size_t>(kernels.width) * static_cast<size_t>(kernels.height);
    if (std::all_of(plane, plane + n, [](float v) { return v == 0.0f; })) centre = 1.0f;
}

// The planes lie in one block of the call's own.
LensKernels draw_kernels(const LensDefocus& lens, const FilterFrame& frame) {
    const LensShape shape = prepare_lens_shape(lens.lens);
    LensKernels kernels = {};
    kernels.n = std::clamp(lens.n_kernels, 1, max_kernels);
    float reach_x = 0, reach_y = 0;
    LensRadii radii[max_kernels];
    for (int c = 0; c < kernels.n; ++c) {
        radii[c] = held_radii(lens.radii[c], shape, frame);
        reach_x = std::max(reach_x, radii[c].x);
        reach_y = std::max(reach_y, radii[c].y);
    }
    const auto cells = [&](float radius) { return 2 * static_cast<int>(std::ceil((radius + 0.5f) * shape.size)) + 1; };
    kernels.width = cells(reach_x);
    kernels.height = cells(reach_y);
    const size_t n = static_cast<size_t>(kernels.width) * static_cast<size_t>(kernels.height);
    float* const block = frame_array<float>(n * static_cast<size_t>(kernels.n));
    for (int c = 0; c < kernels.n; ++c) {
        kernels.planes[c] = block + n * static_cast<size_t>(c);
        draw_kernel(shape, radii[c], kernels, kernels.planes[c]);
    }
    return kernels;
}

// All that a kernel depends on. Digits enough to tell any two apart.
void key_of_lens(const LensDefocus& lens, const FilterFrame& frame, char* key, size_t size) {
    int length = std::snprintf(key, size, "rackdf(");
    for (int c = 0; c < lens.n_kernels; ++c)
        for (const float r : {lens.radii[c].x, lens.radii[c].y, lens.radii[c].ring_x, lens.radii[c].ring_y})
            length += std::snprintf(key + length, size - static_cast<size_t>(length), "%.9g,", static_cast<double>(r));
    const LensSettings& l = lens.lens;
    const auto number = [](float v) { return static_cast<double>(v); };
    std::snprintf(
        key + length, size - static_cast<size_t>(length), "%d,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%u,%u,%.9g)",
        lens.n_kernels, static_cast<double>(l.sides), number(l.pointiness), number(l.rotate), number(l.bokeh),
        number(l.noise_freq[0]), number(l.noise_freq[1]), number(l.noise_amp), static_cast<double>(frame.widest()),
        l.noise_seed, static_cast<unsigned>(lens.edge_mode), static_cast<double>(frame.highest()));
}

}  // namespace

void set_lens_kernel(fft_info_t* info, const LensDefocus& lens, const FilterFrame& frame) {
    char key[512];
    key_of_lens(lens, frame, key, sizeof key);
    fft_set_crop(info, {frame.width, frame.height, frame.width, frame.height, 0, 0, frame.width, frame.height,
                        convolve_field()});
    if (!need_to_set_kernel(info, key)) return;
    const LensKernels kernels = draw_kernels(lens, frame);
    fft_set_kernel_float(info, kernels.planes,
                         {kernels.width, kernels.height, kernels.n, kernels.centre_x(), kernels.centre_y(),
                          autoscale_each, lens.edge_mode, lens.edge_mode, key});
    frame_free(kernels.planes[0]);
}

void defocus_image_advanced(FixPixel* const* planes, int n_sources, int n_dests, const LensDefocus& lens,
                            const FilterFrame& frame, fft_info_t* info) {
    set_lens_kernel(info, lens, frame);
    if (poll_abort()) return;
    bool alike = true;
    for (int c = 1; c < n_dests; ++c) alike &= lens.scales[c] == lens.scales[0];
    const ConvolveParams params = {lens.gamma, lens.boost, lens.boost_threshold, alike ? lens.scales[0] : 1.0f, info};
    convolve_images(planes, planes, n_sources, n_dests, &params);
    if (alike) return;
    for (int c = 0; c < n_dests; ++c)
        scale_fix_image(planes[c], planes[c], float_to_fix(lens.scales[c]), frame.width, frame.height);
}

void show_lens_shape(FixPixel* const* planes, int n, const LensDefocus& lens, const FilterFrame& frame) {
    const LensKernels kernels = draw_kernels(lens, frame);
    // The middle of the frame, in samples of the planes.
    const RenderInfo& info = the_frame->render_info;
    const rinfo& raster = the_frame->temp_raster_info;
    const int left = (info.full_ren.w / 2 - raster.x) / frame.step - kernels.centre_x();
    const int bottom = (info.full_ren.h / 2 - raster.y) / frame.step - kernels.centre_y();
    for (int c = 0; c < n; ++c) {
        const float* const kernel = kernels.planes[std::min(c, kernels.n - 1)];
        const size_t cells = static_cast<size_t>(kernels.width) * static_cast<size_t>(kernels.height);
        const float scale = 4095.0f * lens.scales[c] / *std::max_element(kernel, kernel + cells);
        FixPixel* const plane = planes[c];
        fork_rows(frame.height, [&](int first, int count) {
            for (int y = first; y < first + count; ++y) {
                FixPixel* const row = plane + static_cast<ptrdiff_t>(y) * frame.width;
                std::fill(row, row + frame.width, FixPixel{0});
                if (y < bottom || y >= bottom + kernels.height) continue;
                const float* const from = kernel + static_cast<ptrdiff_t>(y - bottom) * kernels.width - left;
                for (int x = std::max(left, 0); x < std::min(left + kernels.width, frame.width); ++x)
                    row[x] = clip_to_image(static_cast<int32_t>(std::clamp(from[x] * scale, -1e6f, 1e6f)));
            }
        });
    }
    frame_free(kernels.planes[0]);
}

}  // namespace velloran
