// Movies through FFmpeg's libraries. For the picture module only.
#pragma once

#include "hosts/pictures/pictures.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace spark_host {

struct FreeLibav {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
template <class T>
using LibavPtr = std::unique_ptr<T, FreeLibav>;

// What an error code of the libraries means; "out of memory" for the one of memory.
std::string libav_text(int error);
// The libraries' own messages go nowhere; those about a decoder are counted, see movie_reader.cpp. Any number of times.
void quieten_libav();

// One frame of a clip as its file holds it.
struct MovieFrame {
    int64_t time = 0;      // when it is shown, in units of the stream
    size_t packet = 0;     // place of its packet in the file's order
    size_t from = 0;       // packet to begin decoding with
    bool there = true;     // false: the file says that there is such a frame, but it is not in it
    bool damaged = false;  // its packet is cut or marked as broken
};

// All frames of a clip in the order in which they are shown, found by going through the whole file once.
struct MovieIndex {
    int stream = -1;
    std::vector<MovieFrame> frames;
    std::vector<int64_t> times, seek_times;  // of the packets in the file's order: shown, and decoded where known
    bool timed = true;  // false: packets carry no times, so frames are only found by counting from the start
    std::string recipe;
    PictureInfo info;
};

// True if the name or the first bytes say that a file is a movie.
bool movie_p(const std::string& path);
// Opens the container. Null, and the reason in *error without the path, if it cannot be read.
LibavPtr<AVFormatContext> open_container(const std::string& path, int& stream, std::string* error);
bool index_movie(const std::string& path, MovieIndex& index, std::string* error);

bool probe_movie(const std::string& path, PictureInfo& info, std::string* error);
PicturePtr read_movie_frame(const std::string& path, int frame, std::string* error);
bool check_movie_whole(const std::string& path, std::string& recipe);

PicturePtr read_yuv_frame(const YuvFormat& format, const PictureInfo& info, const void* planes, std::string* error);
bool write_yuv_frame(const WriteRequest& request, int bits, Bytes& to, std::string* error);

// The matrix between colours and what is stored that players take for frames of that size.
const int* usual_matrix(int width, int height);

// Writers, see pictures.h.
bool check_encoder(const std::string& path, const std::string& codec, std::string* error);
MovieWriter* open_movie_writer(const MovieRequest& request, std::vector<std::string>& losses, std::string* error);
bool add_movie_frame(MovieWriter& writer, const void* frame, const Picture* from, std::string* error);
bool finish_movie(MovieWriter& writer, std::string* error);
void close_movie_writer(MovieWriter* writer);

}  // namespace spark_host
