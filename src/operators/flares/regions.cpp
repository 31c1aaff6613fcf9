#include "operators/flares/regions.h"

#include "support/memory.h"
#include "support/user_abort.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>

namespace velloran {

namespace {

// Whole numbers, so that nothing depends on the order of adding.
struct Sums {
    int64_t weight = 0, x = 0, y = 0;
    double color[3] = {};  // each sample times its weight: whole numbers that doubles hold
    void add(const Sums& other) {
        weight += other.weight;
        x += other.x;
        y += other.y;
        for (int c = 0; c < 3; ++c) color[c] += other.color[c];
    }
};

struct Picture {
    const FixPixel* const* planes;
    int n_planes, width, height;
};

LightRegion region_of(const Sums& sums, int n_planes) {
    const auto weight = static_cast<double>(sums.weight);
    LightRegion region = {};
    region.x = static_cast<double>(sums.x) / weight;
    region.y = static_cast<double>(sums.y) / weight;
    region.weight = weight / fix_scale;
    for (int c = 0; c < 3; ++c)
        region.color[c] = static_cast<float>(sums.color[n_planes == 3 ? c : 0] / weight / fix_scale);
    return region;
}

bool is_lit(const Picture& picture, ptrdiff_t at) {
    for (int c = 0; c < picture.n_planes; ++c)
        if (picture.planes[c][at] > 0) return true;
    return false;
}

// The first lit sample of a row from x on, or the width. Black is passed over four samples at a time.
int next_lit(const Picture& picture, int y, int x) {
    const ptrdiff_t row = ptrdiff_t{y} * picture.width;
    while (x < picture.width) {
        if (x + 4 <= picture.width) {
            uint64_t any = 0;
            for (int c = 0; c < picture.n_planes; ++c) {
                uint64_t four;
                std::memcpy(&four, picture.planes[c] + row + x, sizeof four);
                any |= four;
            }
            if (any == 0) {
                x += 4;
                continue;
            }
        }
        if (is_lit(picture, row + x)) return x;
        ++x;
    }
    return x;
}

// Lit samples side by side.
struct Run {
    int first, end;  // end: behind the last
    int label;
};

// Adds the run that begins at x to the sums; the answer is its end.
int add_run(const Picture& picture, int y, int x, Sums* sums) {
    const ptrdiff_t row = ptrdiff_t{y} * picture.width;
    for (; x < picture.width && is_lit(picture, row + x); ++x) {
        int64_t weight = 0;
        for (int c = 0; c < picture.n_planes; ++c) weight += std::max<int64_t>(picture.planes[c][row + x], 0);
        sums->weight += weight;
        sums->x += weight * x;
        sums->y += weight * y;
        for (int c = 0; c < picture.n_planes; ++c)
            sums->color[c] += static_cast<double>(weight * std::max<int64_t>(picture.planes[c][row + x], 0));
    }
    return x;
}

// Heavier first; equal ones from the bottom left.
bool comes_before(const LightRegion& a, const LightRegion& b) {
    if (a.weight != b.weight) return a.weight > b.weight;
    return a.y != b.y ? a.y < b.y : a.x < b.x;
}

// The heaviest regions so far, as a heap with the least of them on top.
struct Heaviest {
    LightRegion* regions;
    int count, most;
    void take(const LightRegion& region) {
        if (count == most) {
            if (most == 0 || !comes_before(region, regions[0])) return;
            std::pop_heap(regions, regions + count, comes_before);
            --count;
        }
        regions[count++] = region;
        std::push_heap(regions, regions + count, comes_before);
    }
};

// The regions that the row in hand may still add to. A label is one of them; joined ones point at what they joined.
struct OpenRegions {
    Sums* sums;
    int* joined;  // itself, or the region that it has become part of; -1 free
    bool* reached;
    int* free;
    int n_free;

