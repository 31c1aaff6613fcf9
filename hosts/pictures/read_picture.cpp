// Everything of a file is read as it stands, colours and alpha unconverted, so that what an effect does not touch can
// be written again bit by bit.
#include "hosts/pictures/movie.h"
#include "hosts/pictures/picture.h"
#include "hosts/pictures/plain_picture.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/half.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>

namespace spark_host {
namespace {

using OIIO::ImageInput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string one_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

bool fail(std::string* error, const std::string& path, const std::string& cause) {
    if (error) *error = path + ": " + (cause.empty() ? "cannot be read" : one_line(cause));
    return false;
}

std::unique_ptr<ImageInput> open_input(const std::string& path, std::string* error) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        fail(error, path, std::strerror(errno));
        return nullptr;
    }
    if (S_ISDIR(status.st_mode)) {
        fail(error, path, std::strerror(EISDIR));
        return nullptr;
    }
    if (status.st_size == 0) {
        fail(error, path, "the file is empty");
        return nullptr;
    }
    ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);  // no multiplication by alpha
    auto input = ImageInput::open(path, &config);
    if (!input) {
        const std::string cause = OIIO::geterror();  // also empties it
        fail(error, path,
             cause.find("could not find a format reader") != std::string::npos ? "not a picture in a known format"
                                                                               : cause);
    }
    // Movies are read elsewhere, and strictly.
    if (input && std::strcmp(input->format_name(), "ffmpeg") == 0) {
        fail(error, path, "not a picture in a known format");
        return nullptr;
    }
    return input;
}

// The library fills a JPEG file that ends early with grey and only warns.
bool jpeg_ends_p(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg(),
                         tail = std::min<std::streamoff>(size, std::max<std::streamoff>(64 * 1024, size / 16));
    file.seekg(size - tail);
    std::string bytes(static_cast<size_t>(tail), 0);
    file.read(bytes.data(), tail);
    const size_t end = bytes.rfind("\xff\xd9"), scan = bytes.rfind("\xff\xda");
    return end != std::string::npos && (scan == std::string::npos || end > scan);
}

PictureInfo info_of(ImageInput& input) {
    const ImageSpec& spec = input.spec();
    PictureInfo info;
    info.format = input.format_name();
    info.width = spec.full_width > 0 ? spec.full_width : spec.width;
    info.height = spec.full_height > 0 ? spec.full_height : spec.height;
    info.channels = spec.nchannels;
    info.eight_bits = spec.format.basesize() == 1;
    info.pixel_ratio = spec.get_float_attribute("PixelAspectRatio", 1);
    // Of JPEG files the reader gives the ratio of the densities, which is the reverse of the ratio of the sides.
    if (info.format == "jpeg" && info.pixel_ratio > 0) info.pixel_ratio = 1 / info.pixel_ratio;
    if (!(info.pixel_ratio > 0)) info.pixel_ratio = 1;
    if (spec.get_int_attribute("oiio:Movie")) {
        info.movie_frames = spec.get_int_attribute("oiio:subimages", 0);
        // Some readers only find out by going through the file.
        if (info.movie_frames < 1) {
            do info.movie_frames++;
            while (input.seek_subimage(info.movie_frames, 0));
            input.seek_subimage(0, 0);
        }
        int rate[2] = {0, 0};
        if (spec.getattribute("FramesPerSecond", OIIO::TypeRational, rate) && rate[1] > 0)
            info.frame_rate = static_cast<float>(rate[0]) / static_cast<float>(rate[1]);
    }
    return info;
}

bool read_layer(ImageInput& input, int subimage, Layer& layer) {
    layer.spec = input.spec(subimage);
    if (layer.spec.nchannels < 1 || layer.spec.width < 1 || layer.spec.height < 1) return false;
    layer.pixels.resize(layer.spec.image_bytes(true));
    return input.read_image(subimage, 0, 0, layer.spec.nchannels, TypeDesc::UNKNOWN, layer.pixels.data());
}

