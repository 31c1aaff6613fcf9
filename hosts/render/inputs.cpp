#include "hosts/render/inputs.h"

#include "hosts/common/numbers.h"
#include "hosts/render/failure.h"
#include "hosts/render/suggest.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string_view>

namespace render {

using spark_host::FrameFormat;
using spark_host::PictureFunctions;
using spark_host::PicturePtr;

namespace {

using Clock = std::chrono::steady_clock;
double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Beside those that are read ahead: the frame in hand, and a neighbour.
constexpr long most_a_side = 65536;
constexpr size_t fewest_pictures = 2, most_pictures = 1000;

using spark_host::picture_functions;
using PictureRead = std::shared_future<InputClip::PictureRead>;
bool keeping = false;

// What was read before, or what begin begins to read now.
PictureRead kept_picture(const FrameFile& file, const std::function<PictureRead()>& begin) {
    struct Kept {
        timespec time;
        off_t size;
        PictureRead read;
    };
    static std::map<std::pair<std::string, int>, Kept> all;
    struct stat status = {};
    stat(file.file.c_str(), &status);
    const auto key = std::pair(file.file, file.movie_frame);
    const auto found = all.find(key);
    if (found != all.end() && found->second.size == status.st_size &&
        found->second.time.tv_sec == status.st_mtim.tv_sec && found->second.time.tv_nsec == status.st_mtim.tv_nsec)
        return found->second.read;
    return all.insert_or_assign(key, Kept{status.st_mtim, status.st_size, begin()}).first->second.read;
}

size_t pictures_kept(const InputClip& input) {
    const spark_host::PictureInfo& info = input.info;
    const size_t bytes = static_cast<size_t>(info.width) * static_cast<size_t>(info.height) *
                         static_cast<size_t>(std::max(info.channels * info.layers, 1)) * (info.eight_bits ? 1 : 4);
    return std::clamp(input.kept_bytes / std::max<size_t>(bytes, 1), input.ahead + fewest_pictures, most_pictures);
}

InputClip::Loaded& load(InputClip& input, const FrameFile& file) {
    const auto known = std::find_if(input.loaded.begin(), input.loaded.end(), [&](const InputClip::Loaded& loaded) {
        return loaded.file == file.file && loaded.movie_frame == file.movie_frame;
    });
    if (known != input.loaded.end()) {
        std::rotate(known, known + 1, input.loaded.end());
        return input.loaded.back();
    }
    while (input.loaded.size() >= pictures_kept(input)) input.loaded.pop_front();
    // Frames of a movie are decoded in order, so the one before must not be overtaken.
    PictureRead before;
    if (file.movie_frame >= 0) before = input.begun_last;
    auto read = [before, path = file.file, frame = file.movie_frame, pipe = input.pipe]() mutable {
        if (before.valid()) before.wait();
        before = {};  // or each read would keep all pictures before it
        const auto start = Clock::now();
        InputClip::PictureRead done;
        try {
            if (pipe)
                done.picture = pipe->read(frame, &done.error);
            else
                done.picture = picture_functions().read(path, frame, &done.error);
            if (pipe && !done.error.empty()) done.error = "standard input: " + done.error;
        } catch (const std::bad_alloc&) {
            done.error = path + ": out of memory";
        }
        done.seconds = seconds_since(start);
        return done;
    };
    const auto begin = [&] { return std::async(std::launch::async, std::move(read)).share(); };
    input.begun_last = keeping && !input.pipe ? kept_picture(file, begin) : begin();
    return input.loaded.emplace_back(InputClip::Loaded{file.file, file.movie_frame, input.begun_last});
}

// Standard input, behind what was read of it already, as a file in memory, for picture readers go back and forth.
std::string standard_input(const std::string& start) {
    static int file = -1;
    const std::string path = "/proc/self/fd/";
    if (file >= 0) return path + std::to_string(file);
    file = memfd_create("standard input", MFD_CLOEXEC);
    char bytes[65536];
    ssize_t n = file < 0 ? -1 : 1;
    if (n > 0 && ::write(file, start.data(), start.size()) != static_cast<ssize_t>(start.size())) n = -1;
    while (n > 0 && (n = ::read(STDIN_FILENO, bytes, sizeof(bytes))) > 0)
        if (::write(file, bytes, static_cast<size_t>(n)) != n) n = -1;
    if (n < 0) throw Failure("standard input: " + std::string(std::strerror(errno)));
    return path + std::to_string(file);
}

constexpr std::string_view y4m_start = "YUV4MPEG2";

// What tells frames from a picture.
std::string start_of_standard_input() {
    static std::string start;  // a program that renders again does not read it again
    while (start.size() < y4m_start.size() && y4m_start.starts_with(start)) {
        char c;
        const ssize_t n = ::read(STDIN_FILENO, &c, 1);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        start += c;
    }
    return start;
}

// The directory's numbered files that come nearest to a pattern without any, as another pattern.
std::string what_is_there(const spark_host::SequencePath& sequence) {
    const size_t slash = sequence.prefix.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : sequence.prefix.substr(0, slash + 1);
    std::error_code none;
    if (!std::filesystem::is_directory(directory, none)) return "; there is no directory " + directory;
    std::map<std::string, std::vector<int>> found;  // numbers by pattern
    for (auto at = std::filesystem::directory_iterator(directory, none);
         !none && at != std::filesystem::directory_iterator(); at.increment(none)) {
        const std::string name = at->path().filename().string();
        // The last run of digits, which is how sequences are numbered.
        const size_t last = name.find_last_of("0123456789");
        if (last == std::string::npos || name[0] == '.') continue;
        size_t first = name.find_last_not_of("0123456789", last) + 1;
        if (last - first >= 9) continue;
        const std::string digits = name.substr(first, last + 1 - first);
        const std::string place =
            digits[0] == '0' && digits.size() > 1 ? "%0" + std::to_string(digits.size()) + "d" : "%d";
        found[name.substr(0, first) + place + name.substr(last + 1)].push_back(std::atoi(digits.c_str()));
    }
    // Numbers that fill their places look like unpadded ones.
    for (auto& [pattern, numbers] : found) {
        const size_t plain = pattern.find("%d");
        for (auto& [other, theirs] : found) {
            if (plain == std::string::npos || other == pattern || other.compare(0, plain, pattern, 0, plain) != 0)
                continue;
            const size_t end = other.find('d', plain);
            if (end == std::string::npos || other[plain] != '%' || other.substr(end + 1) != pattern.substr(plain + 2))
                continue;
            const size_t digits = static_cast<size_t>(std::atoi(other.c_str() + plain + 2));
            for (const int number : numbers)
                if (std::to_string(number).size() == digits) theirs.push_back(number);
            std::erase_if(numbers, [&](int number) { return std::to_string(number).size() == digits; });
        }
    }
    std::erase_if(found, [](const auto& entry) { return entry.second.empty(); });
    if (found.empty()) return "; the directory holds no numbered files";
    const std::string start = slash == std::string::npos ? sequence.prefix : sequence.prefix.substr(slash + 1);
    std::string wanted = start + "%d" + sequence.suffix;
    std::vector<std::string> patterns;
    for (const auto& [pattern, numbers] : found) patterns.push_back(pattern);
    // The same name but for its digits, else the nearest one, else the one with the most files.
    std::string nearest;
    for (const std::string& pattern : patterns)
        if (pattern.rfind(start + "%", 0) == 0 && pattern.ends_with("d" + sequence.suffix)) nearest = pattern;
    if (nearest.empty()) nearest = nearest_name(wanted, patterns);
    if (nearest.empty())
        nearest = std::max_element(found.begin(), found.end(), [](const auto& a, const auto& b) {
                      return a.second.size() < b.second.size();
                  })->first;
    std::vector<int>& numbers = found[nearest];
    std::sort(numbers.begin(), numbers.end());
    return "; there is " + (slash == std::string::npos ? "" : directory) + nearest + " with " +
           spark_host::frame_list_text(numbers);
}

// Messages about standard input do not name the file that stands for it.
std::string named(const InputClip& input, std::string text) {
    if (input.path == "-" && !input.pipe && text.rfind(input.sequence.prefix, 0) == 0)
        text.replace(0, input.sequence.prefix.size(), "standard input");
    return text;
}

std::string size_text(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

}  // namespace

void keep_pictures() { keeping = true; }

bool read_size(const std::string& text, int& width, int& height) {
    const size_t times = text.find('x');
    long w = 0, h = 0;
    if (times == std::string::npos || !spark_host::read_number(text.substr(0, times), w) ||
        !spark_host::read_number(text.substr(times + 1), h) || w < 1 || h < 1 || w > most_a_side || h > most_a_side)
        return false;
    width = static_cast<int>(w), height = static_cast<int>(h);
    return true;
}

bool ended_before(InputClip& input, int frame) {
    return input.pipe && !picture_of_frame(input, frame) && input.failure.empty();
}

std::unique_ptr<InputClip> open_input(const std::string& path, Missing missing, const std::string& size, float rate) {
    auto input = std::make_unique<InputClip>();
    input->path = path;
    input->missing = missing;
    const std::string start = path == "-" ? start_of_standard_input() : "";
    if (start == y4m_start || path == "-.y4m") {
        input->pipe = std::make_shared<FramePipe>(STDIN_FILENO, start);
    } else if (const RawFormat* const raw = raw_format(pipe_ending(path))) {
        int width = 0, height = 0;
        if (!read_size(size, width, height))
            throw Failure(path + ": bare frames need their size: --size WIDTHxHEIGHT, such as 1920x1080");
        input->pipe = std::make_shared<FramePipe>(STDIN_FILENO, *raw, width, height);
    } else if (!pipe_ending(path).empty()) {
        throw Failure(path + ": frames come in as y4m, " + raw_format_names());
    }
    if (input->pipe) {
        input->kind = InputClip::Kind::pipe;
        input->info = input->pipe->info();
        if (rate > 0) input->info.frame_rate = rate;
        return input;
    }
    std::string error;
    const auto sequence = spark_host::parse_sequence_path(path == "-" ? standard_input(start) : path, &error);
    if (!sequence) throw Failure(error);
    input->sequence = *sequence;
    std::string first;
    if (sequence->numbered) {
        input->kind = InputClip::Kind::sequence;
        input->frames = frames_on_disk(*sequence);
        if (input->frames.empty()) throw Failure(path + ": no files of this sequence" + what_is_there(*sequence));
        first = path_of_frame(*sequence, input->frames[0]);
    } else {
        first = sequence->prefix;
    }
    const PictureFunctions& functions = picture_functions();
    bool readable = functions.probe(first, input->info, &error);
    // A broken first file is that frame's fault alone; the others tell what the clip is like.
    for (size_t i = 1; !readable && i < input->frames.size(); i++) {
        std::string other;
        readable = functions.probe(path_of_frame(*sequence, input->frames[i]), input->info, &other);
    }
    if (!readable) throw Failure(named(*input, error), status_of(error));
    if (input->info.movie_frames > 0) {
        if (input->kind == InputClip::Kind::sequence) throw Failure(path + ": a sequence of clips cannot be read");
        input->kind = InputClip::Kind::movie;
        for (int i = 1; i <= input->info.movie_frames; i++) input->frames.push_back(i);
    }
    return input;
}

bool has_frame(const InputClip& input, int frame) {
    if (input.pipe) return frame >= input.pipe_first;
    return input.kind == InputClip::Kind::still || std::binary_search(input.frames.begin(), input.frames.end(), frame);
}

FrameFile file_of_frame(const InputClip& input, int frame) {
    if (input.pipe) return {"-", std::max(0, frame - input.pipe_first), false};
    if (input.kind == InputClip::Kind::still) return {input.sequence.prefix, -1, false};
    if (!has_frame(input, frame)) {
        if (input.missing == Missing::black) return {"", -1, true};
        if (input.missing == Missing::error) return {};
        // Held: the last one before, at the start the first one.
        const auto next = std::upper_bound(input.frames.begin(), input.frames.end(), frame);
        frame = next == input.frames.begin() ? *next : *std::prev(next);
    }
    if (input.kind == InputClip::Kind::movie) return {input.path, frame - 1, false};
    return {path_of_frame(input.sequence, frame), -1, false};
}

void prefetch(InputClip& input, int frame) {
    const FrameFile file = file_of_frame(input, frame);
    if (!file.file.empty()) load(input, file);
}

PicturePtr picture_of_frame(InputClip& input, int frame) {
    input.failure.clear();
    const FrameFile file = file_of_frame(input, frame);
    if (file.black) return nullptr;
    if (file.file.empty()) {
        input.failure = input.path + ": frame " + std::to_string(frame) + " is missing";
        return nullptr;
    }
    InputClip::Loaded& loaded = load(input, file);
    const auto start = Clock::now();
    const InputClip::PictureRead& done = loaded.read.get();
    input.waited_seconds += seconds_since(start);
    if (!loaded.counted) input.read_seconds += done.seconds;
    loaded.counted = true;
    if (!done.picture) input.failure = named(input, done.error);
    return done.picture;
}

std::string frame_problem(InputClip& input, int frame, const FrameFormat& format) {
    const PicturePtr picture = picture_of_frame(input, frame);
    if (!picture && input.pipe && input.failure.empty()) return "standard input: ends before this frame";
    if (!picture) return input.failure;
    const auto& info = picture->info;
    if (info.width == format.width && info.height == format.height) return "";
    return file_of_frame(input, frame).file + ": is " + size_text(info.width, info.height) + ", the frames are " +
           size_text(format.width, format.height);
}

spark_host::ClipPtr host_clip(InputClip& input, int first_frame, int total) {
    return spark_host::generated_clip(total, [&input, first_frame](int frame, const FrameFormat& format, void* dest) {
        const int number = first_frame + frame;
        const std::string problem = frame_problem(input, number, format);
        if (!problem.empty()) {
            input.failure = problem;
            return false;
        }
        const PicturePtr picture = picture_of_frame(input, number);
        if (!picture) {
            std::memset(dest, 0, static_cast<size_t>(format.bytes()));
            return true;
        }
        const auto start = Clock::now();
        const spark_host::SamplesFound found = picture_functions().to_frame(*picture, format, dest);
        input.waited_seconds += seconds_since(start);
        const std::string file = file_of_frame(input, number).file;
        if (found.beyond && input.first_beyond.empty()) input.first_beyond = file;
        if (found.no_number && input.first_no_number.empty()) input.first_no_number = file;
        return true;
    });
}

}  // namespace render
