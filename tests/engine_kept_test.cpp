// What one frame leaves for the next: planes, slots and arrays that outlive a frame may not show in a later one. The
// measure is the same frame in a record that has rendered nothing yet.

#include "support/memory.h"
#include "testing/caught_messages.h"
#include "testing/engine_rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

namespace {

constexpr Shape small = {13, 9};

// Stands in for look-ups: each sample comes from an offset that the second argument gives, in quarters of 1.0. The
// image is copied first, as look-ups do, so the node's planes are free for the offsets.
void test_lookup(Node* node) {
    const int w = the_frame->temp_raster_info.width, h = the_frame->temp_raster_info.height;
    const size_t n = (size_t)w * (size_t)h;
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    auto* image = frame_array<FixPixel>(n * 4);
    for (int e = 0; e < node->elnum; ++e) std::copy_n(node->images[e], n, image + (size_t)e * n);
    auto* offsets = frame_array<FixPixel>(n * 2);
    fix_plane planes[4] = {offsets, offsets + n};
    eval_node_tree_into_images(node->args[1], planes, node->image_index, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const size_t at = (size_t)(y * w + x);
            const int from_x = std::clamp(x + (offsets[at] >> 10), 0, w - 1);
            const int from_y = std::clamp(y + (offsets[n + at] >> 10), 0, h - 1);
            for (int e = 0; e < node->elnum; ++e)
                node->images[e][at] = image[(size_t)e * n + (size_t)(from_y * w + from_x)];
        }
    frame_free(image);
    frame_free(offsets);
}

// Stands in for filters with a mask: each sample moves towards its left neighbour by the mask, which lies in the planes
// behind the result. The other planes are left spoilt.
void test_masked(Node* node) {
    const int w = the_frame->temp_raster_info.width, h = the_frame->temp_raster_info.height;
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
    fix_plane mask = node->images[node->elnum];
    eval_node_tree_into_images(node->args[1], &mask, node->image_index + node->elnum, 1);
    for (int k = node->elnum + 1; k < node->image_count; ++k) std::fill_n(node->images[k], w * h, FixPixel{0x555});
    for (int e = 0; e < node->elnum; ++e)
        for (int i = w * h - 1; i > 0; --i) {
            FixPixel* at = node->images[e] + i;
            *at = (FixPixel)(*at + (((at[-1] - *at) * mask[i]) >> 12));
        }
}

void use_image_function(const char* name, PixelFun function) {
    auto* fun = const_cast<NodeFun*>(find_node_fun(name));
    for (int c = 0; c < fun->arg_type_combo_number; ++c) fun->pixel_funs[c] = function;
}

// The node functions of these tests.
struct KeptRig : EngineRig {
    explicit KeptRig(int tasks = 1, Shape frame_shape = small) : EngineRig(tasks, frame_shape) {
        use_image_function("warp", test_lookup);
        use_image_function("masked_blur", test_masked);
    }
};

// A param goes through values; every frame is what it is on its own.
TEST(EngineKept, ParamsLeaveNothingBehind) {
    struct {
        const char* body;
        std::vector<float> values;
    } const cases[] = {
        // A look-up that does not move passes its image on: the filter of it has changed, although none of the
        // look-up's
        // constants was decisive.
        {"p = 0 kept = (blur (warp x (+ xy p) [0 0] 0) 0.5 1 1 0) dest = (+ Source kept)", {0.5f, 0, 0.5f, 0, 0.25f}},
        {"p = 0 kept = (blur (+ x p) 0.5 1 1 0) dest = (+ Source kept)", {0.5f, 0, 0, 0.5f}},
    };
    for (const auto& c : cases) {
        std::vector<HostFrame> want;
        for (const float value : c.values) {
            KeptRig rig;
            ASSERT_TRUE(rig.load_body(c.body)) << c.body;
            rig.set_param("p", value);
            ASSERT_EQ(rig.render(), 0);
            want.push_back(rig.dest);
        }
        KeptRig rig;
        ASSERT_TRUE(rig.load_body(c.body));
        for (size_t i = 0; i < c.values.size(); ++i) {
            rig.set_param("p", c.values[i]);
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(rig.dest, want[i]) << c.body << " frame " << i;
        }
    }
}

// A look-up by the unmoved position is left out unless a wrap area cuts the frame, which areas of one size on the grid
// may or may not do.
TEST(EngineKept, WrapAreasDecideAnew) {
    KeptRig rig;
    ASSERT_TRUE(rig.load_body("kept = (blur (warp x (* xy 1) [0 0] 0) 0.5 1 1 0) dest = (+ Source kept)"));
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(ran(event_image_function, "warp"), 0);
    static int filters;
    filters = 0;
    eval_hook = [](EvalEvent event, const Node*) { filters += event == event_image_function; };
    ASSERT_EQ(evaluate_frame(rig.dest.data(), 1), 0);
    EXPECT_EQ(filters, 0);
    the_frame->temp_raster_info.wrap.wrap_clipped = 1;
    ASSERT_EQ(evaluate_frame(rig.dest.data(), 1), 0);
    EXPECT_EQ(filters, 2);
    eval_hook = nullptr;
}

bool ends_now = false;
void test_ending(Node* node) {
    if (ends_now) fatal_abort(1);
    eval_node_tree_into_images(node->args[0], node->images, node->image_index, 1);
}

// A frame of other values that ended midway: what it had made already is not what the next one wants, although the
// params stand where they stood at the last frame that was shown.
TEST(EngineKept, EndedFramesLeaveNothingBehind) {
    KeptRig rig(2);
    use_image_function("sharpen", test_ending);
    ASSERT_TRUE(
        rig.load_body("p = 0.25 kept = (blur (+ x p) 0.5 1 1 0) dest = (+ (* Source kept) (sharpen Source 1 0))"));
    ASSERT_EQ(rig.render(), 0);
    const HostFrame want = rig.dest;
    rig.set_param("p", 0.75f);
    ends_now = true;
    ASSERT_EQ(rig.render(), -2);
    EXPECT_EQ(ran(event_image_function, "blur"), 1) << "made before the end";
    ends_now = false;
    rig.set_param("p", 0.25f);
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.dest, want);
}

