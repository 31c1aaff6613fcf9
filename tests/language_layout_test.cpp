// Laying texts out: no text means something else afterwards, by the library's own reading.
#include "hosts/language/layout.h"
#include "tests/language_texts.h"

using namespace test_language;
using language::lay_out;
using language::Layout;

namespace {

class LayoutTest : public GenotypeTest {
protected:
    // The trees and params of all definitions.
    static std::string graphs(const std::string& text) {
        const std::string kept = filtered(text);
        std::string all;
        const char* name = nullptr;
        int length = 0;
        for (const char* at = find_definition(kept.c_str(), &name, &length); at;) {
            const char* const next = find_definition(at + 1, &name, &length);
            const GenotypePtr genotype =
                read_text(std::string(at, next ? static_cast<size_t>(next - at) : std::strlen(at)));
            all += tree(genotype.get()) + "\n";
            for (int i = 0; genotype && i < genotype->param_number; i++) {
                const Param& p = *genotype->params[i];
                all += std::string(p.name) + " " + std::to_string(p.type) + " " + std::to_string(p.min_value) + " " +
                       std::to_string(p.max_value) + " " + std::to_string(p.step) + " " +
                       std::to_string(p.default_value[0]) + " " + std::to_string(p.scale_flags);
                for (const char* entry : p.popup_entries) all += entry ? std::string(" ") + entry : "";
                for (const ParamWidgetData* w = p.widget_list; w; w = w->next)
                    all += std::string(" ") + w->widget_type + "." + w->part_name;
                all += "\n";
            }
            at = next;
        }
        return all;
    }

    // Comments with the names that follow them, which is what they are about.
    static std::string comments(const std::string& text) {
        const language::Outline outline = language::outline_of(text);
        std::string all;
        for (size_t i = 0; i < outline.tokens.size(); i++) {
            if (outline.tokens[i].kind == language::Kind::comment) all += outline.word(i);
            if (outline.tokens[i].role == language::Role::target) all += outline.word(i);
            while (!all.empty() && language::blank_p(all.back())) all.pop_back();
            all += '\n';
        }
        return all;
    }
};

// Line ends and blanks between words as an author in a hurry leaves them.
std::string scrambled(const std::string& text, std::mt19937& random) {
    const language::Outline outline = language::outline_of(text);
    std::string out;
    size_t behind = 0;
    for (size_t i = 0; i < outline.tokens.size(); i++) {
        const language::Token& token = outline.tokens[i];
        const std::string gap = text.substr(behind, token.begin - behind);
        const bool line = gap.find('\n') != std::string::npos;
        const bool free = token.definition >= 0 && i && outline.tokens[i - 1].kind != language::Kind::comment &&
                          token.kind != language::Kind::comment && token.kind != language::Kind::directive &&
                          outline.tokens[i - 1].kind != language::Kind::directive;
        if (free && random() % 3 == 0)
            out += random() % 4 ? std::string(1 + random() % 5, ' ') : std::string("\n\t \n\n") + (line ? "  " : "");
        else
            out += gap;
        out += text.substr(token.begin, token.end - token.begin);
        behind = token.end;
    }
    return out + text.substr(behind);
}

}  // namespace

TEST_F(LayoutTest, KeepsGraphsParamsAndCommentsOfEveryText) {
    std::mt19937 random(7);
    for (const ShippedText& shipped : shipped_texts()) {
        SCOPED_TRACE(shipped.name);
        const std::string meant = graphs(shipped.text);
        for (int i = 0; i < 4; i++) {
            const std::string text = i ? scrambled(shipped.text, random) : shipped.text;
            ASSERT_EQ(graphs(text), meant) << text;
            const Layout once = lay_out(text);
            ASSERT_EQ(once.refusal, "") << text;
            ASSERT_EQ(graphs(once.text), meant) << once.text;
            ASSERT_EQ(comments(once.text), comments(text));
            ASSERT_EQ(lay_out(once.text).text, once.text);
        }
    }
}

TEST_F(LayoutTest, KeepsTheWordsOfDamagedTexts) {
    std::mt19937 random(8);
    const auto& all = shipped_texts();
    int laid_out = 0;
#ifdef VELLORAN_SLOW_BUILD
    constexpr int texts = 500;
#else
    constexpr int texts = 4000;
#endif
    const ErrorPrinter errors = set_error_printer([](int, const char*) {});
    const LogPrinter log = set_log_printer([](const char*) {});
    for (int i = 0; i < texts; i++) {
        std::string text = all[random() % all.size()].text;
        const size_t from = random() % text.size();
        if (text.size() > 3000) text = text.substr(0, 1500) + text.substr(std::max(from, text.size() - 1500));
        text = damaged(text, random, 1 + static_cast<int>(random() % 8));
        const Layout once = lay_out(text);
        if (!once.refusal.empty()) continue;
        laid_out++;
        ASSERT_TRUE(library_words(once.text) == library_words(text)) << text << "\n----\n" << once.text;
        const Layout twice = lay_out(once.text);
        ASSERT_EQ(twice.text, once.text) << twice.refusal;
    }
    set_log_printer(log);
    set_error_printer(errors);
    EXPECT_GT(laid_out, texts / 10);
}

TEST_F(LayoutTest, LooksAsAnAuthorWouldWriteIt) {
    EXPECT_EQ(
        lay_out("// What.\n(def_effect  A(Source)()   a=0.5(min 0   max 1)//how much\n\n\n\n"
                "#if spark\n   b = [1 2   3 ](color)\n#endif\n"
                "soft=(blur Source\n0.1 2\n1 1) // soft\n   // On its own.\ndest = (interp Source\nsoft a))\n\n\n")
            .text,
        "// What.\n"
        "(def_effect A (Source) ()\n"
        "  a = 0.5 (min 0 max 1)  //how much\n"
        "\n"
        "#if spark\n"
        "  b = [1 2 3] (color)\n"
        "#endif\n"
        "  soft = (blur Source\n"
        "               0.1 2\n"
        "               1 1)  // soft\n"
        "  // On its own.\n"
        "  dest = (interp Source\n"
        "                 soft a)\n"
        ")\n");
    EXPECT_EQ(lay_out("(def_effect A (Source)\r\n  dest = Source\r\n)\r\n").text,
              "(def_effect A (Source)\r\n  dest = Source\r\n)\r\n");
    EXPECT_NE(lay_out("(def_effect A (Source) dest = (blur Source").refusal, "");
    size_t lines = 0, changed = 0;
    for (const ShippedText& shipped : shipped_texts()) {
        if (!shipped.name.ends_with(".text")) continue;
        std::istringstream before(shipped.text), after(lay_out(shipped.text).text);
        std::string a, b;
        while (std::getline(before, a) && std::getline(after, b)) {
            lines++;
            changed += a != b;
        }
    }
    // The shipped texts are laid out by hand in the same way.
    EXPECT_LT(changed * 50, lines) << changed << " of " << lines;
}
