// Running sums on interleaved lines.
//
// Rings hold positions side by side: position p of lane l stands at [(p % capacity) * lanes + l]. Pass k reads ring k
// and writes ring k + 1; the last ring is what the sink takes. The window of a box never leaves its ring before the
// pass has gone over it, so neither the source nor a whole line is ever read twice, and source and sink may be the same
// memory.
//
// Rows are turned into lanes by transposing 16 x 16 samples in registers; columns lie side by side as they are.
//
// All sums are exact modulo 2^32, so every order of adding gives the same bits; the mix of two boxes and the last
// scaling are one float operation after the other, the same on all targets.
#include "ops/box_lines.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "ops/box_lines.cpp"
#include "hwy/foreach_target.h"
#include "support/row_targets.h"

#ifndef VELLORAN_OPS_BOX_LINES_ONCE
#define VELLORAN_OPS_BOX_LINES_ONCE
namespace velloran::box_lines_detail {

// Samples that are read, passed on and written at a time, over all lanes: one chunk of every ring stays in the first
// cache.
constexpr int chunk_samples = 1024;
// A ring keeps the window of its pass, the chunk that comes in, and a block for the transposition at a line's end.
inline int ring_capacity(int radius, int chunk) { return (2 * radius + 2 + 2 * chunk + 16 + 15) & ~15; }

}  // namespace velloran::box_lines_detail
#endif

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;
using box_lines_detail::chunk_samples;
using box_lines_detail::ring_capacity;

// Any vector length divides a block of 16 lanes.
using LaneTag = hn::CappedTag<int32_t, 16>;

struct Ring {
    int32_t* data;
    int capacity;  // positions
    int lanes;
    int filled;  // positions written so far
    int32_t* at(int position) const { return data + static_cast<ptrdiff_t>(position % capacity) * lanes; }
};

// Positions read one after the other: forward or backward through a ring, or zeros for ever.
struct Stream {
    const int32_t* at;
    ptrdiff_t step;
};

struct PassState {
    int done;         // positions written
    int32_t* sum_lo;  // running sums, a lane each
    int32_t* sum_hi;
};

HWY_ATTR inline void sum_block(const Stream& lead, const Stream& trail, int32_t* sums, int32_t* out, int count,
                               int lanes, int shift) {
    const LaneTag d;
    const int length = static_cast<int>(hn::Lanes(d));
    if (lead.step == lanes && trail.step == lanes) {  // all but a line's ends
        for (int v = 0; v < lanes; v += length) {
            auto s = hn::Load(d, sums + v);
            const int32_t* HWY_RESTRICT a = lead.at + v;
            const int32_t* HWY_RESTRICT b = trail.at + v;
            int32_t* o = out + v;
            const ptrdiff_t n = static_cast<ptrdiff_t>(count) * lanes;
            if (shift == 0) {
                for (ptrdiff_t i = 0; i < n; i += lanes) {
                    s = hn::Add(s, hn::Sub(hn::Load(d, a + i), hn::Load(d, b + i)));
                    hn::Store(s, d, o + i);
                }
            } else {
                for (ptrdiff_t i = 0; i < n; i += lanes) {
                    s = hn::Add(s, hn::Sub(hn::Load(d, a + i), hn::Load(d, b + i)));
                    hn::Store(hn::ShiftRightSame(s, shift), d, o + i);
                }
            }
            hn::Store(s, d, sums + v);
        }
        return;
    }
    for (int v = 0; v < lanes; v += length) {
        auto s = hn::Load(d, sums + v);
        for (int i = 0; i < count; ++i) {
            s = hn::Add(s,
                        hn::Sub(hn::Load(d, lead.at + i * lead.step + v), hn::Load(d, trail.at + i * trail.step + v)));
            hn::Store(hn::ShiftRightSame(s, shift), d, out + static_cast<ptrdiff_t>(i) * lanes + v);
        }
        hn::Store(s, d, sums + v);
    }
}

// Truncation of any float to 32 bits, held to the range of the integer.
HWY_ATTR inline hn::VFromD<LaneTag> to_int(hn::VFromD<hn::Rebind<float, LaneTag>> v) {
    const hn::Rebind<float, LaneTag> df;
    const LaneTag d;
    return hn::ConvertTo(d, hn::Min(hn::Max(v, hn::Set(df, -2147483648.0f)), hn::Set(df, 2147483520.0f)));
}

