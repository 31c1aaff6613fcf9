// Rows of integers against plain arithmetic: element by element, every signature, every pattern of constants.
#include "testing/pixel_call.h"

#include <functional>

using namespace velloran;
using namespace velloran_tests;

namespace {

// 64 bits to 32 as the machine's own arithmetic wraps.
int32_t wrap(int64_t v) { return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v))); }
int32_t mul(int64_t a, int64_t b) { return wrap(a * b) >> 12; }
int32_t hold(int64_t v) { return static_cast<int32_t>(std::clamp<int64_t>(v, INT32_MIN, INT32_MAX)); }
int32_t mod(int64_t a, int64_t limit) {
    if (limit == 0) return 0;
    const int64_t m = a % limit;
    return static_cast<int32_t>(m < 0 ? m + std::abs(limit) : m);
}
int32_t bounce(int64_t a, int64_t b) {
    const int64_t limit = std::abs(b);
    if (limit == 0) return 0;
    const int64_t m = ((a % (2 * limit)) + 2 * limit) % (2 * limit);
    return hold(m <= limit ? m : 2 * limit - m);
}
int32_t round_down(int64_t a, int64_t step) {
    if (step == 0) return static_cast<int32_t>(a);
    const int64_t whole = a / step * step;
    return wrap(a < 0 ? whole - std::abs(step) : whole);
}
int32_t screen(int64_t a, int64_t b) { return wrap(a + mul(wrap(4096 - a), b)); }
int32_t interp(int64_t a, int64_t b, int64_t t) { return wrap(a + mul(wrap(b - a), t)); }
int32_t comp(int64_t back, int64_t front, int64_t matte) {
    if (matte < 1) return wrap(front + back);
    return matte >= 4095 ? static_cast<int32_t>(front) : wrap(front + mul(wrap(4096 - matte), back));
}
int64_t clip1(int64_t v) { return std::clamp<int64_t>(v, 0, 4096); }

using Element = std::function<int32_t(const int64_t*)>;
struct Case {
    const char* name;
    Element value;
};

// Element e of an argument of k elements, as arithmetic sees it.
int64_t operand(const ArgValue& arg, int e, int i) { return e == 3 && arg.elnum() == 3 ? 4096 : arg.at(e, i); }

const Case element_cases[] = {
    {"abs", [](const int64_t* v) { return wrap(std::abs(v[0])); }},
    {"negate", [](const int64_t* v) { return wrap(-v[0]); }},
    {"one_minus", [](const int64_t* v) { return wrap(4096 - v[0]); }},
    {"+", [](const int64_t* v) { return wrap(v[0] + v[1]); }},
    {"-", [](const int64_t* v) { return wrap(v[0] - v[1]); }},
    {"*", [](const int64_t* v) { return mul(v[0], v[1]); }},
    {"*+", [](const int64_t* v) { return wrap(int64_t{mul(v[0], v[1])} + v[2]); }},
    {"/", [](const int64_t* v) { return v[1] == 0 ? 0 : hold(v[0] * 4096 / v[1]); }},
    {"diff", [](const int64_t* v) { return wrap(std::abs(int64_t{wrap(v[0] - v[1])})); }},
    {"mod", [](const int64_t* v) { return mod(v[0], v[1]); }},
    {"bounce", [](const int64_t* v) { return bounce(v[0], v[1]); }},
    {"round", [](const int64_t* v) { return round_down(v[0], v[1]); }},
    {"min", [](const int64_t* v) { return wrap(std::min(v[0], v[1])); }},
    {"max", [](const int64_t* v) { return wrap(std::max(v[0], v[1])); }},
    {"xor", [](const int64_t* v) { return wrap(v[0] ^ v[1]); }},
    {"and", [](const int64_t* v) { return wrap(v[0] & v[1]); }},
    {"or", [](const int64_t* v) { return wrap(v[0] | v[1]); }},
    {"screen", [](const int64_t* v) { return screen(v[0], v[1]); }},
    {"screen_clamp", [](const int64_t* v) { return screen(clip1(v[0]), clip1(v[1])); }},
    {"overlay",
     [](const int64_t* v) {
         if (v[1] <= 2048) return wrap(int64_t{mul(v[1], v[0])} * 2);
         return wrap(int64_t{wrap(v[1] + mul(wrap(4096 - v[1]), v[0]))} * 2 - 4096);
     }},
    {"clamp", [](const int64_t* v) { return wrap(std::clamp(v[0], std::min(v[1], v[2]), std::max(v[1], v[2]))); }},
    {"interp", [](const int64_t* v) { return interp(v[0], v[1], v[2]); }},
    {"dissolve",
     [](const int64_t* v) { return v[2] <= 0      ? wrap(v[0])
                                   : v[2] >= 4095 ? wrap(v[1])
                                                  : interp(v[0], v[1], v[2]); }},
    {"comp_premult", [](const int64_t* v) { return comp(v[0], v[1], v[2]); }},
};

