// The nearest column of a sample moves to the right with it: where (x - a)^2 + h is the least for x, it is not for a
// later one in a column before a. So the nearest columns of every 32nd sample are found first, each between those
// of two others that are known, and what is between two of them has its own between theirs. All are whole numbers.
#include "operators/edges/run_distance_rows.h"

#include "operators/edges/edge_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/edges/run_distance_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

constexpr int block_vectors = run_block / lane_count;
static_assert(run_block % lane_count == 0);

HWY_INLINE I ascending() {
    HWY_ALIGN int32_t steps[lane_count];
    for (int k = 0; k < lane_count; ++k) steps[k] = k;
    return hn::Load(DI(), steps);
}
HWY_INLINE I load(const int32_t* from) { return hn::LoadU(DI(), from); }
HWY_INLINE I least_of(I a) { return hn::MinOfLanes(DI(), a.v); }

// Places and columns count from the column before the run. height[c]: c^2 and the square of its rows, so that the
// squared distance of x is x^2 + height[c] - 2 x c.
struct Run {
    const int32_t* height;
    const uint16_t* rows;  // of the columns 1 and on
    int32_t *from, *to;    // of each block, between which its samples' nearest columns lie
    int n, n_blocks;
    int place(int block) const { return block < n_blocks ? 1 + block * run_block : n; }
    // Of the first sample of a block.
    void set(int block, int least, int most) const {
        if (block < n_blocks) from[block] = least;
        if (block > 0) to[block - 1] = most;
    }
};

// The first of the columns from .. to that is nearest to x.
int nearest_column(const Run& run, int x, int from, int to) {
    // None that is farther than what is in the column of x itself.
    const int up = run.rows[x - 1];
    from = from > x - up ? from : x - up;
    to = to < x + up ? to : x + up;
    const I step(-2 * x * lane_count), stride(lane_count);
    I column = I(from) + ascending(), term = column * I(-2 * x), best(INT32_MAX), best_column(to);
    for (int c = from; c <= to; c += lane_count) {
        const I value = load(run.height + c) + term;
        const MI nearer = value < best;
        best = min(best, value);
        best_column = select(nearer, column, best_column);
        term = term + step;
        column = column + stride;
    }
    const I least = least_of(best);
    const int found = hn::GetLane(least_of(select(best == least, best_column, I(INT32_MAX))).v);
    return found < to ? found : to;  // beyond it columns are no nearer
}

// nearest: to the first samples of blocks low and high.
void find_between(const Run& run, int low, int high, int nearest_low, int nearest_high) {
    if (high - low < 2) return;
    // To look at a few columns more costs less than to find the nearest one.
    constexpr int few = 16;
    if (nearest_high - nearest_low <= few) {
        for (int b = low + 1; b < high; ++b) run.set(b, nearest_low, nearest_high);
        return;
    }
    const int middle = (low + high) / 2;
    const int nearest = nearest_column(run, run.place(middle), nearest_low, nearest_high);
    run.set(middle, nearest, nearest);
    find_between(run, low, middle, nearest_low, nearest);
    find_between(run, middle, high, nearest, nearest_high);
}

void measure_block(const Run& run, int block, float* squares) {
    const int from = run.from[block], to = run.to[block];
    I x[block_vectors], step[block_vectors], term[block_vectors], best[block_vectors];
    for (int v = 0; v < block_vectors; ++v) {
        x[v] = I(1 + block * run_block + v * lane_count) + ascending();
        step[v] = shl<1>(-x[v]);
        term[v] = step[v] * I(from);
        best[v] = I(INT32_MAX);
    }
    for (int c = from; c <= to; ++c) {
        const I height(run.height[c]);
        for (int v = 0; v < block_vectors; ++v) {
            best[v] = min(best[v], height + term[v]);
            term[v] = term[v] + step[v];
        }
    }
    for (int v = 0; v < block_vectors; ++v) {
        const I square = best[v] + x[v] * x[v];
        hn::StoreU(hn::IfThenElse(hn::RebindMask(DF(), (square < I(run_nowhere)).m), number(square).v, F(1e30f).v),
                   DF(), squares + v * lane_count);
    }
}

void measure(const uint16_t* rows, int n, bool there_before, bool there_behind, int32_t* scratch, float* squares) {
    if (n == 1 && (there_before || there_behind)) {
        squares[0] = 1.0f;
        return;
    }
    int32_t* const height = scratch;
    height[0] = there_before ? 0 : run_nowhere;
    INDEPENDENT_ITERATIONS
    for (int i = 0; i < n; ++i) {
        const int32_t up = rows[i], c = i + 1;
        height[i + 1] = c * c + (up == 0xffff ? run_nowhere : up * up);
    }
    for (int c = n + 1; c < n + 2 + run_block; ++c) height[c] = c * c + run_nowhere;
    if (there_behind) height[n + 1] = (n + 1) * (n + 1);
    const int n_blocks = (n + run_block - 1) / run_block;
    int32_t* const from = scratch + n + 2 + run_block;
    const Run run = {height, rows, from, from + n_blocks, n, n_blocks};
    // To look at all columns of a short run costs less than to find the nearest ones.
    if (n_blocks == 1) {
        for (int b = 0; b < n_blocks; ++b) {
            from[b] = 0;
            run.to[b] = n + 1;
            measure_block(run, b, squares + b * run_block);
        }
        return;
    }
    const int first = nearest_column(run, 1, 0, n + 1), last = nearest_column(run, n, first, n + 1);
    run.set(0, first, first);
    run.set(n_blocks, last, last);
    find_between(run, 0, n_blocks, first, last);
    for (int b = 0; b < run.n_blocks; ++b) measure_block(run, b, squares + b * run_block);
}

int end_of_run(const FixPixel* matte, int first, int width) {
    const bool inside = matte[first] >= edge_inside;
    int i = first + 1;
#if !ROW_TARGET_PLAIN
    const hn::ScalableTag<FixPixel> d;
    constexpr int lanes = static_cast<int>(hn::MaxLanes(d));
    const auto outside = hn::Set(d, FixPixel{edge_inside - 1});
    for (; i + lanes <= width; i += lanes) {
        const auto found = hn::Gt(hn::LoadU(d, matte + i), outside);
        const auto other = inside ? hn::Not(found) : found;
        if (!hn::AllFalse(d, other)) return i + static_cast<int>(hn::FindFirstTrue(d, other));
    }
#endif
    while (i < width && (matte[i] >= edge_inside) == inside) ++i;
    return i;
}

constexpr RunDistanceRows run_distance_table = {end_of_run, measure};

}  // namespace
const RunDistanceRows* run_distance_rows_of_target() { return &run_distance_table; }
}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(run_distance_rows_of_target);
const RunDistanceRows& run_distance_rows() { return *HWY_DYNAMIC_DISPATCH(run_distance_rows_of_target)(); }
}  // namespace velloran
#endif
