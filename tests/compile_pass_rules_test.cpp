// Each pass-through rule by calls that fire each of its clauses, and calls that just miss.
#include "records/frame.h"
#include "testing/genotype_reading.h"
#include "testing/pixel_call.h"

using namespace velloran_tests;

namespace {

class PassRulesTest : public GenotypeTest {
protected:
    rinfo& working = the_frame->temp_raster_info;
    RenderInfo& frame = the_frame->render_info;

    void SetUp() override {
        GenotypeTest::SetUp();
        working = {};
        frame = {};
        frame.full_ren = {0, 0, 200, 100};  // half height 0.5
        the_frame->pixel_aspect_ratio = 1.0f;
    }
    void TearDown() override {
        frame = {};
        working = {};
        GenotypeTest::TearDown();
    }
    int passed(const std::string& call) {
        const GenotypePtr genotype = read_text(effect("dest = " + call));
        EXPECT_TRUE(genotype) << messages();
        if (!genotype) return -2;
        Node* node = genotype->nodes;
        return node->fun_info->pass_arg_fun(node);
    }
};

// "S" stands for the input, "V" for a value of one element that varies.
std::string written(std::string call) {
    for (size_t i = 0; i < call.size(); ++i) {
        const bool alone = !std::isalnum(static_cast<unsigned char>(call[i ? i - 1 : 0])) &&
                           !std::isalnum(static_cast<unsigned char>(call[i + 1])) && call[i + 1] != '_';
        if (call[i] == 'S' && alone) call.replace(i, 1, "Source"), i += 5;
        if (call[i] == 'V' && alone) call.replace(i, 1, "x");
    }
    return call;
}

const char* const stains = " 1 [1 1 1] [0 0 0] 0 0 ";

TEST_F(PassRulesTest, EveryRule) {
    const struct {
        std::string call;
        int passed;
    } rows[] = {
        {"(+ S 0)", 0},
        {"(+ 0 S)", 1},
        {"(+ S [0 0 0])", -1},  // padded with 1.0
        {"(+ S [0 0 0 0])", 0},
        {"(+ 0 0)", 0},
        {"(+ S 0.0001)", 0},  // rounds to nothing
        {"(+ S V)", -1},
        {"(- S 0)", 0},
        {"(- 0 S)", -1},
        {"(* 0 S)", 0},
        {"(* S 0)", 1},
        {"(* S 1)", 0},
        {"(* 1 S)", 1},
        {"(* S [1 1 1])", 0},
        {"(* S 0.5)", -1},
        {"(/ 0 S)", 0},
        {"(/ S 1)", 0},
        {"(expt S 2)", -1},
        {"(/ 1 S)", -1},
        {"(screen S 0)", 0},
        {"(screen 0 S)", 1},
        {"(screen S 1)", 1},
        {"(screen 1 S)", 0},
        {"(screen S 0.5)", -1},
        {"(*+ 0 S S)", 2},
        {"(*+ S 0 S)", 2},
        {"(*+ S 1 0)", 0},
        {"(*+ 1 S 0)", 1},
        {"(*+ S 1 0.5)", -1},
        {"(*+ S 2 0)", -1},
        {"(interp S 0.5 0)", 0},
        {"(interp S 0.5 1)", 1},
        {"(interp 0.5 0.5 V)", 0},
        {"(interp 0 1 V)", 2},
        {"(interp S 0.5 0.5)", -1},
        {"(interp 0 2 V)", -1},
        {"(dissolve S 0.5 -3)", 0},
        {"(dissolve S 0.5 3)", 1},
        {"(dissolve [0 1 1] [0 1 1] V)", 0},
        {"(dissolve S 0.5 0.999)", -1},
        {"(comp_rgba1 [1 1 1 1] S)", 1},
        {"(comp_rgba1 S [1 1 1 1])", -1},
        {"(if+ 1 S S)", 1},
        {"(if+ 0 S S)", 2},
        {"(if+ [1 -1 1] S S)", -1},
        {"(if+ V S S)", -1},
        {"(if> 2 1 S S)", 2},
        {"(if> 1 1 S S)", 3},
        {"(if> [2 0 2] [1 1 1] S S)", -1},
        {"(if> V 1 S S)", -1},
        {"(if_eq 1 1 S S)", 2},
        {"(if_eq 1 2 S S)", 3},
        {"(if_eq [1 2 3 4] [1 0 0 0] 1 1)", -1},
        {"(if_has_alpha [1 1 1 1] [1 1 1 1] S)", 1},
        {"(if_has_alpha S 1 V)", 2},
        {"(if_has_alpha V [1 1] V)", 2},
        {"(posterize S 0 V 0)", 0},
        {"(posterize S V 1 0)", 0},
        {"(posterize S V 0.5 0)", -1},
        // opacity, vary_opacity, density, vary_density, scale, vary_scale
        {std::string("(stains S") + stains + "1 0 -1 2 1 0)", 0},
        {std::string("(stains S") + stains + "1 0 -1 2.1 1 0)", -1},
        {std::string("(dust S") + stains + "0 0 1 0 1 0)", 0},
        {std::string("(dust S") + stains + "1 0 1 0 -0.5 1)", 0},
        {"(hairs S 1 [1 1 1] 0 9 1 0 1 0 1 1)", 0},
        {"(hairs S 1 [1 1 1] 1 0 1 0 1 0 1 1)", 0},
        {"(hairs S 1 [1 1 1] 1 9 1 0 -1 2 1 1)", 0},
        {"(hairs S 1 [1 1 1] 1 9 1 0 1 0 1 1)", -1},
        {"(coerce_to_v3 S)", 0},
        {"(coerce_to_v4 S)", -1},
        {"(max_element V)", 0},
        {"(max_element S)", -1},
        {"(v3_to_v4_if4 S 1 [0 0 0])", 0},
        {"(v3_to_v4_if4 S 1 [0 0 0 0])", -1},
        {"(v3_to_v4_if4_a S 1 [0 0 0])", 0},
        {"(v3_to_v4_if4_a V 1 0)", 1},
        {"(v3_to_v4_if4_a S 1 [0 0 0 0])", -1},
        {"(dot [0 0 0 0] [1 1 1 1])", 0},
        {"(dot S 0)", 1},
        {"(dot S S)", -1},
        {"(sat_scale S 1)", 0},
        {"(sat_scale V 2)", 0},
        {"(sat_scale S 2)", -1},
        {"(hue_shift S 0)", 0},
        {"(hue_shift S 0.5)", -1},
        {"(corner_pin xy [-1 -0.5] [1 -0.5] [1 0.5] [-1 0.5] [0 0] [0 0])", 0},
        {"(corner_pin xy [-1 -0.5] [1 -0.5] [1 0.5] [-1 0.501] [0 0] [0 0])", -1},
        {"(noise2 1 1 [0 0] 1 0)", 4},
        {"(noise2 1 1 [0 0] 1 1)", -1},
        {"(blur S 0 1 1 0)", 0},
        {"(blur S 1 1 0 0)", 3},
        {"(blur S 0 1 2 0)", -1},
        {"(dir_blur S [0 0 0] 0 [0 0 0] 1 1 0 0)", 0},
        {"(dir_blur S [0 0 0] 0 [0 0 0] 1 2 0 0)", -1},
        {"(dir_blur S [0 1 0] 0 [0 0 0] 1 1 0 0)", -1},
        {"(masked_dir_blur S V [0 0 0] 0 [0 0 0] 1 1 0 0)", 0},
        {"(warp S xy [0 0] 0)", 0},
        {"(warp S (+ xy 1) [0 0] 0)", -1},
        {"(warp_rel S [0 0] [0 0] 0)", 0},
        {"(warp_rel S xy [0 0] 0)", -1},
        {"(copy (+ S 1))", 0},
        {"(no_pass_vars S 0)", 0},
        {"(no_pass_vars S 1)", -1},
        {"(no_pass_vars (+ S 1) 1)", 0},
        {"(deband S V 0 1 1)", 0},
        {"(deband S V 1 0 1)", 0},
        {"(deband S V 1 1 1)", -1},
    };
    for (const auto& row : rows) {
        const std::string call = written(row.call);
        SCOPED_TRACE(call);
        EXPECT_EQ(passed(call), row.passed);
    }
}

TEST_F(PassRulesTest, UnmovedWarpStaysWhereTheWrapAreaIsClipped) {
    working.wrap.wrap_clipped = 1;
    EXPECT_EQ(passed("(warp Source xy [0 0] 0)"), -1);
}

TEST_F(PassRulesTest, CornersFollowTheShapeOfPixels) {
    the_frame->pixel_aspect_ratio = 2.0f;
    EXPECT_EQ(passed("(corner_pin xy [-1 -1] [1 -1] [1 1] [-1 1] [0 0] [0 0])"), 0);
    the_frame->pixel_aspect_ratio = 1.0f;
}

// What a rule passes on is what the function gives, sample for sample: a picture may not depend on whether a value
// happens to be constant. Over all pixel functions with a rule, all signatures, and constants that rules look for.
TEST_F(PassRulesTest, PassedValuesAreWhatTheFunctionGives) {
    constexpr int n = 24;
    std::mt19937 rng(5);
    int passed_calls = 0;
    for (int f = 0; f < node_fun_number; ++f) {
        const NodeFun& fun = node_funs[f];
        if (!fun.pass_arg_fun || fun.image_fun_p || !fun.pixel_funs[0]) continue;
        if (!std::strcmp(fun.name, "expt")) continue;  // a power of 1 keeps its base's sign, and 0 stays 0
        std::string failed;
        for (int round = 0; round < 60 * fun.arg_type_combo_number; ++round) {
            const uint32_t combo = fun.arg_type_combos[round % fun.arg_type_combo_number];
            const int eval_args = fun.arg_number - (fun.def_flags & def_last_arg_type_only ? 1 : 0);
            std::vector<Node> args(static_cast<size_t>(fun.arg_number));
            std::vector<Samples> lines(static_cast<size_t>(fun.arg_number) * 4), out(4, Samples(n, 0));
            Node node{};
            node.type = node_function;
            node.fun_info = &fun;
            node.elnum = static_cast<int8_t>(combo_return_elnum(combo));
            node.arg_number = static_cast<int8_t>(fun.arg_number);
            node.eval_arg_number = static_cast<int8_t>(eval_args);
            std::string text = fun.name;
            for (int a = 0; a < fun.arg_number; ++a) {
                Node& arg = args[static_cast<size_t>(a)];
                arg.elnum = static_cast<int8_t>(combo_arg_elnum(combo, a));
                const bool constant = rng() % 3 != 0;
                const int32_t few[] = {0, 4096, -4096, 2048, 6000};
                const int32_t same = few[rng() % 5];
                const bool all_same = rng() % 4 != 0;
                text += constant ? " [" : " varying";
                for (int e = 0; e < arg.elnum; ++e) {
                    Samples& line = lines[static_cast<size_t>(4 * a + e)];
                    for (int i = 0; i < n; ++i) line.push_back(draw(rng, Range::picture));
                    const int32_t v = all_same ? same : few[rng() % 5];
                    if (constant) line.assign(1, v), text += " " + std::to_string(v);
                    arg.lines[e] = line.data();
                    arg.vals[e] = line[0];
                }
                if (constant)
                    text += " ]", arg.flags = node_constant_p, arg.type = node_constant, pad_constant(&arg);
                else
                    text += std::to_string(arg.elnum), arg.type = node_function;
                node.args[a] = &arg;
                node.arg_lines[a] = arg.lines;
                node.arg_vals[a] = arg.vals;
            }
            for (int e = 0; e < node.elnum; ++e) node.lines[e] = out[static_cast<size_t>(e)].data();
            const int p = fun.pass_arg_fun(&node);
            if (p < 0) continue;
            const Node& arg = args[static_cast<size_t>(p)];
            if (!is_constant(&arg) && arg.elnum != node.elnum) continue;  // is not passed
            n_pixels = n;
            fun.pixel_funs[0](&node);
            ++passed_calls;
            for (int e = 0; e < node.elnum; ++e)
                for (int i = 0; i < n; ++i) {
                    const int32_t want = out[static_cast<size_t>(e)][static_cast<size_t>(i)];
                    const int32_t got = is_constant(&arg) ? arg.vals[e] : arg.lines[e][i];
                    if (want != got && failed.empty())
                        failed = text + " -> " + std::to_string(node.elnum) + " passes " + std::to_string(p) +
                                 ": element " + std::to_string(e) + " is " + std::to_string(got) +
                                 ", the function gives " + std::to_string(want);
                }
        }
        EXPECT_EQ(failed, "");
    }
    EXPECT_GT(passed_calls, 1000);
}

}  // namespace