int find_channel(const ImageSpec& spec, const char* name) {
    for (int c = 0; c < static_cast<int>(spec.channelnames.size()); c++)
        if (lower(spec.channelnames[static_cast<size_t>(c)]) == name) return c;
    return -1;
}

void find_colours(LayeredPicture& picture) {
    const ImageSpec& spec = picture.layers[0].spec;
    int* const colours = picture.colours;
    const int red = find_channel(spec, "r"), green = find_channel(spec, "g"), blue = find_channel(spec, "b");
    if (red >= 0 && green >= 0 && blue >= 0) {
        colours[0] = red, colours[1] = green, colours[2] = blue;
        return;
    }
    int plain[3], n = 0;
    for (int c = 0; c < spec.nchannels && n < 3; c++)
        if (c != spec.alpha_channel && c != spec.z_channel) plain[n++] = c;
    if (n == 0) plain[n++] = 0;
    for (int i = 0; i < 3; i++) colours[i] = plain[n == 3 ? i : 0];
}

// Pictures that move (gif) are decoded from a file that stays open, for their frames build on each other. Frames are
// taken strictly in order and those in between thrown away.
struct OpenAnimation {
    std::mutex mutex;
    std::unique_ptr<ImageInput> input;
    int next = 0;  // frame that comes without a jump
};
std::shared_ptr<OpenAnimation> open_animation(const std::string& path) {
    static std::mutex mutex;
    static std::map<std::string, std::shared_ptr<OpenAnimation>> movies;
    const std::lock_guard lock(mutex);
    auto& movie = movies[path];
    if (!movie) movie = std::make_shared<OpenAnimation>();
    return movie;
}

ImageInput* animation_at(OpenAnimation& movie, const std::string& path, int frame, std::string* error) {
    if (!movie.input || frame < movie.next) {
        movie.input = open_input(path, error);
        movie.next = 0;
    }
    std::vector<unsigned char> line;
    while (movie.input && movie.next < frame) {
        const ImageSpec& spec = movie.input->spec();
        line.resize(static_cast<size_t>(spec.scanline_bytes(true)));
        if (!movie.input->seek_subimage(movie.next, 0) ||
            !movie.input->read_scanline(spec.y, 0, TypeDesc::UNKNOWN, line.data())) {
            fail(error, path, movie.input->geterror());
            movie.input.reset();
        }
        movie.next++;
    }
    movie.next = frame + 1;
    return movie.input.get();
}

uint16_t from_unit(double value, double white) {
    if (!(value > 0)) return 0;  // also what is no number
    return static_cast<uint16_t>(std::min(value, 1.0) * white + 0.5);
}

// Half floats that stand for white may be a rounding away from 1.
void look_at(float value, SamplesFound& found) {
    if (!(value >= 0 && value <= 1.0005f)) (std::isnan(value) ? found.no_number : found.beyond) = true;
}

struct To16 {
    using Out = uint16_t;
    static Out of(uint8_t v) { return static_cast<Out>(v * 257); }
    static Out of(uint16_t v) { return v; }
    static Out of(float v) { return from_unit(v, 65535); }
};
struct To8 {
    using Out = uint8_t;
    static Out of(uint8_t v) { return v; }
    static Out of(uint16_t v) { return static_cast<Out>((v + 128u) / 257u); }
    static Out of(float v) { return static_cast<Out>(from_unit(v, 255)); }
};

