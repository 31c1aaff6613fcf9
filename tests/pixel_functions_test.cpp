// Rows of floats, vectors and colour against the exact functions in double: within one step of 1/4096, and another for
// the truncation.
#include "testing/pixel_call.h"

#include <cmath>
#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr double pi = 3.14159265358979323846;

using V = std::array<double, 4>;
// Arguments in units of 1.0 with their element counts; the result in units of 1.0.
struct Operands {
    std::vector<V> v;
    std::vector<int> n;
};
struct Case {
    const char* name;
    int32_t low, high;  // samples
    double steps;       // tolerance in 1/4096
    std::function<V(const Operands&)> want;
    bool circular = false;  // the first element is an angle in turns
};

double luma(const V& c) { return 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2]; }
double turn(double a) { return a - std::floor(a); }
V each(const Operands& o, double (*f)(double, double)) {
    V r{};
    for (size_t e = 0; e < 4; ++e) r[e] = f(o.v[0][e], o.v.size() > 1 ? o.v[1][e] : 0.0);
    return r;
}
double dot(const V& a, const V& b, int n) {
    double sum = 0;
    for (size_t e = 0; e < static_cast<size_t>(n); ++e) sum += a[e] * b[e];
    return sum;
}
V minus(const V& a, const V& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2], a[3] - b[3]}; }
V fraction(const V& a, double length) { return length > 0 ? V{a[0] / length, a[1] / length, a[2] / length} : V{}; }

struct Hsv {
    double h, s, v;
};
// The hexcone by its six cases.
Hsv to_hsv(const V& c) {
    const double high = std::max({c[0], c[1], c[2]}), low = std::min({c[0], c[1], c[2]}), chroma = high - low;
    double h = 0;
    if (chroma > 0) {
        if (high == c[0])
            h = (c[1] - c[2]) / chroma;
        else if (high == c[1])
            h = 2 + (c[2] - c[0]) / chroma;
        else
            h = 4 + (c[0] - c[1]) / chroma;
    }
    return {turn(h / 6), high > 0 ? chroma / high : 0, high};
}
V from_hsv(const Hsv& c) {
    const double h = turn(c.h) * 6;
    const int i = static_cast<int>(h);
    const double f = h - i, p = c.v * (1 - c.s), q = c.v * (1 - c.s * f), t = c.v * (1 - c.s * (1 - f));
    const V table[6] = {{c.v, t, p}, {q, c.v, p}, {p, c.v, t}, {p, q, c.v}, {t, p, c.v}, {c.v, p, q}};
    return table[i];
}
V hue_shift(const Operands& o) {
    Hsv c = to_hsv(o.v[0]);
    c.h += o.v[1][0];
    V r = from_hsv(c);
    r[3] = o.v[0][3];
    return r;
}

