// What the row functions of boxes share, once per instruction set: vectors of lanes, a lane for each line; the ways
// into rows and out of them, by transposing 16 x 16 samples in registers; and the ends where finished lanes go.
//
// Read from row files only.

#if defined(VELLORAN_BOX_LANES_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_BOX_LANES_INL_H
#undef VELLORAN_BOX_LANES_INL_H
#else
#define VELLORAN_BOX_LANES_INL_H
#endif

#include "operators/blur/boxes/box_line_rows.h"
#include "rows/row_targets.h"

#include <hwy/cache_control.h>

#include <algorithm>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

constexpr int prefetch_positions = 16;          // rows that columns are asked for ahead of their use
constexpr int prefetch_columns = column_lanes;  // that a stripe is asked for ahead of its use

// Any vector length divides a block of 16 lanes.
using LaneTag = hn::CappedTag<int32_t, 16>;
using FloatTag = hn::Rebind<float, LaneTag>;
using FixTag = hn::Rebind<FixPixel, LaneTag>;
using FixPairTag = hn::Repartition<FixPixel, LaneTag>;
using LaneVector = hn::VFromD<LaneTag>;
constexpr int vector_lanes = static_cast<int>(hn::MaxLanes(LaneTag()));
// Vectors that are worked side by side: as many as leave room for the sums of three passes in the registers.
#if HWY_TARGET <= HWY_AVX3
constexpr int most_vectors = 4;
#else
constexpr int most_vectors = 2;
#endif
// Whether columns that are worked side by side fill cache lines of a plane: what goes past the caches in parts of a
// line goes slowly.
constexpr bool fills_lines = most_vectors * vector_lanes * sizeof(FixPixel) >= 64;
template <int lanes>
constexpr int side_by_side = std::min(most_vectors, lanes / vector_lanes);

// Asks for `lanes` elements.
template <int lanes, class T>
HWY_ATTR HWY_INLINE void prefetch_lanes(const T* at) {
    for (int l = 0; l < lanes; l += 64 / static_cast<int>(sizeof(T))) __builtin_prefetch(at + l);
}

HWY_ATTR HWY_INLINE LaneVector shift_right(LaneVector v, int shift) {
#if HWY_TARGET <= HWY_AVX2
    return hn::Shr(v, hn::Set(LaneTag(), shift));
#else
    return hn::ShiftRightSame(v, shift);
#endif
}

// ---- where lanes go: step is in elements from position to position ----

template <int vectors>
using Vectors = LaneVector[vectors];

// Whether rows that begin at `at` begin with whole cache lines.
template <class T>
bool whole_lines(const T* at, ptrdiff_t pitch) {
    return ((reinterpret_cast<uintptr_t>(at) | static_cast<uintptr_t>(pitch) * sizeof(T)) & 63) == 0;
}

struct LongOut {
    int32_t* at;
    ptrdiff_t step;
    template <int vectors>
    HWY_ATTR HWY_INLINE void store(const Vectors<vectors>& x) const {
        for (int u = 0; u < vectors; ++u) hn::StoreU(x[u], LaneTag(), at + u * vector_lanes);
    }
};

// Truncation of what fits 32 bits, as a plain conversion does it.
HWY_ATTR HWY_INLINE LaneVector truncated(hn::VFromD<FloatTag> v) {
#if ROW_TARGET_PLAIN
    return hn::ConvertTo(LaneTag(), v);
#else
    typedef int32_t Ints __attribute__((vector_size(sizeof(v.raw))));
    return LaneVector{(decltype(LaneVector::raw))__builtin_convertvector(v.raw, Ints)};
#endif
}

HWY_ATTR HWY_INLINE LaneVector scaled(LaneVector x, float factor) {
    const FloatTag df;
    const auto v = hn::Mul(hn::ConvertTo(df, x), hn::Set(df, factor));
    return truncated(hn::Min(hn::Max(v, hn::Set(df, -32767.0f)), hn::Set(df, 32767.0f)));
}

