// The server as an editor meets it: by itself with messages of all kinds, and as the program behind two pipes.
#include "hosts/language/messages.h"
#include "hosts/language/server.h"
#include "hosts/render/failure.h"
#include "tests/language_texts.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

using namespace test_language;
using language::framed;
using language::Messages;
using language::Server;
using nlohmann::json;

namespace {

const std::vector<render::FunctionRow>& rows() {
    static const auto all = render::function_rows();
    return all;
}

// What the library says of a text.
std::vector<render::TextMessage> library_check(const std::string& text, const std::string& path) {
    static spark_host::Host host;
    static const spark_host::Plugin* const module = [] {
        std::string error;
        return spark_host::load_plugin(host, TEXT_PLUGIN, "", &error).release();
    }();
    std::vector<render::TextMessage> messages;
    render::check_text(*module, text, path, nullptr, messages);
    return messages;
}

// Of the processor, so that a machine with other work does not count.
double milliseconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

class Editor {
public:
    Server server{rows(), library_check};
    double slowest = 0;
    int id = 0;

    Editor() {
        EXPECT_TRUE(ask("initialize", {{"capabilities", json::object()}}).contains("result"));
        tell("initialized", json::object());
    }
    json ask(const std::string& method, const json& params) {
        const std::string message =
            json({{"jsonrpc", "2.0"}, {"id", ++id}, {"method", method}, {"params", params}}).dump();
        const double from = milliseconds();
        const auto out = server.take(message);
        slowest = std::max(slowest, milliseconds() - from);
        EXPECT_EQ(out.size(), 1u);
        const json answer = json::parse(out.at(0));
        EXPECT_EQ(answer["id"], id);
        return answer;
    }
    void tell(const std::string& method, const json& params) {
        server.take(json({{"jsonrpc", "2.0"}, {"method", method}, {"params", params}}).dump());
    }
    void open(const std::string& text) {
        tell("textDocument/didOpen",
             {{"textDocument", {{"uri", "file:///a.text"}, {"languageId", "x"}, {"version", 1}, {"text", text}}}});
    }
    json ask_at(const std::string& method, size_t line, size_t character) {
        return ask("textDocument/" + method, {{"textDocument", {{"uri", "file:///a.text"}}},
                                              {"position", {{"line", line}, {"character", character}}},
                                              {"newName", "other"}});
    }
    json look() {
        const double from = milliseconds();
        const auto out = server.look();
        slowest = std::max(slowest, milliseconds() - from);
        return out.empty() ? json() : json::parse(out.at(0))["params"];
    }
};

constexpr const char* asked[] = {"completion",    "hover",         "definition", "references", "documentHighlight",
                                 "signatureHelp", "prepareRename", "rename",     "formatting", "documentSymbol"};

// Shipped definitions, one after the other.
std::string text_of_lines(size_t wanted) {
    std::string text;
    for (const ShippedText& shipped : shipped_texts()) {
        if (!shipped.name.ends_with(".text")) continue;
        text += shipped.text + "\n";
        if (static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) >= wanted) break;
    }
    size_t at = 0;
    for (size_t line = 0; line < wanted; line++) at = text.find('\n', at) + 1;
    return text.substr(0, at);
}

}  // namespace

