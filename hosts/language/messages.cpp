#include "hosts/language/messages.h"

#include <algorithm>
#include <charconv>

namespace language {
namespace {

constexpr size_t longest_line = 4096;
constexpr std::string_view length_word = "content-length:";

// Where the header's name stands, also behind what is left of a message that said a wrong length.
size_t find_length(std::string_view line) {
    const auto same = [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; };
    const auto at = std::search(line.begin(), line.end(), length_word.begin(), length_word.end(), same);
    return at == line.end() ? std::string_view::npos : static_cast<size_t>(at - line.begin());
}

}  // namespace

std::string framed(std::string_view text) {
    return "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + std::string(text);
}

// A line of the header. False: more bytes are needed.
bool Messages::read_header(std::optional<Message>& found) {
    const size_t end = kept_.find('\n');
    if (end == std::string::npos) {
        // No header has such a line: keep what may be the beginning of its name.
        if (kept_.size() > longest_line) {
            const size_t at = find_length(kept_);
            kept_.erase(0, at != std::string::npos && at > 0 ? at : kept_.size() - length_word.size());
        }
        return false;
    }
    std::string_view line = std::string_view(kept_).substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty()) {
        if (length_)
            content_ = length_;
        else
            found = Message{"", fault_.empty() ? "a message without Content-Length" : fault_};
        length_.reset();
        fault_.clear();
    } else if (const size_t at = find_length(line); at != std::string_view::npos) {
        std::string_view number = line.substr(at + length_word.size());
        number.remove_prefix(std::min(number.find_first_not_of(" \t"), number.size()));
        while (!number.empty() && (number.back() == ' ' || number.back() == '\t')) number.remove_suffix(1);
        size_t length = 0;
        const auto [rest, error] = std::from_chars(number.data(), number.data() + number.size(), length);
        length_.reset();
        if (error == std::errc() && rest == number.data() + number.size() && !number.empty())
            length_ = length;
        else
            fault_ = "Content-Length is no number of bytes";
    }
    kept_.erase(0, end + 1);
    return true;
}

std::optional<Messages::Message> Messages::next() {
    for (;;) {
        const size_t passed = std::min(skipped_, kept_.size());
        kept_.erase(0, passed);
        skipped_ -= passed;
        if (skipped_ > 0) return std::nullopt;
        if (!content_) {
            std::optional<Message> found;
            if (!read_header(found)) return std::nullopt;
            if (found) return found;
            continue;
        }
        if (*content_ > longest) {
            skipped_ = *content_;
            content_.reset();
            return Message{"", "a message of " + std::to_string(skipped_) + " bytes is too long"};
        }
        if (kept_.size() < *content_) return std::nullopt;
        Message message = {kept_.substr(0, *content_), ""};
        kept_.erase(0, *content_);
        content_.reset();
        return message;
    }
}

}  // namespace language
