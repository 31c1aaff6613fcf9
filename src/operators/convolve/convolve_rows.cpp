// Floats go to samples by truncation, after a push of 1/64 away from zero: a value that a transform left a hair under a
// whole number is that number, so that flat areas stay flat and the ways of running agree.
#include "operators/convolve/convolve_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/convolve/convolve_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

#include <hwy/cache_control.h>

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

HWY_ATTR HWY_INLINE FixPixel to_sample(float v) {
    v += v < 0.0f ? -0.015625f : 0.015625f;
    v = v < -32767.0f ? -32767.0f : v;
    v = v > 32767.0f ? 32767.0f : v;
    return static_cast<FixPixel>(static_cast<int32_t>(v));
}

HWY_ATTR void join(const FixPixel* a, const FixPixel* b, float* out, int n) {
    const hn::ScalableTag<float> d;
    const hn::Rebind<int32_t, decltype(d)> wide;
    const hn::Rebind<FixPixel, decltype(d)> narrow;
    const int length = static_cast<int>(hn::Lanes(d));
    int i = 0;
    for (; i + length <= n; i += length) {
        const auto re = hn::ConvertTo(d, hn::PromoteTo(wide, hn::LoadU(narrow, a + i)));
        const auto im = hn::ConvertTo(d, hn::PromoteTo(wide, hn::LoadU(narrow, b + i)));
        hn::StoreInterleaved2(re, im, d, out + 2 * i);
    }
    for (; i < n; ++i) {
        out[2 * i] = static_cast<float>(a[i]);
        out[2 * i + 1] = static_cast<float>(b[i]);
    }
}

HWY_ATTR void split(const float* in, FixPixel* a, FixPixel* b, float scale, int n) {
    const hn::ScalableTag<float> d;
    const hn::Rebind<int32_t, decltype(d)> wide;
    const hn::Rebind<FixPixel, decltype(d)> narrow;
    const int length = static_cast<int>(hn::Lanes(d));
    const auto factor = hn::Set(d, scale), push = hn::Set(d, 0.015625f), least = hn::Set(d, -32767.0f),
               most = hn::Set(d, 32767.0f), zero = hn::Zero(d);
    const auto to_samples = [&](hn::VFromD<decltype(d)> v) HWY_ATTR {
        v = hn::Mul(v, factor);
        v = hn::Add(v, hn::IfThenElse(hn::Lt(v, zero), hn::Neg(push), push));
        return hn::DemoteTo(narrow, hn::ConvertTo(wide, hn::Min(hn::Max(v, least), most)));
    };
    int i = 0;
    for (; i + length <= n; i += length) {
        auto re = zero, im = zero;
        hn::LoadInterleaved2(d, in + 2 * i, re, im);
        hn::StoreU(to_samples(re), narrow, a + i);
        if (b) hn::StoreU(to_samples(im), narrow, b + i);
    }
    for (; i < n; ++i) {
        a[i] = to_sample(in[2 * i] * scale);
        if (b) b[i] = to_sample(in[2 * i + 1] * scale);
    }
}

HWY_ATTR void to_fix(const float* in, FixPixel* out, float scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = to_sample(in[i] * scale);
}

HWY_ATTR void scale_fix(const FixPixel* in, FixPixel* out, float scale, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) out[i] = to_sample(static_cast<float>(in[i]) * scale);
}

HWY_ATTR void split_floats(const float* in, float* a, float* b, float scale, int n) {
    const hn::ScalableTag<float> d;
    const int length = static_cast<int>(hn::Lanes(d));
    const auto factor = hn::Set(d, scale);
    int i = 0;
    for (; i + length <= n; i += length) {
        auto re = factor, im = factor;
        hn::LoadInterleaved2(d, in + 2 * i, re, im);
        hn::StoreU(hn::Mul(re, factor), d, a + i);
        if (b) hn::StoreU(hn::Mul(im, factor), d, b + i);
    }
    for (; i < n; ++i) {
        a[i] = in[2 * i] * scale;
        if (b) b[i] = in[2 * i + 1] * scale;
    }
}