TEST(Server, TellsWhatTheLibrarySaysAtItsPlace) {
    Editor editor;
    editor.open(
        "// \xf0\x9f\x98\x80\r\n(def_effect A (Source)\r\n  a = 1\r\n  dest = (blurr Source 0.1 2 1 1)\r\n)\r\n");
    EXPECT_TRUE(editor.server.changed());
    json told = editor.look();
    EXPECT_FALSE(editor.server.changed());
    ASSERT_EQ(told["diagnostics"].size(), 1u);
    EXPECT_EQ(told["version"], 1);
    EXPECT_EQ(told["diagnostics"][0]["severity"], 1);
    EXPECT_EQ(told["diagnostics"][0]["range"],
              json::parse(R"({"start":{"line":3,"character":10},"end":{"line":3,"character":15}})"));
    EXPECT_NE(told["diagnostics"][0]["message"].get<std::string>().find("did you mean 'blur'?"), std::string::npos);
    // The wrong letter goes, then a warning stays about what nothing reads.
    editor.tell("textDocument/didChange",
                json::parse(R"({"textDocument":{"uri":"file:///a.text","version":2},"contentChanges":[
                  {"range":{"start":{"line":3,"character":14},"end":{"line":3,"character":15}},"text":""}]})"));
    told = editor.look();
    EXPECT_EQ(told["version"], 2);
    ASSERT_EQ(told["diagnostics"].size(), 1u) << told;
    EXPECT_EQ(told["diagnostics"][0]["severity"], 2);
    EXPECT_EQ(editor.ask_at("hover", 3, 11)["result"]["range"]["start"]["character"], 10);
    EXPECT_EQ(editor.ask_at("definition", 3, 16)["result"]["range"]["start"]["line"], 1);
    EXPECT_EQ(editor.ask_at("rename", 3, 16)["result"]["changes"]["file:///a.text"].size(), 2u);
    EXPECT_EQ(editor.ask_at("rename", 3, 12)["error"]["code"], -32803);
    EXPECT_EQ(editor.ask_at("signatureHelp", 3, 24)["result"]["activeParameter"], 1);
    bool bell = false;
    const json offered = editor.ask_at("completion", 3, 26);
    for (const json& item : offered["result"]["items"])
        bell |= item["label"] == "2" && item["detail"].get<std::string>().find("bell") != std::string::npos;
    EXPECT_TRUE(bell);
}

TEST(Server, AnswersWhateverComes) {
    EXPECT_NE(Server(rows(), library_check).take(R"({"id":1,"method":"textDocument/hover"})").at(0).find("-32002"),
              std::string::npos);
    Editor editor;
    editor.open("(def_effect A (Source)\n dest = Source\n)\n");
    struct Case {
        const char *message, *answer;  // part of it; null: none
    };
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    for (const Case& c : {Case{"", "-32700"},
                          {"{", "-32700"},
                          {"\xff", "-32700"},
                          {"[]", "-32600"},
                          {"3", "-32600"},
                          {"{}", "-32600"},
                          {R"({"id":{}})", "-32600"},
                          {R"({"id":1.5,"method":"x"})", "-32600"},
                          {R"({"id":null,"method":"shutdown"})", "-32600"},
                          {R"({"id":7})", "-32600"},
                          {R"({"id":7,"result":null})", nullptr},
                          {R"({"id":"x","method":7})", "-32600"},
                          {R"({"id":"x","method":"nothing/known"})", R"("id":"x")"},
                          {R"({"id":1,"method":"nothing/known"})", "-32601"},
                          {R"({"method":"$/cancelRequest"})", nullptr},
                          {R"({"method":"textDocument/didOpen"})", nullptr},
                          {R"({"method":"textDocument/didOpen","params":{"textDocument":{"uri":3}}})", nullptr},
                          {R"({"method":"textDocument/didChange","params":[1]})", nullptr},
                          {R"({"method":"textDocument/didChange","params":{"textDocument":{"uri":"file:///a.text"},
                             "contentChanges":[1,{"text":2},{"range":3,"text":"a"}]}})",
                           nullptr},
                          {R"({"id":1,"method":"initialize"})", "-32600"},
                          {deep.c_str(), "-32600"}}) {
        const auto out = editor.server.take(c.message);
        ASSERT_EQ(out.size(), c.answer ? 1u : 0u) << c.message;
        if (!c.answer) continue;
        EXPECT_NE(out[0].find(c.answer), std::string::npos) << c.message << out[0];
    }
    for (const char* const method : asked)
        for (
            const char* const params :
            {"null", "[]", "{}", R"({"textDocument":{"uri":"file:///a.text"},"position":{"line":-1,"character":0}})",
             R"({"textDocument":{"uri":"file:///other"},"position":{"line":1,"character":0}})",
             R"({"textDocument":{"uri":"file:///a.text"},"position":{"line":18446744073709551615,"character":1e300}})",
             R"({"textDocument":{"uri":"file:///a.text"},"position":{"line":99999999,"character":4294967295},"newName":3})"}) {
            const json answer = editor.ask(std::string("textDocument/") + method, json::parse(params));
            EXPECT_TRUE(answer.contains("result") != answer.contains("error")) << method << params;
        }
    EXPECT_EQ(editor.look()["diagnostics"].size(), 0u);
    editor.open(std::string("a\0b", 3));
    EXPECT_EQ(editor.look()["diagnostics"][0]["message"], "not a text: it holds a zero byte");
    editor.open(std::string((size_t{1} << 20) + 1, '('));
    EXPECT_EQ(editor.look()["diagnostics"].size(), 1u);
    EXPECT_TRUE(editor.ask("shutdown", nullptr)["result"].is_null());
    EXPECT_EQ(editor.ask_at("hover", 0, 0)["error"]["code"], -32600);
    editor.tell("exit", nullptr);
    EXPECT_EQ(editor.server.ended(), 0);
}

