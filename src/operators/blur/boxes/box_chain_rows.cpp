// Boxes on delay lines: what a pass still has to take out of its window is kept until then. Any edge, any mix of radii,
// in place or not.
//
// All passes of a line run in one loop: a sample comes in, every pass adds it to its sum, takes the sample that leaves
// its window out, and hands the sum to the next pass in a register. Which positions can run so, and where their samples
// lie, box_chain.h says.
//
// Rows are turned into lanes by transposing 16 x 16 samples in registers, on the way in and out of a small stage;
// columns lie side by side as they are, and a group of full width goes without a stage.
//
// All sums are exact modulo 2^32, so every order of adding gives the same bits; the mix of two boxes and the last
// scaling are one float operation after the other, the same on all targets.
#include "operators/blur/boxes/box_chain.h"
#include "operators/blur/boxes/box_line_rows.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/blur/boxes/box_chain_rows.cpp"
#include "hwy/foreach_target.h"
#include "operators/blur/boxes/box_lanes-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

// ---- ends of the chain: step is in elements from position to position ----

// A plane's columns, or those of the long image.
template <class T>
struct ImageLead {
    const T* at;
    ptrdiff_t step;
    int shift;
    HWY_ATTR HWY_INLINE LaneVector load(int v) const {
        if constexpr (sizeof(T) == sizeof(FixPixel))
            return shift_right(hn::PromoteTo(LaneTag(), hn::LoadU(FixTag(), at + v)), shift);
        else
            return shift_right(hn::LoadU(LaneTag(), at + v), shift);
    }
    // Asks for `lanes` elements some way ahead.
    template <int lanes>
    void prefetch() const {
        prefetch_lanes<lanes>(at + prefetch_positions * step);
    }
};

// A delay line, or a stage.
struct LaneLead {
    const int32_t* at;
    ptrdiff_t step;
    HWY_ATTR HWY_INLINE LaneVector load(int v) const { return hn::Load(LaneTag(), at + v); }
    template <int lanes>
    void prefetch() const {}
};

// ---- the passes within a block ----

// The sum of the window around position 0 less its leading sample; the delay line holds the positions before that.
template <int lanes>
HWY_ATTR void start_sum(const BoxChain& chain, const BoxRun& run, int r, int32_t* sum) {
    const LaneTag d;
    for (int v = 0; v < lanes; v += vector_lanes) {
        LaneVector s = hn::Zero(d);
        for (int p = 0, end = 0; p < r; p = end) {
            const int slot = slot_of(chain, run, p);
            end = std::min(r, p + chain.capacity - slot);
            const int32_t* from = run.delay + slot * lanes + v;
            for (int i = p; i < end; ++i, from += lanes) s = hn::Add(s, hn::Load(d, from));
        }
        hn::Store(chain.mirror ? hn::Add(s, s) : s, d, sum + v);  // -1 mirrors 0
    }
}

template <int lanes>
HWY_ATTR void start_sums(const BoxChain& chain, const BoxRun& run) {
    const int hi = run.pass->hi, lo = run.pass->lo;
    start_sum<lanes>(chain, run, hi, run.sum);
    if (lo == hi) return;
    start_sum<lanes>(chain, run, lo, run.sum_lo);
    std::copy_n(run.delay + slot_of(chain, run, hi - 1) * lanes, lanes, run.before);
}

// Truncation of any float to 32 bits, held to the range of the integer.
HWY_ATTR HWY_INLINE LaneVector to_int(hn::VFromD<FloatTag> v) {
    const FloatTag df;
    return hn::ConvertTo(LaneTag(), hn::Min(hn::Max(v, hn::Set(df, -2147483648.0f)), hn::Set(df, 2147483520.0f)));
}

