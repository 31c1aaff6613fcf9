#include "operators/defocus/defocus_image.h"

#include "frame/host_buffers.h"
#include "operators/blur/blur_image.h"
#include "operators/convolve/convolution.h"
#include "operators/defocus/aperture.h"
#include "operators/defocus/circles_table.h"
#include "operators/tone/gamma_table.h"
#include "operators/tone/tone_rows.h"
#include "support/memory.h"
#include "support/unload.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstdio>

namespace velloran {

int most_defocus_taps = 72;

namespace {

// What 1.0 becomes while light is linear: the range of a sample.
constexpr float linear_top = 8.0f;

// The aperture that the table says, kept with it.
Aperture aperture;
int aperture_of_table;  // circles_tables_built when it was made

void free_kept_aperture() {
    free_aperture(&aperture);
    aperture_of_table = 0;
}

void unfold_table() {
    if (aperture_of_table == circles_tables_built) return;
    free_kept_aperture();
    free_at_unload(free_kept_aperture);
    const circles_table& t = get_circles_table();
    const int w = 2 * t.table_w - 1, h = 2 * t.table_h - 1, cx = t.table_w - 1, cy = t.table_h - 1;
    auto* const weights = frame_array<int16_t>(static_cast<size_t>(w) * static_cast<size_t>(h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            weights[static_cast<ptrdiff_t>(y) * w + x] =
                static_cast<int16_t>(t.row_span[std::abs(y - cy) * t.table_w + std::abs(x - cx)] / t.weight_step);
    make_aperture(weights, w, h, cx, cy, static_cast<float>(fix_scale) / static_cast<float>(t.weight_step), &aperture);
    frame_free(weights);
    aperture_of_table = circles_tables_built;
}

// The aperture as a kernel of transforms, which are to give the same sums as its taps. False: it is none for them.
bool set_transformed(const ApertureSums& s, fft_info_t* info) {
    const circles_table& t = *s.weighed;
    fft_set_crop(info, {s.width, s.height, s.width, s.height, 0, 0, s.width, s.height, 0});
    char key[256];
    std::snprintf(key, sizeof key, "defocus(%.9g,%.9g,%d,%d,%d,%d)", static_cast<double>(t.key_rx),
                  static_cast<double>(t.key_ry), t.key_subpixel, t.key_shape, t.table_w, t.table_h);
    if (need_to_set_kernel(info, key)) {
        const int w = 2 * t.table_w - 1, h = 2 * t.table_h - 1, cx = t.table_w - 1, cy = t.table_h - 1;
        auto* const kernel = frame_array<float>(static_cast<size_t>(w) * static_cast<size_t>(h));
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                kernel[static_cast<ptrdiff_t>(y) * w + x] =
                    static_cast<float>(t.row_span[std::abs(y - cy) * t.table_w + std::abs(x - cx)] / t.weight_step);
        fft_set_kernel_float(info, &kernel, {w, h, 1, cx, cy, autoscale_none, s.edge_x, s.edge_y, key});
        frame_free(kernel);
    }
    return convolve_transforms_p(info);
}

// Divides a row's sums and brings them back from linear light while they are in the first cache.
struct FinishedRows : SumsTaker {
    const ApertureSums* sums;
    const FixPixel* lower;  // null: light was not linear
};
void finish_sums(const SumsTaker* taker, int x, int y, const float* of_samples, int n) {
    const auto& rows = *static_cast<const FinishedRows*>(taker);
    divide_aperture_sums(*rows.sums, x, y, of_samples, n);
    FixPixel* const dest = rows.sums->dest + y * rows.sums->pitch + x;
    if (rows.lower) tone_rows().map(rows.lower, dest, dest, n);
}

// raise, lower: to linear light and back, null: none.
void sum_by_transforms(ApertureSums s, fft_info_t* info, const FixPixel* raise, const FixPixel* lower) {
    s.inner_inverse = make_inner_inverse(s);
    FinishedRows rows = {};
    rows.take = finish_sums;
    rows.written = s.dest;
    rows.sums = &s;
    rows.lower = lower;
    info->own_edges = 1;
    convolve_fix_taken(info, s.source, raise, 1.0f, 0, rows);
    info->own_edges = 0;
    frame_free(s.inner_inverse);
}

}  // namespace

void hold_aperture(float* rx, float* ry, float factor_x, float factor_y, bool subpixel, int width, int height) {
    const float margin = subpixel ? 1.0f : 0.5f;
    const auto hold = [&](float* radius, float* other, float factor, int size) {
        const float most = std::max((static_cast<float>(size) * 0.5f - 1.0f - margin) / factor, 0.0f);
        if (*radius <= most) return;
        *other *= most / *radius;
        *radius = most;
    };
    hold(ry, rx, factor_y, height);
    hold(rx, ry, factor_x, width);
}

void defocus_image(FixPixel* plane, const DefocusSettings& settings, const FilterFrame& frame) {
    if (poll_abort()) return;
    if (settings.final_value == 0.0f) {
        mp_memset(plane, 0, frame.bytes());
        return;
    }
    float rx = std::max(settings.x_radius, 0.0f), ry = std::max(settings.y_radius, 0.0f);
    if (rx == 0.0f && ry == 0.0f) {
        const int32_t gain = float_to_fix(settings.final_value);
        if (gain != fix_scale) scale_fix_image(plane, plane, gain, frame.width, frame.height);
        return;
    }
    const int fields = frame.fields ? 2 : 1;
    ry /= static_cast<float>(fields);
    const int whole_w = frame.widest(), whole_h = frame.highest() / fields;
    const ShapeFactors factors = defocus_shape_factors(settings.shape);
    hold_aperture(&rx, &ry, factors.x, factors.y, settings.subpixel, whole_w, whole_h);
    const auto set_table = [&](int shape) {
        return set_circles_table(rx, ry, 0.0f, settings.subpixel, whole_w, whole_h, shape);
    };
    if (!set_table(settings.shape)) set_table(defocus_circle);
    unfold_table();

    const int n = frame.width * frame.height;
    const bool power = settings.gamma != 1.0f && settings.gamma > 0.0f;
    const auto raised = [&] {
        set_gamma_table(settings.gamma, linear_top);
        return gamma_values(1.0f, 1.0f);
    };
    const auto lowered = [&] {
        set_gamma_table(1.0f / settings.gamma, 1.0f);
        return gamma_values(1.0f / linear_top, settings.final_value);
    };
    const auto sums_of_field = [&](int field) {
        FixPixel* const rows = plane + static_cast<ptrdiff_t>(field) * frame.width;
        return ApertureSums{&aperture,
                            rows,
                            rows,
                            frame.width,
                            (frame.height + fields - 1 - field) / fields,
                            static_cast<ptrdiff_t>(frame.width) * fields,
                            convolve_edge_black,
                            convolve_edge_black,
                            &get_circles_table(),
                            1.0f};
    };
    const bool wide = fields == 1 && aperture.n_taps > most_defocus_taps && std::max(rx, ry) > least_transformed_radius;
    if (wide && set_transformed(sums_of_field(0), get_fft_info())) {
        const FixPixel *const raise = power ? raised() : nullptr, *const lower = power ? lowered() : nullptr;
        sum_by_transforms(sums_of_field(0), get_fft_info(), raise, lower);
        if (poll_abort()) return;
    } else {
        if (power) apply_gamma_values(raised(), plane, n);
        for (int field = 0; field < fields; ++field) {
            sum_aperture(sums_of_field(field));
            if (poll_abort()) return;
        }
        if (power) apply_gamma_values(lowered(), plane, n);
    }
    if (!power && settings.final_value != 1.0f)
        scale_fix_image(plane, plane, float_to_fix(settings.final_value), frame.width, frame.height);
}

}  // namespace velloran