#ifdef VELLORAN_SLOW_BUILD
constexpr int edits = 1500;
#else
constexpr int edits = 10000;
#endif

// Each edit is followed by a question; now and then everything is compared with what a fresh server says of the text.
TEST(Server, TenThousandRandomEditsOfATextOf200Lines) {
    std::mt19937 random(5);
    const std::string start = text_of_lines(200);
    Editor editor;
    std::string text = start;
    editor.open(text);
    double typing = 0;
    for (int i = 0; i < edits; i++) {
        const std::string before = text;
        // A piece goes and another comes; the text stays as long as it was, more or less.
        const size_t at = random() % (text.size() + 1), end = std::min(text.size(), at + random() % 6);
        std::string piece = damaged("", random, 1);
        if (random() % 3 == 0) piece = start.substr(random() % start.size(), random() % 12);
        while (!piece.empty() && (piece[0] & 0xc0) == 0x80) piece.erase(0, 1);
        const language::Document document(before);
        const language::Place from = document.place(at), to = document.place(end);
        const size_t first = document.offset(from), last = document.offset(to);
        text = before.substr(0, first) + piece + before.substr(last);
        const double began = milliseconds();
        editor.tell("textDocument/didChange", {{"textDocument", {{"uri", "file:///a.text"}, {"version", i}}},
                                               {"contentChanges",
                                                {{{"range",
                                                   {{"start", {{"line", from.line}, {"character", from.character}}},
                                                    {"end", {{"line", to.line}, {"character", to.character}}}}},
                                                  {"text", piece}}}}});
        typing = std::max(typing, milliseconds() - began);
        editor.ask_at(asked[random() % std::size(asked)], from.line, from.character + piece.size());
        if (i % 10 == 0) editor.look();
        if (i % 500 == 499) {
            Editor fresh;
            fresh.open(text);
            json told = editor.look(), expected = fresh.look();
            EXPECT_EQ(told["diagnostics"], expected["diagnostics"]);
            for (const char* const method : asked)
                EXPECT_EQ(editor.ask_at(method, 20, 5)["result"], fresh.ask_at(method, 20, 5)["result"]) << method;
            text = start;
            editor.open(text);
        }
    }
    RecordProperty("slowest_answer_ms", std::to_string(editor.slowest));
    RecordProperty("slowest_edit_ms", std::to_string(typing));
    std::printf("slowest answer %.1f ms, slowest edit %.1f ms\n", editor.slowest, typing);
#ifndef VELLORAN_SLOW_BUILD
    EXPECT_LT(editor.slowest, 50);
    EXPECT_LT(typing, 50);
#endif
}