// The block's positions through n_passes passes. mixed: the one of them whose radii differ, by 1 as they do; -1: none.
// So the narrower window's leading sample is the one that came before.
template <int lanes, int n_passes, int mixed, bool steady, class Lead, class Out>
HWY_ATTR HWY_NOINLINE void work(const BoxRun* runs, const BoxStreams* blocks, Lead first_lead, Out first_out,
                                int count) {
    const LaneTag d;
    const FloatTag df;
    constexpr int vectors = side_by_side<lanes>;
    constexpr int slots = n_passes > 0 ? n_passes : 1;
    for (int v = 0; v < lanes; v += vectors * vector_lanes) {
        LaneVector sums[slots][vectors], lo[vectors], before[vectors];
        const int32_t* trails[slots];
        int32_t* keeps[slots];
        ptrdiff_t trail_steps[slots];
        int shifts[slots];
        BoxStream trail_lo = {};
        hn::VFromD<FloatTag> lo_weight, hi_weight;
        for (int k = 0; k < n_passes; ++k) {
            trails[k] = blocks[k].trail.at + v;
            keeps[k] = blocks[k].keep + v;
            trail_steps[k] = steady ? lanes : blocks[k].trail.step;
            shifts[k] = runs[k].pass->shift_after;
            for (int u = 0; u < vectors; ++u) sums[k][u] = hn::Load(d, runs[k].sum + v + u * vector_lanes);
        }
        if constexpr (mixed >= 0) {
            trail_lo = blocks[mixed].trail_lo;
            trail_lo.at += v;
            lo_weight = hn::Set(df, runs[mixed].pass->lo_weight);
            hi_weight = hn::Set(df, runs[mixed].pass->hi_weight);
            for (int u = 0; u < vectors; ++u) {
                lo[u] = hn::Load(d, runs[mixed].sum_lo + v + u * vector_lanes);
                before[u] = hn::Load(d, runs[mixed].before + v + u * vector_lanes);
            }
        }
        Lead lead = first_lead;
        Out out = first_out;
        lead.at += v;
        out.at += v;
        for (int i = 0; i < count; ++i) {
            lead.template prefetch<vectors * vector_lanes>();
            LaneVector x[vectors];
            for (int u = 0; u < vectors; ++u) {
                const int at = u * vector_lanes;
                x[u] = lead.load(at);
                for (int k = 0; k < n_passes; ++k) {
                    const LaneVector leaves = hn::Load(d, trails[k] + at);
                    [[maybe_unused]] LaneVector leaves_lo;
                    if (k == mixed) leaves_lo = hn::Load(d, trail_lo.at + at);
                    hn::Store(x[u], d, keeps[k] + at);
                    sums[k][u] = hn::Add(sums[k][u], hn::Sub(x[u], leaves));
                    if (k == mixed) {
                        lo[u] = hn::Add(lo[u], hn::Sub(before[u], leaves_lo));
                        before[u] = x[u];
                        x[u] = to_int(hn::Add(hn::Mul(hn::ConvertTo(df, lo[u]), lo_weight),
                                              hn::Mul(hn::ConvertTo(df, sums[k][u]), hi_weight)));
                    } else {
                        x[u] = sums[k][u];
                    }
                    x[u] = shift_right(x[u], shifts[k]);
                }
            }
            out.store(x);
            for (int k = 0; k < n_passes; ++k) {
                trails[k] += trail_steps[k];
                keeps[k] += lanes;
            }
            if (mixed >= 0) trail_lo.at += trail_lo.step;
            lead.at += lead.step;
            out.at += out.step;
        }
        for (int k = 0; k < n_passes; ++k)
            for (int u = 0; u < vectors; ++u) hn::Store(sums[k][u], d, runs[k].sum + v + u * vector_lanes);
        if constexpr (mixed >= 0) {
            for (int u = 0; u < vectors; ++u) {
                hn::Store(lo[u], d, runs[mixed].sum_lo + v + u * vector_lanes);
                hn::Store(before[u], d, runs[mixed].before + v + u * vector_lanes);
            }
        }
    }
}

template <int lanes, class Lead, class Out>
HWY_ATTR void work_block(const BoxChain& chain, const BoxBlock& block, Lead lead, Out out) {
    if (block.starting >= 0) start_sums<lanes>(chain, chain.passes[block.starting]);
    const BoxRun* const runs = chain.passes + block.first;
    const BoxStreams* const blocks = block.passes + block.first;
    const int n_passes = block.last - block.first;
    int mixed = -1;
    for (int k = 0; k < n_passes; ++k)
        if (runs[k].pass->lo != runs[k].pass->hi) mixed = k;
    using Work = void (*)(const BoxRun*, const BoxStreams*, Lead, Out, int);
    static constexpr Work plain[2][4] = {{work<lanes, 0, -1, false, Lead, Out>, work<lanes, 1, -1, false, Lead, Out>,
                                          work<lanes, 2, -1, false, Lead, Out>, work<lanes, 3, -1, false, Lead, Out>},
                                         {work<lanes, 0, -1, true, Lead, Out>, work<lanes, 1, -1, true, Lead, Out>,
                                          work<lanes, 2, -1, true, Lead, Out>, work<lanes, 3, -1, true, Lead, Out>}};
    static constexpr Work mixing[3][3] = {
        {work<lanes, 1, 0, false, Lead, Out>, work<lanes, 2, 0, false, Lead, Out>, work<lanes, 3, 0, false, Lead, Out>},
        {nullptr, work<lanes, 2, 1, false, Lead, Out>, work<lanes, 3, 1, false, Lead, Out>},
        {nullptr, nullptr, work<lanes, 3, 2, false, Lead, Out>}};
    (mixed < 0 ? plain[block.steady][n_passes] : mixing[mixed][n_passes - 1])(runs, blocks, lead, out, block.count);
}

