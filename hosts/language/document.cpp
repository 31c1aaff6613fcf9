#include "hosts/language/document.h"

#include <algorithm>

namespace language {
namespace {

bool inside_character_p(char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; }
// UTF-16 units of the character that begins so; 0 within one.
size_t units(char c) { return inside_character_p(c) ? 0 : static_cast<unsigned char>(c) >= 0xf0 ? 2 : 1; }

}  // namespace

void Document::set(std::string text) {
    text_ = std::move(text);
    starts_ = {0};
    for (size_t i = 0; i < text_.size(); i++)
        if (text_[i] == '\n' || (text_[i] == '\r' && (i + 1 == text_.size() || text_[i + 1] != '\n')))
            starts_.push_back(i + 1);
}

void Document::replace(Place from, Place to, std::string_view by) {
    if (to < from) std::swap(from, to);
    const size_t begin = offset(from), end = offset(to);
    std::string text = std::move(text_);
    text.replace(begin, end - begin, by);
    set(std::move(text));
}

size_t Document::line_end(size_t line) const {
    size_t end = line + 1 < starts_.size() ? starts_[line + 1] : text_.size();
    while (end > starts_[line] && (text_[end - 1] == '\n' || text_[end - 1] == '\r')) --end;
    return end;
}

Place Document::place(size_t offset) const {
    offset = std::min(offset, text_.size());
    while (offset > 0 && offset < text_.size() && inside_character_p(text_[offset])) --offset;
    const auto next = std::upper_bound(starts_.begin(), starts_.end(), offset);
    Place place = {static_cast<size_t>(next - starts_.begin()) - 1, 0};
    for (size_t i = starts_[place.line]; i < offset; i++) place.character += units(text_[i]);
    return place;
}

size_t Document::offset(Place place) const {
    if (place.line >= starts_.size()) return text_.size();
    const size_t end = line_end(place.line);
    size_t at = starts_[place.line];
    for (size_t left = place.character; at < end;) {
        const size_t wide = units(text_[at]);
        if (wide > left || left == 0) break;
        left -= wide;
        do ++at;
        while (at < end && inside_character_p(text_[at]));
    }
    return at;
}

size_t Document::library_offset(int line, int column) const {
    size_t at = 0;
    for (int i = 1; i < line; i++) {
        at = text_.find('\n', at);
        if (at == std::string::npos) return text_.size();
        at++;
    }
    return std::min(at + static_cast<size_t>(std::max(column, 1) - 1), text_.size());
}

}  // namespace language