#if !ROW_TARGET_PLAIN
// Blocks of 16 bytes are two parts each: all first parts, then all second ones.
HWY_ATTR HWY_INLINE hn::VFromD<FixPairTag> joined_blocks(LaneVector v) {
    if constexpr (vector_lanes > 4) {
        const LaneTag d;
        alignas(64) static constexpr int32_t order[2][16] = {{0, 1, 4, 5, 2, 3, 6, 7},
                                                             {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15}};
        v = hn::TableLookupLanes(v, hn::SetTableIndices(d, order[vector_lanes == 16]));
    }
    return hn::BitCast(FixPairTag(), v);
}

// Two vectors that fit 16 bits, side by side.
HWY_ATTR HWY_INLINE hn::VFromD<FixPairTag> narrowed(LaneVector a, LaneVector b) {
    return joined_blocks(hn::BitCast(LaneTag(), hn::ReorderDemote2To(FixPairTag(), a, b)));
}
#endif

template <bool streamed>
struct PlaneOut {
    FixPixel* at;
    ptrdiff_t step;
    float factor;
    template <int vectors>
    HWY_ATTR HWY_INLINE void store(const Vectors<vectors>& x) const {
        int u = 0;
#if !ROW_TARGET_PLAIN
        for (; u + 2 <= vectors; u += 2) {
            const auto pair = narrowed(scaled(x[u], factor), scaled(x[u + 1], factor));
            if constexpr (streamed)
                hn::Stream(pair, FixPairTag(), at + u * vector_lanes);
            else
                hn::StoreU(pair, FixPairTag(), at + u * vector_lanes);
        }
#endif
        for (; u < vectors; ++u)
            hn::StoreU(hn::DemoteTo(FixTag(), scaled(x[u], factor)), FixTag(), at + u * vector_lanes);
    }
};

HWY_ATTR void scale(const int32_t* in, FixPixel* out, float factor, int n) {
    int i = 0;
    for (; i + vector_lanes <= n; i += vector_lanes)
        hn::StoreU(hn::DemoteTo(FixTag(), scaled(hn::LoadU(LaneTag(), in + i), factor)), FixTag(), out + i);
    for (; i < n; ++i) {
        const float v = std::min(std::max(static_cast<float>(in[i]) * factor, -32767.0f), 32767.0f);
        out[i] = static_cast<FixPixel>(static_cast<int32_t>(v));
    }
}

// A row of a group of columns, past the caches but for the parts of cache lines at its ends. `ahead` is a row that
// comes soon.
HWY_ATTR HWY_INLINE void stream_row(const FixPixel* from, FixPixel* to, const FixPixel* ahead) {
#if ROW_TARGET_PLAIN
    (void)ahead;
    std::copy_n(from, column_lanes, to);
#else
    constexpr int line = 64 / sizeof(FixPixel);
    const FixPairTag d;
    const auto past_line = reinterpret_cast<uintptr_t>(to) % 64 / sizeof(FixPixel);
    const int head = past_line ? line - static_cast<int>(past_line) : 0;
    if (head) {
        __builtin_prefetch(ahead, 1);
        __builtin_prefetch(ahead + column_lanes, 1);
        std::memcpy(to, from, static_cast<size_t>(head) * sizeof(FixPixel));
    }
    int i = head;
    for (; i + line <= column_lanes; i += line)
        for (int v = i; v < i + line; v += static_cast<int>(hn::MaxLanes(d)))
            hn::Stream(hn::LoadU(d, from + v), d, to + v);
    if (i < column_lanes) std::memcpy(to + i, from + i, static_cast<size_t>(column_lanes - i) * sizeof(FixPixel));
#endif
}

// Columns of a full group to a plane: work(out, most, done) puts blocks of at most `most` positions to out, a
// MakeOut<streamed>, and calls done(count) after each, which moves out on. Where rows of a plane do not come as whole
// cache lines, they are put together in `stage`, part_positions rows of column_lanes.
template <template <bool> class MakeOut, class Work>
HWY_ATTR HWY_INLINE void to_plane(const BoxSink& sink, int32_t* stage, int most, Work work) {
    if (!sink.streamed || (fills_lines && whole_lines(sink.plane, sink.pitch))) {
        const auto straight = [&](auto out)
                                  HWY_ATTR { work(out, most, [&](int count) { out.at += count * out.step; }); };
        if (sink.streamed)
            straight(MakeOut<true>{sink.plane, sink.pitch, sink.factor});
        else
            straight(MakeOut<false>{sink.plane, sink.pitch, sink.factor});
    } else {
        FixPixel* const rows = reinterpret_cast<FixPixel*>(stage);
        MakeOut<false> out = {rows, column_lanes, sink.factor};
        FixPixel* to = sink.plane;
        work(out, part_positions, [&](int count) HWY_ATTR {
            for (int i = 0; i < count; ++i, to += sink.pitch)
                stream_row(rows + i * column_lanes, to, to + prefetch_positions * sink.pitch);
        });
    }
    if (sink.streamed) hwy::FlushStream();
}

