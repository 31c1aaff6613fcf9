#include "testing/support_messages.h"
#include "texts/text_reader.h"

#include <cmath>
#include <cstring>
#include <limits>

using namespace velloran;

namespace {

// Readers take writable texts.
struct Reading {
    std::string text;
    explicit Reading(std::string t) : text(std::move(t)) {
        reset_text_reader();
        open_reading_from_string(text.data());
    }
    ~Reading() { reset_text_reader(); }
};

std::string all_tokens() {
    char token[token_size];
    std::string all;
    int code;
    while ((code = read_token(token)) != token_end) {
        if (!all.empty()) all += '|';
        all += code == 0 ? token : std::to_string(code);
    }
    return all;
}

class TextReader : public SupportTest {};

TEST_F(TextReader, SplitsIntoTokensFromStringsAndFiles) {
    struct Case {
        const char *name, *text, *tokens;
    };
    const std::string longest(token_size - 1, 'x'), hundred(100, 'y');
    const std::string long_text = hundred + ' ' + longest + "//c\n" + longest + "z a";
    const std::string long_tokens = hundred + '|' + longest + "|-2|a";
    const Case cases[] = {
        {"empty", "", ""},
        {"blanks only", " \t\r\n\v\f", ""},
        {"delimiters", "(a=1)[b]", "(|a|=|1|)|[|b|]"},
        {"quote ends a token", "ab\"cd", "ab|\"|cd"},
        {"comment", "(def foo // comment )\n)", "(|def|foo|)"},
        {"comment behind a token", "a//b c\nd", "a|d"},
        {"comment at the end", "a //", "a"},
        {"comments in a row", "//x\n//y\n  //z\na", "a"},
        {"three slashes", "a ///b\nc", "a|c"},
        {"single slashes", "a/b/c / d", "a/b/c|/|d"},
        {"slash, delimiter, slash", "/(/ b", "/|(|/|b"},
        {"no end of line", "abc", "abc"},
        {"bytes above 127", "a\xc3\xa9z \x80", "a\xc3\xa9z|\x80"},
        {"long tokens", long_text.c_str(), long_tokens.c_str()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        {
            Reading reading(c.text);
            EXPECT_EQ(all_tokens(), c.tokens);
        }
        reading_from_file_ptr = std::fopen(write("text", c.text).c_str(), "r");
        EXPECT_EQ(all_tokens(), c.tokens);
        std::fclose(reading_from_file_ptr);
        reset_text_reader();
    }
    EXPECT_EQ(messages(), "8 read_token: token of 128 characters is longer than 127: " + std::string(40, 'x') +
                              "...\n8 read_token: token of 128 characters is longer than 127: " + std::string(40, 'x') +
                              "...\n");
}

TEST_F(TextReader, CommentsAreTextWhenNotSkipped) {
    Reading reading("a //b\nc//");
    skip_comments_p = 0;
    EXPECT_EQ(all_tokens(), "a|//b|c//");
}

TEST_F(TextReader, HugeTokensEndInMessages) {
    const std::string huge(1 << 20, 'q');
    char token[token_size], text[100];
    float number;
    {
        Reading reading(huge + " 1");
        EXPECT_EQ(read_number(&number, "it"), token_too_long);
        EXPECT_EQ(read_number(&number, "it"), 0);
    }
    {
        Reading reading('"' + huge + '"');
        EXPECT_EQ(read_string(text, 99), -1);
        EXPECT_EQ(std::strlen(text), 99u);
    }
    {
        Reading reading('"' + huge + "\" end " + huge + " )");
        EXPECT_EQ(read_token_ignore_string(token), 0);
        EXPECT_STREQ(token, "end");
        EXPECT_EQ(skip_to_closing_paren(), 0);
    }
    const std::string too_long =
        "8 read_token: token of 1048576 characters is longer than 127: " + std::string(40, 'q') + "...\n";
    EXPECT_EQ(messages(), too_long + "8 read_string_1: string length > max_len.\n" + too_long);
}

TEST_F(TextReader, PushesOneTokenBack) {
    Reading reading("one two");
    char token[token_size];
    read_token(token);
    unread_token(token);
    EXPECT_EQ(get_reading_from_position(), 4);  // the blank behind it was read
    EXPECT_EQ(read_token(token), 0);
    EXPECT_STREQ(token, "one");
    read_token(token);
    EXPECT_EQ(read_token(token), token_end);
    EXPECT_STREQ(token, "");
    unread_token("again");
    EXPECT_EQ(read_token(token), 0);  // also at the end of the text
    EXPECT_STREQ(token, "again");
    unread_token("first");
    EXPECT_EQ(abort_status([] { unread_token("second"); }), 1);
    EXPECT_EQ(messages(), "8 unread_token: there is already an unread token!\n");
}

TEST_F(TextReader, Strings) {
    struct Case {
        const char *name, *text;
        int max_length, code;
        const char *string, *messages;
    };
    const Case cases[] = {
        {"plain", "\"a (b) = // c\" d", 50, 0, "a (b) = // c", ""},
        {"empty", "\"\"", 50, 0, "", ""},
        {"escaped quote", R"("say \"hi\" now")", 50, 0, "say \"hi\" now", ""},
        {"only an escaped quote", R"("\"")", 50, 0, "\"", ""},
        {"other backslashes", R"("a\nb\\c")", 50, 0, R"(a\nb\\c)", ""},
        {"line break", "\"a\nb\"", 50, 0, "a\nb", ""},
        {"just fits", "\"abc\"", 3, 0, "abc", ""},
        {"one too long", "\"abcd\"", 3, -1, "abc", "8 read_string_1: string length > max_len.\n"},
        {"open", "\"ab", 50, -1, "ab", "8 read_string_1: got eof before end of string.\n"},
        {"no string", "word", 50, -1, "", "8 read_string expected '\"' but got word \n"},
        {"nothing", "", 50, -1, "", "8 read_string expected '\"' but got  \n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Reading reading(c.text);
        char buffer[51];
        EXPECT_EQ(read_string(buffer, c.max_length), c.code);
        EXPECT_STREQ(buffer, c.string);
        EXPECT_EQ(messages(), c.messages);
    }
    Reading reading(R"(a "b \" c" d "open)");
    char token[token_size];
    EXPECT_EQ(read_token_ignore_string(token), 0);
    EXPECT_EQ(read_token_ignore_string(token), 0);
    EXPECT_STREQ(token, "d");
    EXPECT_EQ(read_token_ignore_string(token), token_end);
    EXPECT_EQ(messages(), "8 read_token_ignore_string: got eof before end of string.\n");
}

TEST_F(TextReader, ParsesNumbersInAnyLocale) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* text;
        int is_number;
        float value;
    };
    const Case cases[] = {
        {"1e3", 1, 1000},
        {"-.5", 1, -0.5f},
        {"+7", 1, 7},
        {"  12", 1, 12},
        {"2d", 1, 2},
        {"1.2.3", 1, 1.2f},
        {"1,5", 1, 1},
        {"25e-2", 1, 0.25f},
        {"1E+2x", 1, 100},
        {"3e", 1, 3},
        {"4.", 1, 4},
        {"0e999", 1, 0},
        {"1e99", 1, inf},
        {"-1e99999999999", 1, -inf},
        {"5e-99999999999", 1, 0},
        {"16777216", 1, 16777216},
        {"", 0, 0},
        {"-", 0, 0},
        {"- 5", 0, 0},
        {".", 0, 0},
        {"-.e5", 0, 0},
        {"e5", 0, 0},
        {"--1", 0, 0},
        {"inf", 0, 0},
        {"\xb2", 0, 0},
    };
    const auto parse_all = [&] {
        for (const Case& c : cases) {
            SCOPED_TRACE(c.text);
            float value = 77;
            EXPECT_EQ(parse_float(c.text, &value), c.is_number);
            EXPECT_FLOAT_EQ(value, c.is_number ? c.value : 77);
        }
    };
    parse_all();
    if (use_decimal_comma(dir))
        parse_all();
    else
        std::puts("no locale with decimal commas here");
    std::setlocale(LC_ALL, "C");
    float digits;
    EXPECT_EQ(parse_float((std::string(60, '9') + "e-999").c_str(), &digits), 1);
    EXPECT_FALSE(std::isnan(digits));
    // Digit by digit in single precision, not rounded once from the exact value.
    float expected = 0, weight = 1;
    for (int digit : {1, 2, 3, 4, 5, 6, 7}) {
        weight *= 0.1f;
        expected += static_cast<float>(digit) * weight;
    }
    EXPECT_EQ(parse_float("0.1234567", &digits), 1);
    EXPECT_EQ(digits, expected);
}

