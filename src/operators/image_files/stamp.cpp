#include "operators/image_files/stamp.h"

#include "support/memory.h"

#include <algorithm>

namespace velloran {

namespace {

// n samples to (n + 1) / 2: the mean of each pair; beside a last one without a partner lies nothing.
void halve(const FixPixel* in, ptrdiff_t in_step, int n, FixPixel* out, ptrdiff_t out_step) {
    int i = 0;
    for (; i + 1 < n; i += 2, in += 2 * in_step, out += out_step)
        *out = static_cast<FixPixel>((in[0] + in[in_step]) >> 1);
    if (i < n) *out = static_cast<FixPixel>(in[0] >> 1);
}

void halve_level(const StampLevel& from, const StampLevel& to, FixPixel* rows) {
    for (int y = 0; y < from.height; ++y)
        halve(from.samples + ptrdiff_t{y} * from.pitch, 1, from.width, rows + ptrdiff_t{y} * to.width, 1);
    for (int x = 0; x < to.width; ++x) halve(rows + x, to.width, from.height, to.samples + x, to.pitch);
}

}  // namespace

void make_stamp_levels(Stamp* stamp, int width, int height) {
    stamp->width = width;
    stamp->height = height;
    stamp->level_count = 0;
    size_t at[max_stamp_levels], total = 0;
    int n = 0;
    for (int w = width, h = height; n < max_stamp_levels; w = (w + 1) >> 1, h = (h + 1) >> 1) {
        const int pitch = w + 2;
        stamp->levels[n] = {w, h, pitch, nullptr};
        at[n++] = total + static_cast<size_t>(pitch) + 1;
        total += static_cast<size_t>(pitch) * static_cast<size_t>(h + 2);
        if (w < 2 || h < 2) break;
    }
    stamp->data = static_cast<FixPixel*>(safe_calloc(total * sizeof(FixPixel)));
    for (int i = 0; i < n; ++i) stamp->levels[i].samples = stamp->data + at[i];
    stamp->level_count = n;
}

void fill_stamp_levels(const Stamp& stamp) {
    if (stamp.level_count < 2) return;
    const StampLevel& half = stamp.levels[1];
    auto* const rows = frame_array<FixPixel>(static_cast<size_t>(half.width) * static_cast<size_t>(stamp.height));
    for (int i = 1; i < stamp.level_count; ++i) halve_level(stamp.levels[i - 1], stamp.levels[i], rows);
    frame_free(rows);
}

const Stamp* mirrored_stamp(Stamp* stamp) {
    if (stamp->mirrored) return stamp->mirrored;
    auto* const mirrored = safe_new_zeroed<Stamp>();
    push_abort_cleanup(safe_free, mirrored);
    make_stamp_levels(mirrored, stamp->height, stamp->width);
    pop_abort_cleanup();
    mirrored->x_scale = stamp->y_scale;
    mirrored->y_scale = stamp->x_scale;
    for (int i = 0; i < stamp->level_count; ++i) {
        const StampLevel &from = stamp->levels[i], &to = mirrored->levels[i];
        for (int y = 0; y < from.height; ++y)
            for (int x = 0; x < from.width; ++x)
                to.samples[ptrdiff_t{x} * to.pitch + y] = from.samples[ptrdiff_t{y} * from.pitch + x];
    }
    return stamp->mirrored = mirrored;
}

void free_stamp(Stamp* stamp) {
    if (stamp->mirrored) {
        safe_free(stamp->mirrored->data);
        safe_free(stamp->mirrored);
    }
    safe_free(stamp->data);
    safe_free(stamp->path);
    *stamp = {};
}

StampCollection* new_stamp_collection() { return safe_new_zeroed<StampCollection>(); }

void free_stamp_collection(StampCollection* collection) {
    if (!collection) return;
    for (Stamp& stamp : collection->stamps) free_stamp(&stamp);
    safe_free(collection);
}

}  // namespace velloran
