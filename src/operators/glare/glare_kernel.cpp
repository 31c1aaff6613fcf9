#include "operators/glare/glare_kernel.h"

#include "support/memory.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velloran {

namespace {

constexpr double margin = 2;  // samples; what fades beyond a flare's radius

struct KernelSize {
    int x, y;  // reach to each side
    int width() const { return 2 * x + 1; }
    int height() const { return 2 * y + 1; }
};

KernelSize kernel_size(const GlareKernel& kernel, const FilterFrame& frame) {
    const FlareSettings& s = kernel.settings;
    const double reach = flare_reach(*kernel.flare, s, static_cast<float>(frame.widest()));
    const double taller = s.size[0] > 0 ? static_cast<double>(s.size[1]) / static_cast<double>(s.size[0]) /
                                              static_cast<double>(kernel.aspect)
                                        : 0;
    const auto held = [](double v, int most) {
        return static_cast<int>(std::clamp(std::ceil(v), 1.0, std::max(most, 1) * 1.0));
    };
    return {held(reach + margin, frame.width), held(reach * taller + margin, frame.height)};
}

// Draws the flare into planes of the given reach.
void draw_centred(const GlareKernel& kernel, KernelSize size, float whole_width, FixPixel* const* planes) {
    FlareSettings settings = kernel.settings;
    for (double* const place : {settings.hotspot, settings.pivot}) {
        place[0] = size.x;
        place[1] = size.y;
    }
    const FlareCanvas canvas = {
        {planes[0], planes[1], planes[2]}, size.width(), size.height(), 0, 0, whole_width, kernel.aspect};
    draw_lens_flare_noclear(canvas, *kernel.flare, settings);
}

// to = from, which is factor times as coarse around the middle, between its samples by interpolation.
void enlarge(const FixPixel* from, KernelSize coarse, FixPixel* to, KernelSize fine, float factor) {
    fork_rows_if_big_image(fine.width(), fine.height(), [=](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            const float v = std::clamp(static_cast<float>(y - fine.y) / factor + static_cast<float>(coarse.y), 0.0f,
                                       static_cast<float>(coarse.height() - 1));
            const int y0 = std::min(static_cast<int>(v), coarse.height() - 2);
            const float fy = v - static_cast<float>(y0);
            const FixPixel* const low = from + ptrdiff_t{y0} * coarse.width();
            const FixPixel* const high = low + coarse.width();
            for (int x = 0; x < fine.width(); ++x) {
                const float u = std::clamp(static_cast<float>(x - fine.x) / factor + static_cast<float>(coarse.x), 0.0f,
                                           static_cast<float>(coarse.width() - 1));
                const int x0 = std::min(static_cast<int>(u), coarse.width() - 2);
                const float fx = u - static_cast<float>(x0);
                const float a = static_cast<float>(low[x0]) + static_cast<float>(low[x0 + 1] - low[x0]) * fx;
                const float b = static_cast<float>(high[x0]) + static_cast<float>(high[x0 + 1] - high[x0]) * fx;
                to[ptrdiff_t{y} * fine.width() + x] = static_cast<FixPixel>(a + (b - a) * fy + 0.5f);
            }
        }
    });
}

struct KernelPlanes {
    FixPixel* planes[3];
};
KernelPlanes black_planes(KernelSize size) {
    const size_t bytes = static_cast<size_t>(size.width()) * static_cast<size_t>(size.height()) * sizeof(FixPixel);
    KernelPlanes all;
    for (FixPixel*& plane : all.planes) {
        plane = static_cast<FixPixel*>(frame_malloc(bytes));
        mp_memset(plane, 0, bytes);
    }
    return all;
}
void free_planes(const KernelPlanes& all) {
    for (FixPixel* const plane : all.planes) frame_free(plane);
}

}  // namespace

int set_glare_kernel(fft_info_t* info, const GlareKernel& kernel, const FilterFrame& frame) {
    const FlareSettings& s = kernel.settings;
    const KernelSize size = kernel_size(kernel, frame);
    const float factor = std::clamp(kernel.res_factor, 1.0f, 64.0f);
    char key[400];
    const int used = std::snprintf(
        key, sizeof key, "glare(%d, %g, %g, %g, %g, %g, %g, %g)", kernel.type, static_cast<double>(s.size[0]),
        static_cast<double>(s.saturation), static_cast<double>(s.rotate), static_cast<double>(s.scale_rays_number),
        static_cast<double>(s.scale_rays_length), static_cast<double>(s.scale_rays_width), static_cast<double>(factor));
    // Numbers that look alike there may differ still, and so may the frame.
    const float exact[] = {s.size[0],           s.size[1],          s.saturation, s.rotate,     s.scale_rays_number,
                           s.scale_rays_length, s.scale_rays_width, factor,       kernel.aspect};
    int at = used;
    for (const float v : exact)
        at += std::snprintf(key + at, sizeof key - static_cast<size_t>(at), " %.9g", static_cast<double>(v));
    std::snprintf(key + at, sizeof key - static_cast<size_t>(at), " %d %dx%d", frame.widest(), size.width(),
                  size.height());
    if (!need_to_set_kernel(info, key)) return size.width();

    const KernelPlanes planes = black_planes(size);
    if (factor > 1.0f) {
        const auto shrunk = [factor](int reach) {
            return static_cast<int>(std::ceil(static_cast<float>(reach) / factor)) + 1;
        };
        const KernelSize coarse = {shrunk(size.x), shrunk(size.y)};
        const KernelPlanes drawn = black_planes(coarse);
        draw_centred(kernel, coarse, static_cast<float>(frame.widest()) / factor, drawn.planes);
        for (int c = 0; c < 3; ++c) enlarge(drawn.planes[c], coarse, planes.planes[c], size, factor);
        free_planes(drawn);
    } else {
        draw_centred(kernel, size, static_cast<float>(frame.widest()), planes.planes);
    }
    KernelSettings settings = {};
    settings.width = size.width();
    settings.height = size.height();
    settings.n_kernels = 3;
    settings.centre_x = size.x;
    settings.centre_y = size.y;
    settings.autoscale = autoscale_none;
    settings.edge_x = settings.edge_y = convolve_edge_black;
    settings.key = key;
    fft_set_kernel(info, planes.planes, settings);
    free_planes(planes);
    return size.width();
}

}  // namespace velloran