const Case cases[] = {
    {"sin", -400000, 400000, 1,
     [](const Operands& o) { return each(o, [](double a, double) { return std::sin(a); }); }},
    {"cos", -400000, 400000, 1,
     [](const Operands& o) { return each(o, [](double a, double) { return std::cos(a); }); }},
    {"nsin", INT32_MIN, INT32_MAX, 1,
     [](const Operands& o) { return each(o, [](double a, double) { return std::sin(2 * pi * turn(a)); }); }},
    {"ncos", INT32_MIN, INT32_MAX, 1,
     [](const Operands& o) { return each(o, [](double a, double) { return std::cos(2 * pi * turn(a)); }); }},
    {"sqrt", -4096, 1 << 24, 1,
     [](const Operands& o) { return each(o, [](double a, double) { return std::sqrt(std::max(a, 0.0)); }); }},
    {"log", 1, 1 << 20, 1,
     [](const Operands& o) {
         // Near base 1 the result has no bound; the second operand is moved away from it by the caller.
         return each(o, [](double a, double b) { return b == 1 ? 0 : std::log(a) / std::log(b); });
     }},
    {"expt", -16384, 16384, 1,
     [](const Operands& o) {
         return each(o, [](double a, double b) { return std::pow(std::fabs(a), std::fabs(b)); });
     }},
    {"atan", -40960, 40960, 1,
     [](const Operands& o) { return each(o, [](double a, double b) { return std::atan2(a, b) / (2 * pi); }); }},
    {"log_for_mipmap", -1 << 20, 1 << 20, 1,
     [](const Operands& o) {
         const auto level = [](double d) { return std::log2(std::max(d, 1.0 / 4096)); };
         const V& v = o.v[0];
         if (o.n[0] == 4) return V{level(std::hypot(v[0], v[1])), level(std::hypot(v[2], v[3]))};
         return V{level(std::fabs(v[0])), level(std::fabs(v[1]))};
     }},
    {"log_for_mipmap_rotate", -16384, 16384, 1,
     [](const Operands& o) {
         const double a = 2 * pi * o.v[0][0];
         const double e = std::fabs(o.v[1][0]) * (std::fabs(std::cos(a)) + std::fabs(std::sin(a)));
         const double level = std::log2(std::max(e, 1.0 / 4096));
         return V{level, level};
     }},
    {"mag_squared", -8192, 8192, 1, [](const Operands& o) { return V{dot(o.v[0], o.v[0], o.n[0])}; }},
    {"mag", -65536, 65536, 1, [](const Operands& o) { return V{std::sqrt(dot(o.v[0], o.v[0], o.n[0]))}; }},
    {"normalize", -65536, 65536, 1,
     [](const Operands& o) { return fraction(o.v[0], std::sqrt(dot(o.v[0], o.v[0], o.n[0]))); }},
    {"dot", -8192, 8192, 1, [](const Operands& o) { return V{dot(o.v[0], o.v[1], std::max(o.n[0], o.n[1]))}; }},
    {"cross", -8192, 8192, 1,
     [](const Operands& o) {
         const V &a = o.v[0], &b = o.v[1];
         if (o.n[0] == 2) return V{a[0] * b[1] - a[1] * b[0]};
         return V{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
     }},
    {"dist", -8192, 8192, 1,
     [](const Operands& o) {
         const V d = minus(o.v[0], o.v[1]);
         return V{std::sqrt(dot(d, d, o.n[0]))};
     }},
    {"dist_squared", -8192, 8192, 1,
     [](const Operands& o) {
         const V d = minus(o.v[0], o.v[1]);
         return V{dot(d, d, o.n[0])};
     }},
    {"direction", -8192, 8192, 1,
     [](const Operands& o) { return V{turn(std::atan2(o.v[0][1], o.v[0][0]) / (2 * pi) + o.v[1][0])}; }, true},
    {"xy_to_polar", -8192, 8192, 1,
     [](const Operands& o) {
         return V{turn(std::atan2(o.v[0][1], o.v[0][0]) / (2 * pi) + o.v[1][0]), std::hypot(o.v[0][0], o.v[0][1])};
     },
     true},
    {"polar_to_xy", -16384, 16384, 1,
     [](const Operands& o) {
         const double a = 2 * pi * o.v[0][0];
         return V{o.v[0][1] * std::cos(a), o.v[0][1] * std::sin(a)};
     }},
    {"monochrome", -8192, 8192, 1, [](const Operands& o) { return V{o.n[0] < 3 ? o.v[0][0] : luma(o.v[0])}; }},
    {"monochrome_a", -8192, 8192, 1,
     [](const Operands& o) {
         return V{o.n[0] < 3 ? o.v[0][0] : luma(o.v[0]), o.v[0][static_cast<size_t>(o.n[0] - 1)]};
     }},
    {"get_alpha", -8192, 8192, 0,
     [](const Operands& o) { return V{o.n[0] % 2 ? 1.0 : o.v[0][static_cast<size_t>(o.n[0] - 1)]}; }},
    {"get_alpha_or_luma", -8192, 8192, 1,
     [](const Operands& o) { return V{o.n[0] == 3 ? luma(o.v[0]) : o.v[0][static_cast<size_t>(o.n[0] - 1)]}; }},
    {"coerce_to_alpha", -8192, 8192, 1,
     [](const Operands& o) { return V{o.n[0] == 3 ? luma(o.v[0]) : o.v[0][static_cast<size_t>(o.n[0] - 1)]}; }},
    {"v3_to_v4", -8192, 8192, 1,
     [](const Operands& o) {
         V r = o.v[0];
         r[3] = o.n[1] == 3 ? luma(o.v[1]) : o.v[1][0];
         return r;
     }},
    {"alpha_from_rgb_max_v4", -8192, 8192, 1,
     [](const Operands& o) {
         V r = o.v[0];
         const double high = o.n[0] == 1 ? r[0] : std::max({r[0], r[1], r[2]});
         r[3] = std::clamp(high * o.v[1][0], 0.0, 1.0);
         return r;
     }},
    {"rgb_to_hsv", 256, 8192, 1,
     [](const Operands& o) {
         const Hsv c = to_hsv(o.v[0]);
         return V{c.h, c.s, c.v};
     },
     true},
    {"hsv_to_rgb", 0, 8192, 1,
     [](const Operands& o) {
         return from_hsv({o.v[0][0], o.v[0][1], o.v[0][2]});
     }},
    {"hue_shift", 256, 8192, 1, [](const Operands& o) { return o.n[0] == 1 ? o.v[0] : hue_shift(o); }},
    {"hue_shift_preserve_luma", 256, 8192, 1,
     [](const Operands& o) {
         if (o.n[0] == 1) return o.v[0];
         V r = hue_shift(o);
         const double lost = luma(o.v[0]) - luma(r);
         for (size_t e = 0; e < 3; ++e) r[e] += lost;
         return r;
     }},
    {"sat_scale", -8192, 8192, 1,
     [](const Operands& o) {
         V r = o.v[0];
         if (o.n[0] < 3) return r;
         const double y = luma(r);
         for (size_t e = 0; e < 3; ++e) r[e] = y + (r[e] - y) * o.v[1][0];
         return r;
     }},
    {"posterize", -8192, 8192, 1,
     [](const Operands& o) {
         V r{};
         for (size_t e = 0; e < 4; ++e) {
             const double step = std::fabs(o.v[1][e]), smooth = std::max(o.v[2][e], 1.0 / 65536), phase = o.v[3][e];
             const double place = o.v[0][e] / step - phase, f = turn(place);
             r[e] = (std::floor(place) + std::clamp((f - 0.5) / smooth + 0.5, 0.0, 1.0) + phase) * step;
         }
         return r;
     }},
    {"rotate", -8192, 8192, 1,
     [](const Operands& o) {
         const double a = 2 * pi * o.v[1][0], c = std::cos(a), s = std::sin(a);
         const double x = o.v[0][0] - o.v[2][0], y = o.v[0][1] - o.v[2][1];
         return V{o.v[2][0] + x * c - y * s, o.v[2][1] + x * s + y * c};
     }},
    {"shear", -8192, 8192, 1,
     [](const Operands& o) {
         return V{o.v[0][0] + o.v[0][1] * o.v[1][0], o.v[0][1] + o.v[0][0] * o.v[1][1]};
     }},
    {"vortex", 100, 8192, 1,
     [](const Operands& o) {
         const double x = o.v[0][0] - o.v[2][0], y = o.v[0][1] - o.v[2][1];
         const double left = std::max(1 - std::hypot(x, y) / o.v[3][0], 0.0);
         const double a = 2 * pi * (o.v[4][0] + o.v[1][0] * left * left), c = std::cos(a), s = std::sin(a);
         return V{o.v[2][0] + x * c - y * s, o.v[2][1] + x * s + y * c};
     }},
    {"axis_rotate", -8192, 8192, 1,
     [](const Operands& o) {
         V p = o.v[0], k = o.v[1];
         if (o.n[0] == 2) p[2] = 0;
         if (o.n[1] == 2) k[2] = 0;
         const double length = std::sqrt(dot(k, k, 3));
         if (length == 0) return p;
         k = fraction(k, length);
         const double a = 2 * pi * o.v[2][0], c = std::cos(a), s = std::sin(a), along = dot(k, p, 3) * (1 - c);
         return V{p[0] * c + (k[1] * p[2] - k[2] * p[1]) * s + k[0] * along,
                  p[1] * c + (k[2] * p[0] - k[0] * p[2]) * s + k[1] * along,
                  p[2] * c + (k[0] * p[1] - k[1] * p[0]) * s + k[2] * along};
     }},
    {"spotlight", -8192, 8192, 2,
     [](const Operands& o) {
         const double length = std::sqrt(dot(o.v[0], o.v[0], 3) * dot(o.v[1], o.v[1], 3));
         if (length == 0) return V{};
         const auto cosine = [](double turns) { return std::cos(2 * pi * std::clamp(turns, 0.0, 0.5)); };
         const double inner = cosine(o.v[2][0]), outer = std::min(cosine(o.v[3][0]), inner);
         const double share = (dot(o.v[0], o.v[1], 3) / length - outer) / std::max(inner - outer, 1e-6);
         return V{share <= 0 ? 0 : std::pow(std::min(share, 1.0), std::fabs(o.v[4][0]))};
     }},
};

}  // namespace