// Runs every signature and pattern of a row; want(args, result elnum, element, sample) is the expected sample.
template <class Want>
void check_row(const char* name, Want want, unsigned seed) {
    std::mt19937 rng(seed);
    for_each_signature(name, [&](int result, const std::vector<int>& elnums, int eval_args) {
        for (const int n : {1, 4, 17, 33, 1000})
            for (unsigned pattern = 0; pattern < 1u << elnums.size(); ++pattern)
                for (const Range range : {Range::any, Range::picture}) {
                    std::vector<ArgValue> args;
                    for (size_t a = 0; a < elnums.size(); ++a)
                        args.push_back(draw_arg(rng, elnums[a], ((pattern >> a) & 1) != 0, n, range));
                    const std::vector<Samples> got = call(pixel_fun_of(name), result, args, n, -1, eval_args);
                    for (int e = 0; e < result; ++e)
                        for (int i = 0; i < n; ++i)
                            ASSERT_EQ(got[static_cast<size_t>(e)][static_cast<size_t>(i)], want(args, result, e, i))
                                << "element " << e << " sample " << i << " constants " << pattern << " n " << n
                                << " of " << args[0].at(e, i) << " " << (args.size() > 1 ? args[1].at(e, i) : 0);
                }
    });
}

}  // namespace

TEST(PixelArithmetic, ElementsByFormula) {
    unsigned seed = 1;
    for (const Case& c : element_cases)
        check_row(
            c.name,
            [&](const std::vector<ArgValue>& args, int, int e, int i) {
                int64_t v[3] = {};
                for (size_t a = 0; a < args.size(); ++a) v[a] = operand(args[a], e, i);
                return c.value(v);
            },
            seed++);
}

TEST(PixelArithmetic, RgbRowsLeaveTheAlpha) {
    const Case cases[] = {{"add_rgb", [](const int64_t* v) { return wrap(v[0] + v[1]); }},
                          {"subtract_rgb", [](const int64_t* v) { return wrap(v[0] - v[1]); }},
                          {"scale_rgb", [](const int64_t* v) { return mul(v[0], v[1]); }}};
    for (const Case& c : cases)
        check_row(
            c.name,
            [&](const std::vector<ArgValue>& args, int result, int e, int i) {
                const int64_t v[2] = {args[0].at(e, i), args[1].at(e, i)};
                if (result % 2 == 1 || e != result - 1) return c.value(v);
                const ArgValue& owner = args[0].elnum() == 1 ? args[1] : args[0];
                return wrap(operand(owner, e, i));
            },
            50);
}

TEST(PixelArithmetic, Branches) {
    const auto branch = [](const ArgValue& arg, int e, int i) {
        return e == 3 && arg.elnum() < 4 ? 4096 : arg.at(e, i);
    };
    for (const char* name : {"if+", "if+_coerce"})
        check_row(
            name, [&](const auto& a, int, int e, int i) { return branch(a[0].at(e, i) > 0 ? a[1] : a[2], e, i); }, 60);
    for (const char* name : {"if>", "if>_coerce"})
        check_row(
            name,
            [&](const auto& a, int, int e, int i) { return branch(a[0].at(e, i) > a[1].at(e, i) ? a[2] : a[3], e, i); },
            61);
    check_row(
        "if_eq",
        [&](const auto& a, int, int e, int i) { return branch(a[0].at(e, i) == a[1].at(e, i) ? a[2] : a[3], e, i); },
        62);
    check_row(
        "if_has_alpha", [](const auto& a, int, int e, int i) { return (a[0].elnum() % 2 == 0 ? a[1] : a[2]).at(e, i); },
        63);
}

TEST(PixelArithmetic, FrontOverBack) {
    check_row(
        "comp_rgba",
        [](const auto& a, int, int e, int i) {
            const int k = a[1].elnum();
            const int64_t matte = k == 4 ? a[1].at(3, i) : k == 1 ? a[1].at(0, i) : 4096;
            return comp(operand(a[0], e, i), operand(a[1], e, i), matte);
        },
        70);
    check_row(
        "comp_rgba1",
        [](const auto& a, int, int e, int i) {
            return a[1].elnum() < 4 ? a[1].at(e, i) : comp(operand(a[0], e, i), a[1].at(e, i), a[1].at(3, i));
        },
        71);
}

