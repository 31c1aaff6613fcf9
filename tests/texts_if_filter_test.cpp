#include "support/memory.h"
#include "testing/support_messages.h"
#include "texts/if_filter.h"

#include <cstring>

using namespace velloran;

namespace {

class IfFilter : public SupportTest {
protected:
    static std::string filtered(std::string text, const char* name = "t") {
        remove_comments_and_false_if_statements(text.data(), name);
        return text.c_str();
    }
};

TEST_F(IfFilter, KeepsWhatHoldsHere) {
    struct Case {
        const char *name, *text, *kept, *messages;
    };
    const Case cases[] = {
        {"empty", "", "", ""},
        {"no hash", "a b", "a b", ""},
        {"true", "x #if 1 a #endif y", "x  a  y", ""},
        {"else of false", "#if 0\nA\n#else\nB\n#endif\nC", "\nB\n\nC", ""},
        {"else of true", "#if 1 A #else B #endif", " A ", ""},
        {"alternatives", "#if widgets|shake A #endif #if shake|ae B #endif", " A  ", ""},
        {"ifnot", "#ifnot shake A #endif #ifnot spark B #endif", " A  ", ""},
        {"elseif", "#if shake A #elseif spark B #elseif 1 C #else D #endif", " B ", ""},
        {"elseif behind true", "#if 1 A #elseif 1 B #else C #endif", " A ", ""},
        {"false parent", "#if 0 a #if 1 b #else c #endif d #else e #endif", " e ", ""},
        {"false parent's elseif", "#if 0 #if 0 a #elseif 1 b #endif #endif c", " c", ""},
        {"after a nested one", "#if 1 a #if 0 b #endif c #else d #endif", " a  c ", ""},
        {"predicate on the next line", "#if\n 0 a #endif b", " b", ""},
        {"rest of the line is text", "#if 1 a\n#endif b", " a\n b", ""},
        {"hash in a string", "\"#if 0\" a", "\"#if 0\" a", ""},
        {"escaped quote", R"("x\"#if 0" b)", R"("x\"#if 0" b)", ""},
        {"string state restarts", "\" #if 1 \" #if 0 x #endif y", "\" #if 1 \"  y", ""},
        {"hash in a dropped branch", "#if 0 #if 1 #endif x #endif y", " y", ""},
        {"ref passes", "#if 1 a #ref b #endif #if 0 #ref c #endif", " a #ref b  ", ""},
        {"unknown hash word", "a #foo b", "a #foo b", "0 WARNING in t line 1: unknown hash command: #foo \n"},
        {"unknown in dropped text", "#if 0\n#foo #endif", "", "0 WARNING in t line 2: unknown hash command: #foo \n"},
        {"word runs to white space", "#if 1 a #endif) b #endif", " a #endif) b ",
         "0 WARNING in t line 1: unknown hash command: #endif) \n"},
        {"lone hash", "a # b", "a # b", "0 WARNING in t line 1: unknown hash command: # \n"},
        {"comment", "a // b\nc//d", "a \nc", ""},
        {"comment up to a carriage return", "a // b\rc", "a \rc", ""},
        {"comment in a string", "\"http://x\"\nb", "\"http:\nb", ""},
        {"comment hides a hash", "// #if 0\na", "\na", ""},
        {"unclosed true", "a\n#if 1 b", "a\n b", "0 WARNING in t line 2: unclosed #if statement \n"},
        {"unclosed false keeps the rest", "a #if 0 b #foo c\nd", "a  c\nd",
         "0 WARNING in t line 1: unknown hash command: #foo \n0 WARNING in t line 1: unclosed #if statement \n"},
        {"stray else", "a\n#else b", "a\n b", "0 ERROR in t line 2: #else not within an #if \n"},
        {"stray endif", "#if 1 #endif\n\n#endif b", " \n\n b", "0 ERROR in t line 3: #endif not within an #if \n"},
        {"stray elseif", "#elseif 1 b", " b", "0 ERROR in t line 1: #elseif not within an #if \n"},
        {"two elses", "#if 0 a #else b\n#else c #endif d", " b\n d",
         "0 ERROR in t line 2: more than one #else within an #if \n"},
        {"elseif behind else", "#if 0 a #else b #elseif 1 c #endif d", " b  d",
         "0 ERROR in t line 1: #elseif follows #else within the same #if \n"},
        {"unknown word", "#if moon|1 a #endif", " a ", "0 WARNING in t line 1: unknown if var in predicate: moon \n"},
        {"unknown word not reached", "#if 1|moon a #endif", " a ", ""},
        {"only a bar", "#if | a #endif b", " b", ""},
        {"no predicate", "#if", "",
         "0 WARNING in t line 1: empty #if or #elseif predicate string.\n0 WARNING in t line 1: unclosed #if statement "
         "\n"},
        {"bytes above 127", "\xff#if\xa0 \xe9", "\xff#if\xa0 \xe9",
         "0 WARNING in t line 1: unknown hash command: #if\xa0 \n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(filtered(c.text), c.kept);
        EXPECT_EQ(messages(), c.messages);
    }
}

TEST_F(IfFilter, NestsNineDeep) {
    const auto nested = [](int n) {
        std::string text;
        for (int i = 0; i < n; ++i) text += "#if 1\n";
        for (int i = 0; i < n; ++i) text += "#endif\n";
        return text;
    };
    filtered(nested(9));
    EXPECT_EQ(messages(), "");
    std::string ten = nested(10);
    char* const text = ten.data();
    EXPECT_EQ(abort_status([text] { remove_comments_and_false_if_statements(text, nullptr); }), 1);
    EXPECT_EQ(messages(), "0 ERROR in  line 10: #if nesting > 10\n");
    EXPECT_EQ(filtered("#if 0 a #endif b"), " b");  // nothing of it stays
}

TEST_F(IfFilter, KnowsItsHosts) {
    const auto true_words = [](const char* host) {
        set_if_name_index(host);
        std::string words;
        for (int i = 0; i < n_if_vars; ++i)
            if (if_var_values[i]) words += std::string(if_vars[i]) + ' ';
        return words;
    };
    EXPECT_EQ(true_words("spark"), "1 widgets spark ");
    EXPECT_EQ(true_words("avx"), "1 widgets avx avx1 ");
    EXPECT_EQ(true_words("avx2"), "1 widgets avx avx2 ");
    EXPECT_EQ(abort_status([] { set_if_name_index("nobody"); }), 1);
    EXPECT_EQ(messages(), "0 ERROR set_if_name_index: nobody no name match! \n");
}

// Every byte that is kept must lead back to an equal byte of the original, in order, at the line and column counted
// there.
TEST_F(IfFilter, MapLeadsBackToTheOriginal) {
    const std::string original =
        "(def a // first\n"
        "#if shake x\n  y #else\n\tkept // and \"this\"\n#endif (b #ref c)\n"
        "#foo #if 1 d\n#if 0 e #endif f\n#endif g)";
    std::string text = original;
    TextMap map;
    map.origin = {10, 5, 1000};
    remove_comments_and_false_if_statements(text.data(), "t", &map);
    const std::string kept = text.c_str();
    EXPECT_EQ(map.length, static_cast<int>(kept.size()));
    long last = -1;
    for (size_t i = 0; i <= kept.size(); ++i) {
        const TextPlace place = map_text_place(map, static_cast<long>(i));
        const auto at = static_cast<size_t>(place.offset - 1000);
        ASSERT_LE(at, original.size());
        EXPECT_GT(place.offset, last);
        last = place.offset;
        EXPECT_EQ(original.c_str()[at], kept.c_str()[i]);
        int line = 10, column = 5;
        for (size_t j = 0; j < at; ++j) {
            column = original[j] == '\n' ? 1 : column + 1;
            line += original[j] == '\n';
        }
        EXPECT_EQ(place.line, line) << i;
        EXPECT_EQ(place.column, column) << i;
    }
    EXPECT_EQ(last, 1000 + static_cast<long>(original.size()));
    free_text_map(map);
}

}  // namespace
