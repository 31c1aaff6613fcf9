// The noises that are evaluated sample by sample, against plain models of their formulas, on every instruction set.
#include "engine/evaluate.h"
#include "operators/noise/noise_rows.h"
#include "operators/noise/static_bytes.h"
#include "records/run_state.h"
#include "support/hash.h"
#include "testing/hash_model.h"
#include "testing/pixel_call.h"
#include "testing/row_targets.h"

#include <cmath>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr double pi = 3.14159265358979323846;

// ---- Models

int kernel(int entry) {
    const double r = std::sqrt(entry / 4608.0);
    return static_cast<int>(std::lround(4096 * (r < 0.5 ? 1 - 2 * r * r : 2 * (1 - r) * (1 - r))));
}
int kernel_limit() {
    for (int i = 0;; ++i)
        if (kernel(i) == 0) return 2 * i;
}
uint32_t cell_hash(uint32_t key, int u, int v) {
    return model_hash((static_cast<uint32_t>(v) * 16) ^ key, static_cast<uint32_t>(u));
}
// A coordinate in cells, in float, rounded with halves away from zero.
int32_t scaled(int32_t coord, double frequency) {
    const float v = static_cast<float>(coord) * static_cast<float>(frequency);
    return static_cast<int32_t>(std::trunc(v + std::copysign(0.5f, v)));
}

struct Call {
    double frequency[2];
    int32_t seed;
};

std::vector<int> solid_model(int x, int y, int octaves, uint32_t seed, int channels) {
    static const int limit = kernel_limit();
    std::vector<int> totals(static_cast<size_t>(channels));
    const int last = (octaves + 4095) / 4096 - 1;
    for (int o = 0; o <= last; ++o) {
        const auto px = static_cast<int32_t>(static_cast<uint32_t>(x) << o),
                   py = static_cast<int32_t>(static_cast<uint32_t>(y) << o);
        const int cx = (px + 2048) >> 12, cy = (py + 2048) >> 12, dx = px - (cx << 12), dy = py - (cy << 12);
        std::vector<int> sums(totals.size());
        int weights = 0;
        for (int j = -1; j <= 1; ++j)
            for (int i = -1; i <= 1; ++i) {
                const auto part = [](int d, int k) { return ((d * d) >> 12) - 2 * k * d + (k ? 4096 : 0); };
                const int d = part(dx, i) + part(dy, j);
                if (d >= limit) continue;
                const uint32_t h = cell_hash(seed ^ static_cast<uint32_t>(o), cx + i, cy + j);
                const int values[3] = {model_signed13(h), model_signed13(h >> 16), model_third(h)};
                for (size_t c = 0; c < sums.size(); ++c) sums[c] += (values[c] * kernel(d / 2)) >> 12;
                weights += kernel(d / 2);
            }
        const int amplitude = o == 0 ? 4096 : o < last ? 4096 >> o : (octaves - last * 4096) >> o;
        for (size_t c = 0; c < sums.size(); ++c) totals[c] += (sums[c] * ((amplitude << 12) / weights)) >> 12;
    }
    for (int& total : totals) total = (total >> 1) + 2048;
    return totals;
}

int spots_model(int x, int y, int radius, uint32_t seed) {
    const int radius2 = (radius * radius) >> 12;
    if (radius < 1 || radius2 == 0) return 0;
    int value = 0;
    for (int layer = 0; layer < 2; ++layer) {
        const int px = x + 2048 * layer, py = y + 2048 * layer;
        const int cx = (px + 2048) >> 12, cy = (py + 2048) >> 12;
        const uint32_t h = cell_hash(seed + static_cast<uint32_t>(layer), cx, cy);
        const auto spot = [&](uint32_t bits) { return ((model_signed13(bits) >> 1) * (4096 - 2 * radius)) >> 12; };
        const int ax = std::abs(px - cx * 4096 - spot(h)), ay = std::abs(py - cy * 4096 - spot(h >> 16));
        if (ax >= radius || ay >= radius) continue;
        const int d = ax * ax + ay * ay, k = (d + (d >> 4)) / radius2;
        if (k < 4608) value = value < 1 ? kernel(k) : value + (((4096 - value) * kernel(k)) >> 12);
    }
    return value;
}

