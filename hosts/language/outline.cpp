// One pass with a stack of open lists. The state is a plain value, so that each side of a conditional begins with a
// copy.
#include "hosts/language/outline.h"

#include <algorithm>
#include <array>

namespace language {
namespace {

constexpr size_t longest_string = 100;  // the library reads no longer ones

enum class List : unsigned char { definition, inputs, modifiers, call, vector, declaration, other };
enum class Want : unsigned char { name, equals, value, declaration, other_effect };
enum class Header : unsigned char { name, inputs, modifiers, done };
// What a word of a declaration waits for.
enum class Awaits : unsigned char { word, number, name, widget_type, glyph, parameter };

struct Open {
    List list;
    int words = 0;  // complete ones, calls and vectors counted
    std::string_view function;
};

struct State {
    int definition = -1;
    std::vector<Open> open;
    Header header = Header::name;
    Want want = Want::name;
    Awaits awaits = Awaits::word;
    bool popup = false, widget = false;
    int assignment = -1;
};

bool delimiter_p(char c) { return c == '"' || c == '(' || c == ')' || c == '=' || c == '[' || c == ']'; }

bool starts(std::string_view text, size_t at, std::string_view word) { return text.substr(at, word.size()) == word; }

bool definition_keyword_p(std::string_view word) {
    return word == "def_effect" || word == "define" || word == "def_spark";
}

class Reader {
public:
    Reader(std::string_view text, size_t end) : text_(text.substr(0, end)) { result_.text = text; }

    // What is open at the end stays so.
    void read() {
        while (at_ < text_.size()) {
            if (blank_p(text_[at_]))
                ++at_;
            else
                token();
        }
    }

    Outline result_;
    State state_;
    std::string_view text_;
    bool if_word_ = false;  // the text ends behind #if, or in its word
    bool ends_in_string_ = false;

private:
    size_t at_ = 0;
    size_t plain_until_ = 0;  // a hash before this byte begins no directive
    std::vector<State> branches_;

    // ---- Tokens ----

    void add(Kind kind, size_t end, Role role = Role::none) {
        const int closes = kind == Kind::close || kind == Kind::close_vector ? 1 : 0;
        const int depth = std::max(0, static_cast<int>(state_.open.size()) - closes);
        result_.tokens.push_back({kind, role, at_, end, state_.definition, depth});
        at_ = end;
        if (state_.definition >= 0 && kind != Kind::comment) {
            Definition& definition = result_.definitions[static_cast<size_t>(state_.definition)];
            definition.last = last();
            if (state_.assignment >= 0 && kind != Kind::directive && state_.open.size() > 1)
                definition.assignments[static_cast<size_t>(state_.assignment)].last = last();
        }
    }
    size_t last() const { return result_.tokens.size() - 1; }

    size_t line_end(size_t at) const { return std::min(text_.find_first_of("\r\n", at), text_.size()); }

    void token() {
        const char c = text_[at_];
        if (starts(text_, at_, "//")) return add(Kind::comment, line_end(at_));
        if (c == '#' && directive()) return;
        switch (c) {
            case '(':
                return open();
            case ')':
                return close();
            case '[':
                add(Kind::open_vector, at_ + 1);
                if (state_.definition >= 0) enter({List::vector, 0, {}});
                return;
            case ']':
                add(Kind::close_vector, at_ + 1);
                if (!state_.open.empty() && state_.open.back().list == List::vector) leave();
                return;
            case '=':
                add(Kind::equals, at_ + 1);
                if (top() == List::definition && state_.want == Want::equals) state_.want = Want::value;
                return;
            case '"':
                return string();
            default:
                return word();
        }
    }

    // The word of a conditional, and the word that it tests. False for any other: that is part of a word.
    bool directive() {
        if (!conditional_p(at_)) return false;
        size_t end = word_end_behind_hash(at_);
        const std::string_view hash = text_.substr(at_, end - at_);
        const bool tests = hash == "#if" || hash == "#ifnot" || hash == "#elseif";
        if (tests) {
            size_t word = end;
            while (word < text_.size() && blank_p(text_[word])) ++word;
            // The test may stand on a later line, and a comment before it does not count. That it lies elsewhere than
            // behind the word is not worth a token of its own.
            if (!starts(text_, word, "//") && text_.substr(end, word - end).find_first_of("\r\n") == std::string::npos)
                end = std::max(end, word_end_behind_hash(word));
            if_word_ = end == text_.size() && (word > at_ + hash.size() || end == at_ + hash.size());
        }
        if (hash == "#if" || hash == "#ifnot") {
            branches_.push_back(state_);
        } else if (!branches_.empty()) {
            if (hash == "#endif") {
                branches_.pop_back();
            } else if (state_.definition == branches_.back().definition) {
                state_ = branches_.back();
            } else {
                branches_.back() = state_;
            }
        }
        add(Kind::directive, end);
        return true;
    }

