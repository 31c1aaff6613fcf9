// Messages out of a stream: a header that says how many bytes follow, an empty line, the bytes.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace language {

class Messages {
public:
    // Longer ones are passed over, without being kept.
    static constexpr size_t longest = size_t{1} << 26;

    void feed(std::string_view bytes) { kept_ += bytes; }

    struct Message {
        std::string text;
        std::string fault;  // why it has no text; empty: it has
    };
    // The next one that is whole.
    std::optional<Message> next();
    // Bytes that wait for the rest of a message.
    size_t waiting() const { return kept_.size(); }

private:
    bool read_header(std::optional<Message>& found);

    std::string kept_;
    size_t skipped_ = 0;             // bytes still to be passed over
    std::optional<size_t> length_;   // said by the header so far
    std::optional<size_t> content_;  // the header is through: so many bytes follow
    std::string fault_;              // of the header
};

// With its header.
std::string framed(std::string_view text);

}  // namespace language