int voronoi_model(int x, int y, int rotate, uint32_t seed) {
    const int sine = static_cast<int>(std::lround(4096 * std::sin(2 * pi * (rotate & 4095) / 4096)));
    const int cosine = static_cast<int>(std::lround(4096 * std::cos(2 * pi * (rotate & 4095) / 4096)));
    const int cx = (x + 2048) >> 12, cy = (y + 2048) >> 12;
    std::vector<int> distances;
    for (int v = cy - 1; v <= cy + 1; ++v)
        for (int u = cx - 1; u <= cx + 1; ++u) {
            const uint32_t h = cell_hash(seed, u, v);
            const int a = model_signed13(h), b = model_signed13(h >> 16);
            const int ra = ((((cosine * a) >> 12) + ((-sine * b) >> 12)) * 1638) >> 12;
            const int rb = ((((a * sine) >> 12) + ((cosine * b) >> 12)) * 1638) >> 12;
            const int dx = ra + x - u * 4096, dy = rb + y - v * 4096;
            distances.push_back(((dx * dx) >> 12) + ((dy * dy) >> 12));
        }
    std::sort(distances.begin(), distances.end());
    const auto root = [](int d) { return static_cast<int>(std::sqrt(static_cast<float>(d) / 4096.0f) * 4096.0f); };
    const int d1 = root(distances[0]), d2 = root(distances[1]);
    return d2 >= 1 ? 4096 - ((d2 - d1) * 4096) / (d1 + d2) : 0;
}

// Float models are told to a step or two: texts say in which order to multiply, but not every rounding.
const int perm[256] = {
    151, 160, 137, 91,  90,  15,  131, 13,  201, 95,  96,  53,  194, 233, 7,   225, 140, 36,  103, 30,  69,  142,
    8,   99,  37,  240, 21,  10,  23,  190, 6,   148, 247, 120, 234, 75,  0,   26,  197, 62,  94,  252, 219, 203,
    117, 35,  11,  32,  57,  177, 33,  88,  237, 149, 56,  87,  174, 20,  125, 136, 171, 168, 68,  175, 74,  165,
    71,  134, 139, 48,  27,  166, 77,  146, 158, 231, 83,  111, 229, 122, 60,  211, 133, 230, 220, 105, 92,  41,
    55,  46,  245, 40,  244, 102, 143, 54,  65,  25,  63,  161, 1,   216, 80,  73,  209, 76,  132, 187, 208, 89,
    18,  169, 200, 196, 135, 130, 116, 188, 159, 86,  164, 100, 109, 198, 173, 186, 3,   64,  52,  217, 226, 250,
    124, 123, 5,   202, 38,  147, 118, 126, 255, 82,  85,  212, 207, 206, 59,  227, 47,  16,  58,  17,  182, 189,
    28,  42,  223, 183, 170, 213, 119, 248, 152, 2,   44,  154, 163, 70,  221, 153, 101, 155, 167, 43,  172, 9,
    129, 22,  39,  253, 19,  98,  108, 110, 79,  113, 224, 232, 178, 185, 112, 104, 218, 246, 97,  228, 251, 34,
    242, 193, 238, 210, 144, 12,  191, 179, 162, 241, 81,  51,  145, 235, 249, 14,  239, 107, 49,  192, 214, 31,
    181, 199, 106, 157, 184, 84,  204, 176, 115, 121, 50,  45,  127, 4,   150, 254, 138, 236, 205, 93,  222, 114,
    67,  29,  24,  72,  243, 141, 128, 195, 78,  66,  215, 61,  156, 180};
int permuted(int64_t i) { return perm[i & 255]; }

double perlin_octave(double x, double y) {
    static const double gx[8] = {0.5, 0.8660254, 0.8660254, 0.5, -0.5, -0.8660254, -0.8660254, -0.5};
    static const double gy[8] = {0.8660254, 0.5, -0.5, -0.8660254, -0.8660254, -0.5, 0.5, 0.8660254};
    const double fx = x - std::floor(x), fy = y - std::floor(y);
    const auto ix = static_cast<int64_t>(std::floor(x)), iy = static_cast<int64_t>(std::floor(y));
    const auto corner = [&](int i, int j) {
        const int g = permuted(permuted(ix + i) + ((iy + j) & 255)) & 7;
        return gx[g] * (fx - i) + gy[g] * (fy - j);
    };
    const double u = fx * fx * (3 - 2 * fx), v = fy * fy * (3 - 2 * fy);
    return (1 - v) * ((1 - u) * corner(0, 0) + u * corner(1, 0)) + v * ((1 - u) * corner(0, 1) + u * corner(1, 1));
}

