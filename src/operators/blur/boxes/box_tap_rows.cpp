// Boxes by taps, on lanes: box_taps.h says what is summed where.
//
// The running sums stay in registers along a block of positions, and in scratch memory from block to block. Rows come
// as 16 lanes of 16 bits, kept for as long as the last tap needs them; columns are read where they lie.
#include "operators/blur/boxes/box_line_rows.h"
#include "operators/blur/boxes/box_taps.h"

#include <algorithm>
#include <climits>
#include <type_traits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/blur/boxes/box_tap_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/blur/boxes/box_lanes-inl.h"

#ifndef VELLORAN_OPS_BOX_TAP_ROWS_ONCE
#define VELLORAN_OPS_BOX_TAP_ROWS_ONCE
namespace velloran::box_tap_rows_detail {

// What is kept from block to block, a lane each.
enum State {
    first_front,   // sum of the first pass that the second one takes in
    first_behind,  // that it takes out
    second,
    third,
    added,     // results so far, while they are added up for the next pass
    late_tap,  // middle tap that is taken in later: of positions whose front tap is even, then of those where it is odd
    late_tap_odd,
    n_states
};

// Positions of the third pass's delay line, at least: as many as let all that is read and written stay in the first
// cache where windows are short.
constexpr int delayed_rows = 100, delayed_columns = 40;

}  // namespace velloran::box_tap_rows_detail
#endif

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

using namespace box_tap_rows_detail;

// Where a group of columns is worked in parts, the positions of a block: so few that the parts' cache lines, which they
// share, are still there.
constexpr int block_positions = side_by_side<column_lanes> * vector_lanes < column_lanes ? part_positions : INT_MAX;

// Samples as lanes: those of slot 0 begin at `at`, those of the next one a step on.
template <class T>
struct LaneSource {
    const T* at;
    ptrdiff_t step;
};

HWY_ATTR HWY_INLINE LaneVector load(const FixPixel* at) { return hn::PromoteTo(LaneTag(), hn::LoadU(FixTag(), at)); }
HWY_ATTR HWY_INLINE LaneVector load(const int32_t* at) { return hn::LoadU(LaneTag(), at); }

// Where the results of a pass go that are added up.
struct Nowhere {};

// A plane, scaled by less than 1: no result leaves 32 bits then, and narrowing holds it to 16, but for the lowest
// value.
template <bool streamed>
struct HeldOut {
    FixPixel* at;
    ptrdiff_t step;
    float factor;
    HWY_ATTR HWY_INLINE LaneVector scaled_by(LaneVector x) const {
        const FloatTag df;
        return truncated(hn::Mul(hn::ConvertTo(df, x), hn::Set(df, factor)));
    }
    template <int vectors>
    HWY_ATTR HWY_INLINE void store(const Vectors<vectors>& x) const {
#if ROW_TARGET_PLAIN
        PlaneOut<streamed>{at, step, factor}.store(x);
#else
        const FixPairTag d;
        static_assert(vectors % 2 == 0);
        for (int u = 0; u < vectors; u += 2) {
            const auto pair = hn::Max(narrowed(scaled_by(x[u]), scaled_by(x[u + 1])), hn::Set(d, FixPixel{-32767}));
            if constexpr (streamed)
                hn::Stream(pair, d, at + u * vector_lanes);
            else
                hn::StoreU(pair, d, at + u * vector_lanes);
        }
#endif
    }
};

HWY_ATTR HWY_INLINE void add(LaneVector& sum, LaneVector in, LaneVector out) { sum = hn::Add(sum, hn::Sub(in, out)); }

// Results that go to a plane are through: they are not shifted any more.
template <class Out>
constexpr bool lanes_go_on = std::is_same_v<Out, Nowhere> || std::is_same_v<Out, LongOut>;

// ---- a pass starts ----