// The spectrum of a real line is its own conjugate, mirrored: what of the sum's spectrum is so belongs to the real
// part. Samples from first on.
HWY_ATTR HWY_INLINE void part_from(int first, const float* in, float* a, float* b, int n) {
    for (int k = first; k <= n / 2; ++k) {
        const float re = in[2 * k], im = in[2 * k + 1], other_re = in[2 * (n - k)], other_im = in[2 * (n - k) + 1];
        a[2 * k] = 0.5f * (re + other_re);
        a[2 * k + 1] = 0.5f * (im - other_im);
        b[2 * k] = 0.5f * (im + other_im);
        b[2 * k + 1] = 0.5f * (other_re - re);
    }
}

HWY_ATTR HWY_INLINE void join_from(int first, const float* a, const float* b, float* out, int n) {
    for (int k = first; k <= n / 2; ++k) {
        if (2 * k < n) {
            out[2 * (n - k)] = a[2 * k] + b[2 * k + 1];
            out[2 * (n - k) + 1] = b[2 * k] - a[2 * k + 1];
        }
        out[2 * k] = a[2 * k] - b[2 * k + 1];
        out[2 * k + 1] = a[2 * k + 1] + b[2 * k];
    }
}

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
HWY_ATTR void part_spectra(const float* in, float* a, float* b, int n) {
    a[0] = in[0];
    b[0] = in[1];
    a[1] = b[1] = 0.0f;
    part_from(1, in, a, b, n);
}

HWY_ATTR void join_spectra(const float* a, const float* b, float* out, int n) {
    out[0] = a[0] - b[1];
    out[1] = a[1] + b[0];
    join_from(1, a, b, out, n);
}

HWY_ATTR void multiply(float* a, const float* b, int n) {
    for (int i = 0; i < 2 * n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        a[i + 1] = a[i] * b[i + 1] + a[i + 1] * b[i];
        a[i] = re;
    }
}

HWY_ATTR void transpose(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n) {
    for (int x = 0; x < n; ++x)
        for (int y = 0; y < 16; ++y) out[2 * x * out_pitch + y] = in[2 * (y / 2 * in_pitch + x) + y % 2];
}
constexpr auto transpose_past = transpose;
#else
// Complex samples in the other order.
template <class D, class V>
HWY_ATTR HWY_INLINE V turned(D d, V v) {
    const hn::Repartition<uint64_t, D> pairs;
    return hn::BitCast(d, hn::Reverse(pairs, hn::BitCast(pairs, v)));
}

HWY_ATTR void part_spectra(const float* in, float* a, float* b, int n) {
    const hn::ScalableTag<float> d;
    const int step = static_cast<int>(hn::Lanes(d)) / 2;
    const auto half = hn::Set(d, 0.5f), odd = hn::OddEven(hn::SignBit(d), hn::Zero(d));
    a[0] = in[0];
    b[0] = in[1];
    a[1] = b[1] = 0.0f;
    int k = 1;
    for (; k + step <= n / 2; k += step) {
        const auto v = hn::LoadU(d, in + 2 * k), other = turned(d, hn::LoadU(d, in + 2 * (n - k - step + 1)));
        hn::StoreU(hn::Mul(half, hn::Add(v, hn::Xor(other, odd))), d, a + 2 * k);
        hn::StoreU(hn::Mul(half, hn::Add(hn::Shuffle2301(other), hn::Xor(hn::Shuffle2301(v), odd))), d, b + 2 * k);
    }
    part_from(k, in, a, b, n);
}

HWY_ATTR void join_spectra(const float* a, const float* b, float* out, int n) {
    const hn::ScalableTag<float> d;
    const int step = static_cast<int>(hn::Lanes(d)) / 2;
    const auto odd = hn::OddEven(hn::SignBit(d), hn::Zero(d)), even = hn::OddEven(hn::Zero(d), hn::SignBit(d));
    out[0] = a[0] - b[1];
    out[1] = a[1] + b[0];
    int k = 1;
    for (; k + step <= n / 2; k += step) {
        const auto va = hn::LoadU(d, a + 2 * k), vb = hn::Shuffle2301(hn::LoadU(d, b + 2 * k));
        hn::StoreU(turned(d, hn::Add(vb, hn::Xor(va, odd))), d, out + 2 * (n - k - step + 1));
        hn::StoreU(hn::Add(va, hn::Xor(vb, even)), d, out + 2 * k);
    }
    join_from(k, a, b, out, n);
}

