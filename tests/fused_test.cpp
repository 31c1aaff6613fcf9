// Passes that are worked as one loop, against the same passes worked by the row kernels: random trees of all pixel
// functions over frames that crowd at the ends of the range, to the bit.

#include "engine/fused_pass.h"
#include "fused/fused_code.h"
#include "testing/engine_rig.h"
#include "testing/random_calls.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <random>

using namespace velloran;
using namespace velloran_tests;

namespace {

// Passes are fused whatever their size, until the end of the scope.
struct FuseAll {
    FuseAll() { least_fused_samples = 1; }
    ~FuseAll() {
        least_fused_samples = before;
        fuse_passes_p = 1;
    }
    const int before = least_fused_samples;
};

void crowd(HostFrame& frame, std::mt19937& rng) {
    static const uint16_t ends[] = {0x0000, 0xfff0, 0x0010, 0xffe0, 0x7ff0, 0x8000, 0x8010, 0x0020};
    for (uint16_t& v : frame) v = static_cast<uint16_t>(rng() % 2 ? ends[rng() % std::size(ends)] | rng() % 16 : rng());
}

struct Rendered {
    int result, fused;
    HostFrame dest;
};
Rendered render(EngineRig& rig, bool fuse, const HostFrame& under) {
    fuse_passes_p = fuse;
    rig.keep_dest = true;
    rig.dest = under;
    const int before = n_fused_passes;
    rig.record.last_imaged_genotype = nullptr;  // nothing is kept from the other way
    const int result = rig.render();
    return {result, n_fused_passes - before, rig.dest};
}

// Whether the way of the text was fused; -1 if it cannot be rendered.
int compare(EngineRig& rig, std::mt19937& rng) {
    for (HostFrame& input : rig.inputs) crowd(input, rng);
    HostFrame under((size_t)rig.shape.width * (size_t)rig.shape.height * 3);
    crowd(under, rng);
    const Rendered plain = render(rig, false, under), fused = render(rig, true, under);
    EXPECT_EQ(plain.result, fused.result);
    EXPECT_EQ(plain.fused, 0);
    for (size_t i = 0; i < under.size(); ++i)
        if (plain.dest[i] != fused.dest[i]) {
            ADD_FAILURE() << "sample " << i % 3 << " of pixel " << i / 3 % (size_t)rig.shape.width << ", row "
                          << i / 3 / (size_t)rig.shape.width << ": " << plain.dest[i] << " fused " << fused.dest[i];
            break;
        }
    return plain.result ? -1 : fused.fused;
}

// Random trees over all pixel functions.
class Grower {
public:
    explicit Grower(std::mt19937& rng) : rng_(rng) {
        for (int i = 0; i < MAX_FUN_NUMBER; ++i) {
            const NodeFun* fun = &node_funs[i];
            if (!(fun->def_flags & def_defined) || fun->image_fun_p || fun->make_state_fun) continue;
            for (int c = 0; c < fun->arg_type_combo_number; ++c)
                if (fun->pixel_funs[c]) combos_.push_back({fun, c});
        }
    }

    std::string grow(int elnum, int depth) {
        if (depth == 0 || below(8) == 0) return leaf(elnum);
        for (int tries = 0; tries < 200; ++tries) {
            const auto [fun, c] = combos_[(size_t)below((int)combos_.size())];
            const uint32_t combo = fun->arg_type_combos[c];
            if (combo_return_elnum(combo) != elnum) continue;
            std::string call = "(" + std::string(fun->name);
            for (int a = 0; a < fun->arg_number; ++a) {
                const bool held = (fun->arg_restrictions[a] & arg_acts_as_param) != 0;
                const int n = combo_arg_elnum(combo, a);
                call += " " + (held || below(5) == 0 ? constant(n) : grow(n, depth - 1));
            }
            return call + ")";
        }
        return leaf(elnum);
    }

private:
    int below(int n) { return draw_below(rng_, n); }
    std::string constant(int elnum) {
        static const float values[] = {0, 1, 0.5f, 0.25f, 2, -0.25f, 0.45f, 0.999f, 0.3f, 1.5f, 8, -3, 0.05f};
        std::vector<float> v;
        for (int e = 0; e < elnum; ++e) v.push_back(values[below(std::size(values))]);
        return vector_text(v);
    }
    std::string leaf(int elnum) {
        static const char* const inputs[] = {"Source", "Back", "Front", "Matte"};
        const auto element = [&] {
            return "(element_of " + std::string(inputs[below(4)]) + " " + std::to_string(below(3)) + ")";
        };
        switch (elnum) {
            case 1:
                return element();
            case 2:
                return "(v2 " + element() + " " + element() + ")";
            case 3:
                return inputs[below(4)];
            default:
                return "(v3_to_v4 " + std::string(inputs[below(4)]) + " " + element() + ")";
        }
    }

