#include "operators/blur/boxes/box_sums.h"

namespace velloran {

namespace {

// mirror: 1 or 0, what samples beyond the ends count.
void box_sum(const int32_t* in, int32_t* out, int r, int n, int32_t mirror) {
    int32_t s = in[0];
    for (int i = 1; i <= r; ++i) s += in[i] + mirror * in[i - 1];
    for (int i = 0; i < n; ++i) {
        out[i] = s;
        const int comes = i + r + 1, leaves = i - r;
        s += comes < n ? in[comes] : mirror * in[2 * n - 1 - comes];
        s -= leaves >= 0 ? in[leaves] : mirror * in[-1 - leaves];
    }
}

}  // namespace

void box_sum_black(const int32_t* in, int32_t* out, int r, int n) { box_sum(in, out, r, n, 0); }
void box_sum_mirror(const int32_t* in, int32_t* out, int r, int n) { box_sum(in, out, r, n, 1); }

void box_offset(const int32_t* in, int32_t* out, int offset, int n) {
    for (int i = 0; i < n; ++i) {
        const int64_t from = int64_t{i} - offset;
        out[i] = from >= 0 && from < n ? in[from] : 0;
    }
}

}  // namespace velloran
