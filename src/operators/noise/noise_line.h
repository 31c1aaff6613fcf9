// What the noises that are evaluated sample by sample read of their node: runs of samples with the same params, and the
// line of coordinates.
#pragma once

#include "operators/noise/noise_rows.h"
#include "operators/pixel/node_rows.h"
#include "records/node.h"

#include <algorithm>
#include <cstdint>

namespace velloran {

// Element e of argument arg at sample i; beyond the last element the last.
inline int32_t noise_arg(const Node* node, int arg, int e, int i) {
    const Line line = arg_line(node, arg, e);
    return line.samples[line.constant ? 0 : i];
}
inline float noise_arg_float(const Node* node, int arg, int e, int i) {
    return static_cast<float>(noise_arg(node, arg, e, i)) * fix_to_float_scale;
}
// Seeds count in whole numbers.
inline uint32_t seed_arg(const Node* node, int arg, int i) {
    return static_cast<uint32_t>(noise_arg(node, arg, 0, i) >> fix_bits);
}

constexpr int coords_arg = 0, frequency_arg = 1;

// The coordinates from sample first on, and frequency times cells for each unit of them. An axis without a frequency of
// its own has the first one's.
inline NoiseLine noise_line(const Node* node, int first, int n, float cells, uint32_t seed) {
    const auto from = [&](int e) {
        const Line line = arg_line(node, coords_arg, e);
        return line.samples + (line.constant ? 0 : first);
    };
    const auto scale = [&](int e) {
        return noise_arg_float(node, frequency_arg, e < arg_elnum(node, frequency_arg) ? e : 0, first) * cells;
    };
    return {from(0),  from(1), arg_elnum(node, coords_arg) > 2 ? from(2) : nullptr, n, scale(0), scale(1),
            scale(2), seed};
}

// The end of the run of samples from first on whose params are all the same.
inline int end_of_run(const Node* node, int first, int n) {
    int end = n;
    for (int a = coords_arg + 1; a < node->eval_arg_number; ++a) {
        if (arg_constant(node, a)) continue;
        for (int e = 0; e < arg_elnum(node, a); ++e) {
            const int32_t* const line = arg_line(node, a, e).samples;
            int i = first + 1;
            while (i < end && line[i] == line[first]) ++i;
            end = i;
        }
    }
    return end;
}

// body(first, n) for each run. It writes lines[e][first ..] of the node. Where the coordinates are constant it is asked
// for one sample, and the run is filled with it.
template <class Body>
void for_each_run(Node* node, Body body) {
    const bool one_place = arg_constant(node, coords_arg);
    for (int first = 0, end; first < n_pixels; first = end) {
        end = end_of_run(node, first, n_pixels);
        body(first, one_place ? 1 : end - first);
        if (!one_place) continue;
        for (int e = 0; e < node->elnum; ++e)
            std::fill(node->lines[e] + first + 1, node->lines[e] + end, node->lines[e][first]);
    }
}

}  // namespace velloran
