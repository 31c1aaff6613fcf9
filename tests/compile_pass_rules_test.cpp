// Each pass-through rule by calls that fire each of its clauses, and calls that just miss.
#include "records/rinfo.h"
#include "testing/genotype_reading.h"

namespace {

class PassRulesTest : public GenotypeTest {
protected:
    rinfo working = {};
    RenderInfo frame = {};

    void SetUp() override {
        GenotypeTest::SetUp();
        frame.full_ren = {0, 0, 200, 100};  // half height 0.5
        render_info = &frame;
        temp_raster_info = &working;
        pixel_aspect_ratio = 1.0f;
    }
    void TearDown() override {
        render_info = nullptr;
        temp_raster_info = nullptr;
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
        char rule;
        std::string call;
        int passed;
    } rows[] = {
        {'A', "(+ S 0)", 0},
        {'A', "(+ 0 S)", 1},
        {'A', "(+ S [0 0 0])", -1},  // padded with 1.0
        {'A', "(+ S [0 0 0 0])", 0},
        {'A', "(+ 0 0)", 0},
        {'A', "(+ S 0.0001)", 0},  // rounds to nothing
        {'A', "(+ S V)", -1},
        {'B', "(- S 0)", 0},
        {'B', "(- 0 S)", -1},
        {'C', "(* 0 S)", 0},
        {'C', "(* S 0)", 1},
        {'C', "(* S 1)", 0},
        {'C', "(* 1 S)", 1},
        {'C', "(* S [1 1 1])", 0},
        {'C', "(* S 0.5)", -1},
        {'D', "(/ 0 S)", 0},
        {'D', "(/ S 1)", 0},
        {'D', "(expt S 2)", -1},
        {'D', "(/ 1 S)", -1},
        {'E', "(screen S 0)", 0},
        {'E', "(screen 0 S)", 1},
        {'E', "(screen S 1)", 1},
        {'E', "(screen 1 S)", 0},
        {'E', "(screen S 0.5)", -1},
        {'F', "(*+ 0 S S)", 2},
        {'F', "(*+ S 0 S)", 2},
        {'F', "(*+ S 1 0)", 0},
        {'F', "(*+ 1 S 0)", 1},
        {'F', "(*+ S 1 0.5)", -1},
        {'F', "(*+ S 2 0)", -1},
        {'G', "(interp S 0.5 0)", 0},
        {'G', "(interp S 0.5 1)", 1},
        {'G', "(interp 0.5 0.5 V)", 0},
        {'G', "(interp 0 1 V)", 2},
        {'G', "(interp S 0.5 0.5)", -1},
        {'G', "(interp 0 2 V)", -1},
        {'H', "(dissolve S 0.5 -3)", 0},
        {'H', "(dissolve S 0.5 3)", 1},
        {'H', "(dissolve [0 1 1] [0 1 1] V)", 0},
        {'H', "(dissolve S 0.5 0.999)", -1},
        {'I', "(comp_rgba1 [1 1 1 1] S)", 1},
        {'I', "(comp_rgba1 S [1 1 1 1])", -1},
        {'J', "(if+ 1 S S)", 1},
        {'J', "(if+ 0 S S)", 2},
        {'J', "(if+ [1 -1 1] S S)", -1},
        {'J', "(if+ V S S)", -1},
        {'K', "(if> 2 1 S S)", 2},
        {'K', "(if> 1 1 S S)", 3},
        {'K', "(if> [2 0 2] [1 1 1] S S)", -1},
        {'K', "(if> V 1 S S)", -1},
        {'L', "(if_eq 1 1 S S)", 2},
        {'L', "(if_eq 1 2 S S)", 3},
        {'L', "(if_eq [1 2 3 4] [1 0 0 0] 1 1)", -1},
        {'M', "(if_has_alpha [1 1 1 1] [1 1 1 1] S)", 1},
        {'M', "(if_has_alpha S 1 V)", 2},
        {'M', "(if_has_alpha V [1 1] V)", 2},
        {'N', "(posterize S 0 V 0)", 0},
        {'N', "(posterize S V 1 0)", 0},
        {'N', "(posterize S V 0.5 0)", -1},
        // opacity, vary_opacity, density, vary_density, scale, vary_scale
        {'O', std::string("(stains S") + stains + "1 0 -1 2 1 0)", 0},
        {'O', std::string("(stains S") + stains + "1 0 -1 2.1 1 0)", -1},
        {'O', std::string("(dust S") + stains + "0 0 1 0 1 0)", 0},
        {'O', std::string("(dust S") + stains + "1 0 1 0 -0.5 1)", 0},
        {'P', "(hairs S 1 [1 1 1] 0 9 1 0 1 0 1 1)", 0},
        {'P', "(hairs S 1 [1 1 1] 1 0 1 0 1 0 1 1)", 0},
        {'P', "(hairs S 1 [1 1 1] 1 9 1 0 -1 2 1 1)", 0},
        {'P', "(hairs S 1 [1 1 1] 1 9 1 0 1 0 1 1)", -1},
        {'Q', "(coerce_to_v3 S)", 0},
        {'Q', "(coerce_to_v4 S)", -1},
        {'R', "(max_element V)", 0},
        {'R', "(max_element S)", -1},
        {'S', "(v3_to_v4_if4 S 1 [0 0 0])", 0},
        {'S', "(v3_to_v4_if4 S 1 [0 0 0 0])", -1},
        {'T', "(v3_to_v4_if4_a S 1 [0 0 0])", 0},
        {'T', "(v3_to_v4_if4_a V 1 0)", 1},
        {'T', "(v3_to_v4_if4_a S 1 [0 0 0 0])", -1},
        {'U', "(dot [0 0 0 0] [1 1 1 1])", 0},
        {'U', "(dot S 0)", 1},
        {'U', "(dot S S)", -1},
        {'V', "(sat_scale S 1)", 0},
        {'V', "(sat_scale V 2)", 0},
        {'V', "(sat_scale S 2)", -1},
        {'W', "(hue_shift S 0)", 0},
        {'W', "(hue_shift S 0.5)", -1},
        {'X', "(corner_pin xy [-1 -0.5] [1 -0.5] [1 0.5] [-1 0.5] [0 0] [0 0])", 0},
        {'X', "(corner_pin xy [-1 -0.5] [1 -0.5] [1 0.5] [-1 0.501] [0 0] [0 0])", -1},
        {'Y', "(noise2 1 1 [0 0] 1 0)", 4},
        {'Y', "(noise2 1 1 [0 0] 1 1)", -1},
        {'Z', "(blur S 0 1 1 0)", 0},
        {'Z', "(blur S 1 1 0 0)", 3},
        {'Z', "(blur S 0 1 2 0)", -1},
        {'a', "(dir_blur S [0 0 0] 0 [0 0 0] 1 1 0 0)", 0},
        {'a', "(dir_blur S [0 0 0] 0 [0 0 0] 1 2 0 0)", -1},
        {'a', "(dir_blur S [0 1 0] 0 [0 0 0] 1 1 0 0)", -1},
        {'b', "(masked_dir_blur S V [0 0 0] 0 [0 0 0] 1 1 0 0)", 0},
        {'c', "(warp S xy [0 0] 0)", 0},
        {'c', "(warp S (+ xy 1) [0 0] 0)", -1},
        {'d', "(warp_rel S [0 0] [0 0] 0)", 0},
        {'d', "(warp_rel S xy [0 0] 0)", -1},
        {'e', "(copy (+ S 1))", 0},
        {'f', "(no_pass_vars S 0)", 0},
        {'f', "(no_pass_vars S 1)", -1},
        {'f', "(no_pass_vars (+ S 1) 1)", 0},
        {'g', "(deband S V 0 1 1)", 0},
        {'g', "(deband S V 1 0 1)", 0},
        {'g', "(deband S V 1 1 1)", -1},
    };
    for (const auto& row : rows) {
        const std::string call = written(row.call);
        SCOPED_TRACE(std::string(1, row.rule) + " " + call);
        EXPECT_EQ(passed(call), row.passed);
    }
}

TEST_F(PassRulesTest, UnmovedWarpStaysWhereTheWrapAreaIsClipped) {
    working.wrap.wrap_clipped = 1;
    EXPECT_EQ(passed("(warp Source xy [0 0] 0)"), -1);
}

TEST_F(PassRulesTest, CornersFollowTheShapeOfPixels) {
    pixel_aspect_ratio = 2.0f;
    EXPECT_EQ(passed("(corner_pin xy [-1 -1] [1 -1] [1 1] [-1 1] [0 0] [0 0])"), 0);
    pixel_aspect_ratio = 1.0f;
}

}  // namespace
