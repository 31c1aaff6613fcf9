#include "hosts/render/frame_pipe.h"

#include "hosts/common/numbers.h"
#include "hosts/pictures/plain_picture.h"
#include "hosts/render/failure.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>

namespace render {
namespace {

using spark_host::Bytes;
using spark_host::PicturePtr;
using spark_host::PlainPicture;
using spark_host::YuvFormat;

constexpr const char* y4m_start = "YUV4MPEG2";
constexpr size_t longest_line = 4096;
constexpr int most_a_side = 65536;

constexpr RawFormat raw_formats[] = {{"rgb24", 3, 1},   {"rgba", 4, 1},     {"gray", 1, 1},
                                     {"rgb48le", 3, 2}, {"rgba64le", 4, 2}, {"gray16le", 1, 2}};

// How a Y4M file names its samples.
bool read_kind(const std::string& word, YuvFormat& yuv) {
    std::string kind = word, depth;
    for (const char* same : {"420jpeg", "420mpeg2", "420paldv"})
        if (kind == same) kind = "420";
    const size_t p = kind.find('p');
    if (p != std::string::npos) depth = kind.substr(p + 1), kind = kind.substr(0, p);
    yuv.across = kind == "444" || kind == "444alpha" ? 1 : kind == "411" ? 4 : 2;
    yuv.down = kind == "420" ? 2 : 1;
    yuv.alpha = kind == "444alpha";
    if (kind != "420" && kind != "422" && kind != "444" && kind != "411" && !yuv.alpha) return false;
    long bits = 8;
    if (!depth.empty() && (yuv.alpha || kind == "411" || !spark_host::read_number(depth, bits))) return false;
    if (bits != 8 && bits != 9 && bits != 10 && bits != 12 && bits != 14 && bits != 16) return false;
    yuv.bits = static_cast<int>(bits);
    return true;
}

// "30000:1001" and its like; 0 if it is none.
float read_ratio(const std::string& text) {
    const size_t colon = text.find(':');
    float over = 0, under = 0;
    if (colon == std::string::npos || !spark_host::read_number(text.substr(0, colon), over) ||
        !spark_host::read_number(text.substr(colon + 1), under) || !(over > 0) || !(under > 0))
        return 0;
    return over / under;
}

size_t yuv_bytes(const YuvFormat& yuv) {
    const auto part = [](int size, int by) { return static_cast<size_t>((size + by - 1) / by); };
    const size_t whole = static_cast<size_t>(yuv.width) * static_cast<size_t>(yuv.height);
    const size_t chroma = part(yuv.width, yuv.across) * part(yuv.height, yuv.down);
    return (whole * (yuv.alpha ? 2 : 1) + chroma * 2) * (yuv.bits > 8 ? 2 : 1);
}

// A rate as the fraction that was meant: of whole frames, or those over 1.001.
std::string rate_text(float rate) {
    const double slow = std::round(static_cast<double>(rate) * 1.001);
    if (std::fabs(rate - std::round(rate)) < 1e-4) return std::to_string(std::lround(rate)) + ":1";
    if (std::fabs(slow / 1.001 - rate) < 1e-3) return std::to_string(std::lround(slow * 1000)) + ":1001";
    return std::to_string(std::lround(static_cast<double>(rate) * 1000)) + ":1000";
}

template <class Out, class In>
void convert_samples(const Bytes& from, Bytes& to) {
    const size_t n = from.size() / sizeof(In);
    to.resize(n * sizeof(Out));
    const auto* const in = reinterpret_cast<const In*>(from.data());
    auto* const out = reinterpret_cast<Out*>(to.data());
    for (size_t i = 0; i < n; i++) out[i] = static_cast<Out>(sizeof(Out) == 2 ? in[i] * 257u : (in[i] + 128u) / 257u);
}

}  // namespace

const RawFormat* raw_format(const std::string& name) {
    for (const RawFormat& format : raw_formats)
        if (name == format.name) return &format;
    return nullptr;
}

std::string raw_format_names() {
    std::string names;
    for (const RawFormat& format : raw_formats) names += (names.empty() ? "" : ", ") + std::string(format.name);
    return names;
}

std::string pipe_ending(const std::string& path) { return path.rfind("-.", 0) == 0 ? path.substr(2) : ""; }

FramePipe::FramePipe(int descriptor, const RawFormat& format, int width, int height)
    : descriptor_(descriptor), raw_(&format) {
    info_.format = format.name;
    info_.width = width, info_.height = height;
    info_.channels = format.channels;
    info_.eight_bits = format.bytes == 1;
    frame_bytes_ =
        static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(format.channels * format.bytes);
}

FramePipe::FramePipe(int descriptor, std::string start) : descriptor_(descriptor), start_(std::move(start)) {
    std::string header, error;
    if (!read_line(header, &error)) throw Failure("standard input: " + (error.empty() ? "is empty" : error));
    std::istringstream words(header);
    std::string word;
    words >> word;
    if (word != y4m_start) throw Failure("standard input: is no Y4M");
    while (words >> word) {
        const std::string value = word.substr(1);
        long number = 0;
        const bool whole = spark_host::read_number(value, number) && number > 0 && number <= most_a_side;
        if (word[0] == 'W') yuv_.width = whole ? static_cast<int>(number) : 0;
        if (word[0] == 'H') yuv_.height = whole ? static_cast<int>(number) : 0;
        if (word[0] == 'F') info_.frame_rate = read_ratio(value);
        if (word[0] == 'A' && read_ratio(value) > 0) info_.pixel_ratio = read_ratio(value);
        if (word == "XCOLORRANGE=FULL") yuv_.full_range = true;
        if (word[0] == 'C' && !read_kind(value, yuv_))
            throw Failure("standard input: Y4M with samples of the kind '" + value + "' cannot be read");
    }
    if (yuv_.width < 1 || yuv_.height < 1) throw Failure("standard input: Y4M without a size");
    info_.format = "y4m";
    info_.width = yuv_.width, info_.height = yuv_.height;
    info_.channels = yuv_.alpha ? 4 : 3;
    info_.eight_bits = yuv_.bits == 8;
    frame_bytes_ = yuv_bytes(yuv_);
}

bool FramePipe::fill(unsigned char* to, size_t size, size_t& filled, std::string* error) {
    filled = std::min(size, start_.size());
    std::memcpy(to, start_.data(), filled);
    start_.erase(0, filled);
    while (filled < size) {
        const ssize_t n = ::read(descriptor_, to + filled, size - filled);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) *error = std::strerror(errno);
        if (n <= 0) return false;
        filled += static_cast<size_t>(n);
    }
    return true;
}