HWY_ATTR inline void mix_block(const Stream& lead_lo, const Stream& trail_lo, const Stream& lead_hi,
                               const Stream& trail_hi, const PassState& state, int32_t* out, int count, int lanes,
                               const BoxPass& pass) {
    const LaneTag d;
    const hn::Rebind<float, LaneTag> df;
    const int length = static_cast<int>(hn::Lanes(d));
    const auto lo_weight = hn::Set(df, pass.lo_weight), hi_weight = hn::Set(df, pass.hi_weight);
    for (int v = 0; v < lanes; v += length) {
        auto lo = hn::Load(d, state.sum_lo + v), hi = hn::Load(d, state.sum_hi + v);
        for (int i = 0; i < count; ++i) {
            lo = hn::Add(lo, hn::Sub(hn::Load(d, lead_lo.at + i * lead_lo.step + v),
                                     hn::Load(d, trail_lo.at + i * trail_lo.step + v)));
            hi = hn::Add(hi, hn::Sub(hn::Load(d, lead_hi.at + i * lead_hi.step + v),
                                     hn::Load(d, trail_hi.at + i * trail_hi.step + v)));
            const auto mixed =
                hn::Add(hn::Mul(hn::ConvertTo(df, lo), lo_weight), hn::Mul(hn::ConvertTo(df, hi), hi_weight));
            hn::Store(hn::ShiftRightSame(to_int(mixed), pass.shift_after), d,
                      out + static_cast<ptrdiff_t>(i) * lanes + v);
        }
        hn::Store(lo, d, state.sum_lo + v);
        hn::Store(hi, d, state.sum_hi + v);
    }
}

// The stream of positions p, p + 1, ... of a line of n samples; *count is cut to where the stream turns or its ring
// ends.
HWY_ATTR inline Stream stream_from(const Ring& ring, int p, int n, bool mirror, const int32_t* zeros, int* count) {
    if (p >= 0 && p < n) {
        *count = std::min({*count, n - p, ring.capacity - p % ring.capacity});
        return {ring.at(p), ring.lanes};
    }
    if (p < 0) *count = std::min(*count, -p);
    if (!mirror) return {zeros, 0};
    const int q = p < 0 ? -1 - p : 2 * n - 1 - p;
    *count = std::min(*count, q % ring.capacity + 1);
    return {ring.at(q), -static_cast<ptrdiff_t>(ring.lanes)};
}

// Sums of the window around position 0, less what the first step adds: so every position is a step.
HWY_ATTR inline void start_sums(const Ring& in, int r, bool mirror, int32_t* sums) {
    for (int l = 0; l < in.lanes; ++l) sums[l] = 0;
    for (int p = 0; p < r; ++p) {
        const int32_t* row = in.at(p);
        for (int l = 0; l < in.lanes; ++l) sums[l] += row[l];
    }
    if (!mirror) return;
    // Positions -1 - r .. -1 are the mirrored r .. 0; the first step takes -1 - r out.
    for (int p = 0; p <= r; ++p) {
        const int32_t* row = in.at(p);
        for (int l = 0; l < in.lanes; ++l) sums[l] += row[l];
    }
}

// Takes the pass as far as its input and the room in its output allow.
HWY_ATTR void advance(const BoxLines& lines, const BoxPass& pass, const Ring& in, Ring& out, PassState& state, int room,
                      const int32_t* zeros) {
    const int n = lines.n, lanes = in.lanes;
    const bool mirror = lines.mirror != 0, mixed = pass.lo != pass.hi;
    const int ready = in.filled >= n ? n : in.filled - pass.hi;
    const int end = std::min(ready, state.done + room);
    if (end <= state.done) return;
    if (state.done == 0) {
        start_sums(in, pass.lo, mirror, state.sum_lo);
        if (mixed) start_sums(in, pass.hi, mirror, state.sum_hi);
    }
    while (state.done < end) {
        const int i = state.done;
        int count = std::min(end - i, out.capacity - i % out.capacity);
        const Stream lead = stream_from(in, i + pass.lo, n, mirror, zeros, &count);
        const Stream trail = stream_from(in, i - 1 - pass.lo, n, mirror, zeros, &count);
        if (mixed) {
            const Stream lead_hi = stream_from(in, i + pass.hi, n, mirror, zeros, &count);
            const Stream trail_hi = stream_from(in, i - 1 - pass.hi, n, mirror, zeros, &count);
            mix_block(lead, trail, lead_hi, trail_hi, state, out.at(i), count, lanes, pass);
        } else {
            sum_block(lead, trail, state.sum_lo, out.at(i), count, lanes, pass.shift_after);
        }
        state.done += count;
    }
    out.filled = state.done;
}