TEST(PixelArithmetic, ElementsOfVectors) {
    check_row(
        "element_of",
        [](const auto& a, int, int e, int i) {
            const int index = std::clamp(a[1].at(e, i) >> 12, 0, a[0].elnum() - 1);
            return a[0].at(index, i);
        },
        80);
    const auto fold = [](const ArgValue& arg, int i, auto op) {
        int32_t v = arg.at(0, i);
        for (int e = 1; e < arg.elnum(); ++e) v = op(v, arg.at(e, i));
        return v;
    };
    check_row(
        "max_element",
        [&](const auto& a, int, int, int i) {
            return fold(a[0], i, [](int32_t x, int32_t y) { return std::max(x, y); });
        },
        81);
    check_row(
        "min_element",
        [&](const auto& a, int, int, int i) {
            return fold(a[0], i, [](int32_t x, int32_t y) { return std::min(x, y); });
        },
        82);
    check_row(
        "ave_element",
        [&](const auto& a, int, int, int i) {
            const int64_t sum = fold(a[0], i, [](int32_t x, int32_t y) { return wrap(int64_t{x} + y); });
            const int n = a[0].elnum();
            return static_cast<int32_t>((sum >= 0 ? sum : sum - n + 1) / n);
        },
        83);
    check_row(
        "transpose", [](const auto& a, int, int e, int i) { return a[0].at(1 - e, i); }, 84);
    for (const char* name : {"v2", "v3", "v4"})
        check_row(
            name, [](const auto& a, int, int e, int i) { return a[static_cast<size_t>(e)].at(0, i); }, 85);
    for (const char* name : {"copy", "force_no_cache", "no_pass_vars", "remove_alpha"})
        check_row(
            name, [](const auto& a, int, int e, int i) { return a[0].at(e, i); }, 86);
}

TEST(PixelArithmetic, Hotspots) {
    check_row(
        "hotspots",
        [](const auto& a, int result, int e, int i) {
            if (result == 2 && e == 1) return a[0].at(1, i);
            int64_t threshold = a[1].at(e, i);
            // The threshold's luma, in single floats.
            if (result == 1 && a[1].elnum() == 3) {
                const auto real = [&](int k) { return static_cast<float>(a[1].at(k, i)) / 4096.0f; };
                const float luma = real(1) + 0.2126f * (real(0) - real(1)) + 0.0722f * (real(2) - real(1));
                threshold = hold(static_cast<int64_t>(luma * 4096.0f));
            }
            return a[0].at(e, i) > threshold ? wrap(a[0].at(e, i) - threshold) : 0;
        },
        90);
}

TEST(PixelArithmetic, Known) {
    struct Known {
        const char* name;
        std::vector<int32_t> args;
        int32_t want;
    };
    const Known known[] = {
        {"*", {8192, 8192}, 16384},
        {"*", {65536, 65536}, 0},  // 2^32 wraps
        {"screen", {1234, 4096}, 4096},
        {"screen", {-70000, 4096}, 4096},
        {"if+", {0, 1, 2}, 2},
        {"if+", {1, 1, 2}, 1},
        {"round", {-4096, 4096}, -8192},
        {"round", {-2048, 4096}, -4096},
        {"round", {6144, 4096}, 4096},
        {"bounce", {6144, 4096}, 2048},
        {"mod", {4096, 4096}, 0},
        {"mod", {-1, 4096}, 4095},
        {"mod", {INT32_MIN, -1}, 0},
        {"/", {INT32_MIN, -1}, INT32_MAX},
        {"/", {4096, 8192}, 2048},
        {"/", {4096, 0}, 0},
        {"dissolve", {0, 4096, 4095}, 4096},
        {"comp_premult", {4096, 1000, 0}, 5096},
        {"posterize", {4095, 1024, 0, 0}, 4096},
        {"posterize", {1300, 1024, 0, 0}, 1024},
        {"posterize", {1300, 1024, 4096, 700}, 1300},
        {"posterize", {1300, 0, 0, 0}, 1300},
    };
    for (const Known& k : known) {
        std::vector<ArgValue> args;
        for (const int32_t v : k.args) args.push_back({false, {{v}}});
        EXPECT_EQ(call(pixel_fun_of(k.name), 1, args, 1)[0][0], k.want) << k.name << " " << k.args[0];
    }
}