template <class To, class From>
void convert_channel(const Layer& layer, int channel, const Window& window, int full_x, int full_y, int out_width,
                     int out_height, SamplesFound& found, typename To::Out* out) {
    const unsigned char* const base = layer.channel(channel);
    const OIIO::stride_t step = layer.pixel_stride();
    for (int y = window.y0; y < window.y1; y++) {
        const OIIO::stride_t row = (y + full_y - layer.spec.y) * layer.row_stride();
        const unsigned char* from = base + row + (window.x0 + full_x - layer.spec.x) * step;
        typename To::Out* to = out + (static_cast<size_t>(out_height - 1 - y) * static_cast<size_t>(out_width) +
                                      static_cast<size_t>(window.x0)) *
                                         3;
        for (int x = window.x0; x < window.x1; x++, from += step, to += 3) {
            if constexpr (sizeof(From) == 1) {
                *to = To::of(*from);
            } else {
                From value;
                std::memcpy(&value, from, sizeof(value));
                if constexpr (std::is_same_v<From, half> || std::is_same_v<From, float>) {
                    look_at(value, found);
                    *to = To::of(static_cast<float>(value));
                } else {
                    *to = To::of(value);
                }
            }
        }
    }
}

template <class To>
SamplesFound convert_picture(const LayeredPicture& picture, const Window& window, const FrameFormat& format,
                             typename To::Out* out) {
    SamplesFound found;
    const Layer& layer = picture.layers[0];
    const int full_x = layer.spec.full_x, full_y = layer.spec.full_y;
    for (int i = 0; i < 3; i++) {
        const int c = picture.colours[i];
        const auto convert = [&](auto* converter, const Layer& from, int channel) {
            converter(from, channel, window, full_x, full_y, format.width, format.height, found, out + i);
        };
        switch (layer.type(c).basetype) {
            case TypeDesc::UINT8:
                convert(convert_channel<To, uint8_t>, layer, c);
                break;
            case TypeDesc::UINT16:
                convert(convert_channel<To, uint16_t>, layer, c);
                break;
            case TypeDesc::HALF:
                convert(convert_channel<To, half>, layer, c);
                break;
            case TypeDesc::FLOAT:
                convert(convert_channel<To, float>, layer, c);
                break;
            default: {
                Layer plane;
                plane.spec = layer.spec;
                plane.spec.nchannels = 1;
                plane.spec.set_format(TypeDesc::FLOAT);
                plane.spec.channelformats.clear();
                plane.pixels.resize(plane.spec.image_bytes(true));
                OIIO::convert_image(1, layer.spec.width, layer.spec.height, 1, layer.channel(c), layer.type(c),
                                    layer.pixel_stride(), layer.row_stride(), OIIO::AutoStride, plane.pixels.data(),
                                    TypeDesc::FLOAT, sizeof(float), plane.row_stride(), OIIO::AutoStride);
                convert(convert_channel<To, float>, plane, 0);
            }
        }
    }
    return found;
}

}  // namespace

Window visible_window(const ImageSpec& spec) {
    const int full_width = spec.full_width > 0 ? spec.full_width : spec.width;
    const int full_height = spec.full_height > 0 ? spec.full_height : spec.height;
    Window window;
    window.x0 = std::max(0, spec.x - spec.full_x);
    window.y0 = std::max(0, spec.y - spec.full_y);
    window.x1 = std::min(full_width, spec.x - spec.full_x + spec.width);
    window.y1 = std::min(full_height, spec.y - spec.full_y + spec.height);
    return window;
}

bool probe_picture(const std::string& path, PictureInfo& info, std::string* error) {
    if (movie_p(path)) return probe_movie(path, info, error);
    const auto input = open_input(path, error);
    if (!input) return false;
    if (input->spec().deep) return fail(error, path, "pictures with samples in depth are not supported");
    info = info_of(*input);
    if (!info.movie_frames)
        while (input->seek_subimage(info.layers, 0)) info.layers++;
    return true;
}

