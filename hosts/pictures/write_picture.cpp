// A frame is encoded in memory, so that the caller decides how bytes become a file. Channels that the effect did not
// make are copied in their own type from the picture that came in.
#include "hosts/pictures/movie.h"
#include "hosts/pictures/picture.h"
#include "hosts/pictures/plain_picture.h"
#include "hosts/pictures/tiff_file.h"

#include <OpenImageIO/filesystem.h>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace spark_host {
namespace {

using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

struct FormatRules {
    const char* endings[2];
    const char* name;
    bool alpha, more_channels, layers, text;
};
constexpr FormatRules format_rules[] = {
    {{"png", nullptr}, "png", true, false, false, true},  {{"jpg", "jpeg"}, "jpeg", false, false, false, false},
    {{"tif", "tiff"}, "tiff", true, true, true, false},   {{"exr", nullptr}, "openexr", true, true, true, true},
    {{"dpx", nullptr}, "dpx", true, false, false, false},
};

std::string ending_of(const std::string& path) {
    const size_t slash = path.rfind('/'), dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string ending = path.substr(dot + 1);
    for (char& c : ending) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

const FormatRules* rules_of(const std::string& path) {
    const std::string ending = ending_of(path);
    for (const FormatRules& rules : format_rules)
        for (const char* known : rules.endings)
            if (known && ending == known) return &rules;
    return nullptr;
}

// Where an output channel comes from: a colour of the frame (0 to 2), or a channel of the picture that came in.
struct ChannelSource {
    int colour = -1;
    int channel = -1;
};

struct Plan {
    const FormatRules* rules = nullptr;
    LayeredPicturePtr from;  // of the request
    ImageSpec spec;
    std::vector<ChannelSource> sources;
    bool same_format = false;
};

bool starts_with(const std::string& text, const char* start) { return text.rfind(start, 0) == 0; }

// Attributes that describe how the other file was stored, and not the picture.
bool storage_attribute_p(const std::string& name, bool same_format) {
    static const char* const never[] = {"oiio:subimages",         "oiio:subimagename",    "oiio:BitsPerSample",
                                        "oiio:UnassociatedAlpha", "oiio:Movie",           "oiio:ConstantColor",
                                        "oiio:AverageColor",      "oiio:SHA-1",           "thumbnail_",
                                        "openexr:levelmode",      "openexr:roundingmode", "tiff:RowsPerStrip",
                                        "tiff:planarconfig",      "dpx:Packing",          "dpx:EndOf",
                                        "dpx:ImageDescriptor",    "textureformat",        own_attributes};
    static const char* const of_format[] = {"jpeg:",  "png:",  "tiff:",       "dpx:",         "openexr:",
                                            "gif:",   "webp:", "cineon:",     "ffmpeg:",      "iff:",
                                            "targa:", "heif:", "compression", "planarconfig", "CompressionQuality"};
    for (const char* start : never)
        if (starts_with(name, start) && !(same_format && name == "oiio:subimagename")) return true;
    if (same_format) return false;
    for (const char* start : of_format)
        if (starts_with(name, start)) return true;
    return false;
}

void copy_metadata(Plan& plan, const LayeredPicture& from) {
    const bool movie = from.info.movie_frames > 0;
    for (const auto& attribute : from.layers[0].spec.extra_attribs) {
        const std::string name = attribute.name().string();
        // Containers describe the clip, not its frames.
        if (movie && name != "smpte:TimeCode" && name != "FramesPerSecond") continue;
        if (!storage_attribute_p(name, plan.same_format)) plan.spec.extra_attribs.push_back(attribute);
    }
}

TypeDesc colour_type(const Plan& plan, const LayeredPicture* from, int depth) {
    if (std::strcmp(plan.rules->name, "openexr") == 0) {
        if (plan.same_format) {
            const TypeDesc type = from->layers[0].type(from->colours[0]);
            if (type == TypeDesc::HALF || type == TypeDesc::FLOAT) return type;
        }
        // Half floats tell 1024 steps of the upper half of the range apart: enough for 10 bits, not for 12.
        return depth == SPARK_DEPTH_12 ? TypeDesc::FLOAT : TypeDesc::HALF;
    }
    return depth == SPARK_DEPTH_8 || std::strcmp(plan.rules->name, "jpeg") == 0 ? TypeDesc::UINT8 : TypeDesc::UINT16;
}

TypeDesc other_type(const Plan& plan, TypeDesc colours, TypeDesc type) {
    if (std::strcmp(plan.rules->name, "openexr") != 0) return colours;
    if (type == TypeDesc::HALF || type == TypeDesc::FLOAT || type == TypeDesc::UINT) return type;
    return type.basesize() == 1 ? TypeDesc::HALF : TypeDesc::FLOAT;
}

// Bits of a sample that a type tells apart; of floats those of their fraction, with which the steps near white go.
int precision(TypeDesc type) {
    switch (type.basetype) {
        case TypeDesc::HALF:
            return 11;
        case TypeDesc::FLOAT:
        case TypeDesc::DOUBLE:
            return 24;
        default:
            return static_cast<int>(type.basesize()) * 8;
    }
}

std::string type_text(TypeDesc type) {
    return std::to_string(type.basesize() * 8) + (type.is_floating_point() ? " bits of float" : " bits");
}

void add_channel(Plan& plan, const std::string& name, TypeDesc type, ChannelSource source) {
    plan.spec.channelnames.push_back(name);
    plan.spec.channelformats.push_back(type);
    plan.sources.push_back(source);
}

void plan_channels(Plan& plan, const WriteRequest& request, WriteResult& result) {
    const LayeredPicture* const from = plan.from.get();
    const TypeDesc colours = colour_type(plan, from, request.format.depth);
    static const char* const names[] = {"R", "G", "B"};
    if (!from || from->grey() || !plan.rules->more_channels)
        for (int i = 0; i < 3; i++) add_channel(plan, names[i], colours, {i, -1});
    const ImageSpec* const in = from ? &from->layers[0].spec : nullptr;
    bool alpha_lost = false, others_lost = false;
    for (int c = 0; in && c < in->nchannels; c++) {
        const auto colour = std::find(from->colours, from->colours + 3, c);
        const bool is_colour = colour != from->colours + 3;
        if (is_colour) {
            if (!from->grey() && plan.rules->more_channels)
                add_channel(plan, in->channelnames[static_cast<size_t>(c)], colours,
                            {static_cast<int>(colour - from->colours), -1});
        } else if (c == in->alpha_channel ? plan.rules->alpha : plan.rules->more_channels) {
            const TypeDesc was = in->channelformat(c), type = other_type(plan, colours, was);
            add_channel(plan, in->channelnames[static_cast<size_t>(c)], type, {-1, c});
            if (precision(type) < precision(was) || (was.is_floating_point() && !type.is_floating_point()))
                result.losses.push_back("channel " + in->channelnames[static_cast<size_t>(c)] + " goes from " +
                                        type_text(was) + " to " + type_text(type));
        } else {
            (c == in->alpha_channel ? alpha_lost : others_lost) = true;
        }
    }
    if (alpha_lost) result.losses.push_back(std::string(plan.rules->name) + " files hold no alpha");
    if (others_lost)
        result.losses.push_back(std::string(plan.rules->name) + " files hold no channels beside the colours and alpha");
    if (from && from->layers.size() > 1 && !(plan.rules->layers && plan.same_format))
        result.losses.push_back(std::string("layers are only kept in files of their own format, not in ") +
                                plan.rules->name);
    const int bits = request.format.depth == SPARK_DEPTH_8 ? 8 : request.format.depth == SPARK_DEPTH_10 ? 10 : 12;
    if (precision(colours) < bits && !colours.is_floating_point())
        result.losses.push_back(std::string(plan.rules->name) + " files hold " + std::to_string(precision(colours)) +
                                " bits of a sample, the frames have " + std::to_string(bits));
    plan.spec.nchannels = static_cast<int>(plan.sources.size());
    for (int c = 0; c < plan.spec.nchannels; c++) {
        const int channel = plan.sources[static_cast<size_t>(c)].channel;
        if (channel >= 0 && channel == in->alpha_channel) plan.spec.alpha_channel = c;
        if (channel >= 0 && channel == in->z_channel) plan.spec.z_channel = c;
    }
    plan.spec.format = colours;
    const auto& formats = plan.spec.channelformats;
    if (std::all_of(formats.begin(), formats.end(), [&](TypeDesc type) { return type == colours; }))
        plan.spec.channelformats.clear();
}

// The data window travels where the format has one; elsewhere the whole display window is written.
void plan_windows(Plan& plan, const WriteRequest& request, ImageOutput& output) {
    ImageSpec& spec = plan.spec;
    spec.width = spec.full_width = request.format.width;
    spec.height = spec.full_height = request.format.height;
    if (!plan.from) return;
    const ImageSpec& in = plan.from->layers[0].spec;
    const bool negative = in.x < 0 || in.y < 0;
    if (!output.supports("displaywindow") || !output.supports("origin") ||
        (negative && !output.supports("negativeorigin")))
        return;
    if (in.full_width <= 0 || in.full_height <= 0) return;
    spec.x = in.x, spec.y = in.y, spec.width = in.width, spec.height = in.height;
    spec.full_x = in.full_x, spec.full_y = in.full_y;
}

// Files of the same format keep their way of packing as long as nobody asks for another one.
void choose_compression(Plan& plan, Compression wanted) {
    const std::string name = plan.rules->name;
    const bool kept = wanted == Compression::usual && plan.same_format && plan.spec.find_attribute("compression");
    if (name == "openexr" && !kept)
        plan.spec.attribute("compression", wanted == Compression::none    ? "none"
                                           : wanted == Compression::small ? "zip:9"
                                                                          : "zip:1");
    if (name == "tiff") {
        const bool packed = wanted == Compression::fast || wanted == Compression::small;
        if (!kept) plan.spec.attribute("compression", packed ? "zip" : "none");
        plan.spec.attribute("tiff:zipquality", wanted == Compression::small ? 9 : 1);
    }
}

void plan_attributes(Plan& plan, const WriteRequest& request, WriteResult& result) {
    ImageSpec& spec = plan.spec;
    const std::string name = plan.rules->name;
    if (plan.from) copy_metadata(plan, *plan.from);
    const float ratio = plan.from ? plan.from->info.pixel_ratio : request.pixel_ratio;
    if (ratio > 0 && ratio != 1)
        spec.attribute("PixelAspectRatio", ratio);
    else
        spec.erase_attribute("PixelAspectRatio");
    const bool unassociated = plan.from && plan.from->layers[0].spec.get_int_attribute("oiio:UnassociatedAlpha");
    // Without this the writer of png files divides the colours by alpha.
    if (name == "png" || unassociated) spec.attribute("oiio:UnassociatedAlpha", 1);
    choose_compression(plan, request.compression);
    if (name == "jpeg") {
        spec.attribute("CompressionQuality", 95);
        if (!plan.same_format) spec.attribute("jpeg:subsampling", "4:4:4");
    }
    if (name == "dpx") {
        int bits = request.format.depth == SPARK_DEPTH_8 ? 8 : request.format.depth == SPARK_DEPTH_10 ? 10 : 16;
        if (plan.same_format && bits > 8)
            bits = std::max(10, plan.from->layers[0].spec.get_int_attribute("oiio:BitsPerSample", bits));
        spec.attribute("oiio:BitsPerSample", bits);
    }
    result.holds_recipe = plan.rules->text;
    if (plan.rules->text && !request.recipe.empty()) spec.attribute(recipe_attribute, request.recipe);
    if (plan.rules->text && !request.making.empty()) spec.attribute(making_attribute, request.making);
}

Bytes compose(const Plan& plan, const WriteRequest& request) {
    const ImageSpec& spec = plan.spec;
    const Bytes frame = upright_frame(request);
    const TypeDesc frame_type = request.format.depth == SPARK_DEPTH_8 ? TypeDesc::UINT8 : TypeDesc::UINT16;
    const bool whole =
        spec.x == 0 && spec.y == 0 && spec.width == request.format.width && spec.height == request.format.height;
    if (whole && spec.nchannels == 3 && spec.channelformats.empty() && spec.format == frame_type) return frame;

    Bytes pixels(spec.image_bytes(true), 0);
    const auto step = static_cast<OIIO::stride_t>(spec.pixel_bytes(true)), line = step * spec.width;
    const auto sample = static_cast<OIIO::stride_t>(frame_type.size());
    // Pixels beyond the display window keep what came in.
    const Window window = whole ? Window{0, 0, spec.width, spec.height} : visible_window(spec);
    for (int c = 0; c < spec.nchannels; c++) {
        const ChannelSource& source = plan.sources[static_cast<size_t>(c)];
        unsigned char* const out = pixels.data() + spec.pixel_bytes(0, c, true);
        const int channel = source.colour >= 0 ? (plan.from ? plan.from->colours[source.colour] : -1) : source.channel;
        if (channel >= 0 && (source.colour < 0 || !whole)) {
            const Layer& layer = plan.from->layers[0];
            if (layer.spec.width == spec.width && layer.spec.height == spec.height)
                OIIO::convert_image(1, spec.width, spec.height, 1, layer.channel(channel), layer.type(channel),
                                    layer.pixel_stride(), layer.row_stride(), OIIO::AutoStride, out,
                                    spec.channelformat(c), step, line, OIIO::AutoStride);
            else {
                // A data window of its own that this format cannot keep: outside it there is nothing.
                const Window in = visible_window(layer.spec);
                if (!in.empty())
                    OIIO::convert_image(
                        1, in.x1 - in.x0, in.y1 - in.y0, 1,
                        layer.channel(channel) + (in.y0 + layer.spec.full_y - layer.spec.y) * layer.row_stride() +
                            (in.x0 + layer.spec.full_x - layer.spec.x) * layer.pixel_stride(),
                        layer.type(channel), layer.pixel_stride(), layer.row_stride(), OIIO::AutoStride,
                        out + in.y0 * line + in.x0 * step, spec.channelformat(c), step, line, OIIO::AutoStride);
            }
        }
        if (source.colour < 0 || window.empty()) continue;
        const auto frame_line = sample * 3 * request.format.width;
        const int x = window.x0 + spec.full_x - spec.x, y = window.y0 + spec.full_y - spec.y;
        OIIO::convert_image(1, window.x1 - window.x0, window.y1 - window.y0, 1,
                            frame.data() + window.y0 * frame_line + (window.x0 * 3 + source.colour) * sample,
                            frame_type, sample * 3, frame_line, OIIO::AutoStride, out + y * line + x * step,
                            spec.channelformat(c), step, line, OIIO::AutoStride);
    }
    return pixels;
}

bool write_layers(ImageOutput& output, const std::string& path, const Plan& plan, const Bytes& pixels) {
    const size_t layers = plan.same_format && plan.rules->layers ? plan.from->layers.size() : 1;
    std::vector<ImageSpec> specs = {plan.spec};
    for (size_t i = 1; i < layers; i++) {
        ImageSpec spec = plan.from->layers[i].spec;
        spec.tile_width = spec.tile_height = spec.tile_depth = 0;
        specs.push_back(spec);
    }
    const bool announced = layers > 1 && !output.supports("appendsubimage");
    if (announced ? !output.open(path, static_cast<int>(layers), specs.data()) : !output.open(path, specs[0]))
        return false;
    if (!output.write_image(TypeDesc::UNKNOWN, pixels.data())) return false;
    for (size_t i = 1; i < layers; i++) {
        if (!output.open(path, specs[i], ImageOutput::AppendSubimage)) return false;
        if (!output.write_image(TypeDesc::UNKNOWN, plan.from->layers[i].pixels.data())) return false;
    }
    return output.close();
}

// A file that only lives in memory, for encoders that read back what they wrote or open it again.
struct MemoryFile {
    int file = memfd_create("picture", MFD_CLOEXEC);
    std::string path = "/proc/self/fd/" + std::to_string(file);

    MemoryFile() = default;
    ~MemoryFile() {
        if (file >= 0) close(file);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    bool read_all(Bytes& bytes) const {
        struct stat status = {};
        if (fstat(file, &status) != 0) return false;
        bytes.resize(static_cast<size_t>(status.st_size));
        for (size_t at = 0; at < bytes.size();) {
            const ssize_t n = pread(file, bytes.data() + at, bytes.size() - at, static_cast<off_t>(at));
            if (n <= 0) return false;
            at += static_cast<size_t>(n);
        }
        return !bytes.empty();
    }
};

// The library writes a picture of one pixel with everything around it, and our encoder the samples: the library's own
// is many times slower.
bool encode_png_file(ImageOutput& output, const Plan& plan, const WriteRequest& request, const Bytes& pixels,
                     WriteResult& result) {
    ImageSpec spec = plan.spec;
    spec.width = spec.height = spec.full_width = spec.full_height = 1;
    spec.x = spec.y = spec.full_x = spec.full_y = 0;
    std::vector<unsigned char> small;
    OIIO::Filesystem::IOVecOutput buffer(small);
    output.set_ioproxy(&buffer);
    const unsigned char pixel[8] = {};
    if (!output.open("png", spec) || !output.write_image(TypeDesc::UNKNOWN, pixel) || !output.close()) return false;
    Bytes around;
    for (const PngChunk& chunk : png_chunks(small.data(), small.size(), false))
        if (chunk.type != png_type("IHDR") && chunk.type != png_type("IDAT") && chunk.type != png_type("IEND"))
            add_png_chunk(around, chunk.type, chunk.data, chunk.size);
    PlainImage image;
    image.width = plan.spec.width, image.height = plan.spec.height;
    image.channels = plan.spec.nchannels;
    image.bytes = static_cast<int>(plan.spec.format.size());
    image.pixels = pixels.data();
    image.compression = request.compression;
    result.file = encode_png(image, around);
    return true;
}

// jpeg does not notice a write that fails, so it gets a buffer, which cannot fail; the others need a file, and report.
bool encode(ImageOutput& output, const Plan& plan, const WriteRequest& request, const Bytes& pixels,
            WriteResult& result, std::string& cause) {
    const std::string format = plan.rules->name;
    if (format == "png") {
        const bool written = encode_png_file(output, plan, request, pixels, result);
        if (!written) cause = output.geterror();
        return written;
    }
    const bool to_file = format == "tiff" || format == "openexr";
    if (!to_file) {
        std::vector<unsigned char> file;
        OIIO::Filesystem::IOVecOutput buffer(file);
        output.set_ioproxy(&buffer);
        const bool written = write_layers(output, format, plan, pixels);
        if (!written) cause = output.geterror();
        result.file.assign(file);
        return written;
    }
    const MemoryFile memory;
    const bool written = write_layers(output, memory.path, plan, pixels);
    if (!written) cause = output.geterror();
    if (!written) return false;
    if (memory.read_all(result.file))
        return format != "tiff" || request.making.empty() || note_in_tiff(result.file, request.making, &cause);
    cause = std::strerror(errno);
    return false;
}

}  // namespace

bool alpha_p(const Picture& picture) {
    if (picture.plain) return static_cast<const PlainPicture&>(picture).alpha();
    return static_cast<const LayeredPicture&>(picture).layers[0].spec.alpha_channel >= 0;
}

Bytes compose_plain(const WriteRequest& request, bool alpha) {
    Plan plan;
    plan.rules = rules_of(".png");
    plan.spec.width = plan.spec.full_width = request.format.width;
    plan.spec.height = plan.spec.full_height = request.format.height;
    WriteResult unheeded;
    const bool has_alpha = request.from && alpha_p(*request.from);
    if (alpha) plan.from = layered(request.from);
    plan_channels(plan, request, unheeded);
    Bytes pixels = compose(plan, request);
    if (!alpha || has_alpha) return pixels;
    const size_t sample = static_cast<size_t>(request.format.sample_bytes()), n = pixels.size() / sample / 3;
    Bytes wide(n * 4 * sample, 0xff);
    for (size_t i = 0; i < n; i++) std::memcpy(&wide[i * 4 * sample], &pixels[i * 3 * sample], 3 * sample);
    return wide;
}

bool write_picture(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error) {
    Plan plan;
    plan.rules = rules_of(path);
    const auto output = plan.rules ? ImageOutput::create(plan.rules->name) : nullptr;
    if (!output) {
        *error = path + ": " + (plan.rules ? OIIO::geterror() : "files of this ending are not written");
        return false;
    }
    plan.from = layered(request.from);
    plan.same_format = plan.from && plan.from->info.format == plan.rules->name;
    plan_windows(plan, request, *output);
    plan_channels(plan, request, result);
    plan_attributes(plan, request, result);
    const Bytes pixels = compose(plan, request);
    std::string cause;
    if (encode(*output, plan, request, pixels, result, cause)) return true;
    std::replace(cause.begin(), cause.end(), '\n', ' ');
    *error = path + ": " + (cause.empty() ? "cannot be written" : cause);
    return false;
}

}  // namespace spark_host