// ---- stages: up to row_lanes lines at a time, stage_positions positions in and out ----

// `positions` samples of each of 16 rows into the lanes of a stage.
HWY_ATTR void stage_rows(const FixPixel* in, ptrdiff_t pitch, int rows, int positions, int shift, int32_t* stage) {
#if ROW_TARGET_PLAIN
    for (int k = 0; k < row_lanes; ++k)
        for (int i = 0; i < positions; ++i) stage[i * row_lanes + k] = in[std::min(k, rows - 1) * pitch + i] >> shift;
#else
    transpose_pairs(in, pitch, rows, positions, [&](int p, int r, LaneVector v) HWY_ATTR {
        int32_t* const to = stage + p * row_lanes + r;
        hn::Store(shift_right(hn::ShiftLeft<16>(v), 16 + shift), LaneTag(), to);
        hn::Store(shift_right(v, 16 + shift), LaneTag(), to + row_lanes);
    });
#endif
}

template <class T>
HWY_ATTR void stage_columns(const T* in, ptrdiff_t pitch, int columns, int p, int positions, int shift,
                            int32_t* stage) {
    for (int i = 0; i < positions; ++i, stage += row_lanes) {
        const T* const from = in + (p + i) * pitch;
        for (int l = 0; l < columns; ++l) stage[l] = static_cast<int32_t>(from[l]) >> shift;
        for (int l = columns; l < row_lanes; ++l) stage[l] = 0;
    }
}

HWY_ATTR void unstage_columns(const int32_t* stage, int p, int positions, const BoxSink& sink, int columns) {
    for (int i = 0; i < positions; ++i, stage += row_lanes) {
        if (sink.long_image)
            std::memcpy(sink.long_image + (p + i) * sink.pitch, stage, static_cast<size_t>(columns) * 4);
        else
            scale(stage, sink.plane + (p + i) * sink.pitch, sink.factor, columns);
    }
}

// Lines that pass through stages. in(p, positions, stage) and out(stage, p, positions) fill and empty them.
template <class In, class Out>
HWY_ATTR HWY_INLINE void run_staged(const BoxLines& lines, int32_t* scratch, In in, Out out) {
    constexpr int lanes = row_lanes;
    int32_t* const stage_in = scratch;
    int32_t* const stage_out = stage_in + stage_positions * lanes;
    BoxChain chain;
    set_up_chain(chain, lines, lanes, stage_out + stage_out_positions * lanes);
    int read = 0, staged = 0, used = 0;  // positions from the source; of them in the stage; and taken from there
    RowsOut rows_out = {stage_out, lines.n};
    BoxBlock block;
    while (rows_out.written < lines.n) {
        if (used == staged && read < lines.n) {
            staged = std::min(stage_positions, lines.n - read);
            in(read, staged, stage_in);
            read += staged;
            used = 0;
        }
        next_block(chain, staged - used, rows_out.room(), block);
        const LaneLead lead =
            block.from_delay ? LaneLead{block.lead.at, block.lead.step} : LaneLead{stage_in + used * lanes, lanes};
        const BoxRun& filling = chain.passes[std::max(block.filling, 0)];
        int32_t* const to = block.filling < 0 ? rows_out.next() : filling.delay + filling.slot * lanes;
        work_block<lanes>(chain, block, lead, LongOut{to, lanes});
        finish_block(chain, block);
        if (!block.from_delay) used += block.count;
        if (block.filling < 0) rows_out.add(block.count, out);
    }
}

