#include "hosts/bridge/pixels.h"

#include "hosts/common/task_pool.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace bridge {
namespace {

using spark_host::FrameFormat;
using spark_host::SamplesFound;

struct Half {
    uint16_t bits;
};

float float_of(Half half) {
    const int exponent = half.bits >> 10 & 31, fraction = half.bits & 1023;
    const float sign = half.bits & 0x8000 ? -1.0f : 1.0f;
    if (exponent == 31)
        return fraction ? std::numeric_limits<float>::quiet_NaN() : sign * std::numeric_limits<float>::infinity();
    return sign * (exponent ? std::ldexp(static_cast<float>(fraction + 1024), exponent - 25)
                            : std::ldexp(static_cast<float>(fraction), -24));
}

// Of 0 to 1.
Half half_of(double value) {
    if (value == 0) return {0};
    int exponent = 0;
    std::frexp(value, &exponent);
    const int step = std::max(exponent, -13) - 11;  // of the last bit, a power of 2
    const int fraction = static_cast<int>(std::nearbyint(std::ldexp(value, -step)));
    // A fraction that was rounded up to the next power of 2 carries into the exponent, as it should.
    return {static_cast<uint16_t>((step + 24) * 1024 + fraction)};
}

double unit(float value, SamplesFound& found) {
    // Half floats that stand for white may be a rounding away from 1.
    if (!(value >= 0 && value <= 1.0005f)) (std::isnan(value) ? found.no_number : found.beyond) = true;
    return value > 0 ? std::min(static_cast<double>(value), 1.0) : 0;
}

// What a sample is in a frame of 8 or 16 bits.
template <class Out>
Out in_frame(uint8_t value, SamplesFound&) {
    return static_cast<Out>(sizeof(Out) == 1 ? value : value * 257);
}
template <class Out>
Out in_frame(uint16_t value, SamplesFound&) {
    return static_cast<Out>(sizeof(Out) == 2 ? value : (value + 128u) / 257u);
}
template <class Out>
Out in_frame(float value, SamplesFound& found) {
    return static_cast<Out>(unit(value, found) * std::numeric_limits<Out>::max() + 0.5);
}
template <class Out>
Out in_frame(Half value, SamplesFound& found) {
    return in_frame<Out>(float_of(value), found);
}

// Whole samples of a frame, white being the largest number, as samples of a picture; and of floats from 0 to 1.
template <class Sample, class In>
Sample in_picture(In value) {
    constexpr unsigned white = std::numeric_limits<In>::max();
    if constexpr (std::is_same_v<Sample, float>)
        return static_cast<float>(static_cast<double>(value) / white);
    else if constexpr (std::is_same_v<Sample, Half>)
        return half_of(static_cast<double>(value) / white);
    else if constexpr (sizeof(Sample) == sizeof(In))
        return value;
    else if constexpr (sizeof(Sample) == 2)
        return static_cast<Sample>(value * 257);
    else
        return static_cast<Sample>((value + 128u) / 257u);
}

template <class T>
T load(const unsigned char* at) {
    T value;
    std::memcpy(&value, at, sizeof(T));
    return value;
}
template <class T>
void store(unsigned char* at, T value) {
    std::memcpy(at, &value, sizeof(T));
}

template <class Sample, class In>
const std::vector<Sample>& picture_table() {
    static const std::vector<Sample> table = [] {
        std::vector<Sample> made(size_t{std::numeric_limits<In>::max()} + 1);
        for (size_t i = 0; i < made.size(); i++) made[i] = in_picture<Sample>(static_cast<In>(i));
        return made;
    }();
    return table;
}

template <class Out>
const std::vector<Out>& half_table() {
    static const std::vector<Out> table = [] {
        std::vector<Out> made(65536);
        SamplesFound none;
        for (size_t i = 0; i < made.size(); i++) made[i] = in_frame<Out>(Half{static_cast<uint16_t>(i)}, none);
        return made;
    }();
    return table;
}

// Rows shared among the host's tasks; body takes the first one and the one behind the last.
template <class Body>
void share_rows(int rows, long samples, const Body& body) {
    constexpr long few = 1 << 17;  // what a fork costs is not worth it
    if (samples < few) return body(0, rows);
    static const Body* work = nullptr;
    static int all = 0;
    work = &body, all = rows;
    spark_host::pool_run(
        [] {
            const long count = spark_host::pool_task_count(), task = spark_host::pool_task_index();
            (*work)(static_cast<int>(all * task / count), static_cast<int>(all * (task + 1) / count));
        },
        spark_host::processors_here());
}

template <class Sample>
bool packed_p(const Pixels& pixels) {
    return pixels.channels == 3 && pixels.between == sizeof(Sample) && pixels.across == 3 * sizeof(Sample);
}

template <class Sample, class Out>
SamplesFound read_rows(const Pixels& from, const FrameFormat& format, Out* frame, int first, int end) {
    SamplesFound found;
    const std::ptrdiff_t green = from.channels == 1 ? 0 : from.between, blue = 2 * green;
    const size_t row = static_cast<size_t>(format.width) * 3;
    for (int y = first; y < end; y++) {
        Out* out = frame + static_cast<size_t>(format.height - 1 - y) * row;
        const unsigned char* at = static_cast<const unsigned char*>(from.data) + y * from.down;
        if constexpr (std::is_same_v<Sample, Out>) {
            if (packed_p<Sample>(from)) {
                std::memcpy(out, at, row * sizeof(Out));
                continue;
            }
        }
        for (int x = 0; x < format.width; x++, at += from.across, out += 3) {
            const Sample colours[3] = {load<Sample>(at), load<Sample>(at + green), load<Sample>(at + blue)};
            for (int c = 0; c < 3; c++) {
                if constexpr (std::is_same_v<Sample, Half>) {
                    const unsigned bits = colours[c].bits;
                    // Between 0 and a little above 1 nothing is lost, but for the sign of a zero.
                    if (bits > 0x3c00 && bits != 0x8000) unit(float_of(colours[c]), found);
                    out[c] = half_table<Out>()[bits];
                } else {
                    out[c] = in_frame<Out>(colours[c], found);
                }
            }
        }
    }
    return found;
}

template <class Sample, class Out>
SamplesFound read_pixels(const Pixels& from, const FrameFormat& format, void* frame) {
    std::vector<SamplesFound> found(spark_host::max_tasks);
    share_rows(format.height, format.pixels() * 3, [&](int first, int end) {
        found[static_cast<size_t>(spark_host::pool_task_index())] =
            read_rows<Sample, Out>(from, format, static_cast<Out*>(frame), first, end);
    });
    SamplesFound all;
    for (const SamplesFound& one : found) all.beyond |= one.beyond, all.no_number |= one.no_number;
    return all;
}

template <class Out>
SamplesFound read_any(const Pixels& from, const FrameFormat& format, void* frame) {
    switch (from.samples) {
        case Samples::uint8:
            return read_pixels<uint8_t, Out>(from, format, frame);
        case Samples::uint16:
            return read_pixels<uint16_t, Out>(from, format, frame);
        case Samples::float16:
            return read_pixels<Half, Out>(from, format, frame);
        case Samples::float32:
            return read_pixels<float, Out>(from, format, frame);
    }
    return {};
}

template <class Sample>
Sample white_sample() {
    return in_picture<Sample>(std::numeric_limits<uint8_t>::max());
}

// An alpha of the picture's own kind stays as it is, whatever it holds.
template <class Sample>
Sample alpha_of(const Pixels& from, const unsigned char* at) {
    SamplesFound none;
    if constexpr (std::is_same_v<Sample, uint8_t> || std::is_same_v<Sample, uint16_t>) {
        switch (from.samples) {
            case Samples::uint8:
                return in_frame<Sample>(load<uint8_t>(at), none);
            case Samples::uint16:
                return in_frame<Sample>(load<uint16_t>(at), none);
            case Samples::float16:
                return in_frame<Sample>(load<Half>(at), none);
            case Samples::float32:
                return in_frame<Sample>(load<float>(at), none);
        }
    } else {
        constexpr bool half = std::is_same_v<Sample, Half>;
        if (from.samples == (half ? Samples::float16 : Samples::float32)) return load<Sample>(at);
        return in_picture<Sample>(alpha_of<uint16_t>(from, at));
    }
    return white_sample<Sample>();
}

// The bits of a word that a frame does not use repeat the upper ones, so that white is 65535.
template <class In>
In filled(In value, int depth) {
    if constexpr (sizeof(In) == 1)
        return value;
    else
        return static_cast<In>(depth == SPARK_DEPTH_10 ? (value & 0xffc0) | value >> 10
                                                       : (value & 0xfff0) | value >> 12);
}

template <class Sample, class In>
void write_rows(const FrameFormat& format, const In* frame, const Pixels* alpha, const Pixels& to, int first, int end) {
    const std::vector<Sample>& table = picture_table<Sample, In>();
    const size_t row = static_cast<size_t>(format.width) * 3;
    const auto sample = [&](In value) {
        if constexpr (std::is_same_v<Sample, In>)
            return filled(value, format.depth);
        else
            return table[filled(value, format.depth)];
    };
    for (int y = first; y < end; y++) {
        const In* in = frame + static_cast<size_t>(format.height - 1 - y) * row;
        unsigned char* out = static_cast<unsigned char*>(to.data) + y * to.down;
        if constexpr (std::is_same_v<Sample, In> && sizeof(In) == 1) {
            if (packed_p<Sample>(to)) {
                std::memcpy(out, in, row);
                continue;
            }
        }
        const unsigned char* beside =
            alpha ? static_cast<const unsigned char*>(alpha->data) + y * alpha->down + 3 * alpha->between : nullptr;
        for (int x = 0; x < format.width; x++, in += 3, out += to.across) {
            if (to.channels == 1) {
                // Weights that make grey of grey to the last bit.
                const unsigned grey = (2126u * filled(in[0], format.depth) + 7152u * filled(in[1], format.depth) +
                                       722u * filled(in[2], format.depth) + 5000u) /
                                      10000u;
                store(out, table[grey]);
                continue;
            }
            for (int c = 0; c < 3; c++) store(out + c * to.between, sample(in[c]));
            if (to.channels < 4) continue;
            const auto place = out + 3 * to.between;
            store(place, beside ? alpha_of<Sample>(*alpha, beside) : white_sample<Sample>());
            if (beside) beside += alpha->across;
        }
    }
}

template <class Sample>
void write_any(const FrameFormat& format, const void* frame, const Pixels* alpha, const Pixels& to) {
    share_rows(format.height, format.pixels() * 3, [&](int first, int end) {
        if (format.depth == SPARK_DEPTH_8)
            write_rows<Sample>(format, static_cast<const uint8_t*>(frame), alpha, to, first, end);
        else
            write_rows<Sample>(format, static_cast<const uint16_t*>(frame), alpha, to, first, end);
    });
}

}  // namespace

