// How a text is laid out: a line for each assignment, one blank between words. Lines that an author broke stay
// broken, and what goes on in them stands below the first argument of the call that is open. Comments stay where they
// are and as they are, and so does all between definitions but for blanks at ends of lines.
#pragma once

#include <string>
#include <string_view>

namespace language {

struct Layout {
    std::string text;
    std::string refusal;  // why the text stays as it is; empty: text holds the new one
};

// Words, their order and all comments are the same afterwards: a text that cannot be laid out so is refused. Laying out
// what was laid out changes nothing.
Layout lay_out(std::string_view text);

}  // namespace language
