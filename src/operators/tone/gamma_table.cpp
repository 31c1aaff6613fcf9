#include "operators/tone/gamma_table.h"

#include "tasks/tasks.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr int last_entry = 4096;
constexpr float steepest = 16.0f;
int32_t table[last_entry + 2];
float table_gamma, table_top;  // 0: no table

// What becomes of every sample from 0 on, for one scale and gain: a plane has many more samples than there are values.
FixPixel values[fix_image_limit + 1];
float values_in_scale, values_gain;
bool values_ready;

FixPixel* fork_plane;
int fork_n;

void forked_fill() {
    int first, n;
    get_proc_stripe(last_entry + 1, &first, &n);
    for (int i = first; i < first + n; ++i) {
        const float v = static_cast<float>(i) / last_entry;
        const float raised = std::pow(v, 1.0f / table_gamma);
        // The way back is held under a slope of 16, so the way there is held above its inverse.
        const float curve = table_gamma < 1.0f ? std::max(raised, v / steepest) : std::min(raised, v * steepest);
        table[i] = std::min(float_to_fix(curve * table_top), 32767);
    }
}

void forked_fill_values() {
    int first, n;
    get_proc_stripe(fix_image_limit + 1, &first, &n);
    for (int i = first; i < first + n; ++i) {
        const float at = std::clamp(static_cast<float>(i) * values_in_scale, 0.0f, static_cast<float>(last_entry));
        const int entry = static_cast<int>(at);
        const float from = static_cast<float>(table[entry]), to = static_cast<float>(table[entry + 1]);
        const float v = (from + (to - from) * (at - static_cast<float>(entry))) * values_gain;
        values[i] = static_cast<FixPixel>(std::clamp(v + std::copysign(0.5f, v), -32767.0f, 32767.0f));
    }
}

void forked_gamma2_image() {
    int first, n;
    get_proc_stripe(fork_n, &first, &n);
    for (FixPixel *p = fork_plane + first, *end = p + n; p < end; ++p) *p = values[std::max<int>(*p, 0)];
}

}  // namespace

void set_gamma_table(float gamma, float top) {
    if (gamma == table_gamma && top == table_top) return;
    table_gamma = gamma;
    table_top = top;
    values_ready = false;
    fork_processes(forked_fill);
    table[last_entry + 1] = table[last_entry];
}

void apply_gamma_table(FixPixel* plane, float in_scale, float gain, int n) {
    if (!values_ready || in_scale != values_in_scale || gain != values_gain) {
        values_in_scale = in_scale;
        values_gain = gain;
        fork_processes(forked_fill_values);
        values_ready = true;
    }
    fork_plane = plane;
    fork_n = n;
    fork_processes(forked_gamma2_image);
}

}  // namespace velloran