TEST(PixelFunctions, MatchTheExactFunctions) {
    std::mt19937 rng(11);
    for (const Case& c : cases)
        for_each_signature(c.name, [&](int result, const std::vector<int>& elnums, int eval_args) {
            constexpr int n = 400;
            for (unsigned pattern = 0; pattern<1u << eval_args; pattern += eval_args> 3 ? 5 : 1) {
                std::vector<ArgValue> args;
                for (size_t a = 0; a < elnums.size(); ++a) {
                    ArgValue arg = draw_arg(rng, elnums[a], ((pattern >> a) & 1) != 0, n, Range::picture);
                    std::uniform_int_distribution<int32_t> any(c.low, c.high);
                    const std::string name = c.name;
                    for (Samples& line : arg.lines)
                        for (int32_t& v : line) {
                            v = any(rng);
                            if (name == "log" && a == 1) v = 2048 + 8192 * (v & 1) + (v & 1023);
                            if (name == "expt" && a == 1) v = v & 8191;
                            if (name == "posterize" && a >= 1) v = 512 + (v & 2047);
                            if (name == "spotlight" && a == 2) v = 100 + (v & 255);
                            if (name == "spotlight" && a == 3) v = 700 + (v & 255);
                            if (name == "spotlight" && a == 4) v = v & 8191;
                        }
                    args.push_back(arg);
                }
                const std::vector<Samples> got = call(pixel_fun_of(c.name), result, args, n, -1, eval_args);
                for (int i = 0; i < n; ++i) {
                    Operands o;
                    for (const ArgValue& arg : args) {
                        V v;
                        for (int e = 0; e < 4; ++e)
                            v[static_cast<size_t>(e)] = e == 3 && arg.elnum() == 3 ? 1.0 : arg.at(e, i) / 4096.0;
                        o.v.push_back(v);
                        o.n.push_back(arg.elnum());
                    }
                    const V want = c.want(o);
                    for (int e = 0; e < result; ++e) {
                        double error =
                            got[static_cast<size_t>(e)][static_cast<size_t>(i)] - want[static_cast<size_t>(e)] * 4096;
                        if (c.circular && e == 0) error -= 4096 * std::round(error / 4096);
                        // Half way between two levels either is right.
                        if (std::string(c.name) == "posterize" && o.v[2][static_cast<size_t>(e)] < 0.01) continue;
                        ASSERT_LE(std::fabs(error), c.steps + 0.01)
                            << "element " << e << " of " << o.v[0][0] << " " << o.v[0][1] << " " << o.v[0][2]
                            << (o.v.size() > 1 ? " and " + std::to_string(o.v[1][0]) : "") << " want "
                            << want[static_cast<size_t>(e)] * 4096 << " constants " << pattern;
                    }
                }
            }
        });
}

