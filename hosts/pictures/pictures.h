// Picture files as host frames, and host frames as picture files. PNG and TIFF files without anything unusual are
// worked on here. The others are the work of a module of its own, loaded when the first of them comes: the picture
// libraries behind it take longer to load than all the rest of a short run.
#pragma once

#include "hosts/common/host.h"
#include "hosts/pictures/bytes.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace spark_host {

struct PictureInfo {
    std::string format;         // png, jpeg, tiff, openexr, dpx, ...
    int width = 0, height = 0;  // of the display window: the host's frame
    int channels = 0, layers = 1;
    bool eight_bits = false;  // samples of at most 8 bits
    float pixel_ratio = 1;    // width of a pixel over its height
    int movie_frames = 0;     // frames of a clip in one file; 0 for a picture
    float frame_rate = 0;     // of a clip, 0 unknown
    // Of a movie, for words to the user.
    bool uneven_rate = false;        // its frames are not shown for equally long
    bool has_sound = false;          // which is not read
    bool asks_for_rotation = false;  // which is not done
};

// A file's content: all channels and layers as they are, and its metadata. What there is more than this is for those
// who read and write files.
struct Picture {
    PictureInfo info;
    const bool plain;  // a PlainPicture; else a LayeredPicture, of the module

    virtual ~Picture() = default;

protected:
    explicit Picture(bool is_plain) : plain(is_plain) {}
};
using PicturePtr = std::shared_ptr<const Picture>;

// How hard a writer tries to make a file small, where the format lets it choose.
enum class Compression { usual, none, fast, small };

struct WriteRequest {
    const Picture* from = nullptr;  // what travels through comes from here; null: nothing
    FrameFormat format;
    const void* frame = nullptr;  // host frame of that format
    float pixel_ratio = 1;        // without from
    std::string recipe;           // kept in the file if the format holds text
    std::string making;           // how the picture is made, printable ASCII; kept in png, tif and exr files
    Compression compression = Compression::usual;
};

struct WriteResult {
    Bytes file;  // the bytes of the finished file
    bool holds_recipe = false;
    std::vector<std::string> losses;  // what the format could not keep, as sentences without an end
};

// What was not kept when a picture became a frame.
struct SamplesFound {
    bool beyond = false;     // some were below 0 or above 1
    bool no_number = false;  // some were no numbers, and are 0
};

// Samples of brightness and colour in planes, as video has them: those of a frame follow each other.
struct YuvFormat {
    int width = 0, height = 0;
    int across = 2, down = 2;  // pixels that share a sample of colour
    int bits = 8;              // above 8 a sample has two bytes, the lower one first
    bool alpha = false, full_range = false;
};

// A movie that is being written.
struct MovieWriter;

struct MovieRequest {
    std::string path;     // its ending chooses the container; errors begin with it
    int descriptor = -1;  // open for reading and writing, and empty; the caller's
    FrameFormat format;
    float frame_rate = 24, pixel_ratio = 1;
    const Picture* from = nullptr;  // first picture of the first input: whether there is alpha; may be null
    std::string codec;              // an encoder's name; empty: the container's usual one
    std::string recipe;             // kept in the file
};

// Every function may be called by any thread. Errors are one line, beginning with the path.
struct PictureFunctions {
    // Reads the header only.
    bool (*probe)(const std::string& path, PictureInfo& info, std::string* error);
    // A picture, or frame number movie_frame (from 0) of a clip in one file. Null on an error, also for a file that
    // ends early.
    PicturePtr (*read)(const std::string& path, int movie_frame, std::string* error);
    // Fills a frame of the picture's own size. Samples of 16 bits are handed over as they are, 8 bits are repeated in
    // the lower byte, floats are held to 0..1 and scaled to 65535. Pixels outside the data window are 0. A picture
    // without colours gives its grey thrice.
    SamplesFound (*to_frame)(const Picture& picture, const FrameFormat& format, void* frame);
    // Encodes a frame in the format that the path's ending names.
    bool (*write)(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error);
    // Null if this ending can be written, else the reason.
    const char* (*unwritable)(const std::string& path);
    // True if the ending is a movie's, which holds all frames in one file. One call at a time for a writer.
    bool (*movie_ending)(const std::string& path);
    // False, and the reason in *error, if there is no such encoder (empty: the usual one) for the ending.
    bool (*check_encoder)(const std::string& path, const std::string& codec, std::string* error);
    MovieWriter* (*open_movie)(const MovieRequest& request, std::vector<std::string>& losses, std::string* error);
    bool (*add_frame)(MovieWriter& writer, const void* frame, const Picture* from, std::string* error);
    // Writes what is still held back. Without it the file is not whole.
    bool (*finish_movie)(MovieWriter& writer, std::string* error);
    void (*close_movie)(MovieWriter* writer);
    // True if the file is whole; recipe is what was kept in it, or empty.
    bool (*check_whole)(const std::string& path, std::string& recipe);
    // What WriteRequest::making was when the file was written; empty, and the reason in *error, if there is none.
    std::string (*making_of)(const std::string& path, std::string* error);
    // Video's colours as those of pictures and back, by the matrix that players take for frames of that size. to_yuv
    // adds the planes of a frame with a colour for each pixel, without alpha, of those bits.
    PicturePtr (*from_yuv)(const YuvFormat& format, const PictureInfo& info, const void* planes, std::string* error);
    bool (*to_yuv)(const WriteRequest& request, int bits, Bytes& to, std::string* error);
};

const PictureFunctions& picture_functions();

// What the module exports: the same functions, for what is not plain. movie_ending and unwritable are never asked.
constexpr const char* picture_module_entry = "velloran_picture_functions";
using PictureModuleEntry = const PictureFunctions* (*)();

}  // namespace spark_host