struct Directions {
    double g2[256][2], g3[256][3];
};
const Directions& directions() {
    static const Directions all = [] {
        Directions made;
        uint32_t h = model_hash(123);
        const auto fill = [&](double* vector, int n) {
            for (double length = 2; length >= 1;) {
                length = 0;
                for (int e = 0; e < n; ++e) {
                    h = model_hash(h);
                    vector[e] = model_unit(h) * 2 - 1;
                    length += vector[e] * vector[e];
                }
                length = std::sqrt(length);
                for (int e = 0; length < 1 && e < n; ++e) vector[e] /= length;
            }
        };
        for (auto& vector : made.g2) fill(vector, 2);
        for (auto& vector : made.g3) fill(vector, 3);
        return made;
    }();
    return all;
}

double ramp(double left, double dot) { return left < 0 ? 0 : left * left * left * left * dot; }

// Simplex noise in n dimensions at fixed-point coordinates: from the lowest corner on, one step along the axis of the
// largest offset left.
double simplex_octave(const int64_t* fixed, int n, uint32_t seed) {
    const double skew = n == 2 ? 0.3660254 : 0.33333334, unskew = n == 2 ? 0.21132487 : 0.16666667;
    double sum = 0, offset[3], cells = 0;
    int64_t cell[3];
    for (int e = 0; e < n; ++e) sum += static_cast<double>(fixed[e]) / 4096;
    // In float, as the coordinates are: a whole number decides the cell.
    const auto s = static_cast<int64_t>(static_cast<float>(sum) * static_cast<float>(skew) * 4096.0f);
    for (int e = 0; e < n; ++e) cells += static_cast<double>(cell[e] = (fixed[e] + s) >> 12);
    for (int e = 0; e < n; ++e)
        offset[e] = static_cast<double>(fixed[e]) / 4096 - (static_cast<double>(cell[e]) - cells * unskew);
    bool taken[3] = {};
    int step[3] = {};
    double result = 0;
    for (int corner = 0; corner <= n; ++corner) {
        double d[3], left = 0.5, dot = 0;
        int index = 0;
        for (int e = n - 1; e >= 0; --e)
            index = permuted(static_cast<int64_t>(seed & 255) + ((cell[e] + step[e]) & 255) + index);
        for (int e = 0; e < n; ++e) {
            d[e] = offset[e] - step[e] + corner * unskew;
            left -= d[e] * d[e];
            dot += d[e] * (n == 2 ? directions().g2[index][e] : directions().g3[index][e]);
        }
        result += ramp(left, dot);
        int next = -1;
        for (int e = 0; e < n; ++e)
            if (!taken[e] && (next < 0 || offset[e] > offset[next])) next = e;
        if (corner < n) taken[next] = true, step[next] = 1;
    }
    return 40 * result;
}

double gradient_model(bool simplex, const int32_t* coords, int n, const double* frequency, int octaves, uint32_t seed,
                      bool fold) {
    static const double perlin_norm[] = {0, 1, 0.75, 0.57, 0.5333, 0.516, 0.508, 0.504, 0.502};
    static const double simplex_norm[] = {0, 1, 0.6667, 0.5714, 0.5333, 0.5161, 0.5079, 0.5039, 0.5019};
    float at[3];
    for (int e = 0; e < n; ++e) {
        const int32_t moved = coords[e] + (e == 0 ? static_cast<int32_t>(model_hash(seed) & 0xffff) : 0);
        at[e] = static_cast<float>(moved) / 4096.0f * static_cast<float>(8 * frequency[e]);
    }
    double amplitude = simplex ? simplex_norm[octaves] : perlin_norm[octaves], sum = 0;
    for (int o = 0; o < octaves; ++o, amplitude /= 2) {
        double value;
        if (simplex) {
            int64_t fixed[3];
            for (int e = 0; e < n; ++e) fixed[e] = static_cast<int64_t>(std::ldexp(at[e], o) * 4096.0f);
            value = simplex_octave(fixed, n, seed);
        } else {
            value = perlin_octave(std::ldexp(static_cast<double>(at[0]), o), std::ldexp(static_cast<double>(at[1]), o));
        }
        sum += (fold ? std::fabs(value) : value) * amplitude;
    }
    return 4096 * sum;
}