TEST(PixelFunctions, ExactWhereItIsSeen) {
    struct Known {
        const char* name;
        std::vector<int32_t> args;
        int32_t want;
    };
    const Known known[] = {
        {"nsin", {1024}, 4096},
        {"nsin", {2048}, 0},
        {"nsin", {3072}, -4096},
        {"ncos", {0}, 4096},
        {"ncos", {-4096}, 4096},
        {"ncos", {2048}, -4096},
        {"sin", {0}, 0},
        {"cos", {0}, 4096},
        {"sqrt", {-5}, 0},
        {"sqrt", {16384}, 8192},
        {"expt", {0, 0}, 4096},
        {"expt", {0, 4096}, 0},
        {"expt", {0, -1}, INT32_MAX},
        {"expt", {-8192, 8192}, 16384},
        {"log", {32768, 8192}, 12288},
        {"log", {5, 4096}, 0},
        {"log", {0, 8192}, -49152},
        {"atan", {0, 0}, 0},
        {"atan", {4096, 0}, 1024},
        {"atan", {0, -4096}, 2048},
        {"log_for_mipmap", {0}, -49152},
        {"log_for_mipmap", {-8192}, 4096},
        {"slow_in_out", {2048, 4096, 4096, 0}, 2048},
        {"slow_in_out", {1024, 0, 0, 0}, 1024},
        {"slow_in_out", {1024, 4096, 4096, 0}, 640},
        {"slow_in_out", {0, 4096, 0, 4096}, 0},
        {"slow_in_out", {2048, 4096, 4096, 4096}, 6144},
        {"slow_in_out", {9000, 0, 0, 0}, 4096},
    };
    for (const Known& k : known) {
        std::vector<ArgValue> args;
        for (const int32_t v : k.args) args.push_back({false, {{v}}});
        EXPECT_EQ(call(pixel_fun_of(k.name), 1, args, 1)[0][0], k.want) << k.name << " " << k.args[0];
    }
}

