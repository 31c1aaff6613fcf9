// Where a sample outside a line is taken from, for models of filters.
#pragma once

namespace velloran_tests {

// Position i of an axis of n samples, told by walking there. edge: 0 black (-1), 1 repeats the end, 2 wraps, others
// mirror with the end doubled.
inline int edge_position(int i, int n, int edge) {
    while (i < 0 || i >= n) {
        if (edge == 0) return -1;
        if (edge == 1) return i < 0 ? 0 : n - 1;
        if (edge == 2)
            i += i < 0 ? n : -n;
        else
            i = i < 0 ? -1 - i : 2 * n - 1 - i;
    }
    return i;
}

}  // namespace velloran_tests