    // Any other word that a hash begins counts up to its blank: a hash within begins nothing.
    bool conditional_p(size_t at) {
        if (at < plain_until_) return false;
        const size_t end = word_end_behind_hash(at);
        const std::string_view hash = text_.substr(at, end - at);
        if (hash == "#if" || hash == "#ifnot" || hash == "#elseif" || hash == "#else" || hash == "#endif") return true;
        plain_until_ = end;
        return false;
    }

    size_t word_end_behind_hash(size_t at) const {
        while (at < text_.size() && !blank_p(text_[at]) && !starts(text_, at, "//")) ++at;
        return at;
    }

    void string() {
        const bool in_list = state_.open.size() > 1 && state_.open.back().list == List::declaration;
        size_t end = at_ + 1, kept = 0;
        while (in_list && end < text_.size() && kept <= longest_string) {
            if (starts(text_, end, "//")) {
                end = line_end(end);
                continue;
            }
            if (text_[end] == '"' && text_[end - 1] != '\\') {
                add(Kind::string, end + 1, Role::entry);
                return;
            }
            ++end, ++kept;
        }
        ends_in_string_ |= in_list && end == text_.size() && kept <= longest_string;
        add(Kind::quote, at_ + 1);
    }

    size_t word_end(size_t at) {
        for (const size_t begin = at; at < text_.size() && !blank_p(text_[at]) && !delimiter_p(text_[at]); ++at)
            if (starts(text_, at, "//") || (text_[at] == '#' && at > begin && conditional_p(at))) break;
        return at;
    }

    // ---- Lists ----

    List top() const { return state_.open.empty() ? List::other : state_.open.back().list; }

    Definition& definition() { return result_.definitions[static_cast<size_t>(state_.definition)]; }
    Assignment& assignment() { return definition().assignments[static_cast<size_t>(state_.assignment)]; }

    void enter(Open open) {
        if (top() == List::definition && state_.want == Want::value && state_.assignment >= 0 && !assignment().value)
            assignment().value = last();
        state_.open.push_back(open);
        if (state_.assignment >= 0) assignment().last = last();
    }

    void leave() {
        const List left = top();
        state_.open.pop_back();
        if (state_.open.empty()) return close_definition(true);
        ++state_.open.back().words;
        if (state_.assignment >= 0 && left != List::inputs && left != List::modifiers) assignment().last = last();
        if (top() != List::definition) return;
        if (left == List::vector && state_.want == Want::value) {
            state_.want = Want::declaration;
            if (state_.assignment >= 0) assignment().constant = true;
        } else if (left != List::inputs && left != List::modifiers) {
            end_assignment();
        }
    }

    void end_assignment() {
        state_.want = Want::name;
        state_.assignment = -1;
    }

    void close_definition(bool closed) {
        if (state_.definition >= 0 && closed) {
            definition().closed = true;
            definition().close = last();
        }
        state_ = {};
    }

    bool definition_begins() {
        size_t at = at_ + 1;
        while (at < text_.size() && blank_p(text_[at])) ++at;
        const size_t end = word_end(at);
        return end < text_.size() && blank_p(text_[end]) && definition_keyword_p(text_.substr(at, end - at));
    }

    void open() {
        if (definition_begins()) {
            close_definition(false);
            add(Kind::open, at_ + 1);
            state_.definition = static_cast<int>(result_.definitions.size());
            result_.definitions.emplace_back();
            definition().open = definition().last = last();
            result_.tokens.back().definition = state_.definition;
            state_.open = {{List::definition, 0, {}}};
            while (blank_p(text_[at_])) ++at_;
            definition().keyword = last() + 1;
            return add(Kind::word, word_end(at_), Role::keyword);
        }
        const List outer = top();
        add(Kind::open, at_ + 1);
        if (state_.definition < 0) return;
        if (outer != List::definition) {
            const bool expression = outer == List::call || outer == List::vector;
            return enter({expression ? List::call : List::other, 0, {}});
        }
        if (state_.header <= Header::inputs) {
            state_.header = Header::modifiers;
            return enter({List::inputs, 0, {}});
        }
        if (state_.header == Header::modifiers) {
            state_.header = Header::done;
            if (state_.want == Want::name) return enter({List::modifiers, 0, {}});
        }
        if (state_.want == Want::declaration) {
            if (state_.assignment >= 0) {
                assignment().declaration = last();
                assignment().widget_has_part = true;
            }
            state_.awaits = Awaits::word;
            state_.popup = state_.widget = false;
            return enter({List::declaration, 0, {}});
        }
        enter({state_.want == Want::value ? List::call : List::other, 0, {}});
    }