// ---- Lines of coordinates

ArgValue constant(std::vector<int32_t> values) {
    ArgValue arg{true, {}};
    for (const int32_t v : values) arg.lines.push_back({v});
    return arg;
}
ArgValue line_of(int n, int elements, const std::function<int32_t(int, int)>& value) {
    ArgValue arg{false, {}};
    for (int e = 0; e < elements; ++e) {
        arg.lines.emplace_back();
        for (int i = 0; i < n; ++i) arg.lines.back().push_back(value(e, i));
    }
    return arg;
}

// Rows of a frame, fine and coarse, turned and mirrored; far from the origin; cell borders and lattice points; places
// that have nothing in common.
std::vector<ArgValue> coordinate_lines(int elements) {
    std::mt19937 rng(3);
    const auto any = [&rng](int range) {
        return static_cast<int32_t>(rng() % static_cast<unsigned>(2 * range)) - range;
    };
    std::vector<ArgValue> lines;
    for (const int step : {1, 2, 8, 32, -3, 100}) {
        const int32_t start = any(5000), other = any(4000);
        lines.push_back(line_of(1500, elements, [=](int e, int i) { return e ? other + 77 * e : start + i * step; }));
        lines.push_back(
            line_of(300, elements, [=](int e, int i) { return start + e * other + i * (e == 1 ? 3 : step); }));
    }
    for (const int32_t far : {1 << 20, -(1 << 20) - 5, 40000})
        lines.push_back(line_of(80, elements, [=](int e, int i) { return far + 3 * i * (e + 1); }));
    // With 8 and 2 cells for each unit: borders and middles of cells, and a step to each side.
    lines.push_back(line_of(300, elements, [](int e, int i) { return (i - 150) * 64 + (i + e) % 3 - 1; }));
    lines.push_back(line_of(200, elements, [](int e, int i) { return e ? 512 : (i - 100) * 256; }));
    lines.push_back(line_of(500, elements, [&](int, int) { return any(30000); }));
    return lines;
}

const Call calls[] = {
    {{1, 1}, 0}, {{1, 1}, 4096 * 3}, {{0.37, 1.9}, -4096 * 77 + 5}, {{4, 2.5}, 4096 * 260}, {{-0.8, 0.8}, 123456789}};

template <class Model>
void expect_model(const char* name, int elements, int results, const std::vector<ArgValue>& params, const Call& call_of,
                  Model model, int tolerance) {
    const PixelFun fun = pixel_fun_of(name);
    ASSERT_NE(fun, nullptr);
    for (const ArgValue& coords : coordinate_lines(elements)) {
        const int n = static_cast<int>(coords.lines[0].size());
        std::vector<ArgValue> args = {coords, constant({float_to_fix(static_cast<float>(call_of.frequency[0])),
                                                        float_to_fix(static_cast<float>(call_of.frequency[1])),
                                                        float_to_fix(static_cast<float>(call_of.frequency[0]))})};
        args.insert(args.end(), params.begin(), params.end());
        std::vector<std::vector<int>> want;
        for (int i = 0; i < n; ++i) {
            int32_t at[3] = {};
            for (int e = 0; e < elements; ++e) at[e] = coords.at(e, i);
            want.push_back(model(at));
        }
        for_each_row_target([&](int64_t) {
            const std::vector<Samples> got = call(fun, results, args, n);
            for (int e = 0; e < results; ++e)
                for (int i = 0; i < n; ++i)
                    ASSERT_NEAR(got[static_cast<size_t>(e)][static_cast<size_t>(i)],
                                want[static_cast<size_t>(i)][static_cast<size_t>(e)], tolerance)
                        << name << " at " << coords.at(0, i) << ", " << coords.at(1, i) << ", sample " << i << " of "
                        << n;
        });
        if (testing::Test::HasFailure()) return;
    }
}

