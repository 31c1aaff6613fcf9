// Checking a text against rendering it: what the check passes must render, and what it refuses must be refused.
#include "records/node_fun.h"
#include "tests/render/text_plugin.h"

#include <unistd.h>

using namespace test_render;
using velloran::NodeFun;

namespace {

struct Checked {
    int failed = 0, errors = 0;  // errors: those of definitions; the conditional filter goes on after its own
    std::string messages;        // one a line: LEVEL LINE:COLUMN TEXT
};

// A module to ask; it is never started.
const Plugin& text_module() {
    static Host host;
    static std::unique_ptr<Plugin> module = [] {
        std::string error;
        return load_plugin(host, TEXT_PLUGIN, "", &error);
    }();
    return *module;
}

Checked check(const std::string& text, const char* effect = nullptr) {
    using CheckFn = int (*)(const char*, const char*, const char*, void (*)(void*, int, int, int, const char*), void*);
    static const auto check_effects = reinterpret_cast<CheckFn>(plugin_symbol(text_module(), "V4_check_effects"));
    Checked checked;
    const auto report = [](void* all, int level, int line, int column, const char* message) {
        std::string said = message;
        said.erase(said.find_last_not_of(" \n") + 1);
        said.erase(0, said.find_first_not_of(" \n"));
        auto& so_far = *static_cast<Checked*>(all);
        so_far.errors += level >= 8 && said.rfind("ERROR in", 0) != 0;
        so_far.messages +=
            std::to_string(level) + ' ' + std::to_string(line) + ':' + std::to_string(column) + ' ' + said + '\n';
    };
    checked.failed = check_effects(text.c_str(), "test", effect, report, &checked);
    return checked;
}

// Both outputs say a thousand times what is expected here.
struct Quiet {
    Quiet() {
        fflush(stdout);
        FILE* const nowhere = fopen("/dev/null", "w");
        for (int i = 0; i < 2; ++i) {
            kept[i] = dup(1 + i);
            dup2(fileno(nowhere), 1 + i);
        }
        fclose(nowhere);
    }
    ~Quiet() {
        fflush(stdout);
        for (int i = 0; i < 2; ++i) {
            dup2(kept[i], 1 + i);
            close(kept[i]);
        }
    }
    int kept[2];
};

// A small frame of the text's only effect. Empty, or what it was refused for.
std::string render_refusal(const std::string& text) {
    Quiet quiet;
    TextPlugin effect(text);
    effect.host.format.width = 16;
    effect.host.format.height = 12;
    effect.host.memory_buffers = 1000;
    for (unsigned i = 0; i < 4; ++i) effect.inputs.push_back(random_clip(1, i + 1));
    if (!effect.start()) return "start: " + effect.plugin->failure;
    if (effect.render().empty()) return "frame: " + effect.plugin->failure;
    return "";
}

void expect_agreement(const std::string& text) {
    const Checked checked = check(text);
    const std::string refusal = render_refusal(text);
    // A frame may not come to need a function without code.
    const bool no_code = checked.messages.find("has no code yet") != std::string::npos;
    if (checked.failed == 0) {
        EXPECT_EQ(refusal, "") << text << "\n" << checked.messages;
    } else if (!no_code) {
        EXPECT_NE(refusal, "") << text << "\n" << checked.messages;
    }
    EXPECT_EQ(checked.failed > 0, checked.errors > 0) << text << "\n" << checked.messages;
}

std::vector<NodeFun> all_functions() {
    using DescribeFn = void (*)(void (*)(void*, const NodeFun*), void*);
    std::vector<NodeFun> funs;
    reinterpret_cast<DescribeFn>(plugin_symbol(text_module(), "V4_describe_functions"))(
        [](void* all, const NodeFun* fun) { static_cast<std::vector<NodeFun>*>(all)->push_back(*fun); }, &funs);
    return funs;
}

// Texts that type, as random as they can be.
class Writer {
public:
    explicit Writer(unsigned seed) : random_(seed), funs_(all_functions()) {}

    int choose(int n) { return static_cast<int>(random_() / 16 % static_cast<unsigned>(n)); }

    std::string definition(int names, bool with_code) {
        with_code_ = with_code;
        elnums_.clear();
        std::string text = "(def_effect W (Source Back)";
        if (choose(2)) text += " (rgba_ok)";
        text += "\n";
        for (int i = 0; i < names; ++i) {
            const int elnum = 1 + choose(4);
            text += "  n" + std::to_string(i) + " = ";
            text += choose(4) == 0 ? constant(elnum) + declaration(elnum) : expression(elnum, 0);
            text += "\n";
            elnums_.push_back(elnum);
        }
        return text + "  dest = " + expression(choose(2) ? 3 : 4, 0) + "\n)\n";
    }

