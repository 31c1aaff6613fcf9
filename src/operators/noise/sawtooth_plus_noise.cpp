// A course in time for what flickers and jumps: its value, and the change since a frame ago.
#include "operators/noise/noise_functions.h"
#include "operators/noise/random_waves.h"
#include "operators/pixel/node_rows.h"
#include "records/node.h"

#include <algorithm>

namespace velloran {

void pixel_sawtooth_plus_noise(Node* node) {
    run_samples(node, [](const Node*, const int32_t(*vals)[4], int32_t* result) {
        enum SawtoothArg : int { seed, time, octaves, weight_noise, weight_saw, threshold, frequency, noise_freq };
        const auto number = [vals](int arg) { return static_cast<float>(vals[arg][0]) * fix_to_float_scale; };
        const SawtoothValue value =
            random_sawtooth_noise(static_cast<uint32_t>(vals[seed][0] >> fix_bits), number(time),
                                  {.level_lo = -1,
                                   .level_hi = 1,
                                   .slope_lo = -1,
                                   .slope_hi = 1,
                                   .octaves = number(octaves),
                                   .weight_noise = number(weight_noise),
                                   .weight_saw = number(weight_saw),
                                   .threshold = number(threshold),
                                   .frequency = number(frequency),
                                   .noise_freq = number(noise_freq)});
        const auto fixed = [](float v) {
            return static_cast<int32_t>(std::clamp(v * 4096.0f, -2147483648.0f, 2147483520.0f));
        };
        result[0] = fixed(value.value);
        result[1] = fixed(value.delta);
    });
}

}  // namespace velloran