    std::mt19937& rng_;
    std::vector<std::pair<const NodeFun*, int>> combos_;
};

}  // namespace

TEST(Fused, TreesOfEffects) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(1);
    struct Case {
        const char* body;
        bool fused;
    };
    const Case cases[] = {
        {"dest = Source", true},
        {"dest = [0.25 0.5 2]", true},
        {"lift = [0.02 0.05 0.08] dest = (*+ Source Back lift)", true},
        {"m = (clamp (*+ (dot Source [0.299 0.587 0.114]) 1.5 -0.2) 0 1) a = (interp Source Back m) l = (screen a Back)"
         " g = (clamp (*+ l 1.2 -0.1) 0 1) o = (overlay Source g) dest = (clamp (+ (* o 0.9) (* Back 0.05)) 0 1)",
         true},
        {"wave = (nsin (sqrt Source)) dest = (clamp (*+ (* wave (expt Back 0.45)) 0.5 0.5) 0 1)", true},
        {"dest = (/ Source 0.7)", true},
        {"dest = (monochrome (hue_shift Source 0.2))", true},
        {"dest = (sat_scale (hsv_to_rgb (rgb_to_hsv Source)) 1.5)", true},
        {"a = (* Source Back) dest = (+ a (blur a 0 1 0.5 0))", true},
        {"dest = (/ Source Back)", false},
        {"dest = (+ Source x)", false},
        {"dest = (element_of (rotate (v2 (element_of Source 0) 0) 0.3 [1 1]) 0)", false},
        {"dest = (blur Source 0.5 1 1 0)", true},  // on its way out
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body);
        for_each_row_target([&](int64_t target) {
            for (const int width : {1, 7, 16, 31, 32, 33, 48, 64, 97}) {
                EngineRig rig(width % 3 ? 1 : 2, {width, 5});
                ASSERT_TRUE(rig.load_body(c.body));
                const int fused = compare(rig, rng);
                if (target == HWY_AVX2 || target == HWY_AVX3)
                    EXPECT_EQ(fused > 0, c.fused) << width;
                else
                    EXPECT_EQ(fused, 0);
                if (HasFailure()) return;
            }
        });
    }
}

TEST(Fused, RandomTreesEqualTheRowKernels) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(5);
    int fused = 0, rendered = 0;
    const int trees = std::getenv("VELLORAN_TREES") ? std::atoi(std::getenv("VELLORAN_TREES")) : 400;
    std::string body;
    for (int i = 0; i < trees; ++i) {
        EngineRig rig(1, {1 + draw_below(rng, 70), 2});
        Grower grower(rng);
        body = "dest = " + grower.grow(draw_below(rng, 4) ? 3 : 1 + draw_below(rng, 4), 1 + draw_below(rng, 4));
        SCOPED_TRACE(body);
        for_each_row_target([&](int64_t target) {
            if (target != HWY_AVX2 && target != HWY_AVX3) return;
            if (!rig.load_body(body)) return;
            const int n = compare(rig, rng);
            rendered += n >= 0;
            fused += n > 0;
        });
        if (HasFailure()) return;
    }
    std::printf("%d of %d fused\n", fused, rendered);
    EXPECT_GT(fused, rendered / 3);
}