void pixel_ending(Node* node) {
    if (ends_now && eval_block_row == small.height / 2) fatal_abort(1);
    for (int e = 0; e < node->elnum; ++e) std::copy_n(node->arg_lines[0][e], n_pixels, node->lines[e]);
}

// A frame that ended among its rows has replaced some of the output of the frame before: the next one starts over. One
// that ended before its rows is as if it had not been.
TEST(EngineKept, FeedbackNeverMixesTwoFrames) {
    for (const bool among_rows : {false, true}) {
        KeptRig rig;
        use_image_function("sharpen", test_ending);
        const NodeFun* fun = find_node_fun("sin");
        const PixelFun real = fun->pixel_funs[0];
        use_image_function("sin", pixel_ending);
        ASSERT_TRUE(rig.load_body(among_rows ? "dest = (+ (* (get_prev_dest 0) 0.5) (sin (* Source 0.25)))"
                                             : "dest = (+ (* (get_prev_dest 0) 0.5) (sharpen (* Source 0.25) 1 0))"));
        const int first = rig.source(0, 4, 1, 0) * 1024 >> 12;
        ASSERT_EQ(rig.render(), 0);
        EXPECT_EQ(rig.result(4, 1, 0), first);
        ends_now = true;
        EXPECT_EQ(rig.render(), -2);
        ends_now = false;
        ASSERT_EQ(rig.render(), 0);
        use_image_function("sin", real);
        for (const int y : {1, small.height - 2}) {
            const int own = rig.source(0, 4, y, 0) * 1024 >> 12;
            EXPECT_EQ(rig.result(4, y, 0), among_rows ? own : (own * 2048 >> 12) + own) << y;
        }
    }
}

// So does one that had made no more than the initial value: that was of its own time.
TEST(EngineKept, FeedbackBeginsWithItsFirstWholeFrame) {
    KeptRig rig;
    use_image_function("sharpen", test_ending);
    ASSERT_TRUE(rig.load_body("dest = (+ (* (get_prev_dest Source) 0.5) (* (sharpen Back 1 0) 0.25))"));
    ends_now = true;
    EXPECT_EQ(rig.render(), -2);
    EXPECT_EQ(ran(event_image_function, "get_prev_dest"), 1) << "the initial value was made";
    ends_now = false;
    rig.inputs[0] = rig.inputs[2];
    ASSERT_EQ(rig.render(), 0);
    EXPECT_EQ(rig.result(4, 3, 0), (rig.source(0, 4, 3, 0) * 2048 >> 12) + (rig.source(1, 4, 3, 0) * 1024 >> 12));
}

