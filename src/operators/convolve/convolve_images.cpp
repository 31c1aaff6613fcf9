// Convolution in linear light: a power before, highlights raised, and the inverse power after.
#include "operators/blur/blur_image.h"
#include "operators/convolve/convolution.h"
#include "operators/tone/gamma_table.h"
#include "operators/tone/highlights.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"

#include <algorithm>

namespace velloran {

void convolve_images(FixPixel* const* sources, FixPixel* const* dests, int n_sources, int n_dests,
                     const ConvolveParams* params) {
    fft_info_t* info = params->fft_info;
    if (!info) {
        V_error(level_error, "convolve_images: params->fft_info not set!\n");
        fatal_abort(1);
        return;
    }
    const int n = info->image_w * info->image_h;
    const bool power = params->gamma != 1.0f && params->gamma > 0.0f;
    // The planes' whole range is used while light is linear; what highlights grow by must fit, too.
    float top = 1.0f;
    if (power) {
        top = params->boost > 0.0f
                  ? std::min(7.99f / boost_highlights_maxval(params->boost, params->boost_exponent), 1.0f)
                  : 8.0f;
        set_gamma_table(1.0f / params->gamma, top);
        for (int i = 0; i < n_sources; ++i) apply_gamma_table(sources[i], 1.0f, 1.0f, n);
    }
    if (params->boost > 0.0f) boost_highlights(sources, n_sources, params->boost, params->boost_exponent, top, n);
    if (poll_abort()) return;
    // A source that several destinations use is overwritten last.
    for (int i = n_dests - 1; i >= 0; --i) {
        convolve_fix_fix(info, sources[i < n_sources ? i : 0], dests[i], power ? 1.0f : params->final_scale, i);
        if (poll_abort()) return;
    }
    if (!power) return;
    set_gamma_table(params->gamma, 1.0f);
    // Of the sources a transform sees more than the crop asks for, and what it sees shows in last bits.
    const ptrdiff_t crop = static_cast<ptrdiff_t>(info->crop_y) * info->dest_w;
    for (int i = 0; i < n_dests; ++i)
        apply_gamma_table(dests[i] + crop, 1.0f / top, params->final_scale, info->dest_w * info->crop_h);
}

}  // namespace velloran
