#include "operators/fft/fft_sizes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace velloran {

namespace {

constexpr int n_kept = 10;
struct Pair {
    int request, size;
} kept[n_kept];  // newest first

constexpr int factors[] = {2, 3, 5};

bool smooth(int n) {
    for (const int f : factors)
        while (n % f == 0) n /= f;
    return n == 1;
}

// Lines of 2^a, 5 * 2^a and 25 * 2^a samples transform at full speed; a 3 among the factors costs up to twice.
bool fast(int n) {
    while (n % 2 == 0) n /= 2;
    return n == 1 || n == 5 || n == 25;
}

// Cost of the steps of convolve_tiles.cpp, for a complex sample, measured as nanoseconds on one machine; only ratios
// matter. Tiles that outgrow the second cache pay at each transposition.
constexpr double stage_cost = 0.1, join_cost = 0.17, split_cost = 0.32, multiply_cost = 0.2;
constexpr double transpose_cost = 0.24, far_transpose_cost = 1.8;
constexpr double cache_samples = 1.5 * 1024 * 1024 / (3 * 8);  // rows, finished columns and kernel together

double line_cost(int n) { return stage_cost * std::log2(n) * (fast(n) ? 1 : 1.8); }

double tiles_cost(int w, int h, int kernel_w, int kernel_h, int crop_w, int crop_h) {
    const int tile_w = std::max(w - kernel_w + 1, 1), tile_h = std::max(h - kernel_h + 1, 1);
    const double pairs = (crop_w + 2 * tile_w - 1) / (2 * tile_w), down = (crop_h + tile_h - 1) / tile_h;
    const double turn = static_cast<double>(w) * h > cache_samples ? far_transpose_cost : transpose_cost;
    const double rows = tile_h * (2 * line_cost(w) + join_cost + split_cost + turn);
    const double columns = h * (2 * line_cost(h) + multiply_cost + turn);
    return pairs * down * w * (rows + columns);
}

// What a sample of a long line costs, with what it costs besides in a transform of two dimensions (reading, turning,
// multiplying), measured: lines of few odd factors are done by longer steps.
double sample_cost(int n) {
    constexpr double besides = 1.5;
    while (n % 2 == 0) n /= 2;
    switch (n) {
        case 1:
        case 3:
        case 5:
        case 15:
            return besides + 1;
        case 9:
        case 45:
            return besides + 1.1;
        case 25:
        case 75:
            return besides + 1.3;
        default:
            return besides + 1.6;
    }
}

int cheap_size(int least) {
    const int good = good_size(least);
    int best = good;
    for (int n = good + 2; n < good + good / 4; n += 2)
        if (smooth(n) && n * sample_cost(n) < best * sample_cost(best)) best = n;
    return best;
}

// Sizes to try along an axis: from least on, up to what takes the whole axis in.
constexpr int max_sizes = 32;
int sizes_to_try(int least, int whole, int* sizes) {
    int count = 0;
    sizes[count++] = std::min(least, whole);
    for (int n = sizes[0] + 2; n < std::min(6 * least, whole) && count < max_sizes - 1; n += 2)
        if (fast(n)) sizes[count++] = n;
    if (whole > sizes[count - 1] && whole <= 6 * least) sizes[count++] = whole;
    return count;
}

}  // namespace

int good_size(int n) {
    n = std::max(n + (n & 1), 2);
    for (const Pair& pair : kept)
        if (pair.request == n) return pair.size;
    int size = n;
    while (!smooth(size)) size += 2;
    std::memmove(kept + 1, kept, (n_kept - 1) * sizeof(Pair));
    kept[0] = {n, size};
    return size;
}

void whole_size(int least_w, int least_h, int* w, int* h) {
    constexpr int64_t large = int64_t{1} << 21;
    *w = good_size(least_w);
    *h = good_size(least_h);
    if (int64_t{*w} * *h < large) return;
    *w = cheap_size(least_w);
    *h = cheap_size(least_h);
}

void best_tile_size(int kernel_w, int kernel_h, int crop_w, int crop_h, int* w, int* h) {
    int widths[max_sizes], heights[max_sizes];
    const int whole_w = good_size(kernel_w + crop_w - 1), whole_h = good_size(kernel_h + crop_h - 1);
    const int n_widths = sizes_to_try(good_size(2 * kernel_w + 39), whole_w, widths);
    const int n_heights = sizes_to_try(good_size(2 * kernel_h + 39), whole_h, heights);
    double best = HUGE_VAL;
    for (int i = 0; i < n_widths; ++i)
        for (int j = 0; j < n_heights; ++j) {
            const double cost = tiles_cost(widths[i], heights[j], kernel_w, kernel_h, crop_w, crop_h);
            if (cost >= best) continue;
            best = cost;
            *w = widths[i];
            *h = heights[j];
        }
}

}  // namespace velloran
