// The first byte counts the operations that follow it; the rest is the text they read, from a string and from a file.
#include "fuzz/fuzz.h"

#include "texts/characters.h"
#include "texts/text_reader.h"

#include <cstring>
#include <vector>

using namespace velloran;

namespace {

const uint8_t* operations;
int n_operations;
long text_size;
std::string heard;  // what the operations answered

void note(int code, const char* text) {
    heard += std::to_string(code);
    heard += ':';
    heard += text;
    heard += '\n';
}

void check_place(const char* token, const std::string* text) {
    TextPlace place;
    if (!get_last_token_place(&place)) return;
    FUZZ_CHECK(place.line >= 1 && place.column >= 1);
    if (!text) return;
    FUZZ_CHECK(place.offset >= 0 && place.offset <= static_cast<long>(text->size()));
    FUZZ_CHECK(text->compare(static_cast<size_t>(place.offset), std::strlen(token), token) == 0);
}

// text: of a string source, else null.
void run(const std::string* text) {
    char token[token_size], string[101];
    float number = 0;
    for (int i = 0; i < n_operations; ++i) {
        int code = 0;
        std::memset(token, 'x', sizeof(token));
        token[0] = 0;
        switch (operations[i] % 12) {
            case 0:
                code = read_token_ignore_string(token);
                break;
            case 1:
                std::memset(string, 'x', sizeof(string));
                code = read_string(string, 100);
                FUZZ_CHECK(std::strlen(string) <= 100);
                break;
            case 2:
                code = read_number(&number, "fuzz");
                break;
            case 3:
                code = expect_token("(", "fuzz");
                break;
            case 4:
                code = read_number_after("step", "fuzz", &number, operations[i] & 16, 1);
                break;
            case 5:
                code = read_until_token("=");
                break;
            case 6:
                code = read_until_tokens_2("(", "def");
                break;
            case 7:
                code = skip_to_closing_paren();
                break;
            case 8:
                set_reading_from_position(text_size * operations[i] / 255);
                break;
            case 9:
                skip_whitespace();
                break;
            default:
                code = read_token(token);
                if (code == 0) {
                    FUZZ_CHECK(*token && std::strlen(token) < token_size);
                    check_place(token, text);
                    if (operations[i] & 16) {
                        unread_token(token);
                        check_place(token, text);
                    }
                }
        }
        FUZZ_CHECK(std::strlen(token) < token_size);
        note(code, token);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    fuzz_begin();
    n_operations = static_cast<int>(data[0] < size - 1 ? data[0] : size - 1);
    operations = data + 1;
    std::string text(reinterpret_cast<const char*>(operations + n_operations),
                     size - 1 - static_cast<size_t>(n_operations));
    // The end of a string, and what a string's bytes mean as an end, are no difference that matters.
    for (char& c : text)
        if (c == 0 || c == '\xff') c = 'n';
    text_size = static_cast<long>(text.size());

    heard.clear();
    reset_text_reader();
    open_reading_from_string(text.data());
    const std::string* const source = &text;
    const bool done = fuzz_call([source] { run(source); });
    const std::string from_string = heard;

    heard.clear();
    reset_text_reader();
    if (!text.empty()) {
        FILE* const file = fmemopen(text.data(), text.size(), "r");
        reading_from_file_ptr = file;
        const bool file_done = fuzz_call([] { run(nullptr); });
        std::fclose(file);
        FUZZ_CHECK(done == file_done && heard == from_string);
    }
    reset_text_reader();
    return 0;
}
