#include "hosts/language/server.h"

#include "hosts/language/completion.h"
#include "hosts/language/layout.h"
#include "hosts/language/names.h"
#include "hosts/render/failure.h"

#include <algorithm>

namespace language {
namespace {

using Json = nlohmann::json;

constexpr int parse_error = -32700, invalid_request = -32600, unknown_method = -32601, invalid_params = -32602,
              internal_error = -32603, not_initialized = -32002, request_failed = -32803;
// Longer texts are not checked while they are written: that is no effect by hand.
constexpr size_t longest_checked = size_t{1} << 20;

std::string dumped(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

// Null where it is not there.
const Json& member(const Json& json, const char* name) {
    static const Json none;
    if (!json.is_object()) return none;
    const auto at = json.find(name);
    return at == json.end() ? none : *at;
}
const Json& member(const Json& json, const char* first, const char* second) {
    return member(member(json, first), second);
}

std::optional<std::string> text_of(const Json& json) {
    if (!json.is_string()) return std::nullopt;
    return json.get<std::string>();
}

std::optional<size_t> count_of(const Json& json) {
    if (json.is_number_unsigned()) return static_cast<size_t>(json.get<uint64_t>());
    if (json.is_number_integer() && json.get<int64_t>() >= 0) return static_cast<size_t>(json.get<int64_t>());
    return std::nullopt;
}

std::optional<Place> place_of(const Json& json) {
    const auto line = count_of(member(json, "line")), character = count_of(member(json, "character"));
    if (!line || !character) return std::nullopt;
    return Place{*line, *character};
}

Json place_json(Place place) { return {{"line", place.line}, {"character", place.character}}; }
Json range_json(const Document& document, size_t begin, size_t end) {
    return {{"start", place_json(document.place(begin))}, {"end", place_json(document.place(end))}};
}
Json range_json(const Document& document, const Token& token) { return range_json(document, token.begin, token.end); }
Json markdown(const std::string& text) { return {{"kind", "markdown"}, {"value", text}}; }

int completion_kind(Sort sort) {
    switch (sort) {
        case Sort::function:
            return 3;
        case Sort::name:
        case Sort::input:
            return 6;
        case Sort::param:
            return 10;
        case Sort::variable:
            return 21;
        case Sort::keyword:
            return 14;
        case Sort::setting:
            return 5;
        case Sort::choice:
            return 20;
        case Sort::effect:
            return 7;
    }
    return 1;
}

Json error_json(const Json& id, int code, const std::string& why) {
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", why}}}};
}

}  // namespace

Server::Server(const std::vector<render::FunctionRow>& rows, Check check)
    : functions_(functions_by_name(rows)), check_(std::move(check)) {}

std::string Server::fault(const std::string& why) { return dumped(error_json(nullptr, parse_error, why)); }

// ---- Messages ----

std::vector<std::string> Server::take(std::string_view message) {
    const Json json = Json::parse(message, nullptr, false);
    if (json.is_discarded()) return {fault("the message is not JSON")};
    const Json& id = member(json, "id");
    const bool asks = json.is_object() && json.contains("id");
    if (asks && !id.is_string() && !id.is_number_integer())
        return {dumped(error_json(nullptr, invalid_request, "the id is neither a number nor a string"))};
    const std::optional<std::string> method = text_of(member(json, "method"));
    if (!method) {
        // An answer to something that was never asked.
        if (asks && (json.contains("result") || json.contains("error"))) return {};
        return {dumped(error_json(id, invalid_request, "the message names no method"))};
    }
    const Json& params = member(json, "params");
    if (!asks) {
        std::vector<std::string> out;
        const std::string uri = text_of(member(params, "textDocument", "uri")).value_or("");
        hear(*method, params);
        if (*method == "textDocument/didClose" && initialized_)
            out.push_back(dumped({{"jsonrpc", "2.0"},
                                  {"method", "textDocument/publishDiagnostics"},
                                  {"params", {{"uri", uri}, {"diagnostics", Json::array()}}}}));
        return out;
    }
    try {
        return {dumped({{"jsonrpc", "2.0"}, {"id", id}, {"result", answer(*method, params)}})};
    } catch (const Refused& refused) {
        return {dumped(error_json(id, refused.code, refused.why))};
    } catch (const std::exception& problem) {
        return {dumped(error_json(id, internal_error, problem.what()))};
    }
}

Json Server::answer(const std::string& method, const Json& params) {
    static const std::map<std::string, Answer> answers = {
        {"textDocument/completion", &Server::complete},
        {"textDocument/hover", &Server::hover},
        {"textDocument/signatureHelp", &Server::signature},
        {"textDocument/definition", &Server::definition},
        {"textDocument/references", &Server::references},
        {"textDocument/documentHighlight", &Server::highlight},
        {"textDocument/prepareRename", &Server::prepare_rename},
        {"textDocument/rename", &Server::rename_name},
        {"textDocument/formatting", &Server::format},
        {"textDocument/documentSymbol", &Server::symbols},
    };
    if (method == "initialize") return initialize(params);
    if (!initialized_) throw Refused{not_initialized, "'initialize' comes first"};
    if (shut_down_) throw Refused{invalid_request, "it was shut down"};
    if (method == "shutdown") {
        shut_down_ = true;
        return nullptr;
    }
    const auto at = answers.find(method);
    if (at == answers.end()) throw Refused{unknown_method, "there is no method '" + method + "'"};
    return (this->*at->second)(params);
}

void Server::hear(const std::string& method, const Json& params) {
    if (method == "exit") ended_ = shut_down_ ? 0 : 1;
    if (!initialized_ || shut_down_) return;
    const auto uri = text_of(member(params, "textDocument", "uri"));
    if (!uri) return;
    if (method == "textDocument/didOpen") {
        const auto text = text_of(member(params, "textDocument", "text"));
        if (text) texts_[*uri] = {Document(*text), member(params, "textDocument", "version"), true};
    } else if (method == "textDocument/didChange") {
        change(params);
    } else if (method == "textDocument/didClose") {
        texts_.erase(*uri);
    }
}

void Server::change(const Json& params) {
    const auto at = texts_.find(*text_of(member(params, "textDocument", "uri")));
    const Json& changes = member(params, "contentChanges");
    if (at == texts_.end() || !changes.is_array()) return;
    Open& open = at->second;
    for (const Json& one : changes) {
        const auto text = text_of(member(one, "text"));
        if (!text) continue;
        const Json& range = member(one, "range");
        const auto from = place_of(member(range, "start")), to = place_of(member(range, "end"));
        if (from && to)
            open.document.replace(*from, *to, *text);
        else if (range.is_null())
            open.document.set(*text);
    }
    open.version = member(params, "textDocument", "version");
    open.changed = true;
}

const Server::Open& Server::open_text(const Json& params) const {
    const auto uri = text_of(member(params, "textDocument", "uri"));
    if (!uri) throw Refused{invalid_params, "the text is not named"};
    const auto at = texts_.find(*uri);
    if (at == texts_.end()) throw Refused{invalid_params, "'" + *uri + "' is not open"};
    return at->second;
}

size_t Server::offset_of(const Document& document, const Json& params) {
    const auto place = place_of(member(params, "position"));
    if (!place) throw Refused{invalid_params, "the position is missing"};
    return document.offset(*place);
}

// ---- What the editor is told unasked ----

bool Server::changed() const {
    return std::any_of(texts_.begin(), texts_.end(), [](const auto& text) { return text.second.changed; });
}

std::vector<std::string> Server::look() {
    std::vector<std::string> out;
    for (auto& [uri, open] : texts_) {
        if (!open.changed) continue;
        open.changed = false;
        std::vector<render::TextMessage> messages;
        const std::string& text = open.document.text();
        if (text.find('\0') != std::string::npos) {
            messages.push_back({8, 1, 1, "not a text: it holds a zero byte"});
        } else if (text.size() > longest_checked) {
            messages.push_back({5, 1, 1, "longer than a megabyte: not checked while it is written"});
        } else {
            try {
                messages = check_(text, uri.substr(uri.rfind('/') + 1));
            } catch (const std::exception& problem) {
                messages.push_back({8, 1, 1, problem.what()});
            }
        }
        Json params = {{"uri", uri}, {"diagnostics", diagnostics(open.document, messages)}};
        if (open.version.is_number_integer()) params["version"] = open.version;
        out.push_back(dumped({{"jsonrpc", "2.0"}, {"method", "textDocument/publishDiagnostics"}, {"params", params}}));
    }
    return out;
}

Json Server::diagnostics(const Document& document, const std::vector<render::TextMessage>& messages) const {
    Json all = Json::array();
    const Outline outline = outline_of(document.text());
    for (const render::TextMessage& message : messages) {
        const std::string kind = render::severity(message);
        // A note belongs to the message before it.
        if (kind == "note" && !all.empty()) {
            std::string& said = all.back()["message"].get_ref<std::string&>();
            said += "\n" + message.text;
            continue;
        }
        const size_t begin = document.library_offset(std::max(message.line, 1), message.column);
        size_t end = begin;
        size_t token = outline.token_at(begin);
        // A call is shown up to the end of its function's name.
        if (token < outline.tokens.size() && outline.tokens[token].begin <= begin) {
            if (outline.tokens[token].kind == Kind::open && token + 1 < outline.tokens.size() &&
                outline.tokens[token + 1].kind == Kind::word)
                token++;
            end = outline.tokens[token].end;
        }
        const std::string& text = document.text();
        end = std::min(end, text.find_first_of("\r\n", begin));
        if (message.line <= 0) end = std::min(text.find_first_of("\r\n"), text.size());
        all.push_back({{"range", range_json(document, begin, std::max(begin, end))},
                       {"severity", kind == "error"     ? 1
                                    : kind == "warning" ? 2
                                                        : 3},
                       {"source", "velloran"},
                       {"message", message.text}});
    }
    return all;
}

// ---- Answers ----

Json Server::initialize(const Json& params) {
    if (initialized_) throw Refused{invalid_request, "'initialize' came already"};
    initialized_ = true;
    const Json& item = member(member(member(params, "capabilities", "textDocument"), "completion"), "completionItem");
    snippets_ = member(item, "snippetSupport") == true;
    const Json capabilities = {
        {"positionEncoding", "utf-16"},
        {"textDocumentSync", {{"openClose", true}, {"change", 2}}},
        {"completionProvider", {{"triggerCharacters", {"(", "#"}}}},
        {"signatureHelpProvider", {{"triggerCharacters", {"(", " "}}}},
        {"hoverProvider", true},
        {"definitionProvider", true},
        {"referencesProvider", true},
        {"documentHighlightProvider", true},
        {"renameProvider", {{"prepareProvider", true}}},
        {"documentFormattingProvider", true},
        {"documentSymbolProvider", true},
    };
    return {{"capabilities", capabilities}, {"serverInfo", {{"name", "velloran"}}}};
}

Json Server::complete(const Json& params) {
    const Document& document = open_text(params).document;
    const Offers offers = offers_at(document.text(), offset_of(document, params), functions_, snippets_);
    const Json range = range_json(document, offers.begin, offers.end);
    Json items = Json::array();
    int order = 1000;
    for (const Offer& offer : offers.words) {
        Json item = {{"label", offer.label},
                     {"kind", completion_kind(offer.sort)},
                     {"sortText", std::to_string(order++)},
                     {"insertTextFormat", offer.snippet ? 2 : 1},
                     {"textEdit", {{"range", range}, {"newText", offer.insert.empty() ? offer.label : offer.insert}}}};
        if (!offer.detail.empty()) item["detail"] = offer.detail;
        if (!offer.documentation.empty()) item["documentation"] = offer.documentation;
        items.push_back(std::move(item));
    }
    return {{"isIncomplete", false}, {"items", items}};
}

Json Server::hover(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const size_t token = outline.token_at(offset_of(document, params));
    const std::string text = hover_text(outline, token, functions_);
    if (text.empty()) return nullptr;
    return {{"contents", markdown(text)}, {"range", range_json(document, outline.tokens[token])}};
}

Json Server::signature(const Json& params) {
    const Document& document = open_text(params).document;
    const Caret caret = caret_at(document.text(), offset_of(document, params));
    const auto at = functions_.find(caret.function);
    if (at == functions_.end() || caret.surrounding != Surrounding::value) return nullptr;
    Json rows = Json::array();
    const render::FunctionRow& chosen = row_for_argument(at->second, caret.argument);
    for (const render::FunctionRow& row : at->second) {
        Json arguments = Json::array();
        size_t column = 1 + row.name.size();
        for (const render::FunctionArgument& argument : row.arguments) {
            arguments.push_back({{"label", {column + 1, column + 1 + argument.name.size()}},
                                 {"documentation", argument_facts(argument)}});
            column += 1 + argument.name.size();
        }
        rows.push_back({{"label", render::call_text(row)}, {"documentation", row.meaning}, {"parameters", arguments}});
    }
    return {{"signatures", rows},
            {"activeSignature", &chosen - at->second.data()},
            {"activeParameter", std::max(caret.argument, 0)}};
}

Json Server::definition(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const auto made = making(outline, outline.token_at(offset_of(document, params)));
    if (!made) return nullptr;
    return {{"uri", member(params, "textDocument", "uri")}, {"range", range_json(document, outline.tokens[*made])}};
}

Json Server::references(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const size_t token = outline.token_at(offset_of(document, params));
    const bool with_making = member(params, "context", "includeDeclaration") != false;
    const auto made = making(outline, token);
    Json all = Json::array();
    for (const size_t use : uses(outline, token))
        if (with_making || use != made)
            all.push_back(
                {{"uri", member(params, "textDocument", "uri")}, {"range", range_json(document, outline.tokens[use])}});
    return all;
}

Json Server::highlight(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const size_t token = outline.token_at(offset_of(document, params));
    const auto made = making(outline, token);
    Json all = Json::array();
    for (const size_t use : uses(outline, token))
        all.push_back({{"range", range_json(document, outline.tokens[use])}, {"kind", use == made ? 3 : 2}});
    return all;
}

Json Server::prepare_rename(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const size_t token = outline.token_at(offset_of(document, params));
    if (const std::string why = rename_refusal(outline, token); !why.empty()) throw Refused{request_failed, why};
    return {{"range", range_json(document, outline.tokens[token])}, {"placeholder", outline.word(token)}};
}

Json Server::rename_name(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    const auto name = text_of(member(params, "newName"));
    if (!name) throw Refused{invalid_params, "the new name is missing"};
    const size_t token = outline.token_at(offset_of(document, params));
    const Renaming renaming = rename(outline, token, *name);
    if (!renaming.refusal.empty()) throw Refused{request_failed, renaming.refusal};
    Json edits = Json::array();
    for (const Edit& edit : renaming.edits)
        edits.push_back({{"range", range_json(document, edit.begin, edit.end)}, {"newText", edit.by}});
    return {{"changes", {{*text_of(member(params, "textDocument", "uri")), edits}}}};
}

Json Server::format(const Json& params) {
    const Document& document = open_text(params).document;
    const Layout layout = lay_out(document.text());
    if (!layout.refusal.empty()) throw Refused{request_failed, layout.refusal};
    // What is the same at both ends stays untouched, and with it the editor's marks there.
    const std::string &before = document.text(), &after = layout.text;
    if (before == after) return Json::array();
    const auto line_start = [](const std::string& text, size_t at) {
        while (at > 0 && text[at - 1] != '\n') --at;
        return at;
    };
    const size_t most = std::min(before.size(), after.size());
    size_t same = static_cast<size_t>(
        std::mismatch(before.begin(), before.begin() + static_cast<long>(most), after.begin()).first - before.begin());
    same = line_start(before, same);
    size_t tail = 0;
    while (tail < most - same && before[before.size() - 1 - tail] == after[after.size() - 1 - tail]) ++tail;
    while (tail > 0 && before[before.size() - tail - 1] != '\n') --tail;
    return {{{"range", range_json(document, same, before.size() - tail)},
             {"newText", after.substr(same, after.size() - tail - same)}}};
}

Json Server::symbols(const Json& params) {
    const Document& document = open_text(params).document;
    const Outline outline = outline_of(document.text());
    Json all = Json::array();
    const auto symbol = [&](size_t name, int kind, size_t begin, size_t end) {
        const Token& token = outline.tokens[name];
        return Json{{"name", outline.word(name)},
                    {"kind", kind},
                    {"range", range_json(document, begin, std::max(end, token.end))},
                    {"selectionRange", range_json(document, token)}};
    };
    constexpr int class_kind = 5, property_kind = 7, variable_kind = 13;
    for (const Definition& definition : outline.definitions) {
        if (!definition.name) continue;
        Json one = symbol(definition.name, class_kind, outline.tokens[definition.open].begin,
                          outline.tokens[definition.last].end);
        one["children"] = Json::array();
        for (const Assignment& made : definition.assignments)
            one["children"].push_back(symbol(made.name, made.constant ? property_kind : variable_kind,
                                             outline.tokens[made.name].begin, outline.tokens[made.last].end));
        all.push_back(std::move(one));
    }
    return all;
}

}  // namespace language
