#include "operators/tone/gamma_table.h"

#include "tasks/fork_rows.h"

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

void fill_table(float gamma, float top, int first, int n) {
    for (int i = first; i < first + n; ++i) {
        const float v = static_cast<float>(i) / last_entry;
        const float raised = std::pow(v, 1.0f / gamma);
        // The way back is held under a slope of 16, so the way there is held above its inverse.
        const float curve = gamma < 1.0f ? std::max(raised, v / steepest) : std::min(raised, v * steepest);
        table[i] = std::min(float_to_fix(curve * top), 32767);
    }
}

void fill_values(int first, int n) {
    for (int i = first; i < first + n; ++i) {
        const float at = std::clamp(static_cast<float>(i) * values_in_scale, 0.0f, static_cast<float>(last_entry));
        const int entry = static_cast<int>(at);
        const float from = static_cast<float>(table[entry]), to = static_cast<float>(table[entry + 1]);
        const float v = (from + (to - from) * (at - static_cast<float>(entry))) * values_gain;
        values[i] = static_cast<FixPixel>(std::clamp(v + std::copysign(0.5f, v), -32767.0f, 32767.0f));
    }
}

}  // namespace

void set_gamma_table(float gamma, float top) {
    if (gamma == table_gamma && top == table_top) return;
    table_gamma = table_top = 0;
    values_ready = false;
    fork_rows(last_entry + 1, [&](int first, int n) { fill_table(gamma, top, first, n); });
    table[last_entry + 1] = table[last_entry];
    table_gamma = gamma;
    table_top = top;
}

void apply_gamma_table(FixPixel* plane, float in_scale, float gain, int n) {
    if (!values_ready || in_scale != values_in_scale || gain != values_gain) {
        values_in_scale = in_scale;
        values_gain = gain;
        values_ready = false;
        fork_rows(fix_image_limit + 1, &fill_values);
        values_ready = true;
    }
    fork_rows(n, [&](int first, int count) {
        for (FixPixel *p = plane + first, *end = p + count; p < end; ++p) *p = values[std::max<int>(*p, 0)];
    });
}

}  // namespace velloran