// The host gives as many planes as the plan counts; no node may look for one beyond them. That holds for filters too
// whose element count alone is asked for.
TEST(EngineKept, EveryPlaneIsInThePlan) {
    for (const char* body :
         {"dest = (coerce_to (* Source 0.5) (blur Source 0.1 1 1 0))",
          "kind = (masked_blur Source x 0.1 1 0) dest = (coerce_to (blur Source 0.1 1 1 0) kind)",
          "kept = (masked_blur (v3 x y x) x 0.1 1 0) dest = (+ Source (coerce_to kept (blur kept 0.1 1 1 0)))"}) {
        KeptRig rig;
        const Genotype* g = rig.load_body(body);
        ASSERT_TRUE(g) << body;
        ASSERT_EQ(rig.render(), 0) << body;
        for (int i = 0; i < g->node_number; ++i) {
            const Node& node = g->nodes[i];
            if (!node.image_count) continue;
            EXPECT_LE(node.image_index + node.image_count,
                      node.in_cache_images ? g->cache_image_number : g->temp_image_number)
                << body << ": " << node.name;
        }
    }
}

// Work planes of a kept image may lie where the next one's result will be, never where one is that is still wanted.
TEST(EngineKept, WorkPlanesSpareWhatIsStillWanted) {
    const std::string image = "(masked_blur (v3 x y (* x y)) (* x 0.5) 0.1 1 0)", offsets = "(blur (* xy 1) 0.5 1 1 0)";
    const struct {
        std::string shared, plain;
    } cases[] = {
        // Both are kept; a look-up has its offsets made before its image.
        {"m = " + image + " o = " + offsets + " dest = (+ (warp m o [0 0] 0) (* (blur m 0.5 1 1 0) (element_of o 1)))",
         "dest = (+ (warp " + image + " " + offsets + " [0 0] 0) (* (blur " + image + " 0.5 1 1 0) (element_of " +
             offsets + " 1)))"},
    };
    for (const auto& c : cases) {
        HostFrame want;
        {
            KeptRig rig;
            ASSERT_TRUE(rig.load_body(c.plain)) << c.plain;
            ASSERT_EQ(rig.render(), 0);
            want = rig.dest;
        }
        KeptRig rig(2);
        ASSERT_TRUE(rig.load_body(c.shared)) << c.shared;
        for (int frame = 0; frame < 2; ++frame) {
            ASSERT_EQ(rig.render(), 0);
            EXPECT_EQ(rig.dest, want) << c.shared << " frame " << frame;
        }
    }
}

// ---- Random graphs

// A graph of n values over inputs, positions and the time, some in images, some decided by params. $0 and $1 stand for
// arguments.
struct RandomGraph {
    struct Value {
        std::string text;
        std::vector<int> args;
        int elements;
    };
    std::vector<Value> values;
    std::vector<std::vector<float>> params;  // what each may be
    std::minstd_rand random;