// What the frequency is once it is a sample.
double kept(double frequency) { return float_to_fix(static_cast<float>(frequency)) / 4096.0; }

uint32_t seed_of(const Call& call_of) { return static_cast<uint32_t>(call_of.seed >> 12); }

}  // namespace

TEST(NoisePixels, SolidNoise) {
    int turn = 0;
    for (const Call& c : calls) {
        const int octaves[] = {0, 4096, 6144, 4096 * 3, 4096 * 9};
        const int given = octaves[turn % 5], used = std::clamp(given, 4096, 8 * 4096), channels = 1 + turn++ % 3;
        const int scale = 1700;
        std::vector<ArgValue> params = {constant({given}), constant({c.seed})};
        if (channels == 2) params.push_back(constant({scale}));
        const char* names[] = {"warp_noise", "warp_noise2", "warp_noise3"};
        expect_model(
            names[channels - 1], 2, channels, params, c,
            [&](const int32_t* at) {
                std::vector<int> v = solid_model(scaled(at[0], kept(c.frequency[0]) * 8),
                                                 scaled(at[1], kept(c.frequency[1]) * 8), used, seed_of(c), channels);
                if (channels == 2)
                    for (int& value : v) value = ((value - 2048) * scale) >> 12;
                return v;
            },
            0);
    }
}

TEST(NoisePixels, Spots) {
    for (const int radius : {0, 3, 255, 256, 1500, 4096, -4000, 9000})
        for (const Call& c : calls)
            expect_model(
                "spots", 2, 1, {constant({radius}), constant({c.seed})}, c,
                [&](const int32_t* at) {
                    return std::vector<int>{spots_model(scaled(at[0], kept(c.frequency[0]) * 2),
                                                        scaled(at[1], kept(c.frequency[1]) * 2),
                                                        std::min(std::abs(radius >> 2), 1536), seed_of(c))};
                },
                0);
}

TEST(NoisePixels, Voronoi) {
    for (const int rotate : {0, 512, 1024, 3333, -100})
        for (const Call& c : calls)
            expect_model(
                "voronoi", 2, 1, {constant({rotate}), constant({c.seed})}, c,
                [&](const int32_t* at) {
                    return std::vector<int>{voronoi_model(scaled(at[0], kept(c.frequency[0]) * 2),
                                                          scaled(at[1], kept(c.frequency[1]) * 2), rotate, seed_of(c))};
                },
                0);
}

TEST(NoisePixels, GradientNoise) {
    int turn = 0;
    for (const Call& c : calls)
        for (const char* name : {"simplex_noise", "perlin_noise", "simplex_noise"}) {
            const bool simplex = name[0] == 's';
            const int elements = simplex && turn % 3 == 2 ? 3 : 2, octaves = 1 + turn * 3 % 8;
            const bool fold = turn++ % 2 != 0;
            SCOPED_TRACE(std::string(name) + " of " + std::to_string(elements) + " elements, octaves " +
                         std::to_string(octaves));
            const double frequency[3] = {kept(c.frequency[0]), kept(c.frequency[1]), kept(c.frequency[0])};
            expect_model(
                name, elements, 1,
                {constant({octaves * 4096 - 2000}), constant({c.seed}), constant({fold ? 4096 : 4095})}, c,
                [&](const int32_t* at) {
                    return std::vector<int>{
                        static_cast<int>(gradient_model(simplex, at, elements, frequency, octaves, seed_of(c), fold))};
                },
                6);
        }
}

TEST(NoisePixels, OctavesAreHeldToEight) {
    const ArgValue place = line_of(40, 2, [](int e, int i) { return 100 * i + e; }), one = constant({4096});
    for (const char* name : {"simplex_noise", "perlin_noise"}) {
        const auto with = [&](int octaves) {
            return call(pixel_fun_of(name), 1, {place, one, constant({octaves}), one, constant({0})}, 40);
        };
        EXPECT_EQ(with(0), with(4096));
        EXPECT_EQ(with(-2000000000), with(4096));
        EXPECT_EQ(with(2147483647), with(8 * 4096));
        EXPECT_NE(with(2 * 4096 + 2047), with(2 * 4096 + 2048)) << "rounded to the nearest";
    }
}