// Sets the sums so that the next position is worked like any other: as they would be after the position before it.
template <int lanes, class T>
HWY_ATTR void start(const BoxTaps& taps, int active, const LaneSource<T>& source, int32_t* state, int32_t* delay) {
    const LaneTag d;
    const int r0 = taps.radius[0], r1 = taps.radius[1];
    for (int v = 0; v < lanes; v += vector_lanes) {
        const auto sample = [&](int position)
                                HWY_ATTR { return load(source.at + tap_slot(taps, position) * source.step + v); };
        const auto tap = [&](int k, int q) HWY_ATTR { return sample(tap_position(taps, active, k, q)); };
        const auto get = [&](State s) HWY_ATTR { return hn::Load(d, state + s * lanes + v); };
        const auto put = [&](State s, LaneVector x) HWY_ATTR { hn::Store(x, d, state + s * lanes + v); };
        // Position -1 mirrors 0, so the window around either is twice its half, and the sample that it ends with.
        if (active == 1) {
            LaneVector half = hn::Zero(d);
            for (int p = 0; p < r0; ++p) {
                const T* const from = source.at + p * source.step;
                if (lanes > row_lanes && v == 0) prefetch_lanes<lanes>(from + prefetch_positions * source.step);
                half = hn::Add(half, load(from + v));
            }
            put(first_front, hn::Add(hn::Add(half, half), sample(r0)));
        } else if (active == 2) {
            const LaneVector half = get(added);
            LaneVector front = get(first_front);  // at position 0
            add(front, tap(0, 0), tap(1, 0));
            put(second, hn::Add(hn::Add(half, half), shift_right(front, taps.shift[0])));
            // What is taken out at position 0 mirrors what is taken in there: one step before that.
            add(front, tap(2, 0), sample(r0 - r1 - 1));
            put(first_behind, front);
        } else {
            // What is taken in at position 0 is not at hand yet. It mirrors what is taken out there, so any
            // value may stand for both: zero.
            const LaneVector half = get(added);
            put(third, hn::Add(half, half));
            hn::Store(hn::Zero(d), d, delay + taps.radius[2] * lanes + v);
        }
        put(added, hn::Zero(d));
    }
}

// ---- passes run ----

// `active` passes over a block. late as in BoxTaps. shifted: the first pass whose results are shifted; active: none.
template <int lanes, int active, bool late, int shifted, class T, class Out>
HWY_ATTR HWY_NOINLINE void work(const BoxTaps& taps, const TapRuns& runs, const LaneSource<T>& source, int32_t* state,
                                int32_t* delay, Out first_out) {
    constexpr bool adding = std::is_same_v<Out, Nowhere>;
    constexpr bool keeping = active == 3 || (active == 2 && adding);  // in the delay line
    constexpr int n_taps = std::min(active, 2) + 1;
    constexpr int vectors = side_by_side<lanes>;
    const LaneTag d;
    const int shift[3] = {taps.shift[0], taps.shift[1], taps.shift[2]};
    for (int v = 0; v < lanes; v += vectors * vector_lanes) {
        LaneVector s[added + 1][vectors];  // the states up to there
        const auto each_state = [&](auto body) HWY_ATTR {
            for (int u = 0; u < vectors; ++u) {
                const auto one = [&](State k) HWY_ATTR { body(s[k][u], state + k * lanes + v + u * vector_lanes); };
                one(first_front);
                if (active > 1) one(first_behind), one(second);
                if (active > 2) one(third);
                if (adding) one(added);
            }
        };
        each_state([&](LaneVector& x, int32_t* at) HWY_ATTR { x = hn::Load(d, at); });
        const T* at[n_taps];
        ptrdiff_t step[n_taps];
        for (int k = 0; k < n_taps; ++k) {
            at[k] = source.at + runs.tap[k].slot * source.step + v;
            step[k] = runs.tap[k].direction * source.step;
        }
        int32_t* keep = delay + runs.keep.slot * lanes + v;
        const int32_t* leave = delay + runs.leave.slot * lanes + v;
        const ptrdiff_t leave_step = runs.leave.direction * lanes;
        ptrdiff_t odd = (tap_position(taps, active, 0, runs.q) & 1) * lanes;
        Out out = first_out;
        if constexpr (!adding) out.at += v;
        for (int i = 0; i < runs.count; ++i) {
            if constexpr (lanes > row_lanes)
                prefetch_lanes<vectors * vector_lanes>(at[0] + prefetch_positions * step[0]);
            LaneVector result[vectors];
            for (int u = 0; u < vectors; ++u) {
                const int lane = u * vector_lanes;
                const LaneVector middle = load(at[1] + lane);
                LaneVector middle_in = middle;
                if constexpr (late) {
                    int32_t* const at_late = state + late_tap * lanes + odd + v + lane;
                    middle_in = hn::Load(d, at_late);
                    hn::Store(middle, d, at_late);
                }
                add(s[first_front][u], load(at[0] + lane), middle);
                LaneVector x = s[first_front][u];
                if constexpr (active > 1) {
                    add(s[first_behind][u], middle_in, load(at[2] + lane));
                    LaneVector behind = s[first_behind][u];
                    if constexpr (shifted == 0) {
                        x = shift_right(x, shift[0]);
                        behind = shift_right(behind, shift[0]);
                    }
                    add(s[second][u], x, behind);
                    x = s[second][u];
                    if constexpr (active > 2) {
                        if constexpr (shifted <= 1) x = shift_right(x, shift[1]);
                        const LaneVector leaves = hn::Load(d, leave + lane);
                        hn::Store(x, d, keep + lane);
                        add(s[third][u], x, leaves);
                        x = s[third][u];
                    }
                }
                if constexpr (shifted < active && lanes_go_on<Out>) x = shift_right(x, shift[active - 1]);
                if constexpr (adding) s[added][u] = hn::Add(s[added][u], x);
                if constexpr (adding && keeping) hn::Store(x, d, keep + lane);
                result[u] = x;
            }
            if constexpr (!adding) {
                out.store(result);
                out.at += out.step;
            }
            for (int k = 0; k < n_taps; ++k) at[k] += step[k];
            if constexpr (keeping) keep += lanes;
            if constexpr (active > 2) leave += leave_step;
            if constexpr (late) odd ^= lanes;
        }
        each_state([&](LaneVector x, int32_t* to) HWY_ATTR { hn::Store(x, d, to); });
    }
}

