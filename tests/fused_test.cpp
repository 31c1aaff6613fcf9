// Passes that are worked as one loop, against the same passes worked by the row kernels: random trees of all pixel
// functions over frames that crowd at the ends of the range, to the bit.

#include "engine/fused_pass.h"
#include "frame/lut_files.h"
#include "fused/fused_code.h"
#include "records/frame.h"
#include "support/unload.h"
#include "testing/engine_rig.h"
#include "testing/random_calls.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <fstream>
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

// A gamma on the way in, on the way out, on both or on none, until the end of the scope.
struct Luts {
    explicit Luts(std::mt19937& rng) {
        static const float gammas[] = {2.2f, 0.45f, 1, 3};
        set_gamma(gammas[rng() % 4]);
        use_input_lut = rng() % 2;
        use_output_lut = rng() % 2;
    }
    ~Luts() {
        use_input_lut = use_output_lut = 0;
        reset_luts();
    }
};

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

// How many; VELLORAN_TREES looks longer.
int trees(int usual) {
    const char* const more = std::getenv("VELLORAN_TREES");
    return more ? std::atoi(more) : usual;
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

// Functions of a pass, each of which is run and then held against its ranges.
PixelFun functions_of_pass[MAX_EVAL_NODES];
std::string out_of_range;
int samples_held = 0;

void run_and_hold(Node* node) {
    const int at = node->ref_index;
    functions_of_pass[at](node);
    for (int e = 0; e < node->elnum; ++e) {
        const ValueRange range = fused_range(at, e);
        for (int i = 0; i < n_pixels; ++i) {
            const int32_t v = node->lines[e][i];
            ++samples_held;
            if (v < range.low || v > range.high)
                out_of_range = node->fun_info->name + (" " + std::to_string(v)) + " not in " +
                               std::to_string(range.low) + " .. " + std::to_string(range.high);
        }
    }
}

int mapped_writable_and_executable() {
    std::ifstream maps("/proc/self/maps");
    int n = 0;
    for (std::string line; std::getline(maps, line);) n += line.find(" rwx") != std::string::npos;
    return n;
}

}  // namespace

// Ranges are believed: what a kernel makes has to lie in them, whatever the samples.
TEST(Fused, EveryLineOfTheRowKernelsIsInItsRange) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(11);
    for (int i = 0; i < trees(200); ++i) {
        EngineRig rig(1, {40, 2});
        const std::string body = "dest = " + Grower(rng).grow(3, 1 + draw_below(rng, 4));
        SCOPED_TRACE(body);
        for (HostFrame& input : rig.inputs) crowd(input, rng);
        const int before = n_fused_passes;
        if (!rig.load_body(body) || rig.render() || n_fused_passes == before) continue;
        for (int k = 0; k < eval_node_count; ++k) {
            functions_of_pass[k] = eval_nodes[k]->eval_fun;
            if (eval_nodes[k]->eval_fun != image_line_reader) eval_nodes[k]->eval_fun = run_and_hold;
        }
        fuse_passes_p = 0;
        ASSERT_EQ(rig.render(), 0);
        fuse_passes_p = 1;
        ASSERT_EQ(out_of_range, "");
    }
    EXPECT_GT(samples_held, 10000);
}

TEST(Fused, CodeIsKeptWhileOnlyConstantsMove) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(3);
    EngineRig rig(2, {70, 9});
    ASSERT_TRUE(rig.load_body("p = 0.3 (min -10 max 10) q = 0.4 dest = (screen (*+ Source p q) (expt Back q))"));
    const int before = n_fused_compilations;
    for (const float p : {0.3f, 0.31f, 0.27f, 0.4f, 0.33f}) {
        rig.set_param("p", p);
        rig.set_param("q", 0.1f + p);
        EXPECT_GT(compare(rig, rng), 0);
    }
    EXPECT_EQ(n_fused_compilations, before + 1);
    // Other ranges may take other lanes, and the picture remains the picture.
    for (const float p : {-10.0f, 9.0f, 0.0f, 1.0f, -0.5f, 4.0f}) {
        rig.set_param("p", p);
        EXPECT_GT(compare(rig, rng), 0) << p;
    }
    EXPECT_EQ(mapped_writable_and_executable(), 0);
}

TEST(Fused, WithoutExecutablePagesTheRowKernelsServe) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(4);
    run_unload_functions();
    executable_pages_forbidden = true;
    EngineRig rig(1, {70, 3});
    ASSERT_TRUE(rig.load_body("dest = (* Source Back)"));
    EXPECT_EQ(compare(rig, rng), 0);
    EXPECT_FALSE(fused_code_possible());
    executable_pages_forbidden = false;
    EXPECT_EQ(compare(rig, rng), 0);  // it was said once, and is not tried again
    run_unload_functions();
    EXPECT_GT(compare(rig, rng), 0);
}

// What the loop does not do is left to the kernels, and is the same with them.
TEST(Fused, LeavesAloneWhatItCannotDo) {
    const FuseAll all;
    if (!fused_code_possible()) GTEST_SKIP() << "no code here";
    std::mt19937 rng(8);
    const auto fused = [&](Shape shape, auto set) {
        EngineRig rig(1, shape);
        EXPECT_TRUE(rig.load_body("dest = (* Source Back)"));
        set(rig);
        const int n = compare(rig, rng);
        the_frame->render_field = 0;
        return n;
    };
    const auto nothing = [](EngineRig&) {};
    EXPECT_EQ(fused({70, 8}, nothing), 1);
    EXPECT_EQ(fused({70, 8, 1, {3, 2, 41, 5}}, nothing), 1);
    EXPECT_EQ(fused({70, 8, 2}, nothing), 0);
    EXPECT_EQ(fused({70, 8}, [](EngineRig&) { the_frame->render_field = 1; }), 0);
    EXPECT_EQ(fused({70, 8}, [](EngineRig& rig) { rig.add_noise = 0.5f; }), 0);
    least_fused_samples = 1000;
    EXPECT_EQ(fused({70, 8}, nothing), 0);
}

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
        // A matte that is always 1, though it varies, leaves a function of one sample.
        {"m = (dist_squared [8 2] (v2 (element_of Front 1) (element_of Source 1)))"
         " dest = (cos (comp_premult Source (expt (element_of Front 1) 0.5) m))",
         true},
        {"dest = (monochrome (hue_shift Source 0.2))", true},
        {"dest = (sat_scale (hsv_to_rgb (rgb_to_hsv Source)) 1.5)", true},
        {"a = (* Source Back) dest = (+ a (blur a 0 1 0.5 0))", true},
        {"dest = (/ Source Back)", false},
        {"dest = (+ Source x)", false},
        {"dest = (* Source (+ x y))", true},  // what hangs on the place alone is an image that is kept
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
    std::string body;
    for (int i = 0; i < trees(400); ++i) {
        EngineRig rig(draw_below(rng, 8) ? 1 : 5, {1 + draw_below(rng, 70), 2});
        const Luts luts(rng);
        static const int depths[] = {SPARK_DEPTH_12, SPARK_DEPTH_12, SPARK_DEPTH_10, SPARK_DEPTH_8};
        rig.host.host.format.depth = depths[rng() % 4];
        rig.host.info = spark_host::current_info(rig.host.host);
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