// ---- transposition ----

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
template <class T>
HWY_ATTR inline void transpose_16(const T* const* in, int32_t* const* out, int shift) {
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 16; ++c) out[c][r] = static_cast<int32_t>(in[r][c]) >> shift;
}
#else
using LaneVector = hn::VFromD<LaneTag>;

HWY_ATTR inline LaneVector load_lanes(const int32_t* p) { return hn::LoadU(LaneTag(), p); }
HWY_ATTR inline LaneVector load_lanes(const FixPixel* p) {
    const hn::Rebind<FixPixel, LaneTag> narrow;
    return hn::PromoteTo(LaneTag(), hn::LoadU(narrow, p));
}

// Four rows of any number of 4 x 4 blocks: afterwards vector j holds column j of every block.
HWY_ATTR HWY_INLINE void transpose_blocks(LaneVector& a, LaneVector& b, LaneVector& c, LaneVector& e) {
    const LaneTag d;
    const hn::Repartition<uint64_t, LaneTag> pairs;
    const auto t0 = hn::BitCast(pairs, hn::InterleaveLower(d, a, b)),
               t1 = hn::BitCast(pairs, hn::InterleaveLower(d, c, e));
    const auto t2 = hn::BitCast(pairs, hn::InterleaveUpper(d, a, b)),
               t3 = hn::BitCast(pairs, hn::InterleaveUpper(d, c, e));
    a = hn::BitCast(d, hn::InterleaveLower(pairs, t0, t1));
    b = hn::BitCast(d, hn::InterleaveUpper(pairs, t0, t1));
    c = hn::BitCast(d, hn::InterleaveLower(pairs, t2, t3));
    e = hn::BitCast(d, hn::InterleaveUpper(pairs, t2, t3));
}

// 16 rows of 16 samples, each from its own address, into 16 lanes of 16 positions.
template <class T>
HWY_ATTR inline void transpose_16(const T* const* in, int32_t* const* out, int shift) {
    const LaneTag d;
    constexpr int length = static_cast<int>(hn::MaxLanes(LaneTag()));
    for (int c = 0; c < 16; c += length) {
        if constexpr (length == 4) {
            for (int r = 0; r < 16; r += 4) {
                LaneVector v0 = load_lanes(in[r] + c), v1 = load_lanes(in[r + 1] + c), v2 = load_lanes(in[r + 2] + c),
                           v3 = load_lanes(in[r + 3] + c);
                transpose_blocks(v0, v1, v2, v3);
                hn::StoreU(hn::ShiftRightSame(v0, shift), d, out[c] + r);
                hn::StoreU(hn::ShiftRightSame(v1, shift), d, out[c + 1] + r);
                hn::StoreU(hn::ShiftRightSame(v2, shift), d, out[c + 2] + r);
                hn::StoreU(hn::ShiftRightSame(v3, shift), d, out[c + 3] + r);
            }
        } else if constexpr (length == 8) {
            for (int r = 0; r < 16; r += 8) {
                LaneVector v[8];
                for (int k = 0; k < 8; ++k) v[k] = load_lanes(in[r + k] + c);
                transpose_blocks(v[0], v[1], v[2], v[3]);
                transpose_blocks(v[4], v[5], v[6], v[7]);
                for (int k = 0; k < 4; ++k) {
                    hn::StoreU(hn::ShiftRightSame(hn::ConcatLowerLower(d, v[4 + k], v[k]), shift), d, out[c + k] + r);
                    hn::StoreU(hn::ShiftRightSame(hn::ConcatUpperUpper(d, v[4 + k], v[k]), shift), d,
                               out[c + 4 + k] + r);
                }
            }
        } else {
            LaneVector v[16];
            for (int k = 0; k < 16; ++k) v[k] = load_lanes(in[k]);
            for (int k = 0; k < 16; k += 4) transpose_blocks(v[k], v[k + 1], v[k + 2], v[k + 3]);
            for (int k = 0; k < 4; ++k) {  // the 4 x 4 blocks among themselves
                const auto lo0 = hn::ConcatLowerLower(d, v[8 + k], v[k]),
                           lo1 = hn::ConcatLowerLower(d, v[12 + k], v[4 + k]);
                const auto hi0 = hn::ConcatUpperUpper(d, v[8 + k], v[k]),
                           hi1 = hn::ConcatUpperUpper(d, v[12 + k], v[4 + k]);
                hn::StoreU(hn::ShiftRightSame(hn::OddEvenBlocks(hn::SwapAdjacentBlocks(lo1), lo0), shift), d, out[k]);
                hn::StoreU(hn::ShiftRightSame(hn::OddEvenBlocks(lo1, hn::SwapAdjacentBlocks(lo0)), shift), d,
                           out[4 + k]);
                hn::StoreU(hn::ShiftRightSame(hn::OddEvenBlocks(hn::SwapAdjacentBlocks(hi1), hi0), shift), d,
                           out[8 + k]);
                hn::StoreU(hn::ShiftRightSame(hn::OddEvenBlocks(hi1, hn::SwapAdjacentBlocks(hi0)), shift), d,
                           out[12 + k]);
            }
        }
    }
}
#endif

