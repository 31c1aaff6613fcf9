#include "operators/blur/boxes/box_taps.h"

#include "operators/blur/boxes/box_line_rows.h"

#include <algorithm>

namespace velloran {
namespace {

// Positions from the first tap on that are asked for: a pass that starts looks one beyond it, mirrored.
constexpr int look_ahead = 2;

// So that blocks of short windows are not cut too often.
constexpr int least_kept = 512;

SlotRun line_run(const BoxTaps& taps, int position) {
    const int n = taps.n;
    int p = position % (2 * n);
    if (p < 0) p += 2 * n;
    if (p < n) {
        const int slot = p % taps.kept;
        return {slot, 1, std::min(n - p, taps.kept - slot)};
    }
    const int slot = (2 * n - 1 - p) % taps.kept;
    return {slot, -1, std::min(2 * n - p, slot + 1)};
}

// The delay line from its position on; before the first one it is mirrored.
SlotRun delay_run(const BoxTaps& taps, int position) {
    if (position < 0) return {-1 - position, -1, -position};
    const int slot = position % taps.delayed;
    return {slot, 1, taps.delayed - slot};
}

// All that run, for each of them body(run, where it begins at q).
template <class Body>
void for_each_run(const BoxTaps& taps, TapRuns& runs, Body body) {
    const int active = runs.active;
    for (int tap = 0; tap <= std::min(active, 2); ++tap)
        body(runs.tap[tap], [&] { return line_run(taps, tap_position(taps, active, tap, runs.q)); });
    if (!taps.delayed || active < 2) return;
    body(runs.keep, [&] { return delay_run(taps, active == 2 ? runs.q : runs.q + taps.radius[2]); });
    if (active > 2) body(runs.leave, [&] { return delay_run(taps, runs.q - taps.radius[2] - 1); });
}

}  // namespace

bool box_taps_apply(const BoxLines& lines) {
    if (!lines.mirror || lines.first_shift != 0 || lines.n_passes < 1) return false;
    const BoxPass *first = lines.passes, *last = lines.passes + lines.n_passes - 1;
    for (const BoxPass* pass = first; pass <= last; ++pass)
        if (pass->lo != pass->hi || (pass > first && pass->hi < pass[-1].hi)) return false;
    // A window that reaches over both ends of the line turns round twice.
    return last->hi - first->hi <= 1 && last->hi <= lines.n / 2 - 1;
}

BoxTaps make_box_taps(const BoxLines& lines, int kept, int least_delayed) {
    BoxTaps taps = {};
    taps.n = lines.n;
    taps.kept = kept;
    taps.n_passes = lines.n_passes;
    for (int k = 0; k < lines.n_passes; ++k) {
        taps.radius[k] = lines.passes[k].hi;
        taps.shift[k] = lines.passes[k].shift_after;
    }
    taps.late = lines.n_passes > 1 && taps.radius[1] > taps.radius[0];
    if (lines.n_passes > 2) taps.delayed = std::max(2 * taps.radius[2] + 1, least_delayed);
    return taps;
}

int kept_positions(const BoxLines& lines) {
    const int reach = lines.passes[0].hi + (lines.n_passes > 1 ? lines.passes[1].hi : 0);
    const int wanted = std::min(lines.n, std::max(2 * (reach + look_ahead) + stage_positions, least_kept));
    return (wanted + stage_positions - 1) / stage_positions * stage_positions;
}

int tap_position(const BoxTaps& taps, int active, int tap, int q) {
    // Every pass looks ahead by its radius; behind a tap by a window less.
    int p = q;
    for (int k = 0; k < active; ++k) p += taps.radius[k];
    for (int k = 0; k < tap; ++k) p -= 2 * taps.radius[k] + 1;
    return p;
}

int tap_slot(const BoxTaps& taps, int position) { return line_run(taps, position).slot; }

int positions_wanted(const BoxTaps& taps, int active, int q) {
    return std::min(taps.n, tap_position(taps, active, 0, q) + look_ahead);
}

TapRuns start_taps(const BoxTaps& taps, int active) {
    TapRuns runs = {};
    runs.active = active;
    for_each_run(taps, runs, [](SlotRun& run, auto begin) { run = begin(); });
    return runs;
}

void plan_block(const BoxTaps& taps, TapRuns& runs, int most) {
    runs.count = most;
    for_each_run(taps, runs, [&](const SlotRun& run, auto) { runs.count = std::min(runs.count, run.left); });
}

void advance_taps(const BoxTaps& taps, TapRuns& runs) {
    runs.q += runs.count;
    for_each_run(taps, runs, [&](SlotRun& run, auto begin) {
        run.slot += run.direction * runs.count;
        run.left -= runs.count;
        if (run.left == 0) run = begin();
    });
}

}  // namespace velloran
