// Answers what editors ask about texts, in the messages of the Language Server Protocol. One thread; nothing that comes
// in makes it throw or end but the message that says so.
#pragma once

#include "hosts/language/document.h"
#include "hosts/language/vocabulary.h"
#include "hosts/render/effect.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace language {

class Server {
public:
    // What the library says of a text; path: how messages call it. May throw render::Failure.
    using Check = std::function<std::vector<render::TextMessage>(const std::string& text, const std::string& path)>;

    Server(const std::vector<render::FunctionRow>& rows, Check check);

    // A message that came in; answers what goes out for it, in order.
    std::vector<std::string> take(std::string_view message);
    // The answer to what was no message.
    static std::string fault(const std::string& why);

    // Texts have changed since the library was last asked about them. Asking takes longer than an answer, so that it is
    // left to a pause.
    bool changed() const;
    // Asks about them, and tells the editor.
    std::vector<std::string> look();

    // The exit status, when it is over.
    std::optional<int> ended() const { return ended_; }

private:
    using Json = nlohmann::json;
    struct Open {
        Document document;
        Json version;
        bool changed = true;
    };
    struct Refused {  // a request: error code of the protocol, and why
        int code;
        std::string why;
    };
    using Answer = Json (Server::*)(const Json& params);

    Json answer(const std::string& method, const Json& params);
    void hear(const std::string& method, const Json& params);
    void change(const Json& params);

    Json initialize(const Json& params);
    Json complete(const Json& params);
    Json hover(const Json& params);
    Json signature(const Json& params);
    Json definition(const Json& params);
    Json references(const Json& params);
    Json highlight(const Json& params);
    Json prepare_rename(const Json& params);
    Json rename_name(const Json& params);
    Json format(const Json& params);
    Json symbols(const Json& params);

    const Open& open_text(const Json& params) const;
    static size_t offset_of(const Document& document, const Json& params);
    Json diagnostics(const Document& document, const std::vector<render::TextMessage>& messages) const;

    Functions functions_;
    Check check_;
    std::map<std::string, Open> texts_;
    bool initialized_ = false, shut_down_ = false, snippets_ = false;
    std::optional<int> ended_;
};

}  // namespace language