    int below(int n) { return (int)(random() / 7 % (unsigned)n); }
    int pick(int elements) {
        std::vector<int> fitting;
        for (int i = 0; i < (int)values.size(); ++i)
            if (values[(size_t)i].elements == elements) fitting.push_back(i);
        const int recent = std::min<int>((int)fitting.size(), below(3) ? 3 : 100);
        return fitting[fitting.size() - 1 - (size_t)below(recent)];
    }
    std::string param(std::vector<float> choices) {
        params.push_back(std::move(choices));
        return "p" + std::to_string(params.size() - 1);
    }
    void add_value() {
        struct Kind {
            const char* text;
            const char* args;  // element counts
            int elements;
            std::vector<float> choices;  // of the param for which % stands
        };
        static const Kind kinds[] = {
            {"(* (+ $0 $1) 0.5)", "33", 3, {}},
            {"(max $0 $1)", "11", 1, {}},
            {"(interp $0 $1 %)", "33", 3, {0, 0.5f, 1}},
            {"(if+ % $0 $1)", "33", 3, {-1, 1}},
            {"(if> % 0 $0 $1)", "33", 3, {-1, 1}},
            {"(if+ $2 $0 $1)", "331", 3, {}},
            {"(blur $0 0.5 1 1 0)", "3", 3, {}},
            {"(blur $0 % 1 1 0)", "3", 3, {0, 0.25f, 0.5f}},
            {"(blur $0 0.5 1 1 0)", "2", 2, {}},
            {"(masked_blur $0 $1 0.1 1 0)", "31", 3, {}},
            {"(masked_blur $0 $1 % 1 0)", "31", 3, {0, 0.1f}},
            {"(warp $0 $1 [0 0] 0)", "32", 3, {}},
            {"(warp $0 $1 [0 0] 0)", "32", 3, {}},
            {"(+ $0 %)", "2", 2, {0, 0.5f}},
            {"(v2 $0 $1)", "11", 2, {}},
            {"(* $0 %)", "3", 3, {0, 0.5f, 1}},
            {"(* $0 $1)", "31", 3, {}},
        };
        const Kind& kind = kinds[below((int)std::size(kinds))];
        Value value = {kind.text, {}, kind.elements};
        for (const char* a = kind.args; *a; ++a) value.args.push_back(pick(*a - '0'));
        if (!kind.choices.empty()) value.text.replace(value.text.find('%'), 1, param(kind.choices));
        values.push_back(std::move(value));
    }
    explicit RandomGraph(unsigned seed) : random(seed * 7919 + 1) {
        values = {{"(* Source 0.9)", {}, 3},
                  {"(v3 x y (* x y))", {}, 3},
                  {"(* x 0.5)", {}, 1},
                  {"(element_of Back 1)", {}, 1},
                  {"xy", {}, 2},
                  {"(* xy 1)", {}, 2},
                  {"(* y (get_percent_time))", {}, 1},
                  {"Source", {}, 3}};
        for (int n = 3 + below(12); n > 0; --n) add_value();
    }
    std::string with_args(int i, const std::vector<std::string>& args) const {
        std::string text = values[(size_t)i].text;
        for (size_t at; (at = text.find('$')) != std::string::npos;)
            text.replace(at, 2, args[(size_t)text[at + 1] - '0']);
        return text;
    }
    int root() const {
        int i = (int)values.size() - 1;
        while (values[(size_t)i].elements != 3) --i;
        return i;
    }
    // Every value by its name, so that whoever uses it shares it.
    std::string shared_text(int i, std::vector<bool>& defined) const {
        std::string before;
        std::vector<std::string> args;
        for (const int a : values[(size_t)i].args) {
            if (!defined[(size_t)a]) before += shared_text(a, defined);
            args.push_back("v" + std::to_string(a));
        }
        defined[(size_t)i] = true;
        return before + (i == root() ? "dest" : "v" + std::to_string(i)) + " = " + with_args(i, args) + " ";
    }
    // Every use spelt out.
    std::string spelt_out(int i) const {
        std::vector<std::string> args;
        for (const int a : values[(size_t)i].args) args.push_back(spelt_out(a));
        return with_args(i, args);
    }
    std::string params_text() const {
        std::string text;
        for (size_t p = 0; p < params.size(); ++p) text += "p" + std::to_string(p) + " = 0 ";
        return text;
    }
};

// Frames of a graph whose params, time and field change at random. What is shared, kept, passed through and put into
// common planes gives the picture of the text with every use spelt out, rendered in a record of its own.
TEST(EngineKept, SharedGraphsGiveWhatTheySay) {
    Messages messages;  // params that the root has no use for
    int compared = 0;
    for (unsigned seed = 0; seed < 400; ++seed) {
        RandomGraph graph(seed);
        struct State {
            std::vector<float> values;
            int frame, field;
        };
        std::vector<State> states;
        State state = {std::vector<float>(graph.params.size()), 3, 0};
        for (int i = 0; i < 6; ++i) {
            if (const int p = graph.below((int)graph.params.size() + 2); p < (int)graph.params.size()) {
                const auto& choices = graph.params[(size_t)p];
                state.values[(size_t)p] = choices[(size_t)graph.below((int)choices.size())];
            } else if (p == (int)graph.params.size()) {
                state.frame = graph.below(10);
            } else {
                state.field = graph.below(3);
            }
            states.push_back(state);
        }
        const auto render = [&](EngineRig& rig, const State& s) {
            for (size_t p = 0; p < s.values.size(); ++p) rig.set_param(("p" + std::to_string(p)).c_str(), s.values[p]);
            rig.set_frame(s.frame);
            the_frame->render_field = s.field;
            return rig.render();
        };
        const std::string plain = graph.params_text() + "dest = " + graph.spelt_out(graph.root());
        if (plain.size() > 4000) continue;
        std::vector<HostFrame> want;
        for (const State& s : states) {
            KeptRig rig;
            ASSERT_TRUE(rig.load_body(plain)) << plain;
            if (render(rig, s) != 0) break;  // more planes than the host has
            want.push_back(rig.dest);
        }
        if (want.size() < states.size()) continue;
        std::vector<bool> defined(graph.values.size());
        const std::string shared = graph.params_text() + graph.shared_text(graph.root(), defined);
        KeptRig rig(1 + (int)seed % 3);
        ASSERT_TRUE(rig.load_body(shared)) << shared;
        for (size_t i = 0; i < states.size(); ++i) {
            ASSERT_EQ(render(rig, states[i]), 0) << shared;
            ASSERT_EQ(rig.dest, want[i]) << "frame " << i << " of " << shared;
        }
        ++compared;
    }
    EXPECT_GT(compared, 300);
}

}  // namespace
