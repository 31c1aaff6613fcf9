#include "hosts/language/layout.h"

#include "hosts/language/outline.h"

#include <algorithm>
#include <vector>

namespace language {
namespace {

constexpr int most_line_ends = 2;  // one empty line

// Ends of lines, of any kind.
int line_ends(std::string_view gap) {
    int n = 0;
    for (size_t i = 0; i < gap.size(); i++)
        n += gap[i] == '\n' || (gap[i] == '\r' && (i + 1 == gap.size() || gap[i + 1] != '\n'));
    return n;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && blank_p(text.back())) text.remove_suffix(1);
    return text;
}

std::string line_end_of(std::string_view text) {
    const size_t at = text.find_first_of("\r\n");
    if (at == std::string_view::npos || text[at] == '\n') return "\n";
    return text.substr(at, 2) == "\r\n" ? "\r\n" : "\r";
}

bool begins_line_p(const Outline& outline, size_t i) {
    const Token& token = outline.tokens[i];
    if (token.role == Role::target || outline.word(i) == "#ref") return true;
    const Definition& definition = outline.definitions[static_cast<size_t>(token.definition)];
    return i == definition.open || (definition.closed && i == definition.close);
}

// Where what is open stands, by its depth. What one side of a conditional closes, the other finds here again.
class Columns {
public:
    // The token is to be written at this column.
    void note(const Token& token, size_t column) {
        Opened& in = at(token.depth);
        const bool opens = token.kind == Kind::open || token.kind == Kind::open_vector;
        if (opens || token.kind == Kind::word || token.kind == Kind::string) {
            if (in.words == 0) in.call = token.role == Role::function;
            if (in.words == (in.call ? 1 : 0)) in.first = column;
            in.words++;
        }
        if (opens) at(token.depth + 1) = {column, column + 2, 0, false};
    }
    // Of a token that begins a line.
    size_t indent(const Outline& outline, size_t i) {
        const Token& token = outline.tokens[i];
        if (token.kind == Kind::directive) return 0;
        if (token.depth <= 1) {
            const bool whole = token.kind == Kind::comment || begins_line_p(outline, i);
            return 2 * static_cast<size_t>(token.depth) + (token.depth && !whole ? 2 : 0);
        }
        const bool closes = token.kind == Kind::close || token.kind == Kind::close_vector;
        return closes ? at(token.depth + 1).open : at(token.depth).first;
    }

private:
    struct Opened {
        size_t open = 0, first = 0;  // columns of what opens it and of what its lines begin below
        int words = 0;
        bool call = false;
    };
    Opened& at(int depth) {
        if (opened_.size() <= static_cast<size_t>(depth)) opened_.resize(static_cast<size_t>(depth) + 1);
        return opened_[static_cast<size_t>(depth)];
    }
    std::vector<Opened> opened_;
};

std::string_view parting(const Token& before, const Token& token) {
    if (token.kind == Kind::comment) return "  ";
    if (before.kind == Kind::open || before.kind == Kind::open_vector) return "";
    if (token.kind == Kind::close || token.kind == Kind::close_vector) return before.kind == Kind::directive ? " " : "";
    return " ";
}

// The words, for comparison.
std::string words_of(std::string_view text) {
    const Outline outline = outline_of(text);
    std::string all;
    for (size_t i = 0; i < outline.tokens.size(); i++) {
        all += static_cast<char>('a' + static_cast<int>(outline.tokens[i].kind));
        all += static_cast<char>('a' + static_cast<int>(outline.tokens[i].role));
        const std::string_view word = outline.word(i);
        if (outline.tokens[i].kind != Kind::directive)
            all += trimmed(word);
        else  // blanks within it are no difference
            std::copy_if(word.begin(), word.end(), std::back_inserter(all), [](char c) { return !blank_p(c); });
        all += '\n';
    }
    return all;
}

}  // namespace

Layout lay_out(std::string_view text) {
    const Outline outline = outline_of(text);
    for (const Definition& definition : outline.definitions)
        if (!definition.closed) return {"", "a definition is not closed"};
    // Whether a conditional stands in quotes is then anybody's guess.
    const auto any = [&](Kind kind) {
        return std::any_of(outline.tokens.begin(), outline.tokens.end(),
                           [kind](const Token& token) { return token.kind == kind; });
    };
    if (any(Kind::quote) && any(Kind::directive)) return {"", "a quote is not closed"};
    const std::string line_end = line_end_of(text);
    std::string out;
    Columns columns;
    size_t behind = 0;  // the last token
    for (size_t i = 0; i < outline.tokens.size(); i++) {
        const Token& token = outline.tokens[i];
        const bool inside = token.definition >= 0;
        if (inside && token.kind == Kind::quote) return {"", "a quote stands where no text in quotes is read"};
        // The library takes all up to a blank for its word, whatever stands there.
        if (inside && token.kind == Kind::word && outline.word(i) != "#ref" &&
            outline.word(i).find('#') != std::string_view::npos)
            return {"", "'" + std::string(outline.word(i)) + "' is no conditional"};
        const bool opens = inside && i == outline.definitions[static_cast<size_t>(token.definition)].open;
        const std::string_view gap = text.substr(behind, token.begin - behind);
        int ends = std::min(line_ends(gap), most_line_ends);
        if (i && inside && begins_line_p(outline, i)) ends = std::max(ends, 1);
        // Nothing stands directly behind a definition but a comment.
        if (i && !inside && token.kind != Kind::comment && outline.tokens[i - 1].definition >= 0)
            ends = std::max(ends, 1);
        if (i == 0) ends = 0;
        for (int n = 0; n < ends; n++) out += line_end;
        if (!inside || opens) {
            // Between definitions a line keeps what it begins with.
            const size_t start = gap.find_last_of("\r\n");
            if (!opens && ends > 0) out += start == std::string_view::npos ? "" : gap.substr(start + 1);
            if (!opens && ends == 0) out += i && token.kind == Kind::comment && gap.empty() ? "  " : gap;
            if (opens && ends == 0 && i) out += " ";
        } else if (ends > 0) {
            out.append(columns.indent(outline, i), ' ');
        } else if (i) {
            out += parting(outline.tokens[i - 1], token);
        }
        const size_t line = out.find_last_of("\r\n");
        if (inside) columns.note(token, out.size() - (line == std::string::npos ? 0 : line + 1));
        if (token.kind == Kind::directive) {
            const std::string_view word = outline.word(i);
            const size_t blank = std::min(word.find_first_of(" \t\f\v"), word.size());
            out += word.substr(0, blank);
            const std::string_view test = word.substr(std::min(word.find_first_not_of(" \t\f\v", blank), word.size()));
            if (!test.empty()) out.append(" ").append(test);
        } else {
            out += token.kind == Kind::comment ? trimmed(outline.word(i)) : outline.word(i);
        }
        behind = token.end;
    }
    if (!out.empty()) out += line_end;
    if (words_of(out) != words_of(text)) return {"", "the text would read otherwise"};
    return {out, ""};
}

}  // namespace language
