#include "operators/blur/boxes/box_sums.h"

namespace velloran {

void box_sum_black(const int32_t* in, int32_t* out, int r, int n) {
    int32_t s = 0;
    for (int i = 0; i <= r; ++i) s += in[i];
    int i = 0;
    for (; i < r; ++i) {
        out[i] = s;
        s += in[i + r + 1];
    }
    for (; i < n - r - 1; ++i) {
        out[i] = s;
        s += in[i + r + 1] - in[i - r];
    }
    for (; i < n; ++i) {
        out[i] = s;
        s -= in[i - r];
    }
}

void box_sum_mirror(const int32_t* in, int32_t* out, int r, int n) {
    int32_t s = 0;
    for (int i = 0; i <= r; ++i) s += in[i];
    s = 2 * s - in[r];
    int i = 0;
    for (; i < r; ++i) {
        out[i] = s;
        s += in[r + 1 + i] - in[r - 1 - i];
    }
    for (; i < n - r - 1; ++i) {
        out[i] = s;
        s += in[i + r + 1] - in[i - r];
    }
    for (int k = 0; i < n; ++i, ++k) {
        out[i] = s;
        s += in[n - 1 - k] - in[i - r];
    }
}

void box_offset(const int32_t* in, int32_t* out, int offset, int n) {
    for (int i = 0; i < n; ++i) {
        const int64_t from = int64_t{i} - offset;
        out[i] = from >= 0 && from < n ? in[from] : 0;
    }
}

}  // namespace velloran
