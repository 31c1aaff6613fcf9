#include "operators/tone/tone_rows.h"

#include <cmath>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/tone/tone_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

void map(const FixPixel* values, const FixPixel* in, FixPixel* out, int n) {
    int i = 0;
#if HWY_TARGET == HWY_AVX3
    // Where gathers cost less than taking samples out of a number and putting them together. Each reads the value
    // behind it as well, which falls out.
    const auto looked_up = [values](const FixPixel* from) HWY_ATTR {
        const __m512i index = _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
        return _mm512_i32gather_epi32(index, values, sizeof(FixPixel));
    };
    for (; i + 32 <= n; i += 32) {
        const __m256i low = _mm512_cvtepi32_epi16(looked_up(in + i)),
                      high = _mm512_cvtepi32_epi16(looked_up(in + i + 16));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), low);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i + 16), high);
    }
#endif
    // Four samples come and go as one number.
    const auto of = [values](uint64_t bits) {
        return uint64_t{static_cast<uint16_t>(values[static_cast<uint16_t>(bits)])};
    };
    for (; i + 4 <= n; i += 4) {
        uint64_t four;
        std::memcpy(&four, in + i, sizeof four);
        four = of(four) | of(four >> 16) << 16 | of(four >> 32) << 32 | of(four >> 48) << 48;
        std::memcpy(out + i, &four, sizeof four);
    }
    for (; i < n; ++i) out[i] = values[static_cast<uint16_t>(in[i])];
}

void boost(FixPixel* p, const HighlightBoost& b, int n) {
    const float to_unit = b.to_unit, threshold = b.threshold, room = b.room, amount = b.amount, scale = b.scale,
                limit = b.limit;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const float sample = static_cast<float>(p[i]), above = sample * to_unit - threshold;
        const float part = (above > 0.0f ? above : 0.0f) / room;
        const float added = amount * part;
        float v = sample + added * scale;
        v = v < -32767.0f ? -32767.0f : v;
        v = v > limit ? limit : v;
        p[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

void threshold(FixPixel* p, int32_t limit, int32_t gain, int n) {
    const int32_t least = limit > 0 ? limit : 0;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t v = p[i];
        int32_t scaled = ((v - limit) * gain) >> fix_bits;
        scaled = scaled < -fix_image_limit ? -fix_image_limit : scaled;
        scaled = scaled > fix_image_limit ? fix_image_limit : scaled;
        p[i] = static_cast<FixPixel>(v > least ? scaled : 0);
    }
}

// In double precision: within the bound on the gain the quotient lies farther below the next whole number than it is
// rounded, and all products are exact, so the whole numbers are those of an integer division.
void threshold_3(FixPixel* const* p, const int32_t* thresholds, int32_t gain, int n) {
    FixPixel *a = p[0], *b = p[1], *c = p[2];
    const double ta = thresholds[0], tb = thresholds[1], tc = thresholds[2], factor = gain;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const double va = a[i], vb = b[i], vc = c[i];
        const double e = (va > ta ? va - ta : 0.0) + (vb > tb ? vb - tb : 0.0) + (vc > tc ? vc - tc : 0.0);
        const double s = (va > 0.0 ? va : 0.0) + (vb > 0.0 ? vb : 0.0) + (vc > 0.0 ? vc : 0.0);
        double k = std::trunc(e * factor / (s > 0.0 ? s : 1.0));
        k = s > 0.0 ? k : 0.0;
        const auto scaled = [&](double v) {
            v = std::floor(v * k * (1.0 / fix_scale));
            v = v < -fix_image_limit ? -fix_image_limit : v;
            return v > fix_image_limit ? static_cast<double>(fix_image_limit) : v;
        };
        a[i] = static_cast<FixPixel>(static_cast<int32_t>(scaled(va)));
        b[i] = static_cast<FixPixel>(static_cast<int32_t>(scaled(vb)));
        c[i] = static_cast<FixPixel>(static_cast<int32_t>(scaled(vc)));
    }
}

constexpr ToneRows tone_table = {map, boost, threshold, threshold_3};

}  // namespace
const ToneRows* tone_rows_of_target() { return &tone_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(tone_rows_of_target);
const ToneRows& tone_rows() { return *HWY_DYNAMIC_DISPATCH(tone_rows_of_target)(); }
}  // namespace velloran
#endif