    // Characters and words go, come, and change places.
    std::string damaged(std::string text) {
        static const char* const words[] = {"(",      ")",          "[",    "]",      "=",  "\"",     "x",
                                            "0",      "blur",       "dest", "n1",     "2d", "Output", "#if 0",
                                            "#endif", "def_effect", "min",  "widget", "//"};
        for (int n = 1 + choose(2); n > 0; --n) {
            const auto at = static_cast<size_t>(choose(static_cast<int>(text.size())));
            switch (choose(4)) {
                case 0:
                    text.erase(at, static_cast<size_t>(1 + choose(3)));
                    break;
                case 1:
                    text.insert(at, std::string(" ") + words[choose(static_cast<int>(std::size(words)))] + ' ');
                    break;
                case 2:
                    text[at] = static_cast<char>(' ' + choose(95));
                    break;
                default:
                    text.resize(at);
                    break;
            }
            if (text.empty()) text = " ";
        }
        return text;
    }

private:
    std::string constant(int elnum) {
        static const char* const numbers[] = {"0", "1", "0.5", "-1", "0.1", "2", "-0.25", "7"};
        std::string out = elnum == 1 ? "" : "[";
        for (int e = 0; e < elnum; ++e) out += std::string(e ? " " : "") + numbers[choose(8)];
        return elnum == 1 ? out : out + "]";
    }
    std::string declaration(int elnum) {
        static const char* const lists[] = {"",       " (min -1 max 3 step 0.1)", " (hidden)",        " (ignore)",
                                            " (int)", " (popup one two)",         " (widget radius)", " (autotrans)"};
        if (elnum == 3 && choose(2)) return " (color)";
        if (elnum == 2 && choose(2)) return choose(2) ? " (screen_center pointer_set)" : " (widget center)";
        return lists[choose(8)];
    }
    std::string leaf(int elnum) {
        if (!elnums_.empty() && choose(2)) {
            const int name = choose(static_cast<int>(elnums_.size()));
            if (elnums_[static_cast<size_t>(name)] == elnum) return "n" + std::to_string(name);
        }
        if (choose(3) == 0) return constant(elnum);
        return elnum == 1   ? "x"
               : elnum == 2 ? "xy"
               : elnum == 3 ? (choose(2) ? "Source" : "Back")
                            : "(v3_to_v4 Source 1)";
    }
    std::string expression(int elnum, int depth) {
        if (depth > 4 || choose(5) == 0) return leaf(elnum);
        const int start = choose(static_cast<int>(funs_.size()));
        for (size_t i = 0; i < funs_.size(); ++i) {
            const NodeFun& fun = funs_[(static_cast<size_t>(start) + i) % funs_.size()];
            if (with_code_ && !fun.pixel_funs[0]) continue;
            for (int c = 0; c < fun.arg_type_combo_number; ++c) {
                const uint32_t combo = fun.arg_type_combos[c];
                const auto count = [combo](int a) { return static_cast<int>(combo >> (2 + 2 * a) & 3) + 1; };
                if (static_cast<int>(combo & 3) + 1 != elnum) continue;
                std::string out = std::string("(") + fun.name;
                for (int a = 0; a < fun.arg_number; ++a)
                    out += ' ' + (fun.arg_restrictions[a] == 16 ? constant(count(a)) : expression(count(a), depth + 1));
                return out + ')';
            }
        }
        return leaf(elnum);
    }