// ---- transposition ----

#if ROW_TARGET_PLAIN
// 16 rows of 16 elements: emit(c, r, v) gets elements r, r + 1, ... of column c, a vector of them.
template <class Emit>
HWY_ATTR HWY_INLINE void transpose(const int32_t* in, ptrdiff_t pitch, Emit emit) {
    for (int r = 0; r < 16; ++r)
        for (int c = 0; c < 16; ++c) emit(c, r, hn::Load(LaneTag(), in + r * pitch + c));
}
#else
// Four elements of row 0, row 4, ... up to a vector of them.
template <class T>
HWY_ATTR HWY_INLINE LaneVector load_every_fourth(const T* in, ptrdiff_t pitch) {
    const LaneTag d;
    const auto row = [&](auto tag, int k)
                         HWY_ATTR { return hn::LoadU(tag, reinterpret_cast<const int32_t*>(in + k * pitch)); };
    if constexpr (vector_lanes == 4) {
        return row(d, 0);
    } else {
        const hn::Half<LaneTag> half;
        if constexpr (vector_lanes == 8) {
            return hn::Combine(d, row(half, 4), row(half, 0));
        } else {
            const hn::Half<hn::Half<LaneTag> > quarter;
            return hn::Combine(d, hn::Combine(half, row(quarter, 12), row(quarter, 8)),
                               hn::Combine(half, row(quarter, 4), row(quarter, 0)));
        }
    }
}

// 16 rows of 16 elements of 32 bits, which two samples make as well; pitch in T. emit(c, r, v) gets elements r, r + 1,
// ... of column c, a vector of them.
template <class T, class Emit>
HWY_ATTR HWY_INLINE void transpose(const T* in, ptrdiff_t pitch, Emit emit) {
    static_assert(sizeof(int32_t) % sizeof(T) == 0);
    constexpr int parts = sizeof(int32_t) / sizeof(T);
    const LaneTag d;
    const hn::Repartition<uint64_t, LaneTag> pairs;
    for (int r = 0; r < 16; r += vector_lanes) {
#pragma GCC unroll 4
        for (int c = 0; c < 16; c += 4) {
            const T* const from = in + r * pitch + c * parts;
            const LaneVector v0 = load_every_fourth(from, pitch), v1 = load_every_fourth(from + pitch, pitch),
                             v2 = load_every_fourth(from + 2 * pitch, pitch),
                             v3 = load_every_fourth(from + 3 * pitch, pitch);
            const auto lo01 = hn::BitCast(pairs, hn::InterleaveLower(d, v0, v1)),
                       lo23 = hn::BitCast(pairs, hn::InterleaveLower(d, v2, v3));
            const auto hi01 = hn::BitCast(pairs, hn::InterleaveUpper(d, v0, v1)),
                       hi23 = hn::BitCast(pairs, hn::InterleaveUpper(d, v2, v3));
            emit(c, r, hn::BitCast(d, hn::InterleaveLower(pairs, lo01, lo23)));
            emit(c + 1, r, hn::BitCast(d, hn::InterleaveUpper(pairs, lo01, lo23)));
            emit(c + 2, r, hn::BitCast(d, hn::InterleaveLower(pairs, hi01, hi23)));
            emit(c + 3, r, hn::BitCast(d, hn::InterleaveUpper(pairs, hi01, hi23)));
        }
    }
}
#endif