TEST_F(TextReader, NumbersAndWordsInOnePlace) {
    float number = 0;
    {
        Reading reading("- word");
        EXPECT_EQ(read_number(&number, nullptr), token_no_number);
        EXPECT_STREQ(get_last_non_number_string(), "-");
        EXPECT_EQ(read_number(&number, "size"), token_no_number);
        EXPECT_EQ(read_number(&number, "size"), token_end);
        EXPECT_STREQ(get_last_non_number_string(), "");
        EXPECT_EQ(expect_token("(", "list"), token_end);
        EXPECT_EQ(read_number_after("min", "bounds", &number, 1, 3), token_end);
        EXPECT_EQ(messages(),
                  "8 size expected a number, but got 'word'\n8 size expected a number, but got eof\n"
                  "8 list expected (, but got eof\n8 bounds expected min, but got eof\n");
    }
    Reading reading("( min 4 max step x y");
    EXPECT_EQ(expect_token("(", "list"), 0);
    EXPECT_EQ(read_number_after("min", "bounds", &number, 0, 3), 0);
    EXPECT_EQ(number, 4);
    EXPECT_EQ(read_number_after("min", "bounds", &number, 1, 3), 0);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(read_number_after("min", "bounds", &number, 0, 3), -1);  // "max" was still there
    EXPECT_EQ(read_number_after("step", "bounds", &number, 0, 3), token_no_number);
    EXPECT_EQ(expect_token("z", "end"), -1);
    EXPECT_EQ(messages(),
              "8 bounds expected 'min', but got 'max'\n8 after 'step' expected a number, but got 'x'\n"
              "8 end expected 'z', but got 'y'\n");
}