    int open() {
        const int label = free[--n_free];
        sums[label] = {};
        joined[label] = label;
        reached[label] = true;
        return label;
    }
    int root(int label) const {
        while (joined[label] != label) label = joined[label];
        return label;
    }
    int join(int a, int b) {
        a = root(a);
        b = root(b);
        if (a == b) return a;
        sums[a].add(sums[b]);
        joined[b] = a;
        return a;
    }
};

// Runs of the row above (before) touch [first, end) of this one if they overlap it or its corners.
int label_run(OpenRegions& open, Run* before, int n_before, int* at, int first, int end) {
    int label = -1;
    while (*at < n_before && before[*at].end < first) ++*at;
    for (int i = *at; i < n_before && before[i].first <= end; ++i)
        label = label < 0 ? open.root(before[i].label) : open.join(label, before[i].label);
    return label < 0 ? open.open() : label;
}

// Ends the regions of the row before that this one has not reached, and frees labels of joined ones.
void close_regions(OpenRegions& open, const Picture& picture, const Run* before, int n_before, Run* runs, int n_runs,
                   Heaviest* heaviest) {
    for (int i = 0; i < n_runs; ++i) {
        runs[i].label = open.root(runs[i].label);
        open.reached[runs[i].label] = true;
    }
    for (int i = 0; i < n_before; ++i) {
        const int label = before[i].label;
        if (open.joined[label] < 0) continue;  // done with an earlier run
        if (open.joined[label] == label) {
            if (open.reached[label]) continue;
            heaviest->take(region_of(open.sums[label], picture.n_planes));
        }
        open.joined[label] = -1;
        open.free[open.n_free++] = label;
    }
}

}  // namespace

int find_light_regions(const FixPixel* const* planes, int n_planes, int width, int height, int most,
                       LightRegion* regions) {
    const Picture picture = {planes, n_planes, width, height};
    Heaviest heaviest = {regions, 0, std::clamp(most, 0, most_regions)};
    // A row has no more than this many runs, and no more labels are open than two rows have runs.
    const auto row_runs = static_cast<size_t>(width / 2 + 1), labels = 2 * row_runs + 1;
    Run* before = frame_array<Run>(row_runs);
    Run* runs = frame_array<Run>(row_runs);
    OpenRegions open = {frame_array<Sums>(labels), frame_array<int>(labels), frame_array<bool>(labels),
                        frame_array<int>(labels), static_cast<int>(labels)};
    for (size_t i = 0; i < labels; ++i) {
        open.free[i] = static_cast<int>(labels - 1 - i);
        open.joined[i] = -1;
    }
    int n_before = 0;
    bool aborted = false;
    for (int y = 0; y <= height; ++y) {  // one more row, without a run, ends what is open
        if ((y & 63) == 0 && poll_abort()) {
            aborted = true;
            break;
        }
        int n_runs = 0, at = 0;
        for (int i = 0; i < n_before; ++i) open.reached[before[i].label] = false;
        for (int x = y < height ? next_lit(picture, y, 0) : width; x < width; x = next_lit(picture, y, x)) {
            Sums sums;
            const int end = add_run(picture, y, x, &sums);
            const int label = label_run(open, before, n_before, &at, x, end);
            open.sums[label].add(sums);
            runs[n_runs++] = {x, end, label};
            x = end;
            if (x >= width) break;
        }
        close_regions(open, picture, before, n_before, runs, n_runs, &heaviest);
        std::swap(before, runs);
        n_before = n_runs;
    }
    frame_free(before);
    frame_free(runs);
    frame_free(open.sums);
    frame_free(open.joined);
    frame_free(open.reached);
    frame_free(open.free);
    if (aborted) return 0;
    std::sort(regions, regions + heaviest.count, comes_before);
    return heaviest.count;
}

bool find_light_centre(const FixPixel* const* planes, int n_planes, int width, int height, LightRegion* region) {
    const Picture picture = {planes, n_planes, width, height};
    Sums sums;
    for (int y = 0; y < height; ++y)
        for (int x = next_lit(picture, y, 0); x < width; x = next_lit(picture, y, x)) x = add_run(picture, y, x, &sums);
    if (sums.weight == 0) return false;
    *region = region_of(sums, n_planes);
    return true;
}

void get_color_from_images(const FixPixel* const* planes, int width, int height, double x, double y, float* color) {
    x = std::clamp(x, 0.0, width - 1.0);
    y = std::clamp(y, 0.0, height - 1.0);
    const int x0 = static_cast<int>(x), y0 = static_cast<int>(y);
    const int x1 = std::min(x0 + 1, width - 1), y1 = std::min(y0 + 1, height - 1);
    const double fx = x - x0, fy = y - y0;
    for (int c = 0; c < 3; ++c) {
        const auto at = [&](int i, int j) { return static_cast<double>(planes[c][ptrdiff_t{j} * width + i]); };
        const double low = at(x0, y0) + (at(x1, y0) - at(x0, y0)) * fx,
                     high = at(x0, y1) + (at(x1, y1) - at(x0, y1)) * fx;
        color[c] = static_cast<float>((low + (high - low) * fy) / fix_scale);
    }
}

}  // namespace velloran
