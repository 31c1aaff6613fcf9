// What holds for every pixel function: all instruction sets give the plain one's bits, in place is as beside, a line in
// two pieces is as one, constants are as lines of the same value, and no number whatever traps.
#include "testing/pixel_call.h"
#include "testing/row_targets.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr Range ranges[] = {Range::any, Range::picture, Range::small};

// All patterns of constants for up to four arguments; for more, the ones that differ in code.
std::vector<unsigned> patterns(int args) {
    const unsigned all = (1u << args) - 1u;
    std::vector<unsigned> list;
    if (args <= 4) {
        for (unsigned p = 0; p <= all; ++p) list.push_back(p);
    } else {
        list = {0, 1, all & ~1u, all & ~2u, all & ~5u, all};
    }
    return list;
}

template <class Body>
void for_each_call(unsigned seed, int n, Body body) {
    std::mt19937 rng(seed);
    for (const PixelRow& row : pixel_row_list())
        for_each_signature(row.name, [&](int result, const std::vector<int>& elnums, int eval_args) {
            const velloran::NodeFun* const info = velloran::find_node_fun(row.name);
            for (const unsigned pattern : patterns(static_cast<int>(elnums.size())))
                for (const Range range : ranges) {
                    SCOPED_TRACE("constants " + std::to_string(pattern) + " n " + std::to_string(n));
                    std::vector<ArgValue> args;
                    for (size_t a = 0; a < elnums.size(); ++a) {
                        const bool held = info->params_hold && info->arg_restrictions[a] == 16;
                        args.push_back(draw_arg(rng, elnums[a], held || ((pattern >> a) & 1) != 0, n, range));
                        args.back().held = held;
                    }
                    body(row.fun, result, args, eval_args);
                    if (testing::Test::HasFailure()) return;
                }
        });
}

}  // namespace

TEST(PixelTargets, EveryTargetMatchesPlain) {
    for (const int n : {1, 2, 3, 5, 7, 8, 13, 15, 16, 17, 31, 33})
        for_each_call(static_cast<unsigned>(n), n, [&](PixelFun fun, int result, const auto& args, int eval_args) {
            const auto run = [&] { return call(fun, result, args, n, -1, eval_args); };
            const std::vector<Samples> want = on_plain_target(run);
            for_each_row_target([&](int64_t) { ASSERT_EQ(want, run()); });
        });
}

TEST(PixelTargets, LongLinesMatchPlain) {
    for_each_call(77, 1000, [&](PixelFun fun, int result, const auto& args, int eval_args) {
        const std::vector<Samples> got = call(fun, result, args, 1000, -1, eval_args);
        const auto run = [&] { return call(fun, result, args, 1000, -1, eval_args); };
        ASSERT_EQ(on_plain_target(run), got);
    });
}

TEST(PixelTargets, InPlaceIsAsBeside) {
    for_each_call(5, 21, [](PixelFun fun, int result, const auto& args, int eval_args) {
        const std::vector<Samples> want = call(fun, result, args, 21, -1, eval_args);
        for (int a = 0; a < eval_args; ++a) {
            if (args[static_cast<size_t>(a)].constant) continue;
            SCOPED_TRACE("in place of argument " + std::to_string(a));
            ASSERT_EQ(want, call(fun, result, args, 21, a, eval_args));
        }
    });
}

TEST(PixelTargets, PiecesAndConstantsAreAsTheWholeLine) {
    constexpr int n = 19, first = 6;
    for_each_call(9, n, [](PixelFun fun, int result, const auto& args, int eval_args) {
        const std::vector<Samples> want = call(fun, result, args, n, -1, eval_args);
        std::vector<ArgValue> head = args, tail = args, spread = args;
        for (size_t a = 0; a < args.size(); ++a)
            for (size_t e = 0; e < args[a].lines.size(); ++e) {
                if (args[a].constant) {
                    spread[a].lines[e].assign(n, args[a].lines[e][0]);
                } else {
                    head[a].lines[e].resize(first);
                    tail[a].lines[e].erase(tail[a].lines[e].begin(), tail[a].lines[e].begin() + first);
                }
                spread[a].constant = args[a].held;
            }
        std::vector<Samples> got = call(fun, result, head, first, -1, eval_args);
        const std::vector<Samples> rest = call(fun, result, tail, n - first, -1, eval_args);
        for (size_t e = 0; e < got.size(); ++e) got[e].insert(got[e].end(), rest[e].begin(), rest[e].end());
        ASSERT_EQ(want, got) << "in two pieces";
        ASSERT_EQ(want, call(fun, result, spread, n, -1, eval_args)) << "constants as lines";
    });
}