TEST(NoisePixels, LatticeNoiseOfThreeElementsIsZero) {
    const ArgValue place = line_of(100, 3, [](int e, int i) { return 57 * i + 1000 * e; }), one = constant({4096});
    EXPECT_EQ(call(pixel_fun_of("perlin_noise"), 1, {place, one, constant({3 * 4096}), one, one}, 100)[0],
              Samples(100, 0));
}

// A tile of a honeycomb: at the corners the heights are those of the slope's direction, from 0 to 1.
TEST(NoisePixels, HexTiles) {
    const auto model = [](int32_t x, int32_t y, double fx, double fy, int revs) {
        const double up = std::lround(4096 * std::sin(2 * pi * revs / 4096)) / 4096.0;
        const double across = std::lround(4096 * std::cos(2 * pi * revs / 4096)) / 4096.0 * 0.8660254;
        const double corners[] = {0, 0.5 * up + across, 1.3333333 * across};
        const double low = std::min({corners[0], corners[1], corners[2]}),
                     scale = 1 / (std::max({corners[0], corners[1], corners[2]}) - low);
        const auto u = static_cast<int>(static_cast<float>(x) * static_cast<float>(fx) * 1.1547f);
        const auto v = static_cast<int>(static_cast<float>(y) * static_cast<float>(fy));
        int a = u & 0x1fff, b = ((u >> 1) + v) & 0x1fff;
        if (b > a) std::swap(a, b);
        int h = a >> 1, m = b >= h ? b : a - b;
        if (a + m > 8192) {
            const int old = a;
            a = 8192 - m;
            m = 8192 - old;
            h = a >> 1;
        }
        return std::lround(-low * scale * 4096) +
               static_cast<int>(a * across * scale + std::max(m - h, h - m) * up * scale);
    };
    for (const int revs : {0, 300, 1024, 2048, 3500})
        for (const Call& c : calls)
            expect_model(
                "hex_tiles", 2, 1, {constant({revs})}, c,
                [&](const int32_t* at) {
                    return std::vector<int>{
                        static_cast<int>(model(at[0], at[1], kept(c.frequency[0]), kept(c.frequency[1]), revs))};
                },
                2);
    // A direction for each sample.
    const ArgValue place = line_of(200, 2, [](int e, int i) { return i * 91 - e * 2000; });
    const ArgValue revs = line_of(200, 1, [](int, int i) { return i / 3 * 37 & 4095; });
    const std::vector<Samples> got = call(pixel_fun_of("hex_tiles"), 1, {place, constant({4096}), revs}, 200);
    for (int i = 0; i < 200; ++i)
        EXPECT_NEAR(got[0][static_cast<size_t>(i)], model(place.at(0, i), place.at(1, i), 1, 1, revs.at(0, i)), 2) << i;
}

TEST(NoisePixels, WhiteNoise) {
    struct FrameOf {
        FrameOf() { the_frame->display_dims = {0, 0, 0, 0, 640, 360, 0, 0}; }
        ~FrameOf() {
            the_frame->display_dims = {};
            the_frame->time_globals = {};
            the_frame->render_field = 0;
            eval_block_row = eval_block_column = 0;
        }
    } scope;
    const struct {
        float frame;
        int field;
        uint32_t number;
        int row = 11, column = 5;
    } frames[] = {{0, 0, 0},
                  {7, 0, 7},
                  {7.5f, 0, 7},
                  {7, 2, 14},
                  {7.5f, 1, 15},
                  {100000, 0, 100000},
                  {72, 0, 72, 294, 220},         // over 2^24 samples
                  {18641, 0, 18641, 126, 220}};  // over 2^32
    for (const auto& f : frames) {
        the_frame->time_globals.frame = f.frame;
        the_frame->render_field = f.field;
        eval_block_row = f.row;
        eval_block_column = f.column;
        for_each_row_target([&](int64_t) {
            const std::vector<Samples> one = call(pixel_fun_of("static"), 1, {}, 83),
                                       two = call(pixel_fun_of("static2"), 2, {}, 83),
                                       three = call(pixel_fun_of("static3"), 3, {}, 83);
            for (uint32_t i = 0; i < 83; ++i) {
                const uint32_t n =
                    640 * 360 * f.number + 640 * static_cast<uint32_t>(f.row) + static_cast<uint32_t>(f.column) + i;
                ASSERT_EQ(one[0][i], static_cast<int>(model_hash(n) % 4096));
                const uint32_t h2 = model_hash(n + 33333), h3 = model_hash(n + 77777);
                ASSERT_EQ(two[0][i], static_cast<int>(h2 % 4096) - 2048);
                ASSERT_EQ(two[1][i], static_cast<int>((h2 >> 16) % 4096) - 2048);
                ASSERT_EQ(three[0][i], static_cast<int>(h3 % 4096));
                ASSERT_EQ(three[1][i], static_cast<int>((h3 >> 16) % 4096));
                ASSERT_EQ(three[2][i], static_cast<int>((model_hash(h3) >> 8) % 4096));
            }
        });
    }
}

