#include "hosts/common/frame_list.h"

#include "hosts/common/numbers.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <unordered_set>

namespace spark_host {
namespace {

constexpr int max_frame = 99999999;

bool read_frame(std::string_view text, int& frame) {
    long number = 0;
    if (text.empty() || text[0] < '0' || text[0] > '9' || !read_number(text, number) || number > max_frame)
        return false;
    frame = static_cast<int>(number);
    return true;
}

struct Range {
    int first = 0, last = 0, step = 1;
};

bool read_range(std::string_view text, Range& range) {
    const size_t dash = text.find('-');
    if (dash == std::string_view::npos) {
        if (!read_frame(text, range.first)) return false;
        range.last = range.first;
        return true;
    }
    std::string_view end = text.substr(dash + 1);
    const size_t times = end.find('x');
    if (times != std::string_view::npos) {
        if (!read_frame(end.substr(times + 1), range.step) || range.step < 1) return false;
        end = end.substr(0, times);
    }
    return read_frame(text.substr(0, dash), range.first) && read_frame(end, range.last);
}

}  // namespace

std::optional<std::vector<int>> parse_frame_list(const std::string& text, std::string* error) {
    std::vector<int> frames;
    std::unordered_set<int> seen;
    for (size_t at = 0; at <= text.size();) {
        const size_t comma = std::min(text.find(',', at), text.size());
        const std::string part = text.substr(at, comma - at);
        Range range;
        if (!read_range(part, range)) {
            *error = "'" + part + "' is not a frame or a range of frames such as 7, 1-24 or 1-24x2";
            return std::nullopt;
        }
        const long count = std::labs(static_cast<long>(range.last) - range.first) / range.step + 1;
        if (frames.size() + static_cast<size_t>(count) > max_listed_frames) {
            *error = "'" + text + "' has more than " + std::to_string(max_listed_frames) + " frames";
            return std::nullopt;
        }
        const int step = range.first <= range.last ? range.step : -range.step;
        for (long i = 0; i < count; i++) {
            const int frame = range.first + static_cast<int>(i) * step;
            if (seen.insert(frame).second) frames.push_back(frame);
        }
        at = comma + 1;
    }
    return frames;
}

std::string frame_list_text(const std::vector<int>& frames) {
    std::string text;
    for (size_t i = 0; i < frames.size();) {
        size_t n = 1;
        const int step = i + 1 < frames.size() ? frames[i + 1] - frames[i] : 1;
        while (i + n < frames.size() && frames[i + n] - frames[i + n - 1] == step) n++;
        // Two frames apart are no run: "1,5" is clearer than "1-5x4".
        if (n == 2 && step > 1) n = 1;
        text += (text.empty() ? "" : ",") + std::to_string(frames[i]);
        if (n > 1) text += "-" + std::to_string(frames[i + n - 1]) + (step > 1 ? "x" + std::to_string(step) : "");
        i += n;
    }
    return text;
}

std::optional<SequencePath> parse_sequence_path(const std::string& path, std::string* error) {
    SequencePath sequence;
    std::string* part = &sequence.prefix;
    const size_t slash = path.rfind('/');
    const size_t name = slash == std::string::npos ? 0 : slash + 1;
    sequence.prefix = path.substr(0, name);
    for (size_t i = name; i < path.size();) {
        size_t end = i;
        int digits = 0;
        if (path[i] == '#') {
            end = std::min(path.find_first_not_of('#', i), path.size());
            digits = static_cast<int>(end - i);
        } else if (path.compare(i, 2, "%%") == 0) {
            *part += '%';
            i += 2;
            continue;
        } else if (path[i] == '%') {
            end = std::min(path.find_first_not_of("0123456789", i + 1), path.size());
            if (end < path.size() && path[end] == 'd' && (end == i + 1 || path[i + 1] == '0') && end - i <= 3) {
                digits = end == i + 1 ? 0 : std::atoi(path.substr(i + 1, end - i - 1).c_str());
                end++;
            } else {
                *error = path + ": '%' must begin a frame number such as %04d, or be written as %%";
                return std::nullopt;
            }
        }
        if (end == i) {
            *part += path[i++];
            continue;
        }
        if (sequence.numbered) {
            *error = path + ": has more than one place for the frame number";
            return std::nullopt;
        }
        sequence.numbered = true;
        sequence.digits = digits;
        part = &sequence.suffix;
        i = end;
    }
    return sequence;
}

std::string path_of_frame(const SequencePath& sequence, int frame) {
    if (!sequence.numbered) return sequence.prefix;
    std::string number = std::to_string(frame);
    const size_t digits = static_cast<size_t>(sequence.digits);
    if (number.size() < digits) number.insert(0, digits - number.size(), '0');
    return sequence.prefix + number + sequence.suffix;
}

std::vector<int> frames_on_disk(const SequencePath& sequence) {
    std::vector<int> frames;
    std::error_code error;
    if (!sequence.numbered) return frames;
    const size_t slash = sequence.prefix.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : sequence.prefix.substr(0, slash + 1);
    const std::string start = slash == std::string::npos ? sequence.prefix : sequence.prefix.substr(slash + 1);
    for (auto at = std::filesystem::directory_iterator(directory, error);
         !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (name.size() <= start.size() + sequence.suffix.size() || name.compare(0, start.size(), start) != 0) continue;
        int frame = 0;
        const std::string_view number =
            std::string_view(name).substr(start.size(), name.size() - start.size() - sequence.suffix.size());
        if (!read_frame(number, frame)) continue;
        if (path_of_frame(sequence, frame).ends_with("/" + name) || path_of_frame(sequence, frame) == name)
            frames.push_back(frame);
    }
    std::sort(frames.begin(), frames.end());
    return frames;
}

}  // namespace spark_host