TEST(PixelFunctions, ColoursComeBack) {
    std::mt19937 rng(3);
    constexpr int n = 4000;
    ArgValue color = draw_arg(rng, 3, false, n, Range::picture);
    for (Samples& line : color.lines)
        for (int32_t& v : line) v = std::abs(v) & 4095;
    const ArgValue hsv{false, call(pixel_fun_of("rgb_to_hsv"), 3, {color}, n)};
    const std::vector<Samples> back = call(pixel_fun_of("hsv_to_rgb"), 3, {hsv}, n);
    // A step of hue is six steps of colour.
    for (size_t e = 0; e < 3; ++e)
        for (size_t i = 0; i < n; ++i) ASSERT_NEAR(back[e][i], color.lines[e][i], 8);
    // Greys have no hue to turn and no saturation to lose.
    const ArgValue grey{false, {color.lines[0], color.lines[0], color.lines[0]}};
    const ArgValue amount{true, {{1234}}};
    for (const char* name : {"hue_shift", "hue_shift_preserve_luma", "sat_scale"}) {
        const std::vector<Samples> same = call(pixel_fun_of(name), 3, {grey, amount}, n);
        for (size_t e = 0; e < 3; ++e) ASSERT_EQ(same[e], grey.lines[e]) << name;
    }
    ASSERT_EQ(call(pixel_fun_of("monochrome"), 1, {grey}, n)[0], grey.lines[0]);
    const ArgValue polar{
        false, call(pixel_fun_of("xy_to_polar"), 2, {{false, {color.lines[0], color.lines[1]}}, {true, {{0}}}}, n)};
    const std::vector<Samples> xy = call(pixel_fun_of("polar_to_xy"), 2, {polar}, n);
    // A step of angle is up to 2 pi steps along the circle, here of radius up to 1.42.
    for (size_t e = 0; e < 2; ++e)
        for (size_t i = 0; i < n; ++i) ASSERT_NEAR(xy[e][i], color.lines[e][i], 11);
}