TEST(NoisePixels, RandomOfAValue) {
    std::mt19937 rng(4);
    const ArgValue seeds = draw_arg(rng, 2, false, 50, Range::any);
    const std::vector<Samples> one = call(pixel_fun_of("random"), 1, {{false, {seeds.lines[0]}}}, 50),
                               two = call(pixel_fun_of("random"), 2, {seeds}, 50);
    for (int i = 0; i < 50; ++i) {
        const auto a = static_cast<uint32_t>(seeds.at(0, i)), b = static_cast<uint32_t>(seeds.at(1, i));
        const uint32_t first = model_hash(a, b) % 4096;
        EXPECT_EQ(one[0][static_cast<size_t>(i)], static_cast<int>(model_hash(a) % 4096));
        EXPECT_EQ(two[0][static_cast<size_t>(i)], static_cast<int>(first));
        EXPECT_EQ(two[1][static_cast<size_t>(i)], static_cast<int>(model_hash(first + a) % 4096));
    }
}

// Params that change along the line are as calls with each of them.
TEST(NoisePixels, ParamsOfEachSample) {
    const ArgValue place = line_of(60, 2, [](int e, int i) { return i * 40 - e * 300; }), one = constant({4096});
    const ArgValue radius = line_of(60, 1, [](int, int i) { return i / 7 * 500; });
    const std::vector<Samples> got = call(pixel_fun_of("spots"), 1, {place, one, radius, one}, 60);
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(got[0][static_cast<size_t>(i)], spots_model(scaled(place.at(0, i), 2), scaled(place.at(1, i), 2),
                                                              std::min(radius.at(0, i) >> 2, 1536), 1));
}

