// The hash and what is made of it along one dimension, against the formulas written out plainly.
#include "operators/noise/noise_1d.h"
#include "operators/noise/random_waves.h"
#include "support/hash.h"
#include "testing/hash_model.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

// By hand: from 96857, the state after the first draw, the three steps are 593286, 423270, 212109.
static_assert(random_table[1] == (212109u << 18) + (423270u << 8) + (593286u >> 2));

namespace {

// ---- The model

uint32_t hash(uint32_t x) { return model_hash(x); }
uint32_t hash(uint32_t x, uint32_t y) { return model_hash(x, y); }
double unit(uint32_t h) { return model_unit(h); }
uint32_t whole(double v) { return static_cast<uint32_t>(static_cast<int64_t>(std::floor(v))); }

constexpr double norms[] = {0,     1,      0.6667, 0.5714, 0.5333, 0.5161, 0.5079, 0.5039, 0.5019,
                            0.501, 0.5005, 0.5002, 0.5001, 0.5,    0.5,    0.5,    0.5};

double noise_model(uint32_t seed, double x, int octaves) {
    double sum = 0;
    for (int i = 0; i < octaves; ++i) {
        const double p = unit(hash(seed + 701u + static_cast<uint32_t>(i))) * 0.5 - 0.25 + std::ldexp(x, i);
        const double t = p - std::floor(p), octave = i;
        const double lo = unit(hash(seed + whole(p), static_cast<uint32_t>(octave)));
        const double hi = unit(hash(seed + whole(p) + 1, static_cast<uint32_t>(octave)));
        sum += 2 * std::ldexp(1.0, -i) * (lo + t * (hi - lo) - 0.5);
    }
    return sum * norms[octaves];
}
double smooth_model(uint32_t seed, double x, int octaves) {
    double sum = 0;
    for (int i = 0; i < octaves; ++i) {
        const double p = unit(hash(seed + 701u + static_cast<uint32_t>(i))) * 0.5 - 0.25 + std::ldexp(x, i) + 0.5;
        const double t = p - std::floor(p);
        const auto v = [&](int k) { return unit(hash(seed + whole(p) + static_cast<uint32_t>(k))); };
        const double s = 0.5 * v(-1) * (1 - t) * (1 - t) + v(0) * (t - t * t + 0.5) + 0.5 * v(1) * t * t;
        sum += (2 * s - 1) * std::ldexp(1.0, -i);
    }
    return sum * norms[octaves];
}
double ring_model(uint32_t seed, double x, int period, int octaves) {
    double sum = -1, weight = 2 * norms[octaves];
    for (int i = 0; i < octaves; ++i, weight /= 2) {
        const int n = period << (i + 1);
        const double p = n * x;
        int c = static_cast<int>(p);
        const double t = p - c;
        c %= n;
        const auto v = [&](int k) {
            return unit(hash(seed + static_cast<uint32_t>(i) * 0x100000u + static_cast<uint32_t>(k)));
        };
        sum += weight *
               ((0.5 - t + 0.5 * t * t) * v((c + n - 1) % n) + (0.5 + t - t * t) * v(c) + 0.5 * t * t * v((c + 1) % n));
    }
    return sum;
}

struct Interval {
    double start, length;
    uint32_t hash;
};
const std::vector<Interval>& intervals() {
    static const std::vector<Interval> rows = [] {
        std::vector<Interval> made;
        uint32_t h = hash(7070);
        double sum = 0;
        for (int i = 0; i < 1024; ++i) {
            h = hash(h + 7070);
            made.push_back({0, unit(h) * unit(h), h});
            sum += made.back().length;
        }
        double start = 0;
        for (Interval& row : made) {
            row.length /= sum / 1024;
            row.start = start;
            start += row.length;
        }
        return made;
    }();
    return rows;
}
// The interval of a time by looking at all of them; near: whether t is too close to its ends for floats to tell.
struct Found {
    int64_t block;
    double rem;
    Interval row;
    bool near;
    uint32_t key(uint32_t seed) const { return hash(seed, static_cast<uint32_t>(block) + row.hash); }
};
Found find(uint32_t seed, double t) {
    const double at = t + 100 * unit(hash(seed + 1021));
    const auto block = static_cast<int64_t>(std::floor(at / 1024));
    const double rem = at - 1024.0 * static_cast<double>(block);
    Interval row = intervals().back();
    for (const Interval& each : intervals())
        if (each.start <= rem && rem < each.start + each.length) row = each;
    const double margin = 2e-4;
    return {block, rem, row, rem - row.start < margin || row.start + row.length - rem < margin};
}
double threshold(double x, double amount) { return std::fabs(x) < amount ? 0 : x - amount * (x < 0 ? -1 : 1); }
double saw(uint32_t seed, double t, double lo, double hi, double slope_lo, double slope_hi, double shape) {
    const Found f = find(seed, t);
    const uint32_t h = f.key(seed);
    const double e = threshold(unit(hash(h)), shape);
    return lo + unit(h) * (hi - lo) + (slope_lo + e * (slope_hi - slope_lo)) * (f.rem - f.row.start);
}

template <class Body>
void for_random_places(double range, Body body) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> places(static_cast<float>(-range), static_cast<float>(range));
    for (int i = 0; i < 3000; ++i) {
        const auto seed = i % 5 ? static_cast<uint32_t>(rng()) : static_cast<uint32_t>(i % 3) - 1u;
        const float x = i % 7 ? places(rng) : std::floor(places(rng));
        SCOPED_TRACE("seed " + std::to_string(seed) + " at " + std::to_string(x));
        body(seed, x, i);
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace

TEST(Hash, IsThatOfTheModel) {
    std::mt19937 rng(1);
    for (int i = 0; i < 2000; ++i) {
        const auto x = static_cast<uint32_t>(rng()), y = static_cast<uint32_t>(rng());
        ASSERT_EQ(bit_hash2(x, y), hash(x, y));
    }
}

TEST(Noise1D, IsThatOfTheModel) {
    for_random_places(5000, [](uint32_t seed, float x, int i) {
        const int octaves = 1 + i % 10;
        const auto at = static_cast<double>(x);
        EXPECT_NEAR(static_cast<double>(fnoise1(seed, x, octaves)), noise_model(seed, at, octaves), 2e-6);
        EXPECT_NEAR(static_cast<double>(qfnoise1(seed, x, octaves)), smooth_model(seed, at, octaves), 2e-6);
        const float around = std::fabs(x) / 5000;
        EXPECT_NEAR(static_cast<double>(fnoise1_wrap(seed, around, 1 + i % 9, octaves)),
                    ring_model(seed, static_cast<double>(around), 1 + i % 9, octaves), 2e-6);
    });
}

TEST(Noise1D, EndsOfItsRange) {
    for (const uint32_t seed : {0u, 1u, 77u, 0xffffffffu}) {
        EXPECT_EQ(fnoise1(seed, 3.5f, 0), 0);
        EXPECT_EQ(qfnoise1(seed, 3.5f, -2), 0);
        EXPECT_EQ(fnoise1_wrap(seed, 0.5f, 5, 0), -1);
        EXPECT_FLOAT_EQ(fnoise1_wrap(seed, 1.0f, 5, 4), fnoise1_wrap(seed, 0.0f, 5, 4)) << "the ring closes";
        EXPECT_EQ(fnoise1(seed, 0.3f, 100), fnoise1(seed, 0.3f, 16));
        for (const float x : {INFINITY, -INFINITY, NAN, 1e30f, -1e30f}) {
            EXPECT_LE(std::fabs(fnoise1(seed, x, 16)), 1.01f);
            EXPECT_LE(std::fabs(qfnoise1(seed, x, 16)), 1.01f);
            EXPECT_LE(std::fabs(fnoise1_wrap(seed, x, 1 << 30, 16)), 1.01f);
            EXPECT_LE(std::fabs(random_square_wave(seed, x, -1, 1)), 1.0f);
        }
    }
}

TEST(RandomWaves, AreThoseOfTheModel) {
    for_random_places(40000, [](uint32_t seed, float t, int i) {
        const Found f = find(seed, static_cast<double>(t));
        if (f.near) return;
        const uint32_t h = f.key(seed);
        EXPECT_EQ(random_square_wave_seed(seed, t), h);
        EXPECT_NEAR(static_cast<double>(random_square_wave(seed, t, -2, 5)), -2 + 7 * unit(h), 1e-5);
        const WavePair pair = random_square_wave2(seed, t, 1, 3);
        EXPECT_NEAR(static_cast<double>(pair.a), 1 + 2 * unit(h), 1e-5);
        EXPECT_NEAR(static_cast<double>(pair.b), 1 + 2 * unit(hash(h, static_cast<uint32_t>(f.block) + f.row.hash)),
                    1e-5);
        EXPECT_NEAR(static_cast<double>(random_square_wave_start_time(seed, t)),
                    static_cast<double>(f.block) * 1024 + f.row.start, 4e-3);
        const double shape = i % 10 / 10.0;
        EXPECT_NEAR(static_cast<double>(random_sawtooth_wave(seed, t, -1, 2, 0.5f, 3, static_cast<float>(shape))),
                    saw(seed, static_cast<double>(t), -1, 2, 0.5, 3, shape), 1e-3);
        const double level = noise_model(seed, static_cast<double>(t), 4);
        if (std::fabs(level) > 1e-5) {
            const double u = level > 0 ? 0.25 * static_cast<double>(t) + 0.03 : 0.5 * static_cast<double>(t) + 0.1;
            EXPECT_FLOAT_EQ(random_square_wave_b(seed, t), static_cast<float>(unit(hash(seed, whole(u)))));
        }
    });
}

TEST(RandomWaves, SawtoothWithNoise) {
    int seen = 0;
    for_random_places(300, [&](uint32_t seed, float t, int i) {
        const SawtoothNoise noise = {-1, 1, -1, 1, 3.9f, 0.75f, 0.5f, 0.125f * static_cast<float>(i % 3), 0.25f, 2.5f};
        const double late = static_cast<double>(t) + 100 * unit(hash(seed + 1021));
        if (find(seed, 0.25 * late).near || find(seed, 0.25 * (late - 1)).near) return;
        const auto f = [&](double time) {
            return threshold(0.5 * saw(seed, 0.25 * time, -1, 1, -1, 1, 0.15) + 0.75 * noise_model(seed, 2.5 * time, 3),
                             0.125 * (i % 3));
        };
        const SawtoothValue got = random_sawtooth_noise(seed, t, noise);
        EXPECT_NEAR(static_cast<double>(got.value), f(late), 2e-3);
        EXPECT_NEAR(static_cast<double>(got.delta), f(late) - f(late - 1), 2e-3);
        ++seen;
    });
    EXPECT_GT(seen, 2000);
}

// A mean length of 1, many short and few long: of squares of even numbers half are shorter than 0.75 and one in ten is
// longer than 2.43. The same 1024 lengths come again, so chance has its part.
TEST(RandomWaves, IntervalsHaveTheirDistribution) {
    int changes = 0, shorter = 0, longer = 0;
    float begun = random_square_wave_start_time(9, 0);
    for (int i = 0; i < 200000; ++i) {
        const float start = random_square_wave_start_time(9, static_cast<float>(i) * 0.01f);
        if (start == begun) continue;
        shorter += start - begun < 0.75f;
        longer += start - begun > 2.43f;
        ++changes;
        begun = start;
    }
    EXPECT_NEAR(changes, 1900, 120);  // those shorter than a sample are not seen
    EXPECT_NEAR(shorter / static_cast<double>(changes), 0.46, 0.04);
    EXPECT_NEAR(longer / static_cast<double>(changes), 0.1, 0.05);
}