template <int lanes, class T, class Out>
HWY_ATTR void work_block(const BoxTaps& taps, const TapRuns& runs, const LaneSource<T>& source, int32_t* state,
                         int32_t* delay, Out out) {
    using Work = void (*)(const BoxTaps&, const TapRuns&, const LaneSource<T>&, int32_t*, int32_t*, Out);
    const int active = runs.active;
    int shifted = 0;
    while (shifted < active && taps.shift[shifted] == 0) ++shifted;
#define VELLORAN_WORK(active, late, shifted) work<lanes, active, late, shifted, T, Out>
    static constexpr Work one[2][2] = {{VELLORAN_WORK(1, false, 0), VELLORAN_WORK(1, false, 1)},
                                       {VELLORAN_WORK(1, true, 0), VELLORAN_WORK(1, true, 1)}};
    static constexpr Work two[2][3] = {
        {VELLORAN_WORK(2, false, 0), VELLORAN_WORK(2, false, 1), VELLORAN_WORK(2, false, 2)},
        {VELLORAN_WORK(2, true, 0), VELLORAN_WORK(2, true, 1), VELLORAN_WORK(2, true, 2)}};
    Work chosen = active == 1 ? one[taps.late][shifted] : two[taps.late][shifted];
    if constexpr (!std::is_same_v<Out, Nowhere>) {
        static constexpr Work three[2][4] = {{VELLORAN_WORK(3, false, 0), VELLORAN_WORK(3, false, 1),
                                              VELLORAN_WORK(3, false, 2), VELLORAN_WORK(3, false, 3)},
                                             {VELLORAN_WORK(3, true, 0), VELLORAN_WORK(3, true, 1),
                                              VELLORAN_WORK(3, true, 2), VELLORAN_WORK(3, true, 3)}};
        if (active == 3) chosen = three[taps.late][shifted];
    }
#undef VELLORAN_WORK
    chosen(taps, runs, source, state, delay, out);
}

// The whole line. fetch(n) makes the line's first n positions available, or more, and says how many are; out() is where
// the next results go, and room() how many of them may go there; done(count) says that they did. scratch: the states
// and the delay line.
template <int lanes, class T, class Fetch, class OutAt, class Room, class Done>
HWY_ATTR HWY_INLINE void run_taps(const BoxTaps& taps, const LaneSource<T>& source, int32_t* scratch, Fetch fetch,
                                  OutAt out, Room room, Done done) {
    int32_t *const state = scratch, *const delay = state + n_states * lanes;
    for (int active = 1; active <= taps.n_passes; ++active) {
        const bool last = active == taps.n_passes;
        const int end = last ? taps.n : taps.radius[active];
        fetch(positions_wanted(taps, active, 0));
        start<lanes>(taps, active, source, state, delay);
        TapRuns runs = start_taps(taps, active);
        while (runs.q < end) {
            const int wanted = positions_wanted(taps, active, runs.q), available = fetch(wanted);
            const int most = std::min(end - runs.q, available < taps.n ? available - wanted + 1 : taps.n);
            if (last) {
                plan_block(taps, runs, std::min(most, room()));
                work_block<lanes>(taps, runs, source, state, delay, out());
                done(runs.count);
            } else {
                plan_block(taps, runs, most);
                work_block<lanes>(taps, runs, source, state, delay, Nowhere());
            }
            advance_taps(taps, runs);
        }
    }
}

// ---- rows ----