// What a fault would bend that the formulas of single samples do not show: means, spreads, and likeness of what must
// have nothing in common.
TEST(NoisePixels, Statistics) {
    constexpr int n = 40000;
    using Numbers = std::vector<double>;
    struct Moments {
        double mean, deviation;
    };
    const auto moments = [](const Numbers& v) {
        double sum = 0, squares = 0;
        for (const double x : v) sum += x, squares += x * x;
        const double count = static_cast<double>(v.size()), mean = sum / count;
        return Moments{mean, std::sqrt(squares / count - mean * mean)};
    };
    const auto correlation = [&](const Numbers& a, const Numbers& b) {
        const Moments ma = moments(a), mb = moments(b);
        double sum = 0;
        for (size_t i = 0; i < a.size(); ++i) sum += (a[i] - ma.mean) * (b[i] - mb.mean);
        return sum / static_cast<double>(a.size()) / ma.deviation / mb.deviation;
    };
    const auto numbers = [](const Samples& samples) { return Numbers(samples.begin(), samples.end()); };
    // Places half a cell and more apart, over many cells.
    std::mt19937 rng(8);
    const ArgValue places = line_of(n, 2, [&](int, int) { return static_cast<int32_t>(rng() % 400000u); });
    const auto one = constant({4096});
    const struct {
        const char* name;
        int results;
        std::vector<ArgValue> params;  // but for the seed
        double mean, deviation, margin;
        double likeness;  // of two seeds, at most
    } cases[] = {
        // Lattice values have a deviation of 2365; a weighted mean of about 3.6 of them, halved, has 620.
        {"warp_noise3", 3, {one}, 2048, 620, 80, 0.04},
        // Points keep near the middles of cells, whatever the seed.
        {"voronoi", 1, {constant({0})}, 2900, 870, 150, 0.2},
        // Two spots of a quarter's radius for each cell cover 0.39 of it, with 0.31 in the mean.
        {"spots", 1, {constant({4096})}, 494, 950, 100, 0.2},
        {"simplex_noise", 1, {one}, 0, 900, 200, 0.04},
        {"perlin_noise", 1, {one}, 0, 1050, 200, 0.04},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto with_seed = [&](int seed) {
            std::vector<ArgValue> args = {places, one};
            args.insert(args.end(), c.params.begin(), c.params.end());
            args.push_back(constant({seed * 4096}));
            if (std::string(c.name).find("noise") != std::string::npos && c.results == 1) args.push_back(constant({0}));
            return call(pixel_fun_of(c.name), c.results, args, n);
        };
        const std::vector<Samples> made = with_seed(1), other = with_seed(2);
        for (size_t e = 0; e < made.size(); ++e) {
            const Moments m = moments(numbers(made[e]));
            EXPECT_NEAR(m.mean, c.mean, c.margin);
            EXPECT_NEAR(m.deviation, c.deviation, c.margin);
            EXPECT_LT(std::fabs(correlation(numbers(made[e]), numbers(other[e]))), c.likeness) << "seeds";
            if (e == 0) continue;
            EXPECT_LT(std::fabs(correlation(numbers(made[e]), numbers(made[0]))), 0.04) << "elements";
        }
    }
    // White noise: even numbers of 12 bits; rows, frames, elements and neighbours have nothing in common.
    the_frame->display_dims = {0, 0, 0, 0, n, 1000, 0, 0};
    const auto white = [&](int row, float frame) {
        eval_block_row = row;
        the_frame->time_globals.frame = frame;
        return call(pixel_fun_of("static3"), 3, {}, n);
    };
    const std::vector<Samples> here = white(10, 3), below = white(9, 3), next = white(10, 4);
    for (size_t e = 0; e < 3; ++e) {
        const Numbers v = numbers(here[e]);
        EXPECT_NEAR(moments(v).mean, 2047.5, 40);
        EXPECT_NEAR(moments(v).deviation, 1182, 40);
        Numbers beside(v.begin() + 1, v.end());
        beside.push_back(v[0]);
        EXPECT_LT(std::fabs(correlation(v, numbers(below[e]))), 0.03) << "rows " << e;
        EXPECT_LT(std::fabs(correlation(v, numbers(next[e]))), 0.03) << "frames " << e;
        EXPECT_LT(std::fabs(correlation(v, beside)), 0.03) << "neighbours " << e;
        EXPECT_LT(std::fabs(correlation(v, numbers(here[(e + 1) % 3]))), 0.03) << "elements " << e;
    }
    the_frame->display_dims = {};
    the_frame->time_globals = {};
    eval_block_row = 0;
}

// Where bytes can be permuted and where not: over the table's end, and over that of all numbers.
TEST(WhiteNoise, EveryWayIsTheHash) {
    for (const bool wanted : {true, false}) {
        static_bytes_wanted = wanted;
        velloran_tests::for_each_row_target([&](int64_t) {
            for (const uint32_t first : {0u, 1u, 200u, 255u, 256u, 0x12345678u, 0xffffff80u, 0xffffffffu, 0x00ffffc1u})
                for (const int n : {1, 15, 16, 17, 63, 64, 65, 200, 769}) {
                    std::vector<int32_t> line(static_cast<size_t>(n) + 1, -7);
                    int32_t* const lines[] = {line.data()};
                    white_rows().static1(first, n, lines);
                    for (uint32_t i = 0; i < static_cast<uint32_t>(n); ++i)
                        ASSERT_EQ(line[i], static_cast<int>(bit_hash(first + i) & 0xfff)) << first << " " << n;
                    ASSERT_EQ(line.back(), -7) << first << " " << n;
                }
        });
    }
    static_bytes_wanted = true;
}
