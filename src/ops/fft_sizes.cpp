#include "ops/fft_sizes.h"

#include <algorithm>
#include <cmath>
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

int best_tile_size(int least, int kernel, int crop) {
    const int whole = good_size(kernel + crop - 1);
    int best = std::min(good_size(least), whole);
    double best_cost = HUGE_VAL;
    for (int n = best; n <= std::min(4 * best, whole); n += 2) {
        if (!smooth(n) || (!fast(n) && n != whole)) continue;
        const int tile = std::max(n - kernel + 1, 1);
        const int tiles = (crop + tile - 1) / tile;
        // Reading, transposing and multiplying weigh about as much as four stages of the transform.
        const double cost = double{1} * tiles * n * (std::log2(n) + 4) * (fast(n) ? 1 : 1.5);
        if (cost < best_cost) {
            best_cost = cost;
            best = n;
        }
    }
    return best;
}

}  // namespace velloran
