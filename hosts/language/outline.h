// The words of a text of effects, what each of them is, and where the definitions and their assignments stand. It reads
// every text, however unfinished: a definition that is not closed ends where the next one begins, an expression that is
// not closed where the next name is assigned. Of the sides of a conditional all are read, each from where the first
// began. No threads, no errors; the text must outlive the outline.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace language {

enum class Kind : unsigned char {
    comment,    // from "//" to the end of the line
    directive,  // "#if word", "#ifnot word", "#elseif word", "#else", "#endif"
    word,
    string,  // with its quotes
    open,
    close,
    open_vector,
    close_vector,
    equals,
    quote  // of a string that does not end, or where none is read
};

enum class Role : unsigned char {
    none,
    keyword,  // def_effect and its like, #ref
    effect,   // the name of a definition
    input,    // named in the list of inputs
    modifier,
    target,       // a name that is assigned
    reference,    // a name that stands for a value
    function,     // head of a call
    number,       // also in a declaration
    declaration,  // a word of a declaration
    entry,        // of a popup
    widget_type,
    glyph,
    value,         // a word that belongs to the word before it, as a group's name
    other_effect,  // behind #ref
};

struct Token {
    Kind kind;
    Role role;
    size_t begin, end;    // bytes of the text
    int definition = -1;  // that it belongs to; -1: it stands between them
    int depth = 0;        // lists open before it; of what closes one, those open behind it
};

struct Assignment {
    size_t name;                   // token
    size_t value = 0;              // first token of the expression; 0: there is none
    size_t declaration = 0;        // token that opens it; 0: there is none
    size_t last;                   // last token that belongs to it
    bool constant = false;         // a plain number or vector: a param
    bool widget_has_part = false;  // every widget clause names its part
};

struct Definition {
    size_t open, last;                     // tokens
    size_t name = 0, keyword, close = 0;   // tokens; 0: there is none
    bool closed = false, follows = false;  // follows: it takes assignments from another definition
    std::vector<size_t> inputs;            // tokens
    std::vector<Assignment> assignments;
};

struct Outline {
    std::string_view text;
    std::vector<Token> tokens;
    std::vector<Definition> definitions;

    std::string_view word(size_t token) const {
        return text.substr(tokens[token].begin, tokens[token].end - tokens[token].begin);
    }
    // The token that holds the byte or ends before it, as a caret stands at a word; tokens.size(): none.
    size_t token_at(size_t offset) const;
    // Null: the byte lies between definitions.
    const Definition* definition_at(size_t offset) const;
};

Outline outline_of(std::string_view text);

// What surrounds a place, to offer words there.
enum class Surrounding : unsigned char {
    between,      // definitions
    header,       // where a definition's name stands
    inputs,       // names are made up here
    modifiers,    // the second list
    assignments,  // where a name is assigned
    value,        // an expression, an argument or an element
    head,         // behind the parenthesis of a call
    declaration,  // a word of it
    entries,      // of a popup, where only a handle may follow
    widget_type,
    glyph,
    parameter,  // the name of another param
    word,       // one that is made up, or a number
    nowhere     // in a comment or a string
};
struct Caret {
    Surrounding surrounding = Surrounding::between;
    size_t word = 0;        // first byte of the word that is being written
    std::string function;   // the innermost call around the caret, empty for none
    int argument = -1;      // of it, from 0; -1 at its head
    std::string parameter;  // the param that a declaration belongs to, or the name that a value is assigned to
    bool if_word = false;   // behind #if
};
Caret caret_at(std::string_view text, size_t offset);

// Whether a word of a text reads as a number, whatever stands behind the digits.
bool number_p(std::string_view word);
// What parts words: white space as the library has it.
bool blank_p(char c);

}  // namespace language