HWY_ATTR void rows(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count, int32_t* scratch) {
    run_staged(
        lines, scratch,
        [&](int p, int positions, int32_t* stage)
            HWY_ATTR { stage_rows(source.plane + p, source.pitch, count, positions, lines.first_shift, stage); },
        [&](const int32_t* stage, int p, int positions)
            HWY_ATTR { unstage_rows(stage, lines.n, p, positions, sink, count); });
}

// ---- columns ----

// A full group, straight from the source: blocks of at most `most` positions to out, and done(count) after each.
template <class Lead, class Out, class Done>
HWY_ATTR void whole_columns(const BoxLines& lines, Lead lead, int32_t* scratch, Out& out, int most, Done done) {
    constexpr int lanes = column_lanes;
    BoxChain chain;
    set_up_chain(chain, lines, lanes, scratch);
    int read = 0, written = 0;
    BoxBlock block;
    while (written < lines.n) {
        next_block(chain, lines.n - read, std::min(lines.n - written, most), block);
        const LaneLead delay_lead = {block.lead.at, block.lead.step};
        Lead here = lead;
        here.at += read * lead.step;
        if (block.filling >= 0) {
            const BoxRun& run = chain.passes[block.filling];
            const LongOut delay = {run.delay + run.slot * lanes, lanes};
            if (block.from_delay)
                work_block<lanes>(chain, block, delay_lead, delay);
            else
                work_block<lanes>(chain, block, here, delay);
        } else {
            if (block.from_delay)
                work_block<lanes>(chain, block, delay_lead, out);
            else
                work_block<lanes>(chain, block, here, out);
            written += block.count;
            done(block.count);
        }
        if (!block.from_delay) read += block.count;
        finish_block(chain, block);
    }
}

template <class Lead>
HWY_ATTR void whole_columns(const BoxLines& lines, Lead lead, const BoxSink& sink, int32_t* scratch) {
    if (sink.long_image) {
        LongOut out = {sink.long_image, sink.pitch};
        whole_columns(lines, lead, scratch, out, lines.n, [&](int count) { out.at += count * out.step; });
    } else {
        to_plane<PlaneOut>(sink, scratch + chain_positions(lines, column_lanes) * column_lanes, lines.n,
                           [&](auto& out, int most, auto done)
                               HWY_ATTR { whole_columns(lines, lead, scratch, out, most, done); });
    }
}

HWY_ATTR void columns(const BoxLines& lines, const BoxSource& source, const BoxSink& sink, int count,
                      int32_t* scratch) {
    const int shift = lines.first_shift;
    if (count == column_lanes) {
        if (source.plane)
            whole_columns(lines, ImageLead<FixPixel>{source.plane, source.pitch, shift}, sink, scratch);
        else
            whole_columns(lines, ImageLead<int32_t>{source.long_image, source.pitch, shift}, sink, scratch);
        return;
    }
    for (int done = 0; done < count; done += row_lanes) {
        const int n = std::min(row_lanes, count - done);
        BoxSink to = sink;
        if (to.long_image)
            to.long_image += done;
        else
            to.plane += done;
        run_staged(
            lines, scratch,
            [&](int p, int positions, int32_t* stage) HWY_ATTR {
                if (source.plane)
                    stage_columns(source.plane + done, source.pitch, n, p, positions, shift, stage);
                else
                    stage_columns(source.long_image + done, source.pitch, n, p, positions, shift, stage);
            },
            [&](const int32_t* stage, int p, int positions) HWY_ATTR { unstage_columns(stage, p, positions, to, n); });
    }
}

constexpr BoxLinesRows table = {rows, columns};

}  // namespace
const BoxLinesRows* box_chain_rows_of_target() { return &table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {

HWY_EXPORT(box_chain_rows_of_target);
const BoxLinesRows& box_chain_rows() { return *HWY_DYNAMIC_DISPATCH(box_chain_rows_of_target)(); }

size_t box_chain_scratch(const BoxLines& lines, int lanes) {
    constexpr int stages = stage_positions + stage_out_positions;
    const auto elements = [&](int of_lanes, int more) {
        return static_cast<size_t>(chain_positions(lines, of_lanes) + more) * static_cast<size_t>(of_lanes);
    };
    // Fewer columns than a group's go through stages as rows do.
    return std::max(elements(lanes, part_positions), elements(row_lanes, stages)) * sizeof(int32_t);
}

}  // namespace velloran
#endif
