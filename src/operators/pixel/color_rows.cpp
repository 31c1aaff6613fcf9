// Rows of colour. Hue, saturation and value after A. R. Smith, "Color Gamut Transform Pairs", SIGGRAPH 1978; hue in
// turns, red at 0, green at 1/3.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/pixel/color_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "operators/pixel/luma.h"
#include "operators/pixel/row_fills-inl.h"
#include "rows/lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

struct Rgb {
    F r, g, b;
};
HWY_INLINE Rgb real_rgb(const I* in) { return {real(in[0]), real(in[1]), real(in[2])}; }
// Written so that a grey comes out as it is.
HWY_INLINE F luma(const Rgb& c) { return c.g + F(luma_red) * (c.r - c.g) + F(luma_blue) * (c.b - c.g); }

// Hue in sixths of a turn, -1 to 5, with the ends of the range of the colour; 0 for a grey.
struct HueRange {
    F hue, low, high;
};
HWY_INLINE HueRange hue_range(const Rgb& c) {
    const F high = max(c.r, max(c.g, c.b)), low = min(c.r, min(c.g, c.b));
    const F chroma = high - low;
    const F divisor = select(chroma > F(0.0f), chroma, F(1.0f));
    const F from_green = F(2.0f) + (c.b - c.r) / divisor;
    const F from_blue = F(4.0f) + (c.r - c.g) / divisor;
    const F hue = select(high == c.r, (c.g - c.b) / divisor, select(high == c.g, from_green, from_blue));
    return {select(chroma > F(0.0f), hue, F(0.0f)), low, high};
}
HWY_INLINE F turn_of_six(F hue) { return hue - F(6.0f) * floor(hue * F(1.0f / 6.0f)); }
// Where each primary stands between low (0) and high (1) at a hue in 0 .. 6.
HWY_INLINE Rgb ramps(F hue) {
    const F zero(0.0f), one(1.0f);
    return {clamp(abs(hue - F(3.0f)) - one, zero, one), clamp(F(2.0f) - abs(hue - F(2.0f)), zero, one),
            clamp(F(2.0f) - abs(hue - F(4.0f)), zero, one)};
}

struct Luma {
    using Args = Shape<3>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) { out[0] = fix(luma(real_rgb(in))); }
};

struct AboveLuma {
    using Args = Shape<1, 3>;
    static constexpr int results = 1;
    static HWY_INLINE void run(const I* in, I* out) {
        const I threshold = fix(luma(real_rgb(in + 1)));
        out[0] = select(in[0] > threshold, in[0] - threshold, I(0));
    }
};

// A colour of no light has hue and saturation 0.
struct RgbToHsv {
    using Args = Shape<3>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const HueRange h = hue_range(real_rgb(in));
        const MF lit = h.high > F(0.0f);
        out[0] = fix(turn_of_six(h.hue) * F(1.0f / 6.0f)) & I(4095);
        out[1] = fix(select(lit, (h.high - h.low) / select(lit, h.high, F(1.0f)), F(0.0f)));
        out[2] = max(in[0], max(in[1], in[2]));
    }
};
struct HsvToRgb {
    using Args = Shape<3>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const Rgb k = ramps(real(in[0] & I(4095)) * F(6.0f));
        const F value = real(in[2]), chroma = value * real(in[1]), one(1.0f);
        out[0] = fix(value - chroma * (one - k.r));
        out[1] = fix(value - chroma * (one - k.g));
        out[2] = fix(value - chroma * (one - k.b));
    }
};

// Away from the grey of the same luma, or towards it.
// A colour that the number leaves alone stays as it is, to the bit: so it does where it is not evaluated at all.
HWY_INLINE void store_unless(MI same, const I* in, F r, F g, F b, I* out) {
    out[0] = select(same, in[0], fix(r));
    out[1] = select(same, in[1], fix(g));
    out[2] = select(same, in[2], fix(b));
}

struct SatScale {
    using Args = Shape<3, 1>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const Rgb c = real_rgb(in);
        const F y = luma(c), scale = real(in[3]);
        store_unless(in[3] == I(4096), in, y + (c.r - y) * scale, y + (c.g - y) * scale, y + (c.b - y) * scale, out);
    }
};

// The colour of the same low and high at the hue turned by shift.
HWY_INLINE Rgb shifted(const Rgb& c, I shift) {
    const HueRange h = hue_range(c);
    const Rgb k = ramps(turn_of_six(h.hue + real(shift & I(4095)) * F(6.0f)));
    const F chroma = h.high - h.low;
    return {h.low + chroma * k.r, h.low + chroma * k.g, h.low + chroma * k.b};
}
struct HueShift {
    using Args = Shape<3, 1>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const Rgb c = shifted(real_rgb(in), in[3]);
        store_unless((in[3] & I(4095)) == I(0), in, c.r, c.g, c.b, out);
    }
};
// The shifted colour with as much grey added as its luma has lost: grey changes neither hue nor chroma.
struct HueShiftPreserveLuma {
    using Args = Shape<3, 1>;
    static constexpr int results = 3;
    static HWY_INLINE void run(const I* in, I* out) {
        const Rgb old = real_rgb(in);
        const Rgb c = shifted(old, in[3]);
        const F lost = luma(old) - luma(c);
        store_unless((in[3] & I(4095)) == I(0), in, c.r + lost, c.g + lost, c.b + lost, out);
    }
};

void fill(RowTable& table) {
    add_row<Luma>(table.fun[row_luma]);
    add_row<AboveLuma>(table.fun[row_above_luma]);
    add_row<RgbToHsv>(table.fun[row_rgb_to_hsv]);
    add_row<HsvToRgb>(table.fun[row_hsv_to_rgb]);
    add_row<SatScale>(table.fun[row_sat_scale]);
    add_row<HueShift>(table.fun[row_hue_shift]);
    add_row<HueShiftPreserveLuma>(table.fun[row_hue_shift_preserve_luma]);
}

}  // namespace

void fill_color_rows(RowTable& table) { fill(table); }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();