// The first `count` elements of fewer than 16 rows, or of a row's end, in a block of their own: the last row stands for
// those that are missing, zeros for what lies behind the end.
template <class T, int n>
HWY_NOINLINE void copy_edge(const T* in, ptrdiff_t pitch, int rows, int count, T (&block)[16][n]) {
    for (int k = 0; k < 16; ++k) {
        std::memcpy(block[k], in + std::min(k, rows - 1) * pitch, static_cast<size_t>(count) * sizeof(T));
        std::fill(block[k] + count, block[k] + n, T{0});
    }
}

// Finished positions on a stage until they leave: in whole blocks of 16, but for the line's end. What is over waits at
// the stage's beginning.
struct RowsOut {
    int32_t* stage;  // stage_out_positions
    int n;
    int written = 0, waiting = 0;  // positions that left, and those on the stage
    int32_t* next() const { return stage + waiting * row_lanes; }
    int room() const { return stage_out_positions - waiting; }
    // count more are there; leave(stage, p, positions) takes those from p on.
    template <class Leave>
    HWY_ATTR HWY_INLINE void add(int count, Leave leave) {
        waiting += count;
        const bool end = written + waiting == n;
        if (waiting < stage_positions && !end) return;
        const int leaving = end ? waiting : waiting & ~15;
        leave(stage, written, leaving);
        written += leaving;
        waiting -= leaving;
        std::copy_n(stage + leaving * row_lanes, waiting * row_lanes, stage);
    }
};

#if !ROW_TARGET_PLAIN
// `positions` samples of each of up to 16 rows, two at a time: emit(p, r, v) gets positions p and p + 1 of rows r, r +
// 1,
// ..., a pair in each lane.
template <class Emit>
HWY_ATTR HWY_INLINE void transpose_pairs(const FixPixel* in, ptrdiff_t pitch, int rows, int positions, Emit emit) {
    constexpr int block = 64 / sizeof(FixPixel);
    FixPixel edge[16][block];
    for (int done = 0; done < positions; done += block) {
        const FixPixel* from = in + done;
        ptrdiff_t from_pitch = pitch;
        if (rows < 16 || positions - done < block) {
            copy_edge(from, pitch, rows, std::min(block, positions - done), edge);
            from = edge[0];
            from_pitch = block;
        }
        transpose(from, from_pitch, [&](int c, int r, LaneVector v) HWY_ATTR { emit(done + 2 * c, r, v); });
    }
}
#endif

// Positions [0, positions) of a stage, which are those from p on of the rows.
HWY_ATTR void unstage_rows(const int32_t* stage, int n, int p, int positions, const BoxSink& sink, int rows) {
    alignas(64) int32_t block[16][16];
    for (int done = 0; done < positions; done += 16) {
        const int32_t* const from = stage + done * row_lanes;
        const int count = std::min(16, positions - done);
        int32_t* long_image = sink.long_image;
        ptrdiff_t pitch = sink.pitch;
        if (sink.stripe_height) {
            const int in_stripe = (p + done) % column_lanes, x = p + done - in_stripe;
            pitch = std::min(column_lanes, n - x);
            long_image += ptrdiff_t{x} * sink.stripe_height + sink.stripe_row * pitch + in_stripe;
        } else if (long_image) {
            long_image += p + done;
        }
        if (long_image && count == 16 && rows == 16) {
            if (sink.stripe_height && p + done + prefetch_columns < n) {
                const int32_t* const ahead = long_image + ptrdiff_t{prefetch_columns} * sink.stripe_height;
                for (int k = 0; k < 16; ++k) __builtin_prefetch(ahead + k * pitch, 1);
            }
            transpose(from, row_lanes, [&](int c, int r, LaneVector v) HWY_ATTR {
                hn::StoreU(v, LaneTag(), long_image + c * pitch + r);
            });
            continue;
        }
        transpose(from, row_lanes, [&](int c, int r, LaneVector v) HWY_ATTR { hn::Store(v, LaneTag(), block[c] + r); });
        for (int k = 0; k < rows; ++k) {
            if (long_image)
                std::memcpy(long_image + k * pitch, block[k], static_cast<size_t>(count) * 4);
            else
                scale(block[k], sink.plane + k * sink.pitch + p + done, sink.factor, count);
        }
    }
}

}  // namespace
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif
