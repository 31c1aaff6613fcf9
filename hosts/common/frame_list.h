// Frames by their own numbers: lists as a user writes them, and sequences of files.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace spark_host {

// "7", "1-24", "1-24x2", "24-1", "1-10,20-30": the numbers in the order given, each once. Nothing, and the reason in
// *error, if the text is none or has more than max_listed_frames.
std::optional<std::vector<int>> parse_frame_list(const std::string& text, std::string* error);
constexpr size_t max_listed_frames = 1000000;

// The reverse, as short as it goes: "1-24", "1-9x2", "7". The numbers ascend.
std::string frame_list_text(const std::vector<int>& frames);

// A path with a place for the frame number in its last component, "%04d", "%d" or "####"; "%%" stands for "%".
struct SequencePath {
    std::string prefix, suffix;  // the path around the number
    int digits = 0;              // at least so many, filled with zeros; 0: as they come
    bool numbered = false;       // false: prefix is the whole path
};

// Nothing, and the reason in *error, if the name has more than one place or a malformed one.
std::optional<SequencePath> parse_sequence_path(const std::string& path, std::string* error);
std::string path_of_frame(const SequencePath& sequence, int frame);

// Numbers of the files on disk, ascending. Of a numbered path only names that path_of_frame would give.
std::vector<int> frames_on_disk(const SequencePath& sequence);

}  // namespace spark_host