PicturePtr read_picture(const std::string& path, int movie_frame, std::string* error) {
    if (movie_p(path)) return read_movie_frame(path, std::max(0, movie_frame), error);
    auto picture = std::make_shared<LayeredPicture>();
    std::shared_ptr<OpenAnimation> movie;
    std::unique_lock<std::mutex> movie_lock;
    std::unique_ptr<ImageInput> file;
    ImageInput* input = nullptr;
    if (movie_frame >= 0) {
        movie = open_animation(path);
        movie_lock = std::unique_lock(movie->mutex);
        input = animation_at(*movie, path, movie_frame, error);
    } else {
        file = open_input(path, error);
        input = file.get();
    }
    if (!input) return nullptr;
    if (input->spec().deep) {
        fail(error, path, "pictures with samples in depth are not supported");
        return nullptr;
    }
    picture->info = info_of(*input);
    // Whole ones are plain pictures; of others the library changes samples, see pnm_file.h.
    if (picture->info.format == "pnm" && input->spec().format == TypeDesc::UINT16) {
        fail(error, path, "the file is damaged or ends early");
        return nullptr;
    }
    const bool is_movie = picture->info.movie_frames > 0;
    const int first = is_movie ? std::max(0, movie_frame) : 0;
    int layers = 1;
    if (!is_movie)
        while (input->seek_subimage(layers, 0)) layers++;
    for (int i = 0; i < layers; i++) {
        Layer& layer = picture->layers.emplace_back();
        if (!input->seek_subimage(first + i, 0) || !read_layer(*input, first + i, layer)) {
            fail(error, path, input->geterror());
            return nullptr;
        }
    }
    if (picture->info.format == "jpeg" && !jpeg_ends_p(path)) {
        fail(error, path, "the file ends early");
        return nullptr;
    }
    picture->info.layers = layers;
    find_colours(*picture);
    return picture;
}

LayeredPicturePtr layered(const Picture* picture) {
    if (!picture) return nullptr;
    if (!picture->plain) return LayeredPicturePtr(LayeredPicturePtr(), static_cast<const LayeredPicture*>(picture));
    const auto& plain = static_cast<const PlainPicture&>(*picture);
    auto made = std::make_shared<LayeredPicture>();
    made->info = plain.info;
    OIIO::Filesystem::IOMemReader header(plain.header.data(), plain.header.size());
    ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    // What came through a pipe has no file to read more from.
    const auto input = plain.header.empty() ? nullptr : ImageInput::open("header.png", &config, &header);
    Layer& layer = made->layers.emplace_back();
    if (input)
        layer.spec = input->spec();
    else
        layer.spec = ImageSpec(plain.info.width, plain.info.height, plain.info.channels,
                               plain.bytes == 1 ? TypeDesc::UINT8 : TypeDesc::UINT16);
    layer.pixels.assign(plain.pixels.data(), plain.pixels.data() + plain.pixels.size());
    find_colours(*made);
    return made;
}

SamplesFound picture_to_frame(const Picture& any, const FrameFormat& format, void* frame) {
    const LayeredPicturePtr as_layers = layered(&any);
    const LayeredPicture& picture = *as_layers;
    const Window window = visible_window(picture.layers[0].spec);
    const bool covered = window.x0 == 0 && window.y0 == 0 && window.x1 == format.width && window.y1 == format.height;
    if (!covered) std::memset(frame, 0, static_cast<size_t>(format.bytes()));
    if (window.empty()) return {};
    if (format.depth == SPARK_DEPTH_8)
        return convert_picture<To8>(picture, window, format, static_cast<uint8_t*>(frame));
    return convert_picture<To16>(picture, window, format, static_cast<uint16_t*>(frame));
}

bool check_picture_whole(const std::string& path, std::string& recipe) {
    if (movie_p(path)) return check_movie_whole(path, recipe);
    const PicturePtr read = read_picture(path, -1, nullptr);
    const LayeredPicturePtr picture = layered(read.get());
    recipe = picture ? picture->layers[0].spec.get_string_attribute(recipe_attribute) : "";
    return picture != nullptr;
}

std::string making_of_picture(const std::string& path, std::string* error) {
    const auto input = movie_p(path) ? nullptr : open_input(path, error);
    const std::string making = input ? std::string(input->spec().get_string_attribute(making_attribute)) : "";
    if (making.empty() && error->empty()) fail(error, path, "does not say how it was made");
    return making;
}

}  // namespace spark_host
