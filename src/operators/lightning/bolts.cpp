#include "operators/lightning/bolts.h"

#include "operators/noise/noise_1d.h"
#include "support/hash.h"
#include "support/memory.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

constexpr float wrinkle_scale = 0.3f, curve_scale = 0.5f;
constexpr float finest = 0.006f;  // a piece of the path that is not divided any more
constexpr int most_levels = 9, most_points = (1 << most_levels) + 1;
constexpr float tau = 6.2831853f;
constexpr int most_generations = 3;

struct Point {
    float x, y;
};

float random_of(uint32_t number, uint32_t what) { return static_cast<float>(unit_hash(bit_hash2(number, what))); }

// A number from -1 to 1 that drifts with the phase.
float drift(const BoltLook& look, uint32_t number, uint32_t what, float speed) {
    return std::clamp(2.0f * qfnoise1(bit_hash2(number, what), look.phase * speed, 2), -1.0f, 1.0f);
}

int levels_of(float length) {
    int levels = 1;
    while (levels < most_levels && length > finest * static_cast<float>(1 << levels)) ++levels;
    return levels;
}

// The path from its ends, which stand at both ends of the array: each pass moves the middles of the pieces that are
// there. Finer wrinkles change faster.
int wrinkle_path(Point* path, const BoltLook& look, uint32_t number) {
    const Point a = path[0], b = path[1];
    const int levels = levels_of(std::hypot(b.x - a.x, b.y - a.y)), n = 1 << levels;
    path[0] = a;
    path[n] = b;
    for (int level = 0; level < levels; ++level) {
        const int step = n >> level;
        for (int i = 0; i < n; i += step) {
            const Point from = path[i], to = path[i + step];
            const auto what = static_cast<uint32_t>((1 << level) + i / step);
            float side =
                look.wrinkle * wrinkle_scale * drift(look, number, what, 1.0f + 0.5f * static_cast<float>(level));
            if (level == 0) side += look.curve * curve_scale * drift(look, number, 0, 0.7f);
            path[i + step / 2] = {0.5f * (from.x + to.x) - side * (to.y - from.y),
                                  0.5f * (from.y + to.y) + side * (to.x - from.x)};
        }
    }
    return n + 1;
}

void add_stroke(BoltStrokes* all, const BoltStroke& stroke) {
    if (all->total_points >= max_total_points) return;
    if (all->total_points == all->room) {
        const int room = std::max(2 * all->room, 4096);
        auto* const more = frame_array<BoltStroke>(static_cast<size_t>(room));
        std::copy(all->strokes, all->strokes + all->total_points, more);
        frame_free(all->strokes);
        all->strokes = more;
        all->room = room;
    }
    all->strokes[all->total_points++] = stroke;
}

struct Way {
    const BoltLook* look;
    uint32_t number;
    float width;  // half, where the whole bolt begins
    BoltPiece piece;
    // At t, 0 to 1 along this piece: of the whole way, and the half width there.
    float whole(float t) const { return piece.from + (piece.to - piece.from) * t; }
    float width_at(float t) const {
        const float share = piece.a_width + (piece.b_width - piece.a_width) * t;
        return width * share * (1 - std::clamp(look->end_pointiness, 0.0f, 1.0f) * std::clamp(whole(t), 0.0f, 1.0f));
    }
};

// The part of a stroke that shows.
void add_visible(BoltStrokes* all, const Way& way, Point a, Point b, float ta, float tb) {
    const BoltLook& look = *way.look;
    const float wa = way.whole(ta), wb = way.whole(tb), begin = look.start, end = look.start + look.length;
    if (wb <= begin || wa >= end || !(wb > wa)) return;
    const float cut_a = std::max((begin - wa) / (wb - wa), 0.0f), cut_b = std::min((end - wa) / (wb - wa), 1.0f);
    const auto at = [&](float k) { return Point{a.x + (b.x - a.x) * k, a.y + (b.y - a.y) * k}; };
    const Point p = at(cut_a), q = at(cut_b);
    add_stroke(all, {p.x, p.y, q.x, q.y, way.width_at(ta + (tb - ta) * cut_a), way.width_at(ta + (tb - ta) * cut_b)});
}