    void close() {
        add(Kind::close, at_ + 1);
        if (top() == List::vector) leave();
        if (!state_.open.empty()) leave();
    }

    // ---- Words ----

    bool equals_follows(size_t at) const {
        while (at < text_.size()) {
            if (starts(text_, at, "//"))
                at = line_end(at);
            else if (!blank_p(text_[at]))
                return text_[at] == '=';
            else
                ++at;
        }
        return false;
    }

    void word() {
        const size_t end = word_end(at_);
        const std::string_view text = text_.substr(at_, end - at_);
        // Nothing but an assignment has an equals sign: what is open before one was left open.
        if (state_.definition >= 0 && state_.open.size() > 1 && equals_follows(end)) {
            state_.open.resize(1);
            state_.header = Header::done;
            end_assignment();
        }
        if (state_.definition < 0) return add(Kind::word, end);
        switch (top()) {
            case List::definition:
                return body_word(text, end);
            case List::inputs:
                add(Kind::word, end, Role::input);
                definition().inputs.push_back(last());
                break;
            case List::modifiers:
                add(Kind::word, end, modifier_role(text));
                break;
            case List::call:
                if (state_.open.back().function.empty()) {
                    state_.open.back().function = text;
                    return add(Kind::word, end, Role::function);
                }
                add(Kind::word, end, number_p(text) ? Role::number : Role::reference);
                break;
            case List::vector:
                add(Kind::word, end, number_p(text) ? Role::number : Role::reference);
                break;
            case List::declaration:
                add(Kind::word, end, declaration_role(text));
                break;
            case List::other:
                add(Kind::word, end);
                break;
        }
        ++state_.open.back().words;
    }

    Role modifier_role(std::string_view text) {
        if (number_p(text)) return Role::number;
        const bool behind = state_.awaits == Awaits::name;
        state_.awaits = !behind && (text == "effect_popup_name" || text == "z") ? Awaits::name : Awaits::word;
        return behind ? Role::value : Role::modifier;
    }

    void body_word(std::string_view text, size_t end) {
        if (state_.header == Header::name && !equals_follows(end)) {
            state_.header = Header::inputs;
            add(Kind::word, end, Role::effect);
            definition().name = last();
            return;
        }
        state_.header = Header::done;
        if (state_.want == Want::other_effect) {
            add(Kind::word, end, Role::other_effect);
            state_.want = Want::name;
        } else if (state_.want == Want::value) {
            const bool number = number_p(text);
            add(Kind::word, end, number ? Role::number : Role::reference);
            if (state_.assignment >= 0) {
                assignment().value = assignment().last = last();
                assignment().constant = number;
            }
            if (number)
                state_.want = Want::declaration;
            else
                end_assignment();
        } else if (text == "#ref") {
            end_assignment();
            add(Kind::word, end, Role::keyword);
            definition().follows = true;
            state_.want = Want::other_effect;
        } else {
            add(Kind::word, end, Role::target);
            state_.assignment = static_cast<int>(definition().assignments.size());
            Assignment& made = definition().assignments.emplace_back();
            made.name = made.last = last();
            state_.want = Want::equals;
        }
    }