HWY_ATTR void multiply(float* a, const float* b, int n) {
    const hn::ScalableTag<float> d;
    const int length = static_cast<int>(hn::Lanes(d));
    // Subtracting in the even lanes is adding the negated product.
    const auto sign = hn::OddEven(hn::Zero(d), hn::SignBit(d));
    int i = 0;
    for (; i + length <= 2 * n; i += length) {
        const auto va = hn::LoadU(d, a + i), vb = hn::LoadU(d, b + i);
        const auto straight = hn::Mul(hn::DupEven(va), vb);
        const auto crossed = hn::Mul(hn::DupOdd(va), hn::Shuffle2301(vb));
        hn::StoreU(hn::Add(straight, hn::Xor(crossed, sign)), d, a + i);
    }
    for (; i < 2 * n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        a[i + 1] = a[i] * b[i + 1] + a[i + 1] * b[i];
        a[i] = re;
    }
}

template <bool past_caches>
HWY_ATTR HWY_INLINE void transpose_to(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n) {
    const hn::CappedTag<uint64_t, 4> d;
    constexpr int length = static_cast<int>(hn::MaxLanes(hn::CappedTag<uint64_t, 4>()));
    const auto* from = reinterpret_cast<const uint64_t*>(in);
    auto* to = reinterpret_cast<uint64_t*>(out);
    const auto store = [d](auto v, uint64_t* at) HWY_ATTR {
        if constexpr (past_caches)
            hn::Stream(v, d, at);
        else
            hn::StoreU(v, d, at);
    };
    for (int x = 0; x < n; x += length)
        for (int y = 0; y < 8; y += length) {
            const uint64_t* f = from + y * in_pitch + x;
            uint64_t* t = to + x * out_pitch + y;
            if constexpr (length == 2) {
                const auto a = hn::LoadU(d, f), b = hn::LoadU(d, f + in_pitch);
                store(hn::InterleaveLower(d, a, b), t);
                store(hn::InterleaveUpper(d, a, b), t + out_pitch);
            } else {
                const auto a = hn::LoadU(d, f), b = hn::LoadU(d, f + in_pitch), c = hn::LoadU(d, f + 2 * in_pitch),
                           e = hn::LoadU(d, f + 3 * in_pitch);
                const auto ab0 = hn::InterleaveLower(d, a, b), ab1 = hn::InterleaveUpper(d, a, b);
                const auto ce0 = hn::InterleaveLower(d, c, e), ce1 = hn::InterleaveUpper(d, c, e);
                store(hn::ConcatLowerLower(d, ce0, ab0), t);
                store(hn::ConcatLowerLower(d, ce1, ab1), t + out_pitch);
                store(hn::ConcatUpperUpper(d, ce0, ab0), t + 2 * out_pitch);
                store(hn::ConcatUpperUpper(d, ce1, ab1), t + 3 * out_pitch);
            }
        }
}
HWY_ATTR void transpose(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n) {
    transpose_to<false>(in, in_pitch, out, out_pitch, n);
}

HWY_ATTR void transpose_past(const float* in, ptrdiff_t in_pitch, float* out, ptrdiff_t out_pitch, int n) {
    transpose_to<true>(in, in_pitch, out, out_pitch, n);
    hwy::FlushStream();
}
#endif

HWY_ATTR void add_run(const int32_t* prefix, int length, float value, float* sums, int n) {
    const int32_t* ahead = prefix + length;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) sums[i] += value * static_cast<float>(ahead[i] - prefix[i]);
}

constexpr ConvolveRows table = {join,      split,    split_floats, part_spectra,   join_spectra, to_fix,
                                scale_fix, multiply, transpose,    transpose_past, add_run};

}  // namespace
const ConvolveRows* convolve_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(convolve_rows_of_target);
const ConvolveRows& convolve_rows() { return *HWY_DYNAMIC_DISPATCH(convolve_rows_of_target)(); }
}  // namespace velloran
#endif
