#include "operators/glow/glow_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/glow/glow_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

HWY_INLINE FixPixel held(int32_t v) {
    v = v < -fix_image_limit ? -fix_image_limit : v;
    v = v > fix_image_limit ? fix_image_limit : v;
    return static_cast<FixPixel>(v);
}

// The product of a sample and any scale, far enough held for a sum with another sample.
HWY_INLINE int32_t scaled(int32_t v, float scale) {
    float s = static_cast<float>(v) * scale;
    s = s < -100000.0f ? -100000.0f : s;
    s = s > 100000.0f ? 100000.0f : s;
    return static_cast<int32_t>(s);
}

void add_light(FixPixel* p, const FixPixel* light, int32_t scale, int n) {
    if (scale == fix_scale) {
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) p[i] = held(p[i] + light[i]);
        return;
    }
    const float factor = static_cast<float>(scale) * fix_to_float_scale;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) p[i] = held(scaled(p[i], factor) + light[i]);
}

void add_sum(FixPixel* p, const float* sum, int32_t scale, float brightness, int n) {
    const float factor = static_cast<float>(scale) * fix_to_float_scale;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float light = sum[i] * brightness;
        light = light < -100000.0f ? -100000.0f : light;
        light = light > 100000.0f ? 100000.0f : light;
        p[i] = held(scaled(p[i], factor) + static_cast<int32_t>(light));
    }
}

void step(const FixPixel* light, float* sum, float* carried, int pitch, const ArmKernel& kernel, bool own, int n) {
    const float decay = kernel.decay, gain = kernel.gain;
    if (own) {
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) {
            carried[i] = static_cast<float>(light[i]) + carried[i] * decay;
            sum[i] += carried[i] * gain;
        }
    } else {
        INDEPENDENT_ITERATIONS
        for (int i = 0; i < n; ++i) {
            const float come = carried[i] * decay;
            sum[i] += come * gain;
            carried[i] = static_cast<float>(light[i]) + come;
        }
    }
    if (kernel.swell_gain == 0.0f) return;
    const float left = kernel.swell_decay, swell = kernel.swell_gain;
    float *a = carried + pitch, *b = a + pitch, *c = b + pitch, *d = c + pitch;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        // What has come so far shows; the sample's own light sets out.
        d[i] = (c[i] + d[i]) * left;
        c[i] = (b[i] + c[i]) * left;
        b[i] = (a[i] + b[i]) * left;
        a[i] = static_cast<float>(light[i]) + a[i] * left;
        sum[i] += d[i] * swell;
    }
}

template <int way>
HWY_INLINE void run_along(const FixPixel* light, float* sum, const ArmKernel& kernel, int n) {
    float carried = 0, a = 0, b = 0, c = 0, d = 0;
    const float decay = kernel.decay, gain = kernel.gain, left = kernel.swell_decay, swell = kernel.swell_gain;
    for (int k = 0; k < n; ++k) {
        const int i = way > 0 ? k : n - 1 - k;
        const auto own = static_cast<float>(light[i]);
        const float come = carried * decay;
        carried = own + come;
        sum[i] += (way > 0 ? carried : come) * gain;
        if (swell == 0.0f) continue;
        d = (c + d) * left;
        c = (b + c) * left;
        b = (a + b) * left;
        a = own + a * left;
        sum[i] += d * swell;
    }
}

void along(const FixPixel* light, float* sum, const ArmKernel& kernel, int n) {
    run_along<1>(light, sum, kernel, n);
    run_along<-1>(light, sum, kernel, n);
}

constexpr GlowRows glow_table = {add_light, add_sum, step, along};

}  // namespace
const GlowRows* glow_rows_of_target() { return &glow_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(glow_rows_of_target);
const GlowRows& glow_rows() { return *HWY_DYNAMIC_DISPATCH(glow_rows_of_target)(); }
}  // namespace velloran
#endif