TEST_F(TextReader, ReadsUpToTokens) {
    char token[token_size];
    Reading reading("a ( ( b def ( glow x ) 1 ( 2 ) ) rest");
    EXPECT_EQ(read_until_token("("), 0);
    EXPECT_EQ(read_until_tokens_3("def", "(", "glow"), 0);
    EXPECT_EQ(skip_to_closing_paren(), 0);
    read_token(token);
    EXPECT_STREQ(token, "1");
    EXPECT_EQ(read_until_tokens_2(")", "rest"), token_end);  // the ) that broke the first row begins none itself
    EXPECT_EQ(abort_status([] { skip_to_closing_paren(); }), 1);
    EXPECT_EQ(messages(), "8 unbalanced parens: eof before closed.\n");
}

TEST_F(TextReader, SourcesNestAndReturn) {
    const std::string inner = write("inner", "i1 i2");
    Reading reading("outer1 outer2 outer3");
    char token[token_size];
    read_token(token);
    parser_state state;
    save_parser_state(&state);
    EXPECT_EQ(abort_status([] { get_next_char(); }), 1);
    EXPECT_EQ(abort_status([] { get_reading_from_position(); }), 1);
    EXPECT_EQ(abort_status([] { set_reading_from_position(0); }), 1);
    reading_from_file_ptr = std::fopen(inner.c_str(), "r");
    EXPECT_EQ(all_tokens(), "i1|i2");
    std::fclose(reading_from_file_ptr);
    restore_parser_state(&state);
    TextPlace place;
    EXPECT_TRUE(get_last_token_place(&place));
    EXPECT_EQ(place.column, 1);
    save_reading_from_info();
    EXPECT_EQ(all_tokens(), "outer2|outer3");
    restore_reading_from_info();
    EXPECT_EQ(all_tokens(), "outer2|outer3");
    restore_reading_from_info();
    save_reading_from_info();
    save_reading_from_info();
    save_parser_state(nullptr);
    restore_parser_state(nullptr);
    reset_text_reader();
    EXPECT_EQ(abort_status([] {
                  open_reading_from_string(nullptr);
                  get_next_char();
              }),
              1);
    EXPECT_EQ(messages(),
              "8 get_next_char: need reading_from_file_ptr or reading_from_string.\n"
              "8 get_reading_from_position: need reading_from_file_ptr or reading_from_string.\n"
              "8 set_reading_from_position: need reading_from_file_ptr or reading_from_string.\n"
              "8 *** OOPS restore_reading_from_info: not saved! \n"
              "8 *** OOPS save_reading_from_info: already saved! \n"
              "8 NULL parser state in save_parser_state\n8 NULL parser state in restore_parser_state\n"
              "8 open_reading_from_string: received a NULL string! \n"
              "8 get_next_char: need reading_from_file_ptr or reading_from_string.\n");
}

