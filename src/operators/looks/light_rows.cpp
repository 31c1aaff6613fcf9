#include "operators/looks/light_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/looks/light_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/fast_math-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

struct Lit {
    using Args = Shape<3, 3>;
    static constexpr int results = 3;
    struct State {
        const LightParams& p;
        HWY_INLINE explicit State(const float* params) : p(*reinterpret_cast<const LightParams*>(params)) {}
    };
    static HWY_INLINE void run(const I* in, I* out, const State& state) {
        const LightParams& p = state.p;
        const F x = real(in[3]), y = real(in[4]), z = real(in[5]);
        const F length = sqrt(x * x + y * y + z * z);
        const F scale = F(1.0f) / select(length > F(0.0f), length, F(1.0f));
        const F nx = x * scale, ny = y * scale, nz = z * scale;
        F scattered[3] = {F(p.ambient), F(p.ambient), F(p.ambient)};
        F reflected[3] = {F(0.0f), F(0.0f), F(0.0f)};
        for (int k = 0; k < static_cast<int>(p.count); ++k) {
            const auto& light = p.lights[k];
            const F reach = nx * F(light.to_light[0]) + ny * F(light.to_light[1]) + nz * F(light.to_light[2]);
            const F lit = max(reach, F(0.0f));
            for (int c = 0; c < 3; ++c) scattered[c] = scattered[c] + lit * F(light.diffuse[c]);
            if (light.highlight[0] == 0.0f && light.highlight[1] == 0.0f && light.highlight[2] == 0.0f) continue;
            const F shine =
                clamp(nx * F(light.half[0]) + ny * F(light.half[1]) + nz * F(light.half[2]), F(0.0f), F(1.0f));
            const F part = select(reach > F(0.0f), pow(shine, F(light.shininess)), F(0.0f));
            for (int c = 0; c < 3; ++c) reflected[c] = reflected[c] + part * F(light.highlight[c]);
        }
        for (int c = 0; c < 3; ++c) out[c] = fix(real(in[c]) * scattered[c] + reflected[c]);
    }
};

// The table of a target is filled once, by whoever asks first.
const RowPatterns& filled() {
    static const struct Table {
        RowPatterns patterns;
        Table() { add_row<Lit>(patterns); }
    } table;
    return table.patterns;
}

}  // namespace
const RowPatterns* light_rows_of_target() { return &filled(); }
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(light_rows_of_target);
const RowPatterns& light_rows() { return *HWY_DYNAMIC_DISPATCH(light_rows_of_target)(); }
}  // namespace velloran
#endif
