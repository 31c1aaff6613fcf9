// What an editor sends. A first byte that is odd: the rest is the stream of messages. Else it is a text, about which
// everything is asked at some of its places, and which is laid out.
#include "fuzz/fuzz.h"

#include "hosts/language/completion.h"
#include "hosts/language/document.h"
#include "hosts/language/layout.h"
#include "hosts/language/messages.h"
#include "hosts/language/names.h"
#include "hosts/language/server.h"

#include <algorithm>

namespace {

const std::vector<render::FunctionRow>& rows() {
    static const std::vector<render::FunctionRow> all = [] {
        const auto row = [](const char* name, std::initializer_list<const char*> arguments) {
            render::FunctionRow made;
            made.name = name;
            made.meaning = "does something";
            for (const char* const argument : arguments) made.arguments.push_back({argument, "", "", "", {}, false});
            if (!made.arguments.empty()) made.arguments.back().choices = {{0, "box"}, {2, "bell"}};
            made.signatures = {{3, 3}};
            return made;
        };
        return std::vector{row("blur", {"image", "amount", "shape"}), row("*", {"a", "b"}), row("get_time", {}),
                           row("warp", {"a"}), row("warp", {"a", "b"})};
    }();
    return all;
}

void read_stream(std::string_view bytes) {
    language::Server server(rows(), [](const std::string&, const std::string&) {
        return std::vector<render::TextMessage>{{8, 2, 3, "wrong"}, {2, 0, 0, "a note"}};
    });
    server.take(R"({"id":0,"method":"initialize"})");
    language::Messages messages;
    while (!bytes.empty()) {
        const size_t n = std::min<size_t>(bytes.size(), 1 + static_cast<unsigned char>(bytes[0]));
        messages.feed(bytes.substr(0, n));
        bytes.remove_prefix(n);
        while (const auto message = messages.next())
            for (const std::string& out : server.take(message->text)) FUZZ_CHECK(!out.empty());
    }
    server.look();
    FUZZ_CHECK(!server.changed());
}

void read_text(const std::string& text) {
    static const language::Functions functions = language::functions_by_name(rows());
    const language::Document document(text);
    const language::Outline outline = language::outline_of(text);
    size_t behind = 0;
    for (const language::Token& token : outline.tokens) {
        FUZZ_CHECK(token.begin >= behind && token.end > token.begin && token.end <= text.size());
        behind = token.end;
    }
    for (const language::Definition& definition : outline.definitions)
        for (const language::Assignment& made : definition.assignments)
            FUZZ_CHECK(made.name < outline.tokens.size() && made.last < outline.tokens.size() &&
                       made.last >= made.name && made.declaration < outline.tokens.size());
    const size_t step = std::max<size_t>(1, text.size() / 16);
    for (size_t at = 0; at <= text.size(); at += step) {
        FUZZ_CHECK(document.offset(document.place(at)) <= at);
        const language::Offers offers = language::offers_at(text, at, functions, at % 2 == 0);
        FUZZ_CHECK(offers.begin <= offers.end && offers.end == at);
        const size_t token = outline.token_at(at);
        language::hover_text(outline, token, functions);
        const language::Renaming renaming = language::rename(outline, token, "other");
        FUZZ_CHECK(renaming.refusal.empty() || renaming.edits.empty());
        size_t last = 0;
        for (const language::Edit& edit : renaming.edits) {
            FUZZ_CHECK(edit.begin >= last && edit.end >= edit.begin);
            last = edit.end;
        }
    }
    const language::Layout once = language::lay_out(text);
    if (once.refusal.empty()) FUZZ_CHECK(language::lay_out(once.text).text == once.text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 20000) return 0;
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2)
        read_stream(rest);
    else
        read_text(rest);
    return 0;
}