    Role declaration_role(std::string_view text) {
        const Awaits awaited = state_.awaits;
        state_.awaits = Awaits::word;
        switch (awaited) {
            case Awaits::number:
            case Awaits::name:
                return number_p(text) ? Role::number : Role::value;
            case Awaits::glyph:
                return Role::glyph;
            case Awaits::parameter:
                return Role::reference;
            case Awaits::widget_type:
                if (text.find('.') == std::string_view::npos && state_.assignment >= 0)
                    assignment().widget_has_part = false;
                return Role::widget_type;
            case Awaits::word:
                break;
        }
        if (text == "widget") {
            state_.awaits = Awaits::widget_type;
            state_.widget = true;
            state_.popup = false;
            return Role::declaration;
        }
        if (state_.popup) return Role::entry;
        struct Awaiting {
            std::string_view word;
            Awaits awaits;
        };
        static constexpr std::array<Awaiting, 9> words = {{{"min", Awaits::number},
                                                           {"max", Awaits::number},
                                                           {"step", Awaits::number},
                                                           {"normalize_scale", Awaits::number},
                                                           {"button", Awaits::number},
                                                           {"group_start", Awaits::name},
                                                           {"group_start_open", Awaits::name},
                                                           {"group_end", Awaits::name},
                                                           {"doc_group_name", Awaits::name}}};
        for (const Awaiting& row : words)
            if (row.word == text) state_.awaits = row.awaits;
        if (state_.widget) {
            if (text == "name" || text == "wenable") state_.awaits = Awaits::name;
            if (text == "glyph") state_.awaits = Awaits::glyph;
            if (text == "use_wenable") state_.awaits = Awaits::parameter;
            if (number_p(text)) return Role::number;
        }
        state_.popup = text == "popup";
        return Role::declaration;
    }

public:
    Caret caret(size_t word) {
        Caret caret;
        caret.word = word;
        caret.if_word = if_word_;
        if (state_.definition < 0) return caret;
        for (size_t i = state_.open.size(); i-- > 0;) {
            if (state_.open[i].list != List::call) continue;
            caret.function = state_.open[i].function;
            caret.argument = caret.function.empty() ? -1 : state_.open[i].words;
            break;
        }
        if (state_.assignment >= 0) caret.parameter = result_.word(assignment().name);
        caret.surrounding = surrounding();
        return caret;
    }

private:
    Surrounding surrounding() const {
        switch (top()) {
            case List::inputs:
                return Surrounding::inputs;
            case List::modifiers:
                return state_.awaits == Awaits::name ? Surrounding::word : Surrounding::modifiers;
            case List::call:
                return state_.open.back().function.empty() ? Surrounding::head : Surrounding::value;
            case List::vector:
            case List::other:
                return Surrounding::word;
            case List::declaration:
                break;
            case List::definition:
                if (state_.header == Header::name) return Surrounding::header;
                if (state_.want == Want::other_effect) return Surrounding::word;
                return state_.want == Want::value ? Surrounding::value : Surrounding::assignments;
        }
        switch (state_.awaits) {
            case Awaits::word:
                return state_.popup ? Surrounding::entries : Surrounding::declaration;
            case Awaits::widget_type:
                return Surrounding::widget_type;
            case Awaits::glyph:
                return Surrounding::glyph;
            case Awaits::parameter:
                return Surrounding::parameter;
            case Awaits::number:
            case Awaits::name:
                break;
        }
        return Surrounding::word;
    }
};

}  // namespace

bool blank_p(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool number_p(std::string_view word) {
    if (!word.empty() && (word[0] == '-' || word[0] == '+')) word.remove_prefix(1);
    if (!word.empty() && word[0] == '.') word.remove_prefix(1);
    return !word.empty() && word[0] >= '0' && word[0] <= '9';
}

Outline outline_of(std::string_view text) {
    Reader reader(text, text.size());
    reader.read();
    return std::move(reader.result_);
}

size_t Outline::token_at(size_t offset) const {
    auto at = std::partition_point(tokens.begin(), tokens.end(), [&](const Token& t) { return t.end <= offset; });
    if ((at == tokens.end() || at->begin > offset || at->kind != Kind::word) && at != tokens.begin() &&
        (at - 1)->end == offset && (at - 1)->kind == Kind::word)
        --at;
    return at == tokens.end() || at->begin > offset ? tokens.size() : static_cast<size_t>(at - tokens.begin());
}

const Definition* Outline::definition_at(size_t offset) const {
    for (const Definition& definition : definitions) {
        const size_t next = static_cast<size_t>(&definition - definitions.data()) + 1;
        const size_t end = definition.closed           ? tokens[definition.close].end
                           : next < definitions.size() ? tokens[definitions[next].open].begin
                                                       : text.size();
        if (offset >= tokens[definition.open].begin && offset <= end) return &definition;
    }
    return nullptr;
}

Caret caret_at(std::string_view text, size_t offset) {
    offset = std::min(offset, text.size());
    size_t word = offset;
    while (word > 0 && !blank_p(text[word - 1]) && !delimiter_p(text[word - 1])) --word;
    Reader reader(text, word);
    reader.read();
    Caret caret = reader.caret(word);
    const std::vector<Token>& tokens = reader.result_.tokens;
    const bool in_comment = !tokens.empty() && tokens.back().kind == Kind::comment && tokens.back().end == word;
    if (in_comment || reader.ends_in_string_ || text.substr(word, offset - word).find("//") != std::string_view::npos)
        caret.surrounding = Surrounding::nowhere;
    return caret;
}

}  // namespace language