TEST(Messages, ComeOutOfAnyStream) {
    const std::string two = framed("{\"a\":1}") + "content-length:2\r\nContent-Type: x\r\n\r\n[]";
    for (size_t step = 1; step < two.size(); step++) {
        Messages messages;
        std::vector<std::string> found;
        for (size_t at = 0; at < two.size(); at += step) {
            messages.feed(std::string_view(two).substr(at, step));
            while (const auto message = messages.next()) found.push_back(message->text + message->fault);
        }
        EXPECT_EQ(found, (std::vector<std::string>{"{\"a\":1}", "[]"}));
    }
    for (const char* const wrong :
         {"\r\n", "Content-Length: x\r\n\r\n", "Content-Length: -5\r\n\r\n", "Content-Length:\r\n\r\n",
          "Content-Length: 99999999999999999999999\r\n\r\n", "Host: a\r\n\r\n", "junk{}", "\n\n"}) {
        Messages messages;
        messages.feed(wrong + framed("[]"));
        std::string last;
        while (const auto message = messages.next()) last = message->text;
        EXPECT_EQ(last, "[]") << wrong;
    }
    // What is too long is told at once and never kept.
    Messages messages;
    messages.feed("Content-Length: 3000000000\r\n\r\n");
    EXPECT_NE(messages.next()->fault, "");
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 200; i++) {
        messages.feed(block);
        EXPECT_FALSE(messages.next());
        EXPECT_LT(messages.waiting(), 1u << 20);
    }
    Messages endless;
    for (int i = 0; i < 50; i++) {
        endless.feed(block);
        EXPECT_FALSE(endless.next());
        EXPECT_LT(endless.waiting(), 2u << 20);
    }
}

namespace {

// The program with a pipe at either end.
struct Program {
    int in = -1, out = -1;
    pid_t pid = -1;
    Messages messages;

    Program() {
        int to[2], from[2];
        EXPECT_EQ(pipe2(to, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(from, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, to[0], 0);
        posix_spawn_file_actions_adddup2(&actions, from[1], 1);
        const char* const arguments[] = {VELLORAN_PROGRAM, "lsp", nullptr};
        EXPECT_EQ(posix_spawn(&pid, VELLORAN_PROGRAM, &actions, nullptr, const_cast<char**>(arguments), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(to[0]);
        close(from[1]);
        in = to[1];
        out = from[0];
    }
    void send(const json& message) {
        const std::string bytes = framed(message.dump());
        EXPECT_EQ(write(in, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    json receive() {
        for (;;) {
            if (const auto message = messages.next()) return json::parse(message->text);
            char bytes[4096];
            const ssize_t n = read(out, bytes, sizeof(bytes));
            if (n <= 0) return {};
            messages.feed({bytes, static_cast<size_t>(n)});
        }
    }
    int end() {
        close(in);
        int status = 0;
        waitpid(pid, &status, 0);
        close(out);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

}  // namespace

TEST(LspProgram, ServesUntilTheEditorEndsIt) {
    Program program;
    program.send({{"id", 1}, {"method", "initialize"}, {"params", json::object()}});
    EXPECT_EQ(program.receive()["result"]["capabilities"]["textDocumentSync"]["change"], 2);
    json open = {{"uri", "file:///a.text"}, {"version", 4}, {"text", "(def_effect A (Source)\n dest = Sourc\n)\n"}};
    program.send({{"method", "textDocument/didOpen"}, {"params", {{"textDocument", open}}}});
    const json told = program.receive();
    EXPECT_EQ(told["method"], "textDocument/publishDiagnostics");
    EXPECT_EQ(told["params"]["version"], 4);
    EXPECT_FALSE(told["params"]["diagnostics"].empty());
    program.send({{"id", 2}, {"method", "shutdown"}});
    EXPECT_EQ(program.receive()["id"], 2);
    program.send({{"method", "exit"}});
    EXPECT_EQ(program.end(), 0);

    Program left;  // by an editor that is gone
    left.send({{"id", 1}, {"method", "initialize"}});
    left.receive();
    EXPECT_EQ(left.end(), 1);
}