TEST(PixelFunctions, Coercions) {
    struct Coercion {
        const char* name;
        int result;
        std::vector<std::vector<int32_t>> args;
        std::vector<int32_t> want;
    };
    const Coercion table[] = {
        {"coerce_to_v3", 3, {{7}}, {7, 7, 7}},
        {"coerce_to_v3", 3, {{7, 9}}, {7, 7, 7}},
        {"coerce_to_v3", 3, {{1, 2, 3, 4}}, {1, 2, 3}},
        {"coerce_up_to_v3", 4, {{1, 2, 3, 4}}, {1, 2, 3, 4}},
        {"coerce_to_v4", 4, {{1, 2, 3}}, {1, 2, 3, 4096}},
        {"coerce_to_v4", 4, {{7}}, {7, 7, 7, 7}},
        {"coerce_up", 4, {{7}, {0, 0, 0, 0}}, {7, 7, 7, 7}},
        {"coerce_up", 4, {{7, 9}, {0, 0, 0, 0}}, {7, 7, 7, 9}},
        {"coerce_up", 2, {{7, 9}, {0}}, {7, 9}},
        {"coerce_up_a1", 4, {{7}, {0, 0, 0, 0}}, {7, 7, 7, 4096}},
        {"coerce_up_a1", 2, {{7}, {0, 0}}, {7, 4096}},
        {"coerce_up_a1", 4, {{1, 2, 3}, {0, 0, 0, 0}}, {1, 2, 3, 4096}},
        {"coerce_to", 1, {{7, 9}, {0}}, {7}},
        {"coerce_to", 3, {{1, 2, 3, 4}, {0, 0, 0}}, {1, 2, 3}},
        {"v3_to_v4_if4", 4, {{1, 2, 3}, {9}, {0, 0, 0, 0}}, {1, 2, 3, 9}},
        {"v3_to_v4_if4", 3, {{1, 2, 3}, {9}, {0, 0, 0}}, {1, 2, 3}},
        {"v3_to_v4_if4", 2, {{1}, {9}, {0, 0}}, {1, 9}},
        {"v3_to_v4_if4", 1, {{1}, {9}, {0}}, {1}},
        {"v3_to_v4_if4_a", 1, {{1}, {9}, {0}}, {9}},
        {"v3_to_v4_if4_a", 4, {{1, 2, 3, 4}, {9}, {0, 0, 0, 0}}, {1, 2, 3, 9}},
        {"alpha_from_rgb_max", 4, {{100, 300, 200}, {8192}, {0, 0, 0, 0}}, {100, 300, 200, 600}},
        {"alpha_from_rgb_max", 3, {{100, 300, 200, 5}, {8192}, {0, 0, 0}}, {100, 300, 200}},
    };
    for (const Coercion& c : table) {
        std::vector<ArgValue> args;
        for (const auto& values : c.args) {
            ArgValue arg;
            for (const int32_t v : values) arg.lines.push_back({v});
            args.push_back(arg);
        }
        const int eval_args = args.size() > 1 ? static_cast<int>(args.size()) - 1 : 1;
        const std::vector<Samples> got = call(pixel_fun_of(c.name), c.result, args, 1, -1, eval_args);
        for (size_t e = 0; e < c.want.size(); ++e) EXPECT_EQ(got[e][0], c.want[e]) << c.name << " element " << e;
    }
}