// `positions` samples of each of 16 rows into lanes of 16 bits.
HWY_ATTR void keep_rows(const FixPixel* in, ptrdiff_t pitch, int rows, int positions, FixPixel* kept) {
#if ROW_TARGET_PLAIN
    for (int k = 0; k < row_lanes; ++k)
        for (int i = 0; i < positions; ++i) kept[i * row_lanes + k] = in[std::min(k, rows - 1) * pitch + i];
#else
    const LaneTag d;
    const hn::Repartition<uint8_t, LaneTag> bytes;
    // The first of each pair in a lane before the second ones, within blocks of four lanes, then over all of them.
    alignas(64) static constexpr uint8_t split[16] = {0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15};
    const auto splits = hn::LoadDup128(bytes, split);
    transpose_pairs(in, pitch, rows, positions, [&](int p, int r, LaneVector v) HWY_ATTR {
        FixPixel* const to = kept + p * row_lanes + r;
        const auto parts = joined_blocks(hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(bytes, v), splits)));
        if constexpr (vector_lanes == row_lanes) {
            hn::StoreU(parts, FixPairTag(), to);
        } else {
            const hn::Half<FixPairTag> half;
            hn::StoreU(hn::LowerHalf(half, parts), half, to);
            hn::StoreU(hn::UpperHalf(half, parts), half, to + row_lanes);
        }
    });
#endif
}

HWY_ATTR void rows(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count, int32_t* scratch) {
    constexpr int lanes = row_lanes;
    const BoxTaps taps = make_box_taps(lines, kept_positions(lines), delayed_rows);
    int32_t* const stage_out = scratch + (n_states + taps.delayed) * lanes;
    FixPixel* const kept = reinterpret_cast<FixPixel*>(stage_out + stage_out_positions * lanes);
    RowsOut rows_out = {stage_out, lines.n};
    int read = 0;
    const auto fetch = [&](int wanted) HWY_ATTR {
        while (read < wanted) {
            const int positions = std::min(stage_positions, lines.n - read);
            if (read + 2 * stage_positions <= lines.n)
                for (int k = 0; k < count; ++k)
                    prefetch_lanes<stage_positions>(source.plane + k * source.pitch + read + stage_positions);
            keep_rows(source.plane + read, source.pitch, count, positions, kept + read % taps.kept * lanes);
            read += positions;
        }
        return read;
    };
    const auto out = [&] { return LongOut{rows_out.next(), lanes}; };
    const auto room = [&] { return rows_out.room(); };
    const auto done = [&](int positions) HWY_ATTR {
        rows_out.add(positions, [&](const int32_t* stage, int p, int leaving)
                                    HWY_ATTR { unstage_rows(stage, lines.n, p, leaving, sink, count); });
    };
    run_taps<lanes>(taps, LaneSource<FixPixel>{kept, lanes}, scratch, fetch, out, room, done);
}

// ---- columns ----

template <class Out, class Done>
HWY_ATTR void whole_columns(const BoxLines& lines, const BoxSource& source, int32_t* scratch, Out& out, int most,
                            Done done) {
    run_taps<column_lanes>(
        make_box_taps(lines, lines.n, delayed_columns), LaneSource<int32_t>{source.long_image, source.pitch}, scratch,
        [&](int) { return lines.n; }, [&] { return out; }, [&] { return most; }, done);
}

HWY_ATTR void columns(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count,
                      int32_t* scratch) {
    if (count < column_lanes) {
        box_chain_rows().columns(lines, source, sink, count, scratch);
        return;
    }
    const int delayed = make_box_taps(lines, lines.n, delayed_columns).delayed;
    to_plane<HeldOut>(sink, scratch + (n_states + delayed) * column_lanes, block_positions,
                      [&](auto& out, int most, auto done)
                          HWY_ATTR { whole_columns(lines, source, scratch, out, most, done); });
}

constexpr BoxLinesRows table = {rows, columns};

}  // namespace
const BoxLinesRows* box_tap_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {

HWY_EXPORT(box_tap_rows_of_target);
const BoxLinesRows& box_tap_rows() { return *HWY_DYNAMIC_DISPATCH(box_tap_rows_of_target)(); }

size_t box_tap_scratch(const BoxLines& lines) {
    using namespace box_tap_rows_detail;
    const auto bytes = [&](int lanes, int least_delayed, int more) {
        const int delayed = make_box_taps(lines, lines.n, least_delayed).delayed;
        return static_cast<size_t>(n_states + delayed + more) * static_cast<size_t>(lanes) * sizeof(int32_t);
    };
    const size_t kept = static_cast<size_t>(kept_positions(lines)) * row_lanes * sizeof(FixPixel);
    return std::max(bytes(row_lanes, delayed_rows, stage_out_positions) + kept,
                    bytes(column_lanes, delayed_columns, part_positions));
}

}  // namespace velloran
#endif