// ---- ends of the chain ----

HWY_ATTR void scale(const int32_t* in, FixPixel* out, float factor, int n) {
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        float v = static_cast<float>(in[i]) * factor;
        v = v < -32767.0f ? -32767.0f : v;
        v = v > 32767.0f ? 32767.0f : v;
        out[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

template <class T>
HWY_ATTR void feed_rows(const T* in, ptrdiff_t pitch, int rows, int n, int shift, Ring& ring, int chunk) {
    const int end = std::min(n, ring.filled + chunk);
    for (int p = ring.filled; p < n && p < end; p += 16) {
        const T* from[16];
        int32_t* to[16];
        T edge[16][16] = {};
        int32_t* block = ring.at(p);  // capacities are multiples of 16: no block wraps
        for (int k = 0; k < 16; ++k) {
            to[k] = block + k * row_lanes;
            from[k] = in + std::min(k, rows - 1) * pitch + p;
            if (p + 16 > n) {
                std::memcpy(edge[k], from[k], static_cast<size_t>(n - p) * sizeof(T));
                from[k] = edge[k];
            }
        }
        transpose_16(from, to, shift);
    }
    ring.filled = end;
}

template <class T>
HWY_ATTR void feed_columns(const T* in, ptrdiff_t pitch, int columns, int n, int shift, Ring& ring, int chunk) {
    const int end = std::min(n, ring.filled + chunk);
    const int lanes = ring.lanes;
    for (int p = ring.filled; p < end; ++p) {
        const T* from = in + p * pitch;
        if (p + 2 * chunk < n)
            for (int l = 0; l < columns; l += static_cast<int>(64 / sizeof(T)))
                __builtin_prefetch(from + 2 * chunk * pitch + l);
        int32_t* to = ring.at(p);
        if (columns == lanes) {
            INDEPENDENT_ITERATIONS
            for (int l = 0; l < lanes; ++l) to[l] = static_cast<int32_t>(from[l]) >> shift;
        } else {
            for (int l = 0; l < columns; ++l) to[l] = static_cast<int32_t>(from[l]) >> shift;
            for (int l = columns; l < lanes; ++l) to[l] = 0;
        }
    }
    ring.filled = end;
}

// Writes finished positions in whole blocks of 16, at the end also the rest. The result is the position after the last.
HWY_ATTR int drain_rows(const Ring& ring, int p, int n, const BoxSink& sink, int rows) {
    int32_t block[16][16];
    for (; p + 16 <= ring.filled || (ring.filled >= n && p < n); p += 16) {
        const int32_t* from[16];
        int32_t* to[16];
        const int count = std::min(16, n - p);
        const bool direct = sink.long_image && count == 16 && rows == 16;
        for (int k = 0; k < 16; ++k) {
            from[k] = ring.at(p) + k * row_lanes;
            to[k] = direct ? sink.long_image + k * sink.pitch + p : block[k];
        }
        transpose_16(from, to, 0);
        if (direct) continue;
        for (int k = 0; k < rows; ++k) {
            if (sink.long_image)
                std::memcpy(sink.long_image + k * sink.pitch + p, block[k], static_cast<size_t>(count) * 4);
            else
                scale(block[k], sink.plane + k * sink.pitch + p, sink.factor, count);
        }
    }
    return std::min(p, n);
}

HWY_ATTR int drain_columns(const Ring& ring, int p, int, const BoxSink& sink, int columns) {
    for (; p < ring.filled; ++p) {
        if (sink.long_image)
            std::memcpy(sink.long_image + p * sink.pitch, ring.at(p), static_cast<size_t>(columns) * 4);
        else
            scale(ring.at(p), sink.plane + p * sink.pitch, sink.factor, columns);
    }
    return p;
}

template <int lanes, class Feed, class Drain>
HWY_ATTR HWY_INLINE void run(const BoxLines& lines, int32_t* scratch, Feed feed, Drain drain) {
    constexpr int chunk = chunk_samples / lanes;
    Ring rings[4];
    PassState states[3];
    int32_t* zeros = scratch;
    scratch += lanes;
    for (int l = 0; l < lanes; ++l) zeros[l] = 0;
    for (int k = 0; k <= lines.n_passes; ++k) {
        rings[k] = {scratch, ring_capacity(k < lines.n_passes ? lines.passes[k].hi : 0, chunk), lanes, 0};
        scratch += static_cast<ptrdiff_t>(rings[k].capacity) * lanes;
        if (k < lines.n_passes) states[k] = {0, scratch, scratch + lanes};
        scratch += 2 * lanes;
    }
    for (int written = 0; written < lines.n;) {
        if (rings[0].filled < lines.n) feed(rings[0], chunk);
        for (int k = 0; k < lines.n_passes; ++k)
            advance(lines, lines.passes[k], rings[k], rings[k + 1], states[k], chunk, zeros);
        written = drain(rings[lines.n_passes], written);
    }
}

HWY_ATTR void rows(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count, int32_t* scratch) {
    run<row_lanes>(
        lines, scratch,
        [&](Ring& ring, int chunk) HWY_ATTR {
            if (source.plane)
                feed_rows(source.plane, source.pitch, count, lines.n, lines.first_shift, ring, chunk);
            else
                feed_rows(source.long_image, source.pitch, count, lines.n, lines.first_shift, ring, chunk);
        },
        [&](const Ring& ring, int p) HWY_ATTR { return drain_rows(ring, p, lines.n, sink, count); });
}

HWY_ATTR void columns(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count,
                      int32_t* scratch) {
    run<max_column_lanes>(
        lines, scratch,
        [&](Ring& ring, int chunk) HWY_ATTR {
            if (source.plane)
                feed_columns(source.plane, source.pitch, count, lines.n, lines.first_shift, ring, chunk);
            else
                feed_columns(source.long_image, source.pitch, count, lines.n, lines.first_shift, ring, chunk);
        },
        [&](const Ring& ring, int p) HWY_ATTR { return drain_columns(ring, p, lines.n, sink, count); });
}

constexpr BoxLinesRows table = {rows, columns, scale};

}  // namespace
const BoxLinesRows* box_lines_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {

HWY_EXPORT(box_lines_rows_of_target);
const BoxLinesRows& box_lines_rows() { return *HWY_DYNAMIC_DISPATCH(box_lines_rows_of_target)(); }

size_t box_lines_scratch(const BoxLines& lines, int lanes) {
    const int chunk = box_lines_detail::chunk_samples / lanes;
    size_t positions = 1;
    for (int k = 0; k <= lines.n_passes; ++k)
        positions +=
            static_cast<size_t>(box_lines_detail::ring_capacity(k < lines.n_passes ? lines.passes[k].hi : 0, chunk)) +
            2;
    return positions * static_cast<size_t>(lanes) * sizeof(int32_t);
}

}  // namespace velloran
#endif
