#include "operators/defocus/aperture.h"

#include "frame/host_buffers.h"
#include "operators/convolve/convolve_parts.h"
#include "operators/defocus/aperture_rows.h"
#include "operators/defocus/circles_table.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

// Columns that are worked together, so that the window of rows around them stays in the second cache.
constexpr int tile_columns = 256;

// weights[x] - weights[x - 1] of a row, its ends included.
int change_at(const int16_t* row, int width, int x) { return (x < width ? row[x] : 0) - (x > 0 ? row[x - 1] : 0); }

// Calls tap(x, change at x, change at x - 1) for the taps of a row; each takes two columns in, the farther first.
template <class Tap>
void for_each_tap(const int16_t* row, int width, const Tap& tap) {
    for (int x = 0; x <= width; ++x) {
        if (change_at(row, width, x) == 0) continue;
        // The pair stands for this column and the next one, whose sample comes first.
        const int next = x + 1 <= width ? change_at(row, width, x + 1) : 0;
        tap(x + 1, next, change_at(row, width, x));
        ++x;
    }
}

}  // namespace

void make_aperture(const int16_t* weights, int width, int height, int centre_x, int centre_y, float unit,
                   Aperture* aperture) {
    free_aperture(aperture);
    int n_taps = 0;
    for (int y = 0; y < height; ++y)
        for_each_tap(weights + static_cast<ptrdiff_t>(y) * width, width, [&](int, int, int) { ++n_taps; });
    aperture->row_taps = static_cast<int32_t*>(safe_malloc(sizeof(int32_t) * (static_cast<size_t>(height) + 1)));
    aperture->taps = static_cast<ApertureTap*>(safe_malloc(sizeof(ApertureTap) * (static_cast<size_t>(n_taps) + 1)));
    aperture->first_row = -centre_y;
    aperture->n_rows = height;
    aperture->unit = unit;
    aperture->left = width + 1 - centre_x;
    aperture->right = centre_x;
    for (int y = 0; y < height; ++y) {
        aperture->row_taps[y] = aperture->n_taps;
        for_each_tap(weights + static_cast<ptrdiff_t>(y) * width, width, [&](int x, int first, int second) {
            aperture->taps[aperture->n_taps++] = {x - centre_x,
                                                  {static_cast<int16_t>(first), static_cast<int16_t>(second)}};
        });
    }
    aperture->row_taps[height] = aperture->n_taps;
}

void free_aperture(Aperture* aperture) {
    safe_free(aperture->row_taps);
    safe_free(aperture->taps);
    *aperture = {};
}