TEST_F(TextReader, Characters) {
    Reading reading("  ab\xff");
    skip_whitespace();
    EXPECT_EQ(get_next_char(), 'a');
    put_back_char('a');
    put_back_char(' ');
    EXPECT_EQ(messages(), "");
    put_back_char('x');
    EXPECT_EQ(reading.text, "x ab\xff");
    put_back_char('x');
    put_back_char(-1);
    EXPECT_EQ(messages(),
              "9 put_back_char: Putting back mismatched char: x over  !\n"
              "8 put_back_char: no room in string to put back.\n8 put_back_char: attempting to put back EOF!\n");
    set_reading_from_position(4);
    EXPECT_EQ(get_next_char(), -1);  // sign-extended
    set_reading_from_position(99);
    EXPECT_EQ(get_next_char(), -1);
}

TEST_F(TextReader, KnowsWhereTheLastTokenBegan) {
    const std::string text = "one  two\n\n  // a comment\n\tthree=\"s\ns\" four\n";
    struct Step {
        const char* token;
        int line, column;
    };
    const Step steps[] = {{"one", 1, 1}, {"two", 1, 6}, {"three", 4, 2}, {"=", 4, 7},    {"\"", 4, 8},
                          {"s", 4, 9},   {"s", 5, 1},   {"\"", 5, 2},    {"four", 5, 4}, {"", 6, 1}};
    const std::string path = write("text", text);
    for (const bool from_file : {false, true}) {
        Reading reading(text);
        if (from_file) {
            reset_text_reader();
            reading_from_file_ptr = std::fopen(path.c_str(), "r");
        }
        TextPlace place;
        EXPECT_FALSE(get_last_token_place(&place));
        for (const Step& step : steps) {
            char token[token_size];
            read_token(token);
            EXPECT_STREQ(token, step.token);
            for (int again = 0; again < 2; ++again) {
                ASSERT_TRUE(get_last_token_place(&place));
                EXPECT_EQ(place.line, step.line) << token;
                EXPECT_EQ(place.column, step.column) << token;
                EXPECT_EQ(text.compare(static_cast<size_t>(place.offset), std::strlen(token), token), 0);
                if (again == 0 && *token) unread_token(token);
            }
            if (*token) read_token(token);
        }
        if (from_file) std::fclose(reading_from_file_ptr);
    }
}

}  // namespace
