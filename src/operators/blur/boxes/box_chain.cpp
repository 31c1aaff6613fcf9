#include "operators/blur/boxes/box_chain.h"

#include <algorithm>

namespace velloran {
namespace {

constexpr int longest_moved = 16;  // windows up to here are moved down, longer ones are rings

// Positions that come in until a moved delay line is full: those of a stage for rows, fewer where a position is wide,
// so that all delay lines stay in the first cache.
int moved_positions(int lanes) { return lanes > row_lanes ? 32 : 64; }

// Positions beside the delay lines: zeros, and per pass two sums and a sample.
constexpr int odd_positions = 1 + 3 * 3;

int widest_window(const BoxLines& lines) {
    int window = 1;
    for (int k = 0; k < lines.n_passes; ++k) window = std::max(window, 2 * lines.passes[k].hi + 1);
    return window;
}

// The same for all passes, so that all delay lines are full at the same time.
int delay_capacity(int window, int lanes) { return window > longest_moved ? window : window + moved_positions(lanes); }

// The samples that leave the windows of radius r when those around position i, i + 1, ... come.
BoxStream trail_from(const BoxChain& chain, const BoxRun& run, int i, int r, int* count) {
    const int t = i - 1 - r;
    if (i == 0) {  // taken out at the start
        *count = 1;
        return {chain.zeros, 0};
    }
    if (t >= 0) {
        const int slot = slot_of(chain, run, t);
        *count = std::min(*count, chain.capacity - slot);
        return {run.delay + slot * chain.lanes, chain.lanes};
    }
    *count = std::min(*count, -t);
    if (!chain.mirror) return {chain.zeros, 0};
    const int slot = slot_of(chain, run, -1 - t);
    *count = std::min(*count, slot + 1);
    return {run.delay + slot * chain.lanes, -chain.lanes};
}

// The next block between a line's ends, where all passes run: most of them. False elsewhere.
bool next_inner_block(const BoxChain& chain, int available, int room, BoxBlock& block) {
    if (!chain.n_passes || chain.passes[0].taken >= chain.n) return false;
    for (int k = 0; k < chain.n_passes; ++k)
        if (chain.passes[k].taken <= 2 * chain.passes[k].pass->hi) return false;
    const int slot = chain.passes[0].slot;  // of all, as they are in step
    int count = std::min({available, room, chain.n - chain.passes[0].taken, chain.capacity - slot});
    for (int k = 0; k < chain.n_passes; ++k) {
        const BoxRun& run = chain.passes[k];
        BoxStreams& streams = block.passes[k];
        const auto trail = [&](int r) {
            int from = slot - (2 * run.pass->hi + 1) + run.pass->hi - r;
            if (from < 0) from += chain.capacity;
            count = std::min(count, chain.capacity - from);
            return BoxStream{run.delay + from * chain.lanes, chain.lanes};
        };
        streams.trail = trail(run.pass->hi);
        if (run.pass->lo != run.pass->hi) streams.trail_lo = trail(run.pass->lo);
        streams.keep = run.delay + slot * chain.lanes;
    }
    block.first = 0;
    block.last = chain.n_passes;
    block.starting = block.filling = -1;
    block.from_delay = false;
    block.steady = true;
    block.count = count;
    return true;
}

}  // namespace

int slot_of(const BoxChain& chain, const BoxRun& run, int position) {
    const int slot = run.slot - (run.taken - position);
    return slot < 0 ? slot + chain.capacity : slot;
}

int chain_positions(const BoxLines& lines, int lanes) {
    return lines.n_passes * delay_capacity(widest_window(lines), lanes) + odd_positions;
}

void set_up_chain(BoxChain& chain, const BoxLines& lines, int lanes, int32_t* scratch) {
    chain.n = lines.n;
    chain.mirror = lines.mirror != 0;
    chain.lanes = lanes;
    chain.n_passes = lines.n_passes;
    chain.window = widest_window(lines);
    chain.capacity = delay_capacity(chain.window, lanes);
    const auto take = [&](int positions) {
        int32_t* const at = scratch;
        scratch += positions * lanes;
        return at;
    };
    int32_t* const zeros = take(1);
    std::fill_n(zeros, lanes, 0);
    chain.zeros = zeros;
    // The slots of all passes run alike: those behind begin so much further on. Delay lines that are moved begin as
    // though they just had been.
    int slot = chain.window > longest_moved ? 0 : chain.window;
    for (int k = 0; k < lines.n_passes; ++k) {
        chain.passes[k] = {&lines.passes[k], nullptr, 0, slot, take(1), take(1), take(1)};
        chain.passes[k].delay = take(chain.capacity);
        slot += lines.passes[k].hi;
        if (slot >= chain.capacity) slot -= chain.capacity;
    }
}

void next_block(const BoxChain& chain, int available, int room, BoxBlock& block) {
    if (next_inner_block(chain, available, room, block)) return;
    block.first = 0;
    block.starting = block.filling = -1;
    block.from_delay = false;
    block.steady = true;
    int count = available;
    const int n = chain.n;
    while (block.first < chain.n_passes && chain.passes[block.first].taken == n + chain.passes[block.first].pass->hi)
        ++block.first;
    if (block.first < chain.n_passes && chain.passes[block.first].taken >= n) {
        const BoxRun& run = chain.passes[block.first];
        block.from_delay = true;
        count = run.pass->hi + n - run.taken;
        block.lead = {chain.zeros, 0};
        if (chain.mirror) {
            const int slot = slot_of(chain, run, 2 * n - 1 - run.taken);
            count = std::min(count, slot + 1);
            block.lead = {run.delay + slot * chain.lanes, -chain.lanes};
        }
    }
    for (block.last = block.first; block.last < chain.n_passes; ++block.last) {
        const BoxRun& run = chain.passes[block.last];
        const int r = run.pass->hi, i = run.taken - r;
        if (i < 0) {
            block.filling = block.last;
            count = std::min({count, -i, chain.capacity - run.slot});
            break;
        }
        if (i == 0) block.starting = block.last;
        BoxStreams& streams = block.passes[block.last];
        streams.trail = trail_from(chain, run, i, r, &count);
        if (run.pass->lo != r) streams.trail_lo = trail_from(chain, run, i, run.pass->lo, &count);
        // Behind the end the mirrored samples go where nothing is read any more.
        streams.keep = run.delay + run.slot * chain.lanes;
        count = std::min(count, chain.capacity - run.slot);
        if (run.taken < n) count = std::min(count, n - run.taken);
        block.steady = block.steady && streams.trail.step == chain.lanes;
    }
    block.count = block.filling < 0 ? std::min(count, room) : count;
}

void finish_block(BoxChain& chain, const BoxBlock& block) {
    for (int k = block.first; k < block.last + (block.filling >= 0); ++k) {
        BoxRun& run = chain.passes[k];
        run.taken += block.count;
        run.slot += block.count;
        if (run.slot < chain.capacity) continue;
        if (chain.window > longest_moved) {
            run.slot -= chain.capacity;
        } else {
            const int moved = moved_positions(chain.lanes);
            run.slot -= moved;
            std::copy_n(run.delay + moved * chain.lanes, run.slot * chain.lanes, run.delay);
        }
    }
}

}  // namespace velloran