namespace {

// The picture's rows as pairs of samples, each continued beyond its ends as the edges say.
struct PairRows {
    int32_t* pairs;
    int pitch, margin;  // columns before the picture's first
    int first;          // column of the first sample that is taken in at all
    int start;          // column from which on sums are not 0
    const int32_t* row(int y) const { return pairs + static_cast<ptrdiff_t>(y) * pitch + margin; }
};

void pair_row(const ApertureSums& s, const PairRows& rows, int y, FixPixel* line) {
    const FixPixel* const from = s.source + y * s.pitch;
    FixPixel* const at = line + rows.margin;
    std::fill(line, at + rows.first, FixPixel{0});
    std::copy(from, from + s.width, at);
    const auto beyond = [&](int x) {
        const int index = convolve_edge_index(x, 0, s.width, s.edge_x);
        return index < 0 ? FixPixel{0} : from[index];
    };
    for (int x = rows.first; x < 0; ++x) at[x] = beyond(x);
    const int end = rows.pitch - rows.margin;
    for (int x = s.width; x <= end; ++x) at[x] = beyond(x);
    aperture_rows().pair(line, rows.pairs + static_cast<ptrdiff_t>(y) * rows.pitch, rows.pitch);
}

PairRows make_pairs(const ApertureSums& s) {
    PairRows rows = {};
    // A sum along a row begins where nothing but zeros lies in the aperture.
    rows.first = s.edge_x == convolve_edge_black ? 0 : -s.aperture->left;
    rows.start = rows.first - s.aperture->right;
    rows.margin = s.aperture->left - rows.start;
    rows.pitch = rows.margin + s.width + s.aperture->right + aperture_block;
    rows.pairs = spark_set_long_image(rows.pitch, s.height);
    const size_t bytes = (static_cast<size_t>(rows.pitch) + 1) * sizeof(FixPixel);
    maybe_malloc_forked_buffers(bytes, 1);
    fork_rows(s.height, [&](int first, int n) {
        auto* const line = static_cast<FixPixel*>(get_forked_buffer(0, bytes));
        for (int y = first; y < first + n; ++y) pair_row(s, rows, y, line);
    });
    return rows;
}

// inverse[i]: what the sum at column x + i of row y is multiplied by: one over the weights that fell inside, and over
// the integers' unit.
void fill_inverse(const ApertureSums& s, int y, int x, int n, float* inverse) {
    const float unit = s.aperture->unit;
    if (!s.weighed) {
        std::fill(inverse, inverse + n, s.scale / unit);
        return;
    }
    const circles_table& table = *s.weighed;
    const auto inverse_at = [&](int column) {
        return 1.0f / (circles_table_weight(table, column, s.width - 1 - column, y, s.height - 1 - y) * unit);
    };
    const int left = std::clamp(table.table_w - x, 0, n);
    const int right = std::clamp(s.width - table.table_w - x, left, n);
    for (int i = 0; i < left; ++i) inverse[i] = inverse_at(x + i);
    if (left < right) std::fill(inverse + left, inverse + right, inverse_at(x + left));
    for (int i = right; i < n; ++i) inverse[i] = inverse_at(x + i);
}

// Rows whose aperture lies between the first and the last row: their weights depend on the column alone.
bool inner_row(const ApertureSums& s, int y) {
    const int reach = s.weighed->table_h - 1;
    return y >= reach && s.height - 1 - y >= reach;
}

// What a task has of its own.
struct SumScratch {
    int64_t* sums;  // of each row of its stripe, where the last tile ended
    TapPlace* taps;
    int32_t* changes;
    float *row, *inverse;
};

struct SumScratchSize {
    size_t sums, taps;
    size_t bytes() const { return 8 * sums + sizeof(TapPlace) * taps + 3 * sizeof(int32_t) * tile_columns; }
    SumScratch of_task() const {
        auto* at = static_cast<char*>(get_forked_buffer(0, bytes()));
        const auto take = [&](size_t n) {
            char* const taken = at;
            at += n;
            return taken;
        };
        SumScratch scratch = {};
        scratch.sums = reinterpret_cast<int64_t*>(take(8 * sums));
        scratch.taps = reinterpret_cast<TapPlace*>(take(sizeof(TapPlace) * taps));
        scratch.changes = reinterpret_cast<int32_t*>(take(4 * tile_columns));
        scratch.row = reinterpret_cast<float*>(take(4 * tile_columns));
        scratch.inverse = reinterpret_cast<float*>(take(4 * tile_columns));
        return scratch;
    }
};

// The taps for a row of the result from column x on; how many there are where nothing lies beyond the picture.
int place_taps(const ApertureSums& s, const PairRows& pairs, int y, int x, TapPlace* places) {
    const Aperture& a = *s.aperture;
    int n = 0;
    for (int i = 0; i < a.n_rows; ++i) {
        const int row = convolve_edge_index(y - (a.first_row + i), 0, s.height, s.edge_y);
        if (row < 0) continue;
        const int32_t* const from = pairs.row(row) + x;
        for (int t = a.row_taps[i]; t < a.row_taps[i + 1]; ++t) {
            const ApertureTap& tap = a.taps[t];
            places[n++] = {from - tap.column, static_cast<uint16_t>(tap.weights[0]) |
                                                  static_cast<uint32_t>(static_cast<uint16_t>(tap.weights[1])) << 16};
        }
    }
    return n;
}

// n columns of row y from x on, which may lie before the picture; sum is that before x.
int64_t sum_row(const ApertureSums& s, const PairRows& pairs, const SumScratch& scratch, int y, int x, int n,
                int64_t sum) {
    aperture_rows().changes(scratch.taps, place_taps(s, pairs, y, x, scratch.taps), n, scratch.changes);
    for (int i = 0; i < n; ++i) {
        sum += scratch.changes[i];
        scratch.row[i] = static_cast<float>(sum);
    }
    const int before = std::min(std::max(-x, 0), n);
    if (before < n) {
        fill_inverse(s, y, x + before, n - before, scratch.inverse);
        aperture_rows().divide(scratch.row + before, scratch.inverse, s.dest + y * s.pitch + x + before, n - before);
    }
    return sum;
}

}  // namespace

float* make_inner_inverse(const ApertureSums& s) {
    if (!s.weighed || !inner_row(s, s.weighed->table_h - 1)) return nullptr;
    auto* const inverse = frame_array<float>(static_cast<size_t>(s.width));
    fill_inverse(s, s.weighed->table_h - 1, 0, s.width, inverse);
    return inverse;
}

void divide_aperture_sums(const ApertureSums& s, int x, int y, const float* of_samples, int n) {
    if (s.inner_inverse && inner_row(s, y)) {
        aperture_rows().divide(of_samples, s.inner_inverse + x, s.dest + y * s.pitch + x, n);
        return;
    }
    float inverse[tile_columns];
    for (int i = 0; i < n; i += tile_columns) {
        const int count = std::min(tile_columns, n - i);
        fill_inverse(s, y, x + i, count, inverse);
        aperture_rows().divide(of_samples + i, inverse, s.dest + y * s.pitch + x + i, count);
    }
}

void sum_aperture(const ApertureSums& s) {
    if (s.width < 1 || s.height < 1) return;
    const PairRows pairs = make_pairs(s);
    if (poll_abort()) return;
    const SumScratchSize size = {static_cast<size_t>(s.height), static_cast<size_t>(s.aperture->n_taps)};
    maybe_malloc_forked_buffers(size.bytes(), 1);
    fork_rows(s.height, [&](int first, int count) {
        const SumScratch scratch = size.of_task();
        std::fill(scratch.sums, scratch.sums + count, int64_t{0});
        for (int x = pairs.start; x < s.width; x += tile_columns) {
            const int n = std::min(tile_columns, s.width - x);
            for (int y = 0; y < count; ++y) {
                if ((y & 15) == 0 && poll_abort()) return;
                scratch.sums[y] = sum_row(s, pairs, scratch, first + y, x, n, scratch.sums[y]);
            }
        }
    });
}

}  // namespace velloran