bool FramePipe::read_line(std::string& line, std::string* error) {
    line.clear();
    while (line.size() < longest_line) {
        unsigned char c;
        size_t filled = 0;
        if (!fill(&c, 1, filled, error)) {
            if (!line.empty() && error->empty()) *error = "ends early";
            return false;
        }
        if (c == '\n') return true;
        line += static_cast<char>(c);
    }
    *error = "a line of its header does not end";
    return false;
}

bool FramePipe::read_next(Bytes& bytes, std::string* error) {
    const std::string here = "frame " + std::to_string(next_ + 1);
    if (!raw_) {
        std::string line;
        if (!read_line(line, error)) return false;
        if (line != "FRAME" && line.rfind("FRAME ", 0) != 0) {
            *error = here + " does not begin as one";
            return false;
        }
    }
    bytes.resize(frame_bytes_);
    size_t filled = 0;
    if (fill(bytes.data(), frame_bytes_, filled, error)) return true;
    if (error->empty() && (filled > 0 || !raw_)) *error = "ends within " + here;
    return false;
}

PicturePtr FramePipe::read(int frame, std::string* error) {
    if (frame < next_) *error = "a pipe cannot go back to a frame that has gone by";
    if (!broken_.empty()) *error = broken_;
    if (ended_ || !error->empty()) return nullptr;
    Bytes bytes;
    for (; next_ <= frame; next_++)
        if (!read_next(bytes, &broken_)) {
            *error = broken_;
            ended_ = true;
            return nullptr;
        }
    if (!raw_) return spark_host::picture_functions().from_yuv(yuv_, info_, bytes.data(), error);
    auto picture = std::make_shared<PlainPicture>();
    picture->info = info_;
    picture->bytes = raw_->bytes;
    picture->pixels = std::move(bytes);
    return picture;
}

std::optional<Bytes> pipe_frame(const std::string& ending, const spark_host::WriteRequest& request, float frame_rate,
                                bool first, std::string* error) {
    const spark_host::FrameFormat& frame = request.format;
    Bytes out;
    if (ending == "y4m") {
        const int bits = frame.depth == SPARK_DEPTH_8 ? 8 : frame.depth == SPARK_DEPTH_10 ? 10 : 12;
        const std::string kind = bits == 8 ? "444" : "444p" + std::to_string(bits);
        std::string header;
        if (first) {
            const float ratio = request.pixel_ratio > 0 ? request.pixel_ratio : 1;
            header = std::string(y4m_start) + " W" + std::to_string(frame.width) + " H" + std::to_string(frame.height) +
                     " F" + rate_text(frame_rate) + " Ip A" +
                     (ratio == 1 ? "1:1" : std::to_string(std::lround(ratio * 10000)) + ":10000") + " C" + kind +
                     " XCOLORRANGE=LIMITED\n";
        }
        header += "FRAME\n";
        out.append({reinterpret_cast<const unsigned char*>(header.data()), header.size()});
        if (!spark_host::picture_functions().to_yuv(request, bits, out, error)) return std::nullopt;
        return out;
    }
    const RawFormat& format = *raw_format(ending);
    const bool deep = frame.depth != SPARK_DEPTH_8;
    Bytes colours = spark_host::upright_frame(request);
    if (format.channels == 4) {
        const auto* const from =
            request.from && request.from->plain ? static_cast<const PlainPicture*>(request.from) : nullptr;
        if (request.from && !from) {
            *error = "alpha goes through a pipe only from png files and other pipes";
            return std::nullopt;
        }
        colours = spark_host::add_alpha(colours, frame.sample_bytes(), from);
    }
    if (deep == (format.bytes == 2)) return colours;
    if (deep)
        convert_samples<uint8_t, uint16_t>(colours, out);
    else
        convert_samples<uint16_t, uint8_t>(colours, out);
    return out;
}

}  // namespace render