SamplesFound pixels_to_frame(const Pixels& from, const FrameFormat& format, void* frame) {
    if (!from.data) {
        std::memset(frame, 0, static_cast<size_t>(format.bytes()));
        return {};
    }
    return format.depth == SPARK_DEPTH_8 ? read_any<uint8_t>(from, format, frame)
                                         : read_any<uint16_t>(from, format, frame);
}

void frame_to_pixels(const FrameFormat& format, const void* frame, const Pixels* alpha, const Pixels& to) {
    if (alpha && (alpha->channels != 4 || !alpha->data)) alpha = nullptr;
    switch (to.samples) {
        case Samples::uint8:
            return write_any<uint8_t>(format, frame, alpha, to);
        case Samples::uint16:
            return write_any<uint16_t>(format, frame, alpha, to);
        case Samples::float16:
            return write_any<Half>(format, frame, alpha, to);
        case Samples::float32:
            return write_any<float>(format, frame, alpha, to);
    }
}

std::string pixels_problem(const Pixels& pixels, const FrameFormat& format, const std::string& name) {
    if (pixels.channels != 1 && pixels.channels != 3 && pixels.channels != 4)
        return name + " has " + std::to_string(pixels.channels) + " channels; it must have 1, 3 or 4";
    if (pixels.width != format.width || pixels.height != format.height)
        return name + " is " + std::to_string(pixels.width) + "x" + std::to_string(pixels.height) + ", not " +
               std::to_string(format.width) + "x" + std::to_string(format.height) +
               ": the size of all pictures of a render is the same";
    return "";
}

Pixels packed_pixels(void* data, Samples samples, int width, int height, int channels) {
    const std::ptrdiff_t bytes = samples == Samples::uint8 ? 1 : samples == Samples::float32 ? 4 : 2;
    Pixels pixels;
    pixels.data = data, pixels.samples = samples;
    pixels.width = width, pixels.height = height, pixels.channels = channels;
    pixels.between = bytes, pixels.across = bytes * channels, pixels.down = pixels.across * width;
    return pixels;
}

}  // namespace bridge
