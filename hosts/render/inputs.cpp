#include "hosts/render/inputs.h"

#include "hosts/render/failure.h"

#include <algorithm>
#include <cstring>

namespace render {

using spark_host::FrameFormat;
using spark_host::PictureFunctions;
using spark_host::PicturePtr;

namespace {

// The frame in hand, the one read ahead, and a neighbour for effects that look back.
constexpr size_t pictures_kept = 3;

const PictureFunctions& pictures() {
    std::string error;
    const PictureFunctions* const functions = spark_host::picture_functions(&error);
    if (!functions) throw Failure("pictures cannot be read: " + error);
    return *functions;
}

InputClip::Loaded& load(InputClip& input, const FrameFile& file) {
    for (auto& loaded : input.loaded)
        if (loaded.file == file.file && loaded.movie_frame == file.movie_frame) return loaded;
    if (input.loaded.size() >= pictures_kept) input.loaded.pop_front();
    // Frames of a movie are decoded in order, so the one before must not be overtaken.
    std::shared_future<std::pair<PicturePtr, std::string>> before;
    if (file.movie_frame >= 0 && !input.loaded.empty()) before = input.loaded.back().picture;
    auto read = [before, path = file.file, frame = file.movie_frame, &functions = pictures()]() mutable {
        if (before.valid()) before.wait();
        before = {};  // or each read would keep all pictures before it
        std::string error;
        PicturePtr picture;
        try {
            picture = functions.read(path, frame, &error);
        } catch (const std::bad_alloc&) {
            error = path + ": out of memory";
        }
        return std::pair(std::move(picture), error);
    };
    return input.loaded.emplace_back(
        InputClip::Loaded{file.file, file.movie_frame, std::async(std::launch::async, std::move(read)).share()});
}

std::string size_text(int width, int height) { return std::to_string(width) + "x" + std::to_string(height); }

}  // namespace

std::unique_ptr<InputClip> open_input(const std::string& path, Missing missing) {
    auto input = std::make_unique<InputClip>();
    input->path = path;
    input->missing = missing;
    std::string error;
    const auto sequence = spark_host::parse_sequence_path(path, &error);
    if (!sequence) throw Failure(error);
    input->sequence = *sequence;
    std::string first = path;
    if (sequence->numbered) {
        input->kind = InputClip::Kind::sequence;
        input->frames = frames_on_disk(*sequence);
        if (input->frames.empty()) throw Failure(path + ": no files of this sequence");
        first = path_of_frame(*sequence, input->frames[0]);
    } else {
        first = sequence->prefix;
    }
    const PictureFunctions& functions = pictures();
    bool readable = functions.probe(first, input->info, &error);
    // A broken first file is that frame's fault alone; the others tell what the clip is like.
    for (size_t i = 1; !readable && i < input->frames.size(); i++) {
        std::string other;
        readable = functions.probe(path_of_frame(*sequence, input->frames[i]), input->info, &other);
    }
    if (!readable) throw Failure(error);
    if (input->info.movie_frames > 0) {
        if (input->kind == InputClip::Kind::sequence) throw Failure(path + ": a sequence of clips cannot be read");
        input->kind = InputClip::Kind::movie;
        for (int i = 1; i <= input->info.movie_frames; i++) input->frames.push_back(i);
    }
    return input;
}

bool has_frame(const InputClip& input, int frame) {
    return input.kind == InputClip::Kind::still || std::binary_search(input.frames.begin(), input.frames.end(), frame);
}

FrameFile file_of_frame(const InputClip& input, int frame) {
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
    const auto [picture, error] = load(input, file).picture.get();
    if (!picture) input.failure = error;
    return picture;
}

spark_host::ClipPtr host_clip(InputClip& input, int first_frame, int total) {
    return spark_host::generated_clip(total, [&input, first_frame](int frame, const FrameFormat& format, void* dest) {
        const PicturePtr picture = picture_of_frame(input, first_frame + frame);
        if (!picture) {
            if (!input.failure.empty()) return false;
            std::memset(dest, 0, static_cast<size_t>(format.bytes()));
            return true;
        }
        const auto& info = pictures().info(*picture);
        if (info.width != format.width || info.height != format.height) {
            input.failure = file_of_frame(input, first_frame + frame).file + ": is " +
                            size_text(info.width, info.height) + ", the frames are " +
                            size_text(format.width, format.height);
            return false;
        }
        pictures().to_frame(*picture, format, dest);
        return true;
    });
}

}  // namespace render
