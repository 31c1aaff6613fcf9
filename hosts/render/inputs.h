// The clips that a render reads: which files there are, which are missing, and the frames they give. Pictures are read
// ahead in the background.
#pragma once

#include "hosts/common/clip.h"
#include "hosts/common/frame_list.h"
#include "hosts/pictures/pictures.h"
#include "hosts/render/frame_pipe.h"

#include <deque>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace render {

enum class Missing { error, skip, hold, black };

struct InputClip {
    enum class Kind { still, sequence, movie, pipe };

    std::string path;  // as given
    Kind kind = Kind::still;
    spark_host::SequencePath sequence;
    std::vector<int> frames;       // on disk, ascending; empty for a still
    spark_host::PictureInfo info;  // of the first file
    Missing missing = Missing::error;
    std::shared_ptr<FramePipe> pipe;
    int pipe_first = 1;  // number of the pipe's first frame

    // Result of the last read, for messages.
    std::string failure;
    // Of all frames so far: the first file with samples beyond 0 to 1, and with samples that are no numbers.
    std::string first_beyond, first_no_number;

    // Bytes of pictures that may stay in memory; a few stay in any case. For effects that look at other frames.
    size_t kept_bytes = 0;
    size_t ahead = 1;  // pictures that are read beside each other
    // What reading took, all threads together; and how long the frames stood still for it.
    double read_seconds = 0, waited_seconds = 0;
    // Pictures in memory or on their way, the one not asked for the longest first; and the one begun last.
    struct PictureRead {
        spark_host::PicturePtr picture;
        std::string error;  // empty without a picture: the pipe ended before it
        double seconds = 0;
    };
    struct Loaded {
        std::string file;
        int movie_frame;
        std::shared_future<PictureRead> read;
        bool counted = false;  // in read_seconds
    };
    std::deque<Loaded> loaded;
    std::shared_future<PictureRead> begun_last;
};

// From now on every picture that is read stays in memory until its file changes. For programs that render the same
// frames again and again.
void keep_pictures();

// Looks at the files. "-" is standard input: frames as Y4M, or a picture, which is read whole; "-.FORMAT" are bare
// frames of size, "WIDTHxHEIGHT", and rate, 0 unknown. Fails if there is none, or the first cannot be read.
std::unique_ptr<InputClip> open_input(const std::string& path, Missing missing, const std::string& size, float rate);
// "1920x1080"; false for anything else.
bool read_size(const std::string& text, int& width, int& height);
// True if a pipe ended before that frame.
bool ended_before(InputClip& input, int frame);

bool has_frame(const InputClip& input, int frame);

// The file that gives a frame, by the rule for missing ones; the result is empty for a black or missing frame.
struct FrameFile {
    std::string file;
    int movie_frame = -1;  // of a movie, from 0
    bool black = false;
};
FrameFile file_of_frame(const InputClip& input, int frame);

// Begins to read a frame, if it is not in memory.
void prefetch(InputClip& input, int frame);
// The picture of a frame; null if it is black, or missing or unreadable (then input.failure says why).
spark_host::PicturePtr picture_of_frame(InputClip& input, int frame);

// Why a frame cannot be given in that format; empty if it can. Reads it.
std::string frame_problem(InputClip& input, int frame, const spark_host::FrameFormat& format);

// What the plug-in sees: frame 0 is first_frame, of total frames. A picture of another size than the host's is an
// error. The input must live as long.
spark_host::ClipPtr host_clip(InputClip& input, int first_frame, int total);

}  // namespace render
