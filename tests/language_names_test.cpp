// Names and words of texts, over every shipped text: what the outline says they are, and that renaming changes no
// graph.
#include "hosts/language/completion.h"
#include "hosts/language/document.h"
#include "hosts/language/names.h"
#include "tests/language_texts.h"

#include <set>

using namespace test_language;
using namespace language;

namespace {

// The names of functions and arguments, from the library that the test is linked with.
const Functions& functions() {
    static const Functions all = [] {
        std::vector<render::FunctionRow> rows;
        for (int i = 0; i < node_fun_number; i++) {
            render::FunctionRow& row = rows.emplace_back();
            row.name = node_funs[i].name;
            for (int a = 0; a < node_funs[i].arg_number; a++)
                row.arguments.push_back({node_funs[i].arg_names[a], "", "", "", {}, false});
        }
        return functions_by_name(rows);
    }();
    return all;
}

std::string with_edits(std::string text, const std::vector<Edit>& edits) {
    for (size_t i = edits.size(); i-- > 0;) text.replace(edits[i].begin, edits[i].end - edits[i].begin, edits[i].by);
    return text;
}

class NamesTest : public GenotypeTest {
protected:
    // Tree and params of each definition, without the names of params.
    static std::string graphs(const std::string& text) {
        const std::string kept = filtered(text);
        std::string all;
        const char* name = nullptr;
        int length = 0;
        for (const char* at = find_definition(kept.c_str(), &name, &length); at;) {
            const char* const next = find_definition(at + 1, &name, &length);
            const GenotypePtr genotype =
                read_text(std::string(at, next ? static_cast<size_t>(next - at) : std::strlen(at)));
            if (!genotype) return "cannot be read";
            all += tree(genotype.get());
            for (int i = 0; i < genotype->param_number; i++) {
                const Param& p = *genotype->params[i];
                all += " " + std::to_string(p.default_value[0]);
                for (const ParamWidgetData* w = p.widget_list; w; w = w->next) {
                    all += std::string(" ") + w->widget_type + "." + w->part_name;
                    // Which param switches it, by its place.
                    for (int k = 0; w->enable_param_name && k < genotype->param_number; k++)
                        if (!std::strcmp(w->enable_param_name, genotype->params[k]->name)) all += std::to_string(k);
                }
            }
            all += "\n";
            at = next;
        }
        return all;
    }
};

}  // namespace

TEST_F(NamesTest, EveryWordOfShippedTextsIsKnownAndHasItsMeaning) {
    size_t judged = 0;
    for (const ShippedText& shipped : shipped_texts()) {
        const Outline outline = outline_of(shipped.text);
        for (size_t i = 0; i < outline.tokens.size(); i++) {
            const Role role = outline.tokens[i].role;
            SCOPED_TRACE(shipped.name + ": " + std::string(outline.word(i)) + " at " +
                         std::to_string(outline.tokens[i].begin));
            ASSERT_NE(outline.tokens[i].kind, Kind::quote);
            if (outline.tokens[i].kind != Kind::word || role == Role::none) {
                ASSERT_FALSE(outline.tokens[i].kind == Kind::word && outline.tokens[i].definition >= 0);
                continue;
            }
            judged++;
            if (role == Role::reference) {
                ASSERT_TRUE(making(outline, i) || find_word(variable_words(), outline.word(i)));
            }
            if (role != Role::number && role != Role::entry && role != Role::value) {
                ASSERT_NE(hover_text(outline, i, functions()), "");
            }
            if (i % 5) continue;  // so many are enough for what costs more
            ASSERT_EQ(outline.token_at(outline.tokens[i].begin), i);
            ASSERT_EQ(outline.token_at(outline.tokens[i].end), i);
            // Whatever stands there would have been offered.
            if (role == Role::function || role == Role::reference || role == Role::declaration ||
                role == Role::modifier || role == Role::widget_type || role == Role::glyph) {
                const std::string_view word = outline.word(i).substr(0, outline.word(i).find('.'));
                if (outline.word(i)[0] == '_') continue;
                const Offers offers = offers_at(shipped.text, outline.tokens[i].begin, functions(), false);
                ASSERT_TRUE(std::any_of(offers.words.begin(), offers.words.end(),
                                        [&](const Offer& offer) { return offer.label == word; }));
            }
        }
    }
    EXPECT_GT(judged, 5000u);
}