void add_path(BoltStrokes* all, const BoltEnds& ends, const Way& way, int generation);

// Branch k leaves the path at a place of its own; of a number of branches that is not whole the last one is thin.
void add_branches(BoltStrokes* all, const Way& way, const Point* path, int n_points, int generation) {
    const BoltLook& look = *way.look;
    const float asked = std::clamp(look.branchiness, 0.0f, 20.0f) * 10.0f / static_cast<float>(1 << (2 * generation)) *
                        (way.piece.to - way.piece.from);
    const Point end = path[n_points - 1];
    for (int k = 0; static_cast<float>(k) < asked; ++k) {
        const uint32_t number = bit_hash2(way.number, 5000 + static_cast<uint32_t>(k));
        const float t = 0.05f + 0.9f * random_of(number, 1);
        const int i = std::min(static_cast<int>(t * static_cast<float>(n_points - 1)), n_points - 2);
        const Point from = path[i];
        // Where the bolt goes on the whole, not where the last wrinkle pointed.
        float dx = end.x - from.x, dy = end.y - from.y;
        const float left = std::hypot(dx, dy);
        if (!(left > finest)) continue;
        const float side = random_of(number, 2) < 0.5f ? -1.0f : 1.0f;
        const float angle = tau * look.branch_angle * side *
                            (0.6f + 0.8f * random_of(number, 3) + 0.15f * drift(look, number, 9000, 0.8f));
        const float length = look.branch_length * left * (0.35f + 0.65f * random_of(number, 4));
        const float cosine = std::cos(angle) / left * length, sine = std::sin(angle) / left * length;
        const BoltEnds ends = {from.x, from.y, from.x + dx * cosine - dy * sine, from.y + dx * sine + dy * cosine};
        const float share = (0.35f + 0.3f * random_of(number, 5)) * std::min(asked - static_cast<float>(k), 1.0f);
        Way branch = {way.look, number, way.width_at(t) * share, {}};
        branch.piece.b_width = 0.2f;
        branch.piece.from = way.whole(t);
        branch.piece.to = branch.piece.from + (way.whole(1) - branch.piece.from) * std::min(length / left, 1.0f);
        add_path(all, ends, branch, generation + 1);
    }
}

void add_path(BoltStrokes* all, const BoltEnds& ends, const Way& way, int generation) {
    Point path[most_points];
    path[0] = {ends.ax, ends.ay};
    path[1] = {ends.bx, ends.by};
    const int n = wrinkle_path(path, *way.look, way.number);
    const float step = 1.0f / static_cast<float>(n - 1);
    for (int i = 0; i + 1 < n; ++i)
        add_visible(all, way, path[i], path[i + 1], static_cast<float>(i) * step, static_cast<float>(i + 1) * step);
    if (way.piece.branches && generation < most_generations && all->total_points < max_total_points)
        add_branches(all, way, path, n, generation);
}

}  // namespace

void free_bolts(BoltStrokes* all) {
    frame_free(all->strokes);
    *all = {};
}

void add_bolt(BoltStrokes* all, const BoltEnds& ends, const BoltLook& look, uint32_t number, const BoltPiece& piece) {
    const uint32_t own = bit_hash2(look.seed, number);
    const float width = 0.5f * look.width * (1 - std::clamp(look.width_vary, 0.0f, 1.0f) * random_of(own, 6));
    add_path(all, ends, {&look, own, std::max(width, 0.0f), piece}, 0);
}

void stray(float* x, float* y, float far, const BoltLook& look, uint32_t number) {
    const uint32_t own = bit_hash2(look.seed, number);
    *x += far * drift(look, own, 7001, 0.5f);
    *y += far * drift(look, own, 7002, 0.5f);
}

}  // namespace velloran
