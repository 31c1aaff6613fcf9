#include "operators/depth/z_layers.h"

#include "records/fix_pixel.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/unload.h"

#include <algorithm>
#include <cmath>

namespace velloran {

int z_layers_built = 0;

namespace {

constexpr float coarsest = 3.0f;        // steps of one side against the other's
constexpr float smallest = 1e-4f;       // share of the smaller amount
constexpr float farthest_focus = 2.0f;  // outside of 0 .. 1
constexpr int most_records = 4096;

struct Key {
    int n, keep_front;
    float focal, depth_of_field, near, far;
    bool operator==(const Key&) const = default;
};

z_layer* kept;
z_layers made;
Key key_of_made;

void free_layers() {
    safe_free(kept);
    kept = nullptr;
    made = {};
}

// How far slices lie apart on each side, and what amounts count in.
struct Sides {
    float lo, hi;
    float near, far;  // amounts
    float near_step, far_step;
    int n_near, n_far;
};

Sides plan_sides(int n, float focal, float depth_of_field, float near, float far) {
    Sides s = {focal - 0.5f * depth_of_field, focal + 0.5f * depth_of_field, near, far, 0, 0, 0, 0};
    if (near == 0.0f && far == 0.0f) {
        s.near = s.far = 1.0f;
        s.lo = 0.0f;
        s.hi = 1.0f;
    } else if (near == 0.0f) {
        s.lo = 0.0f;
        s.near = far;
    } else if (far == 0.0f) {
        s.hi = 1.0f;
        s.far = near;
    }
    // A focus far outside of all depths is as good as one a little outside.
    s.lo = std::clamp(s.lo, -farthest_focus, 1.0f + farthest_focus);
    s.hi = std::clamp(s.hi, s.lo, 1.0f + farthest_focus);
    const float largest = std::max(s.near, s.far), step = 1.0f / static_cast<float>(n - 1);
    const float near_step = step / std::max(s.near / largest, smallest),
                far_step = step / std::max(s.far / largest, smallest);
    s.near_step = std::min(near_step, coarsest * far_step);
    s.far_step = std::min(far_step, coarsest * near_step);
    const auto count = [](float range, float of) {
        return std::clamp(static_cast<int>(std::ceil(std::min(range / of, 1e6f))) + 1, 0, most_records);
    };
    s.n_near = count(s.lo, s.near_step);
    s.n_far = count(1.0f - s.hi, s.far_step);
    return s;
}

// Writes records one after the other.
struct Writer {
    z_layer* layers;
    int room, n = 0;
    // The range; a slice that does not reach into 0 .. 1 is left away.
    z_layer* add(float z0, float z1, float centre) {
        if (!(z1 >= 0.0f && z0 <= 1.0f)) return nullptr;
        if (n >= room) {
            V_error(level_warning, "Too many layers (%d)\n", room);
            return nullptr;
        }
        z_layer* const layer = &layers[n++];
        *layer = {};
        layer->z_min = static_cast<int32_t>(z0 * 4096.0f);
        layer->z_max = static_cast<int32_t>(z1 * 4096.0f);
        layer->z_centre = centre;
        layer->matte_index = -1;
        layer->has_matte = 1;
        return layer;
    }
    void add_slice(float z0, float z1, const Sides& s) {
        const float centre = 0.5f * (z0 + z1);
        z_layer* const layer = add(z0, z1, centre);
        if (layer) layer->amount = centre > s.hi ? (centre - s.hi) * s.far : std::max((s.lo - centre) * s.near, 0.0f);
    }
};

}  // namespace

z_layers make_z_layers(int n, bool keep_front, float focal, float depth_of_field, float near, float far) {
    const Key key = {n, keep_front, focal, depth_of_field, near, far};
    if (kept && key == key_of_made) return made;
    free_layers();
    free_at_unload(free_layers);
    ++z_layers_built;
    n = n < 3 ? least_z_layers : std::min(n, most_z_layers);
    const Sides s = plan_sides(n, focal, std::max(depth_of_field, 0.0f), std::max(near, 0.0f), std::max(far, 0.0f));
    const int room = s.n_near + 3 + s.n_far;
    kept = safe_new_zeroed<z_layer>(static_cast<size_t>(room));
    Writer out = {kept, room};
    for (int i = s.n_far; i >= 1; --i) {
        const auto at = static_cast<float>(i);
        out.add_slice((at - 1.5f) * s.far_step + s.hi, (at + 0.5f) * s.far_step + s.hi, s);
    }
    z_layer* const beyond = s.hi <= 1.0f ? out.add(s.hi, s.hi + 0.5f * s.far_step, s.hi) : nullptr;
    if (beyond) beyond->far_focus = 1;
    if (z_layer* const layer = out.add(s.lo - 0.5f * s.near_step, s.hi, s.lo)) {
        layer->near_focus = 1;
        if (beyond) {  // both are sharp: one matte does for them
            beyond->matte_index = static_cast<int32_t>(layer - kept);
            beyond->skip = 1;
        }
    }
    for (int i = 0; i < s.n_near; ++i) {
        const auto at = static_cast<float>(i);
        out.add_slice(s.lo - (at + 1.5f) * s.near_step, s.lo - (at - 0.5f) * s.near_step, s);
    }
    if (keep_front && s.lo >= 1.0f && s.n_near > 0) {
        if (z_layer* const layer = out.add(1.0f, 1.0f, 1.0f)) {
            layer->extra_first = 1;
            layer->has_matte = 0;
        }
    }
    made = {kept, out.n, s.lo, s.hi};
    key_of_made = key;
    return made;
}

float max_focus_distance(float focal, float depth_of_field, float near, float far) {
    return std::max((focal - 0.5f * depth_of_field) * near, (1.0f - (focal + 0.5f * depth_of_field)) * far);
}

namespace {

constexpr float scale = 4096.0f;

struct Ramp {
    float scale, offset;
};
constexpr Ramp always = {0.0f, scale}, never = {0.0f, 0.0f};

// From 0 at depth a to all at b; depths at one place: a step behind it.
Ramp ramp(float a, float b) {
    const float width = std::max((b - a) * scale, 1.0f);
    return {scale / width, -a * scale * scale / width};
}

// The next layer with a matte of its own, on the near side (1) or the far side (-1); -1: none.
int neighbour(const z_layers& layers, int index, int direction) {
    for (int i = index + direction; i >= 0 && i < layers.n; i += direction)
        if (layers.layers[i].has_matte && !layers.layers[i].skip) return i;
    return -1;
}

// Between this layer and the one behind it. Both of them ask with the same numbers.
Ramp ramp_between(const z_layers& layers, int index, int behind) {
    const z_layer& front = layers.layers[index];
    // What is in focus goes on to the end of its range.
    return ramp(front.near_focus ? layers.hi : front.z_centre, layers.layers[behind].z_centre);
}

}  // namespace

z_mask mask_of_z_layer(const z_layers& layers, int index, bool keep_front) {
    const z_layer& layer = layers.layers[index];
    z_mask mask = {};
    if (!layer.has_matte || layer.skip) {
        mask.last = -1;
        return mask;
    }
    const int next = neighbour(layers, index, 1), behind = neighbour(layers, index, -1);
    const bool front_most = next < 0 || (keep_front && layer.near_focus);
    const Ramp rise = front_most ? always : ramp_between(layers, next, index);
    const Ramp fall = behind < 0 ? never : ramp_between(layers, index, behind);
    mask = {rise.scale, rise.offset, fall.scale, fall.offset, 0, fix_scale};
    const auto worth = [&](int sample) {
        const auto hold = [](float v) { return static_cast<int>(std::clamp(v, 0.0f, scale)); };
        const float z = static_cast<float>(sample);
        return std::min(hold(z * rise.scale + rise.offset), fix_scale - hold(z * fall.scale + fall.offset));
    };
    while (mask.first <= mask.last && worth(mask.first) == 0) ++mask.first;
    while (mask.last >= mask.first && worth(mask.last) == 0) --mask.last;
    return mask;
}

}  // namespace velloran