TEST_F(NamesTest, TheLibraryTakesEveryWordThatIsOffered) {
    const auto reads = [](const std::string& text) { return read_text(filtered(text)) != nullptr; };
    for (const Word& word : declaration_words()) {
        std::string with(word.word);
        if (word.behind == "number") with += " 1";
        if (word.behind == "entries") with += " a b";
        if (word.behind == "kind") with += " center.center name a glyph cross default_on";
        if (word.behind == "name") with += " a";
        if (word.word.starts_with("group_start")) with += " group_end a";
        if (word.word == "group_end") with = "group_start a group_end a";
        EXPECT_TRUE(reads("(def_effect A (Source) () a = 0.5 (" + with + " ignore) dest = Source)")) << word.word;
    }
    for (const Word& word : variable_words())
        // One of these takes as many elements as it has.
        EXPECT_TRUE(reads("(def_effect A (S T U V) () dest = (coerce_to " + std::string(word.word) + " S))") ||
                    reads("(def_effect A (S T U V) () dest = (* S (mag " + std::string(word.word) + ")))"))
            << word.word;
    for (const Word& word : condition_words())
        EXPECT_EQ(filtered("#if " + std::string(word.word) + "\nyes\n#endif").find("yes") != std::string::npos,
                  word.meaning == "holds")
            << word.word;
}

TEST_F(NamesTest, RenamingKeepsEveryGraphAndTurnsBack) {
    int renamed = 0;
    for (const ShippedText& shipped : shipped_texts()) {
        const Outline outline = outline_of(shipped.text);
        const std::string meant = graphs(shipped.text);
        for (const Definition& definition : outline.definitions) {
            std::vector<size_t> names = definition.inputs;
            for (const Assignment& made : definition.assignments) names.push_back(made.name);
            for (const size_t token : names) {
                const std::string old(outline.word(token));
                SCOPED_TRACE(shipped.name + ": " + old);
                const Renaming there = rename(outline, token, "Qqq");
                if (old == "dest" || old == "Background" || old.starts_with("pattern_") || old == "field_dominance") {
                    EXPECT_NE(there.refusal, "");
                    continue;
                }
                ASSERT_EQ(there.refusal, "");
                const std::string text = with_edits(shipped.text, there.edits);
                // The writer shows the name of a call that has one.
                std::string graph = graphs(text);
                for (size_t at; (at = graph.find("(Qqq")) != std::string::npos;) graph.replace(at + 1, 3, old);
                ASSERT_EQ(graph, meant) << text;
                // Nothing else has the old name now.
                const Outline after = outline_of(text);
                const size_t moved = after.token_at(text.find("Qqq"));
                const Renaming back = rename(after, moved, old);
                ASSERT_EQ(back.refusal, "");
                const std::string again = with_edits(text, back.edits);
                // The part that a handle was given stays.
                if (again.size() == shipped.text.size()) {
                    ASSERT_EQ(again, shipped.text);
                }
                for (const size_t other : names) {
                    ASSERT_EQ(rename(outline, token, outline.word(other)).refusal.empty(), outline.word(other) == old)
                        << outline.word(other);
                }
                renamed++;
            }
        }
    }
    EXPECT_GT(renamed, 500);
}