    std::minstd_rand random_;
    std::vector<NodeFun> funs_;
    std::vector<int> elnums_;  // of the names so far
    bool with_code_ = true;
};

TEST(Check, WhatItPassesRenders) {
    Writer writer(1);
    int passed = 0;
    for (int i = 0; i < 150; ++i) {
        const std::string text = writer.definition(writer.choose(10), i % 8 != 0);
        passed += check(text).failed == 0;
        expect_agreement(text);
        if (HasFailure()) return;
    }
    EXPECT_GT(passed, 100);
}

TEST(Check, WhatItRefusesOfDamagedTextsDoesNotRender) {
    Writer writer(2);
    int passed = 0, refused = 0;
    for (int i = 0; i < 400; ++i) {
        const std::string text = writer.damaged(writer.definition(writer.choose(6), true));
        const bool good = check(text).failed == 0;
        ++(good ? passed : refused);
        expect_agreement(text);
        if (HasFailure()) return;
    }
    EXPECT_GT(passed, 20);
    EXPECT_GT(refused, 100);
}

std::string repeated(int n, const std::string& text) {
    std::string all;
    for (int i = 0; i < n; ++i) all += text;
    return all;
}

std::string effect(const std::string& assignments, const std::string& lists = "(Source)") {
    return "(def_effect E " + lists + "\n" + assignments + ")\n";
}

// n values that are kept as images, each blurred from the one before.
std::string chain_of_blurs(int n) {
    std::string text = "a0 = Source\n";
    for (int i = 1; i <= n; ++i)
        text += "a" + std::to_string(i) + " = (blur (+ a" + std::to_string(i - 1) + " 0.1) 0.01 1 1 0)\n";
    return text + "dest = a" + std::to_string(n) + "\n";
}

// The sum of n blurs, each of which must be there when the sum is made.
std::string sum_of_blurs(int n) {
    std::string sum = "Source";
    for (int i = 1; i <= n; ++i) sum = "(+ " + sum + " (blur Source 0.0" + std::to_string(i) + " 1 1 0))";
    return "dest = " + sum + "\n";
}

// What a frame would be refused for is told, at the place that it is about; just below each limit nothing is.
TEST(Check, TellsOfLimits) {
    const struct {
        const char* what;
        std::string text, message;  // part of what is told; empty: passes
    } rows[] = {
        {"199 functions", effect("dest = " + repeated(199, "(+ 0.001 ") + "Source" + repeated(199, ")")), ""},
        {"201 functions", effect("dest = " + repeated(201, "(+ 0.001 ") + "Source" + repeated(201, ")")),
         "8 2:8 E: more than 200 functions in one pass"},
        {"functions in a filter's argument",
         effect("dest = (+ Source\n (blur " + repeated(201, "(+ 0.001 ") + "Source" + repeated(201, ")") +
                " 0.1 1 1 0))"),
         "8 3:2 E: more than 200 functions in one pass"},
        {"100 images", effect(chain_of_blurs(99)), ""},
        {"101 images", effect(chain_of_blurs(101)), "more than 100 values that are kept as images"},
        {"few planes", effect(sum_of_blurs(9)), ""},
        {"many planes", effect(sum_of_blurs(40)), "images, expected <= 59"},
        {"four inputs", effect("dest = (+ A D)", "(A B C D)"), ""},
        {"five inputs", effect("dest = (+ A D)", "(A B C D E)"), "it has 5 inputs"},
        {"no code", effect("dest = (if+ 1 Source\n  (chroma_warp Source xy xy [0 0] 3 1 1 1 [1 1 1] 1))"), ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Checked checked = check(row.text);
        if (std::string(row.what) == "no code") continue;  // told by the law, as long as there is any
        if (row.message.empty())
            EXPECT_EQ(checked.messages, "");
        else
            EXPECT_NE(checked.messages.find(row.message), std::string::npos) << checked.messages;
        expect_agreement(row.text);
    }
}

TEST(Check, TellsOfWidgetsWhereTheyStand) {
    const Checked checked =
        check(effect("a = [0 0] (widget centre)\nb = 1 (widget center.middle)\nc = 1 (widget "
                     "center_radius.radius)\ndest = (+ Source "
                     "(* c (+ b (mag a))))"));
    EXPECT_EQ(checked.failed, 0);
    EXPECT_EQ(checked.messages,
              "7 2:1 No such widget type name as centre\n"
              "7 3:1 Bad part name middle for center widget\n"
              "7 4:1 E.c widget: No base type for radius\n");
}

// Each definition is judged alone, and the others render.
TEST(Check, OneDefinitionThatFailsLeavesTheOthers) {
    const char* const good = "(def_effect Good (Source) ()\n dest = (* Source 0.5)\n)\n";
    const struct {
        const char* bad;
        int failed;
    } rows[] = {
        {"(def_effect Bad (Source) () dest = (blurr Source))\n", 1},
        {"(def_effect Bad (Source) () dest = (+ Source 1)\n", 1},  // not closed
        {"(def_effect Bad (Source) () dest = (+ Source 1\n", 1},
        {"(def_effect Bad (Source\n", 1},
        {"(def_effect Bad (Source) () dest = (+ [1 2] [1 2 3]))\n", 1},
        {"(def_effect (Source) () dest = Source)\n", 1},  // no name
        {"(def_effect Bad () (rgba_ok) a = 1 (group_start G) dest = a)\n", 1},
        {"(def_effect Bad (Source) () dest = (blur Source (abs x) 1 1 1))\n", 1},
        {"(def_effect good (Source) () dest = Source)\n", 1},  // another spelling of the same
        {"words ) in between\n", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bad);
        for (const bool first : {true, false}) {
            const std::string text = first ? std::string(row.bad) + good : std::string(good) + row.bad;
            EXPECT_EQ(check(text).failed, row.failed) << check(text).messages;
            EXPECT_EQ(check(text, "Good").failed, 0);
            // The whole text as one plug-in, whose effect is then the good one. Two of a name stop it.
            if (std::string(row.bad).find("good") != std::string::npos) continue;
            Quiet quiet;
            TextPlugin plugin(text);
            plugin.inputs = {random_clip(1)};
            ASSERT_TRUE(plugin.start());
            const auto frame = plugin.render();
            ASSERT_FALSE(frame.empty());
            const auto source = clip_bytes(*plugin.inputs[0], 0, plugin.host.format);
            for (size_t i = 0; i < 100; ++i) EXPECT_NEAR(frame[i], source[i] * 0.5, 1);
        }
    }
}

}  // namespace
