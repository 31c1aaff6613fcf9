// For tests of pixel functions: builds the node of a call by hand, runs it on lines of samples with poisoned guards
// around them, and hands the result's lines back. Also the values that break things.
#pragma once

#include "functions/function_table.h"
#include "genotype/node_fun_table.h"
#include "records/node.h"
#include "testing/combo_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>
#include <vector>

namespace velloran_tests {

using velloran::Node;
using velloran::PixelFun;

using Samples = std::vector<int32_t>;

struct ArgValue {
    bool constant = false;
    std::vector<Samples> lines;  // one for each element; of one sample if constant
    bool held = false;           // constant in any call: the function reads it once a frame
    int elnum() const { return static_cast<int>(lines.size()); }
    // Element e of sample i; the last element repeats.
    int32_t at(int e, int i) const {
        const Samples& line = lines[static_cast<size_t>(std::min(e, elnum() - 1))];
        return line[constant ? 0 : static_cast<size_t>(i)];
    }
};

constexpr int32_t poison = 0x5a5a5a5a;
constexpr int guard = 8;

// Runs fun over n samples. in_place: the argument whose lines are the result's, -1 none.
inline std::vector<Samples> call(PixelFun fun, int elnum, std::vector<ArgValue> args, int n, int in_place = -1,
                                 int eval_args = -1) {
    Node node{};
    std::vector<Node> arg_nodes(args.size());
    node.type = velloran::node_function;
    node.elnum = static_cast<int8_t>(elnum);
    node.arg_number = static_cast<int8_t>(args.size());
    node.eval_arg_number = static_cast<int8_t>(eval_args < 0 ? static_cast<int>(args.size()) : eval_args);
    std::vector<Samples> out(static_cast<size_t>(elnum), Samples(static_cast<size_t>(n + 2 * guard), poison));
    for (int e = 0; e < elnum; ++e) node.lines[e] = out[static_cast<size_t>(e)].data() + guard;
    for (size_t a = 0; a < args.size(); ++a) {
        Node& arg = arg_nodes[a];
        arg.elnum = static_cast<int8_t>(args[a].elnum());
        for (int e = 0; e < arg.elnum; ++e) {
            Samples& line = args[a].lines[static_cast<size_t>(e)];
            if (args[a].constant) {
                arg.flags |= velloran::node_constant_p;
                arg.vals[e] = line[0];
                arg.lines[e] = &arg.vals[e];
            } else if (static_cast<int>(a) == in_place && e < elnum) {
                std::copy(line.begin(), line.end(), node.lines[e]);
                arg.lines[e] = node.lines[e];
            } else {
                arg.lines[e] = line.data();
            }
        }
        node.args[a] = &arg;
        node.arg_lines[a] = arg.lines;
        node.arg_vals[a] = arg.vals;
    }
    velloran::n_pixels = n;
    fun(&node);
    for (Samples& line : out) {
        for (int i = 0; i < guard; ++i) {
            EXPECT_EQ(line[static_cast<size_t>(i)], poison) << "written before the line";
            EXPECT_EQ(line[line.size() - 1 - static_cast<size_t>(i)], poison) << "written behind the line";
        }
        line.assign(line.begin() + guard, line.end() - guard);
    }
    return out;
}

enum class Range { any, picture, small };

// any: the whole of 32 bits, crowded at its edges and at those of samples. picture: -4 to 4. small: -1.5 to 1.5.
inline int32_t draw(std::mt19937& rng, Range range) {
    static constexpr int32_t edges[] = {0,    1,    -1,   2,     2047, 2048,  2049, 4094,
                                        4095, 4096, 4097, -4096, 8192, -8192, 65536};
    static constexpr int32_t extremes[] = {INT32_MIN, INT32_MIN + 1, INT32_MAX, INT32_MAX - 1, 1 << 30, -(1 << 30)};
    const unsigned kind = rng() % 8;
    if (range == Range::any) {
        if (kind == 0) return extremes[rng() % std::size(extremes)];
        if (kind == 1) return static_cast<int32_t>(rng());
    }
    if (kind < 4) {
        const int32_t value = edges[rng() % std::size(edges)];
        return range == Range::any ? value : std::clamp(value, -6144, 6144);
    }
    const int32_t limit = range == Range::small ? 6144 : 16384;
    return static_cast<int32_t>(rng() % static_cast<unsigned>(2 * limit)) - limit;
}

inline ArgValue draw_arg(std::mt19937& rng, int elnum, bool constant, int n, Range range) {
    ArgValue arg{constant,
                 std::vector<Samples>(static_cast<size_t>(elnum), Samples(constant ? 1u : static_cast<size_t>(n)))};
    for (Samples& line : arg.lines)
        for (int32_t& value : line) value = draw(rng, range);
    return arg;
}

struct PixelRow {
    const char* name;
    PixelFun fun;
};

// The pixel functions that have code, but for the queries and what is new in each frame: those ask of the frame and not
// of their arguments.
inline std::vector<PixelRow> pixel_row_list() {
    velloran::fill_node_fun_tables();
    std::vector<PixelRow> list;
    for (int i = 0; i < velloran::node_fun_number; ++i) {
        const velloran::NodeFun& fun = velloran::node_funs[i];
        if (fun.category == velloran::category_query || fun.image_fun_p || !fun.pixel_funs[0]) continue;
        if (fun.fun_flags & velloran::fun_changes_each_frame) continue;
        list.push_back({fun.name, fun.pixel_funs[0]});
    }
    return list;
}
inline PixelFun pixel_fun_of(const char* name) {
    velloran::fill_node_fun_tables();
    const velloran::NodeFun* fun = velloran::find_node_fun(name);
    return fun ? fun->pixel_funs[0] : nullptr;
}

// body(return elnum, argument elnums) for each signature of a row of the function table.
template <class Body>
void for_each_signature(const char* name, Body body) {
    velloran::fill_node_fun_tables();
    const velloran::NodeFun* fun = velloran::find_node_fun(name);
    ASSERT_NE(fun, nullptr) << name;
    for (int c = 0; c < fun->arg_type_combo_number; ++c) {
        std::vector<int> elnums;
        for (int a = 0; a < fun->arg_number; ++a)
            elnums.push_back(velloran::combo_arg_elnum(fun->arg_type_combos[c], a));
        SCOPED_TRACE(std::string(name) + " " + combo_text(*fun, c));
        const bool last = (fun->def_flags & velloran::def_last_arg_type_only) != 0;
        body(velloran::combo_return_elnum(fun->arg_type_combos[c]), elnums, fun->arg_number - (last ? 1 : 0));
    }
}

}  // namespace velloran_tests