TEST_F(NamesTest, RenamingKeepsStringsAndCommentsAndRefusesWhatIsNoName) {
    const std::string text =
        "// width of A\n(def_effect A (Source)\n"
        "  width = 1 (popup \"width\" width group_start width group_end width) // width\n"
        "  spot = [0 0] (widget center use_wenable on)\n  on = 1 (boolean)\n"
        "  dest = (blur Source width 2 1 1)\n)\n"
        "(def_effect B (Source)\n  width = 1\n  dest = (* Source width)\n)\n";
    const Outline outline = outline_of(text);
    const size_t width = outline.token_at(text.find("width = 1"));
    EXPECT_EQ(with_edits(text, rename(outline, width, "reach").edits),
              "// width of A\n(def_effect A (Source)\n"
              "  reach = 1 (popup \"width\" width group_start width group_end width) // width\n"
              "  spot = [0 0] (widget center use_wenable on)\n  on = 1 (boolean)\n"
              "  dest = (blur Source reach 2 1 1)\n)\n"
              "(def_effect B (Source)\n  width = 1\n  dest = (* Source width)\n)\n");
    const std::string switched =
        with_edits(text, rename(outline, outline.token_at(text.find("on = 1")), "shown").edits);
    EXPECT_NE(switched.find("use_wenable shown"), std::string::npos);
    EXPECT_NE(with_edits(text, rename(outline, outline.token_at(text.find("spot")), "place").edits)
                  .find("place = [0 0] (widget center.spot use"),
              std::string::npos);
    for (const char* const name :
         {"",  " ",  "a b",     "a(",     "a=",   "\"a\"",  "a#if", "a//b",  "1",  "-1",  ".5x",
          "x", "XY", "_image2", "Output", "dest", "Source", "spot", "_blur", "a]", "a\tb"})
        EXPECT_NE(rename(outline, width, name).refusal, "") << name;
    EXPECT_NE(rename(outline, width, std::string(128, 'a')).refusal, "");
    EXPECT_EQ(rename(outline, width, "width").edits.size(), 0u);
    EXPECT_NE(rename(outline, outline.token_at(text.find("Source")), "Long_name").refusal, "");
    EXPECT_NE(rename(outline, outline.token_at(text.find("A (S")), "B").refusal, "");
    EXPECT_EQ(rename(outline, outline.token_at(text.find("A (S")), "C").edits.size(), 1u);
    for (const char* const nothing : {"blur", "def_effect", "popup", "\"width\"", "dest", "2 1"})
        EXPECT_NE(rename(outline, outline.token_at(text.find(nothing)), "good").refusal, "") << nothing;
}

// An editor's counting against the same done with text of 16-bit units.
TEST_F(NamesTest, PlacesCountAsEditorsDo) {
    std::mt19937 random(3);
    const std::vector<std::pair<std::string, std::u16string>> pieces = {{"a", u"a"},
                                                                        {"\xc3\xa9", u"\u00e9"},
                                                                        {"\xe6\xbc\xa2", u"\u6f22"},
                                                                        {"\xf0\x9f\x98\x80", u"\U0001f600"},
                                                                        {"\n", u"\n"},
                                                                        {"\r\n", u"\r\n"},
                                                                        {"\r", u"\r"},
                                                                        {" ", u" "}};
    for (int round = 0; round < 200; round++) {
        Document document;
        std::u16string model;
        for (int step = 0; step < 40; step++) {
            const auto& [bytes, wide] = pieces[random() % pieces.size()];
            // A random place of the model, as line and unit.
            size_t at[2];
            Place places[2];
            for (int k = 0; k < 2; k++) {
                at[k] = random() % (model.size() + 1);
                if (at[k] > 0 && at[k] < model.size() && (model[at[k]] & 0xfc00) == 0xdc00) at[k]--;
                if (at[k] > 0 && at[k] < model.size() && model[at[k] - 1] == '\r' && model[at[k]] == '\n') at[k]--;
                for (size_t i = 0; i < at[k]; i++) {
                    const bool ends =
                        model[i] == '\n' || (model[i] == '\r' && !(i + 1 < model.size() && model[i + 1] == '\n'));
                    places[k] = ends ? Place{places[k].line + 1, 0} : Place{places[k].line, places[k].character + 1};
                }
            }
            if (random() % 2) at[1] = at[0], places[1] = places[0];
            document.replace(places[0], places[1], bytes);
            model.replace(std::min(at[0], at[1]), std::max(at[0], at[1]) - std::min(at[0], at[1]), wide);
            std::string expected;
            for (size_t i = 0; i < model.size(); i++)
                for (const auto& [b, w] : pieces)
                    if (w.size() <= model.size() - i && model.compare(i, w.size(), w) == 0 && w != u"\r\n") {
                        expected += b;
                        i += w.size() - 1;
                        break;
                    }
            ASSERT_EQ(document.text(), expected);
            for (size_t i = 0; i <= document.text().size(); i++) ASSERT_LE(document.offset(document.place(i)), i);
        }
    }
}
