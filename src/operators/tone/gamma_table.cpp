#include "operators/tone/gamma_table.h"

#include "operators/tone/tone_rows.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

namespace velloran {

namespace {

constexpr int last_entry = 4096;
constexpr float steepest = 16.0f;

struct GammaTable {
    float gamma, top;  // 0: no table
    int32_t entries[last_entry + 2];
    // What becomes of every sample by its bits, for one scale and gain: a plane has many more samples than there are
    // values. What is below 0 is found without a question.
    FixPixel values[UINT16_MAX + 2];  // one more for who reads them in pairs
    float values_in_scale, values_gain;
    bool values_ready;

    void fill_entries(int first, int n) {
        for (int i = first; i < first + n; ++i) {
            const float v = static_cast<float>(i) / last_entry;
            const float raised = std::pow(v, 1.0f / gamma);
            // The way back is held under a slope of 16, so the way there is held above its inverse.
            const float curve = gamma < 1.0f ? std::max(raised, v / steepest) : std::min(raised, v * steepest);
            entries[i] = std::min(float_to_fix(curve * top), 32767);
        }
    }
    void fill_values(int first, int n) {
        for (int i = first; i < first + n; ++i) {
            const float at = std::clamp(static_cast<float>(i) * values_in_scale, 0.0f, static_cast<float>(last_entry));
            const int entry = static_cast<int>(at);
            const float from = static_cast<float>(entries[entry]), to = static_cast<float>(entries[entry + 1]);
            const float v = (from + (to - from) * (at - static_cast<float>(entry))) * values_gain;
            values[i] = static_cast<FixPixel>(std::clamp(v + std::copysign(0.5f, v), -32767.0f, 32767.0f));
        }
    }
};
GammaTable tables[2];
GammaTable* table = tables;

}  // namespace

void set_gamma_table(float gamma, float top) {
    if (gamma == table->gamma && top == table->top) return;
    table = table == tables ? tables + 1 : tables;
    if (gamma == table->gamma && top == table->top) return;
    table->gamma = gamma;
    table->top = top;
    table->values_ready = false;
    fork_rows(last_entry + 1, [](int first, int n) { table->fill_entries(first, n); });
    table->entries[last_entry + 1] = table->entries[last_entry];
}

const FixPixel* gamma_values(float in_scale, float gain) {
    if (!table->values_ready || in_scale != table->values_in_scale || gain != table->values_gain) {
        table->values_in_scale = in_scale;
        table->values_gain = gain;
        table->values_ready = false;
        fork_rows(fix_image_limit + 1, [](int first, int n) { table->fill_values(first, n); });
        std::fill(table->values + fix_image_limit + 1, std::end(table->values), table->values[0]);
        table->values_ready = true;
    }
    return table->values;
}

void apply_gamma_values(const FixPixel* values, FixPixel* plane, int n) {
    fork_rows(n, [=](int first, int count) { tone_rows().map(values, plane + first, plane + first, count); });
}

void apply_gamma_table(FixPixel* plane, float in_scale, float gain, int n) {
    apply_gamma_values(gamma_values(in_scale, gain), plane, n);
}

}  // namespace velloran
