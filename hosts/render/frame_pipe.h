// Frames one after the other through a pipe, bare or as Y4M, as ffmpeg and its like speak them.
#pragma once

#include "hosts/pictures/pictures.h"

#include <optional>
#include <string>

namespace render {

// Samples side by side, top row first; of 16 bits the lower byte first. Named as by ffmpeg.
struct RawFormat {
    const char* name;
    int channels, bytes;
};
// Null: no such format.
const RawFormat* raw_format(const std::string& name);
std::string raw_format_names();

// The ending of "-.ENDING", which stands for standard input or output; empty if the path does not.
std::string pipe_ending(const std::string& path);

// What comes in. One thread at a time.
class FramePipe {
public:
    // Bare frames of that size.
    FramePipe(int descriptor, const RawFormat& format, int width, int height);
    // Y4M; start: what was read already. Throws Failure if it cannot be read.
    FramePipe(int descriptor, std::string start);

    const spark_host::PictureInfo& info() const { return info_; }
    std::string ending() const { return raw_ ? raw_->name : "y4m"; }

    // The frame with that number, from 0; those before it are dropped. Null with an empty *error: the pipe ended before
    // it. It cannot go back.
    spark_host::PicturePtr read(int frame, std::string* error);

private:
    bool fill(unsigned char* to, size_t size, size_t& filled, std::string* error);
    bool read_line(std::string& line, std::string* error);
    // False at the end, or with *error.
    bool read_next(spark_host::Bytes& bytes, std::string* error);

    int descriptor_;
    std::string start_;  // read, and not used yet
    const RawFormat* raw_ = nullptr;
    spark_host::YuvFormat yuv_;
    spark_host::PictureInfo info_;
    size_t frame_bytes_ = 0;
    int next_ = 0;
    bool ended_ = false;
    std::string broken_;  // why there is no next frame
};

// The bytes of a frame as a pipe takes them, with the header before the first one. Nothing, and the reason in *error,
// if the frame cannot be given so.
std::optional<spark_host::Bytes> pipe_frame(const std::string& ending, const spark_host::WriteRequest& request,
                                            float frame_rate, bool first, std::string* error);

}  // namespace render
