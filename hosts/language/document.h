// A text as an editor has it: changed piece by piece, with places counted in lines and UTF-16 units. A line ends with a
// line feed, a carriage return, or both. Places beyond the end of a line or of the text are held to it, those within a
// character to its first byte.
#pragma once

#include <compare>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace language {

struct Place {
    size_t line = 0, character = 0;  // from 0
    auto operator<=>(const Place&) const = default;
};

class Document {
public:
    explicit Document(std::string text = "") { set(std::move(text)); }

    void set(std::string text);
    // Ends in another order are exchanged.
    void replace(Place from, Place to, std::string_view by);

    const std::string& text() const { return text_; }
    Place place(size_t offset) const;
    size_t offset(Place place) const;
    // Where the library's line and column are, both from 1, counted by line feeds and bytes.
    size_t library_offset(int line, int column) const;

private:
    size_t line_end(size_t line) const;  // before what ends it

    std::string text_;
    std::vector<size_t> starts_;  // first byte of each line
};

}  // namespace language
