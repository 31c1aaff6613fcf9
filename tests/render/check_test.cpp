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

// A module to ask; it is never started, and stays loaded to the end with all that it keeps.
const Plugin& text_module() {
    static Host host;
    static const Plugin* const module = [] {
        std::string error;
        return load_plugin(host, TEXT_PLUGIN, "", &error).release();
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
    if (!effect.host.errors.empty()) return "start: " + effect.host.errors.back();
    if (!effect.render().empty()) return "";
    std::string words;
    for (const auto* reports : {&effect.host.errors, &effect.host.messages})
        for (const std::string& report : *reports) words += report + "\n";
    return "frame: " + words;
}

void expect_agreement(const std::string& text) {
    const Checked checked = check(text);
    const std::string refusal = render_refusal(text);
    // A frame may not come to need a call that none could make.
    const bool maybe_unused = checked.messages.find("clip args are not both clips") != std::string::npos ||
                              checked.messages.find("first arg must be a clip") != std::string::npos;
    // A text of a test has no buttons for the pattern of a cadence.
    const bool no_pattern = refusal.find("Can't deinterlace with zero-length pattern.") != std::string::npos;
    if (checked.failed == 0) {
        EXPECT_TRUE(refusal.empty() || no_pattern) << refusal << text << "\n" << checked.messages;
    } else if (!maybe_unused) {
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
    EXPECT_GT(passed, 10);
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

std::string sum_of_params(int n) {
    std::string text, sum = "Source";
    for (int i = 0; i < n; ++i) {
        const std::string name = "p" + std::to_string(i);
        text += name + " = 0.1\n";
        sum = "(+ " + sum + " " + name + ")";
    }
    return text + "dest = " + sum + "\n";
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
        {"85 params", effect(sum_of_params(85)), ""},
        {"86 params", effect(sum_of_params(86)), "9 1:13 layout_buttons: too many params (85 max)"},
        {"four inputs", effect("dest = (+ A D)", "(A B C D)"), ""},
        {"an alpha that goes nowhere", effect("dest = (v2 x y)"), "dest has 2 elements"},
        {"luma alone", effect("dest = x"), ""},
        {"five inputs", effect("dest = (+ A D)", "(A B C D E)"), "it has 5 inputs"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Checked checked = check(row.text);
        if (row.message.empty())
            EXPECT_EQ(checked.messages, "");
        else
            EXPECT_NE(checked.messages.find(row.message), std::string::npos) << checked.messages;
        expect_agreement(row.text);
    }
}

// What the present values of the params spare may come back, sides of branches that are never together may not.
TEST(Check, WarnsOfPassesThatOtherValuesMakeTooLong) {
    const std::string sum = repeated(150, "(+ 0.001 ") + "Source" + repeated(150, ")");
    const std::string other = repeated(150, "(- ") + "Source" + repeated(150, " 0.001)");
    const std::string either = effect("side = 0 (min -1 max 1)\ndest = (if+ side " + sum + " " + other + ")\n");
    const std::string both = effect("mix = 0 (min 0 max 1)\ndest = (interp " + sum + " " + other + " mix)\n");
    EXPECT_EQ(check(either).messages, "");
    EXPECT_EQ(check(both).failed, 0);
    EXPECT_EQ(check(both).messages,
              "7 3:8 E: for some values of its params more than 200 functions stand in one pass, which is refused.\n");
    expect_agreement(either);
    expect_agreement(both);
}

TEST(Check, TellsOfWidgetsWhereTheyStand) {
    const Checked checked =
        check(effect("a = [0 0] (widget centre)\nb = 1 (widget center.middle)\nc = 1 (widget "
                     "center_radius.radius)\ndest = (+ Source "
                     "(* c (+ b (mag a))))"));
    EXPECT_EQ(checked.failed, 0);
    EXPECT_EQ(checked.messages,
              "7 2:1 No such widget type name as centre\n2 2:1 did you mean 'center'?\n"
              "7 3:1 Bad part name middle for center widget\n2 3:1 its parts are center, offset, negate.\n"
              "7 4:1 E.c widget: No base type for radius\n");
    EXPECT_NE(check(effect("a = [0 0] (widget center.center glyph blob)\ndest = (+ Source (mag a))"))
                  .messages.find("Unknown center widget type blob"),
              std::string::npos);
}

// Slips that a text is read in spite of, and what was probably meant. Nothing is said of what is right.
TEST(Check, HelpsAnAuthor) {
    const struct {
        const char *text, *messages;
    } rows[] = {
        {"(def_effect E (Source)\ndest = (blurr Source))",
         "8 2:9 In E node 0: unknown function 'blurr'\n2 2:9 did you mean 'blur'?\n"},
        {"(def_effect E (Source)\nradius = 1\ndest = (* Sorce radius))",
         "8 3:11 In E: the variable 'Sorce' is not assigned.\n2 3:11 did you mean 'Source'?\n"},
        {"(def_effect E (Source)\nradius = 1\ndest = (* radiis Source))",
         "8 3:11 In E: the variable 'radiis' is not assigned.\n2 3:11 did you mean 'radius'?\n"},
        {"(def_effect E (Source)\ndest = (* something Source))",
         "8 2:11 In E: the variable 'something' is not assigned.\n"},
        {"(def_effect E (Source)\ndest = (* sin Source))",
         "8 2:11 In E: the variable 'sin' is not assigned.\n2 2:11 'sin' is a function: a call is written (sin "
         "...).\n"},
        {"(def_effect E (Source) () a = 1)",
         "8 1:27 In E: the variable 'dest' is not assigned.\n"
         "2 1:27 the result of an effect is what is assigned to dest.\n"},
        {"(def_effect E (Source)\na = (+ b 1)\nb = (* c 2)\nc = (sin a)\ndest = (* Source c))",
         "8 4:1 In E: cyclic variable references!\n2 4:1 c needs a needs b needs c.\n"},
        {"(def_effect E (Source)\na = b\nb = a\ndest = a)",
         "8 2:1 In E: cyclic variable references!\n2 2:1 a needs b needs a.\n"},
        {"(def_effect E (Source)\nmix = (+ xy (abs Source))\ndest = mix)",
         "8 2:7 In E: + has an invalid combo of arg types.\n2 2:7 elements: value xy has 2, offset (abs ...) has 3.\n"
         "2 2:7 these would fit: (2, 2) -> 2 or (2, 1) -> 2 or (3, 3) -> 3 or (1, 3) -> 3 or (4, 3) -> 4.\n"},
        {"(def_effect E (Source)\ndest = (clamp Source 0))",
         "8 2:8 In E: clamp has too few args: 2, needs 3.\n2 2:8 it is called (clamp value bound1 bound2)\n"},
        {"(def_effect E (Source)\na = 1 (mim 0)\ndest = (* a Source))",
         "8 2:8 For E a got 'mim', expected min, max, step, popup, color...\n2 2:8 did you mean 'min'?\n"},
        {"(def_effect E (Source) (rgbaok)\ndest = Source)",
         "7 1:25 *** Warning: E unknown genotype modifier: rgbaok\n2 1:25 did you mean 'rgba_ok'?\n"},
        {"(def_effect E (Source)\ndest = (Warning Source))", "8 2:9 In E node 0: unknown function 'Warning'\n"},
        {"(def_efect E (Source)\ndest = Source)",
         "8 1:2 'def_efect' begins no definition.\n2 1:2 did you mean 'def_effect'?\n"},
        {"A note (defined below).\n(def_effect E (Source) dest = Source) (an (other note))", ""},
        {"(def_effect E (Source)\ndest = Source))", "7 2:15 a ')' too many: nothing is open here.\n"},
        {"(def_effect E (Source)\ndest = (sin Source)",
         "8 2:20 Eof reading genotype assignment.\n2 1:13 this definition is not closed: a ')' is missing.\n"},
        {"(def_effect E (Source)\ndest = (+ Source 1,5))",
         "7 2:18 the number '1,5' is read as 1: ',5' behind it does not count.\n"},
        {"(def_effect E (Source)\ndest = (+ Source 0x10))",
         "7 2:18 the number '0x10' is read as 0: 'x10' behind it does not count.\n"},
        {"(def_effect E (Source)\ndest = (+ Source [1 1.5.2 1e3]))",
         "7 2:21 the number '1.5.2' is read as 1.5: '.2' behind it does not count.\n"},
        {"(def_effect E (Source)\na = 1 (min 2 max 0.5)\ndest = (* a Source))",
         "7 2:1 For a: min 2 is above max 0.5.\n"},
        {"(def_effect E (Source)\na = 1 (min 2 max 3)\ndest = (* a Source))",
         "7 2:1 For a: 1 is outside its bounds of 2 to 3.\n"},
        {"(def_effect E (Source)\na = 2 (popup one two)\ndest = (* a Source))",
         "7 2:1 For a: 2 is no entry of it, they are 0 to 1.\n"},
        {"(def_effect E (Source)\na = 0.5 (boolean)\ndest = (* a Source))",
         "7 2:1 For a: 0.5 is no entry of it, they are 0 to 1.\n"},
        {"(def_effect E (Source)\na = 2 (min 0 max 8)\nb = (* a -128)\nc = (*+ 200 Source b)\ndest = (+ (* c 127.9) "
         "(/ c 500)))",
         "7 4:5 E: a product wraps round where it exceeds 128, and with this number nearly all do.\n"
         "7 3:5 E: a product wraps round where it exceeds 128, and with this number nearly all do.\n"},
        {"(def_effect E (Source)\na = [0 -3] (screen_center)\nb = -0.5e1 (min *)\nc = 1 (popup one two)\n"
         "d = +.5 (min -1 max 2E0)\ndest = (* (+ (mag a) (+ b (+ c d))) Source)) // )",
         ""},
    };
    for (const auto& row : rows) EXPECT_EQ(check(row.text).messages, row.messages) << row.text;
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
