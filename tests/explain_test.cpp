// What a watched frame tells is what the frame is: over all shipped effects, and for every node of some.
#include "tests/render/shipped_plugin.h"

#include <set>

using namespace test_render;

namespace {

struct Told {
    struct Node {
        SparkNodeInfo info;
        std::string name, function;
        bool named;
    };
    double seconds = 0;
    std::vector<Node> nodes;
    const Node* row(int index) const {
        for (const Node& node : nodes)
            if (node.info.Index == index) return &node;
        return nullptr;
    }
};

bool watch(const Plugin& plugin, int x, int y) {
    return reinterpret_cast<SparkWatchFn>(plugin_symbol(plugin, "SparkWatch"))(x, y) != 0;
}
bool explain(const Plugin& plugin, Told& told) {
    const SparkExplainVisitor visitor = {
        &told,
        [](void* context, const SparkFrameExplanation* frame) {
            static_cast<Told*>(context)->seconds = frame->Seconds;
        },
        [](void* context, const SparkNodeInfo* node) {
            static_cast<Told*>(context)->nodes.push_back(
                {*node, node->Name, node->Function ? node->Function : "", node->Name[0] != 0});
        }};
    return reinterpret_cast<SparkExplainFn>(plugin_symbol(plugin, "SparkExplain"))(&visitor) != 0;
}

constexpr int width = 160, height = 120;  // large enough for passes that run as one loop
constexpr int x = 67, y = 41;

std::vector<int> pixel_of(const std::vector<unsigned char>& frame) {
    const auto samples = significant(frame, SPARK_DEPTH_12);
    const size_t at = static_cast<size_t>((y * width + x) * 3);
    return {static_cast<int>(samples[at]), static_cast<int>(samples[at + 1]), static_cast<int>(samples[at + 2])};
}
std::vector<int> shown(const SparkNodeInfo& node) {
    std::vector<int> value;
    for (int c = 0; c < 3; ++c) value.push_back(std::clamp(node.Value[node.Elements < 3 ? 0 : c], 0, 4095));
    return value;
}

// What holds of every explanation.
void check_account(const Told& told) {
    double sum = 0;
    std::set<int> rows;
    for (const Told::Node& node : told.nodes) {
        const SparkNodeInfo& info = node.info;
        rows.insert(info.Index);
        sum += info.Seconds;
        EXPECT_GE(info.Seconds, 0);
        const bool evaluated = info.How != SPARK_NODE_UNUSED;
        // Of a clip whose frames a function fetches there is no pixel.
        EXPECT_TRUE(info.How == SPARK_NODE_PASSED || info.How == SPARK_NODE_READ || (info.HasValue != 0) == evaluated)
            << node.function << node.name << " how " << info.How << " value " << info.HasValue;
        EXPECT_TRUE(info.How != SPARK_NODE_IMAGE || info.PlaneBytes > 0) << node.function;
        for (int a = 0; a < info.Arguments; ++a) EXPECT_GT(info.ArgumentIndices[a], info.Index);
        // What is read was evaluated, and what is removed has something in its place.
        if (info.StandsFor >= 0) {
            ASSERT_NE(told.row(info.StandsFor), nullptr);
            EXPECT_NE(told.row(info.StandsFor)->info.How, SPARK_NODE_PASSED);
        }
    }
    EXPECT_EQ(rows.size(), told.nodes.size());
    EXPECT_LE(sum, told.seconds * 1.001);
}

TEST(Explain, TellsWhatTheFrameIs) {
    std::set<int> ways;
    for (const std::string& family : shipped_families()) {
        for (int effect = 0, n = 1; effect < n; ++effect) {
            ShippedPlugin shipped(family);
            shipped.host.format = {width, height, SPARK_DEPTH_12};
            ASSERT_TRUE(shipped.start());
            Plugin& plugin = *shipped.plugin;
            const Described described = describe(plugin);
            n = static_cast<int>(described.effects.size());
            SCOPED_TRACE(family + ":" + described.effects[static_cast<size_t>(effect)]);
            if (n > 1) {
                set_control_value(*find_control(plugin.panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
                use_control(plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
            }
            Told told;
            EXPECT_FALSE(explain(plugin, told)) << "nobody watched";
            ASSERT_TRUE(watch(plugin, x, y));
            EXPECT_FALSE(explain(plugin, told)) << "nothing was rendered";
            ASSERT_TRUE(watch(plugin, x, y));
            const auto frame = shipped.render(1);
            ASSERT_FALSE(frame.empty());
            ASSERT_TRUE(explain(plugin, told));
            ASSERT_FALSE(told.nodes.empty());
            EXPECT_TRUE(told.nodes[0].info.HasValue);
            EXPECT_EQ(shown(told.nodes[0].info), pixel_of(frame));
            check_account(told);
            for (const Told::Node& node : told.nodes) ways.insert(node.info.How);
            EXPECT_FALSE(explain(plugin, told)) << "told twice";
        }
    }
    for (const int way : {SPARK_NODE_ROWS, SPARK_NODE_IMAGE, SPARK_NODE_READ, SPARK_NODE_FOLDED, SPARK_NODE_PASSED})
        EXPECT_TRUE(ways.count(way)) << way;
}

// ---- Each node as the result of an effect of its own

std::string expression(const Told& told, int row) {
    const Told::Node& node = *told.row(row);
    if (node.function.empty() && !node.named) {
        std::string text;
        for (int e = 0; e < node.info.Elements; ++e) {
            char number[32];
            std::snprintf(number, sizeof number, "%.8g", node.info.Value[e] / 4096.0);
            text += (e ? " " : "") + std::string(number);
        }
        return node.info.Elements > 1 ? "[" + text + "]" : text;
    }
    if (node.function.empty()) return node.name;
    std::string text = "(" + node.function;
    for (int a = 0; a < node.info.Arguments; ++a) text += " " + expression(told, node.info.ArgumentIndices[a]);
    return text + ")";
}

const char* const effects[] = {
    "(+ (* 0.5 (blur Source 0.1 2 1 1)) (* amount (- Source (* Source [0.3 0.6 0.1]))))",
    "(if_eq flag 1 (blur Source 0.2 2 1 1) (+ (v3 x y 0.5) (* Source shared)))",
    "(* (max shared (sin (* x 3))) (interp Source (blur shared 0.05 2 1 1) (+ 0.5 (* 0.5 y))))",
    "(- (* (sat_scale Source amount) 1.5) (expt (max Source 0) 2))"};
const char* const params = "  amount = 0.7 (min 0 max 2)\n  flag = 0 (min 0 max 1)\n";

struct Rendered {
    std::vector<int> pixel;
    Told told;
    bool made = false;
};
Rendered render(const std::string& dest, const std::string& shared) {
    TextPlugin text("(def_effect One (Source) ()\n" + std::string(params) + shared + "  dest = " + dest + "\n)\n");
    text.host.format = {width, height, SPARK_DEPTH_12};
    text.host.processors = 2;
    text.inputs = {random_clip(2, 5)};
    Rendered rendered;
    if (!text.start() || !watch(*text.plugin, x, y)) return rendered;
    const auto frame = text.render();
    if (frame.empty() || !explain(*text.plugin, rendered.told)) return rendered;
    rendered.pixel = pixel_of(frame);
    rendered.made = true;
    return rendered;
}

TEST(Explain, EachNodeIsWhatAnEffectOfItsOwnRenders) {
    const std::string shared = "  shared = (* (* Source Source) 1.2)\n";
    int compared = 0, unevaluated = 0;
    for (const char* const dest : effects) {
        const Rendered whole = render(dest, shared);
        ASSERT_TRUE(whole.made) << dest;
        check_account(whole.told);
        for (const Told::Node& node : whole.told.nodes) {
            if (node.function.empty()) continue;
            if (!node.info.HasValue) {
                unevaluated += node.info.How == SPARK_NODE_UNUSED;
                continue;
            }
            const std::string own = expression(whole.told, node.info.Index);
            const Rendered alone = render(own, shared);
            ASSERT_TRUE(alone.made) << own;
            EXPECT_EQ(shown(node.info), alone.pixel) << own;
            ++compared;
        }
    }
    EXPECT_GT(compared, 20);
    EXPECT_GT(unevaluated, 0) << "a side of the branch";
}

TEST(Explain, WatchingChangesNothing) {
    const std::string shared = "  shared = (* (* Source Source) 1.2)\n";
    TextPlugin text("(def_effect One (Source) ()\n" + std::string(params) + shared + "  dest = " + effects[2] +
                    "\n)\n");
    text.host.format = {width, height, SPARK_DEPTH_12};
    text.host.total_frames = 3;
    text.inputs = {random_clip(3, 5)};
    ASSERT_TRUE(text.start());
    const auto before = text.render(1);
    ASSERT_FALSE(before.empty());
    for (const auto& [at_x, at_y] : {std::pair(0, 0), std::pair(width - 1, height - 1), std::pair(-1, -1)}) {
        ASSERT_TRUE(watch(*text.plugin, at_x, at_y));
        EXPECT_EQ(text.render(1), before);
        Told told;
        ASSERT_TRUE(explain(*text.plugin, told));
        for (const Told::Node& node : told.nodes)
            EXPECT_TRUE(at_x >= 0 || !node.info.HasValue || node.info.Constant) << node.function << at_x;
        if (at_x >= 0) {
            EXPECT_TRUE(told.nodes[0].info.HasValue);
        }
        EXPECT_EQ(text.render(1), before);
    }
    // A watch that nobody reads goes with the plug-in.
    ASSERT_TRUE(watch(*text.plugin, 1, 1));
    text.render(2);
}

}  // namespace
