#include "hosts/pictures/plain_picture.h"

#include "hosts/pictures/pnm_file.h"
#include "hosts/pictures/tiff_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

namespace spark_host {
namespace {

constexpr size_t most_to_probe = 1 << 20;

uint32_t big(const unsigned char* at) {
    return static_cast<uint32_t>(at[0]) << 24 | static_cast<uint32_t>(at[1]) << 16 | static_cast<uint32_t>(at[2]) << 8 |
           at[3];
}

// The first bytes of a regular file, at most so many. Empty if it cannot be read.
Bytes read_start(const std::string& path, size_t most) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status = {};
    Bytes bytes;
    if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
        bytes.resize(std::min(static_cast<size_t>(status.st_size), most));
        size_t at = 0;
        while (at < bytes.size()) {
            const ssize_t n = pread(file, bytes.data() + at, bytes.size() - at, static_cast<off_t>(at));
            if (n <= 0) break;
            at += static_cast<size_t>(n);
        }
        if (at < bytes.size()) bytes.clear();
    }
    if (file >= 0) close(file);
    return bytes;
}

template <size_t n>
bool one_of(uint32_t type, const uint32_t (&types)[n]) {
    return std::find(types, types + n, type) != types + n;
}

bool describes_p(uint32_t type) {
    static constexpr uint32_t quiet[] = {png_type("IHDR"), png_type("IDAT"), png_type("IEND"), png_type("pHYs"),
                                         png_type("sBIT"), png_type("bKGD"), png_type("hIST"), png_type("gAMA"),
                                         png_type("cHRM"), png_type("sRGB"), png_type("oFFs")};
    return !one_of(type, quiet);
}

// What is sure to mean the same beside other samples: the file format marks unknown chunks of that kind.
bool travels_p(uint32_t type) {
    static constexpr uint32_t known[] = {png_type("gAMA"), png_type("cHRM"), png_type("sRGB"),
                                         png_type("iCCP"), png_type("cICP"), png_type("mDCv"),
                                         png_type("cLLi"), png_type("tIME"), png_type("eXIf")};
    constexpr uint32_t small_letter = 0x20;  // first one: not needed to read the picture; last one: may be copied
    return one_of(type, known) || ((type >> 24 & small_letter) != 0 && (type & small_letter) != 0);
}

bool own_text_p(const PngChunk& chunk) {
    const size_t n = std::strlen(own_attributes);
    return chunk.type == png_type("tEXt") && chunk.size > n && std::memcmp(chunk.data, own_attributes, n) == 0;
}

// Fills text if the chunk is the one of that key.
void read_text(const PngChunk& chunk, const std::string& key, std::string& text) {
    if (!own_text_p(chunk) || chunk.size <= key.size() || std::memcmp(chunk.data, key.c_str(), key.size() + 1) != 0)
        return;
    text.assign(reinterpret_cast<const char*>(chunk.data) + key.size() + 1, chunk.size - key.size() - 1);
}

// Fills what the chunks say. False if there is something that is not plain.
bool read_chunks(const std::vector<PngChunk>& chunks, PlainPicture& picture) {
    if (chunks.empty() || chunks[0].size != 13) return false;
    const unsigned char* const header = chunks[0].data;
    const uint32_t width = big(header), height = big(header + 4);
    static constexpr int channels_of[] = {1, 0, 3, 0, 2, 0, 4};
    const int depth = header[8], kind = header[9];
    if (width < 1 || height < 1 || width > 1u << 20 || height > 1u << 20) return false;
    if ((depth != 8 && depth != 16) || kind > 6 || channels_of[kind] == 0) return false;
    if (header[10] != 0 || header[11] != 0 || header[12] != 0) return false;  // packing, filters, rows in order
    picture.bytes = depth / 8;
    PictureInfo& info = picture.info;
    info.format = "png";
    info.width = static_cast<int>(width), info.height = static_cast<int>(height);
    info.channels = channels_of[kind];
    info.eight_bits = depth == 8;
    for (const PngChunk& chunk : chunks) {
        if (chunk.type == png_type("tRNS")) return false;
        // A place of its own in the frame, but for none.
        if (chunk.type == png_type("oFFs") && std::any_of(chunk.data, chunk.data + std::min(chunk.size, 8u),
                                                          [](unsigned char byte) { return byte != 0; }))
            return false;
        if (own_text_p(chunk)) {
            read_text(chunk, recipe_attribute, picture.recipe);
            continue;
        }
        picture.described |= describes_p(chunk.type);
        if (chunk.type == png_type("pHYs") && chunk.size == 9) {
            const uint32_t x = big(chunk.data), y = big(chunk.data + 4);
            if (x > 0 && y > 0) info.pixel_ratio = static_cast<float>(y) / static_cast<float>(x);
            if (chunk.data[8] == 1) picture.notes.density[0] = x, picture.notes.density[1] = y;
        }
        picture.notes.srgb |= chunk.type == png_type("sRGB");
        if (chunk.type == png_type("cHRM") && chunk.size == 32) {
            picture.notes.primaries = true;
            for (size_t i = 0; i < 8; i++)
                picture.notes.chromaticities[i] = static_cast<float>(big(chunk.data + 4 * i)) / 100000;
        }
        if (chunk.type == png_type("pHYs") || travels_p(chunk.type))
            add_png_chunk(picture.kept, chunk.type, chunk.data, chunk.size);
        else if (chunk.type == png_type("sBIT") || chunk.type == png_type("bKGD"))
            add_png_chunk(picture.kept_same_kind, chunk.type, chunk.data, chunk.size);
    }
    return true;
}

void describe(const PnmHeader& header, PlainPicture& picture) {
    picture.bytes = header.bytes();
    picture.info.format = "pnm";
    picture.info.width = header.width, picture.info.height = header.height;
    picture.info.channels = header.channels;
    picture.info.eight_bits = picture.bytes == 1;
}

bool ends_with(const std::string& path, const char* ending) {
    const std::string end = ending;
    if (path.size() < end.size()) return false;
    return std::equal(end.rbegin(), end.rend(), path.rbegin(),
                      [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); });
}

template <class Out, class In>
Out sample_as(In v) {
    if constexpr (sizeof(Out) == sizeof(In))
        return v;
    else if constexpr (sizeof(Out) == 2)
        return static_cast<Out>(v * 257);
    else
        return static_cast<Out>((v + 128u) / 257u);
}

template <class Out, class In>
void convert(const PlainPicture& picture, Out* frame) {
    const size_t width = static_cast<size_t>(picture.info.width), height = static_cast<size_t>(picture.info.height);
    const size_t channels = static_cast<size_t>(picture.info.channels);
    const size_t green = channels < 3 ? 0 : 1, blue = channels < 3 ? 0 : 2;
    const In* in = reinterpret_cast<const In*>(picture.pixels.data());
    for (size_t y = 0; y < height; y++) {
        Out* out = frame + (height - 1 - y) * width * 3;
        if (channels == 3 && sizeof(Out) == sizeof(In)) {
            std::memcpy(out, in, width * 3 * sizeof(In));
            in += width * 3;
            continue;
        }
        for (size_t x = 0; x < width; x++, in += channels, out += 3) {
            out[0] = sample_as<Out>(in[0]);
            out[1] = sample_as<Out>(in[green]);
            out[2] = sample_as<Out>(in[blue]);
        }
    }
}

// The frame's colours with the alpha of the picture that came in.
template <class Sample>
Bytes with_alpha(const Bytes& colours, const PlainPicture* from) {
    const size_t n = colours.size() / sizeof(Sample) / 3, step = from ? static_cast<size_t>(from->info.channels) : 1;
    Bytes pixels(n * 4 * sizeof(Sample));
    const auto* in = reinterpret_cast<const Sample*>(colours.data());
    auto* out = reinterpret_cast<Sample*>(pixels.data());
    for (size_t i = 0; i < n; i++, in += 3, out += 4) {
        std::copy(in, in + 3, out);
        const size_t at = (i + 1) * step - 1;
        out[3] = !from              ? static_cast<Sample>(~Sample{0})
                 : from->bytes == 1 ? sample_as<Sample>(from->pixels[at])
                                    : sample_as<Sample>(reinterpret_cast<const uint16_t*>(from->pixels.data())[at]);
    }
    return pixels;
}

}  // namespace

bool png_path_p(const std::string& path) { return ends_with(path, ".png"); }
bool tiff_path_p(const std::string& path) { return ends_with(path, ".tif") || ends_with(path, ".tiff"); }

std::string making_of_png(const std::string& path) {
    const Bytes start = read_start(path, SIZE_MAX);
    std::string making;
    for (const PngChunk& chunk : png_chunks(start.data(), start.size(), true))
        read_text(chunk, making_attribute, making);
    return making;
}

bool probe_plain(const std::string& path, PictureInfo& info) {
    const Bytes start = read_start(path, most_to_probe);
    PlainPicture picture;
    PnmHeader pnm;
    if (read_pnm_header(start.data(), start.size(), pnm))
        describe(pnm, picture);
    else if (!read_chunks(png_chunks(start.data(), start.size(), true), picture))
        return false;
    info = picture.info;
    return true;
}

PicturePtr read_plain(const std::string& path) {
    const Bytes start = read_start(path, 8);
    if (start.size() < 8 || (start[0] != 'P' && start[1] != 'P')) return nullptr;
    const Bytes file = read_start(path, SIZE_MAX);
    auto picture = std::make_shared<PlainPicture>();
    if (start[0] == 'P') {
        PnmHeader pnm;
        if (!read_pnm_header(file.data(), file.size(), pnm)) return nullptr;
        describe(pnm, *picture);
        return decode_pnm(file.data(), file.size(), pnm, picture->pixels) ? picture : nullptr;
    }
    const std::vector<PngChunk> chunks = png_chunks(file.data(), file.size(), false);
    const PictureInfo& info = picture->info;
    if (!read_chunks(chunks, *picture) ||
        !decode_png(chunks, info.width, info.height, static_cast<size_t>(info.channels * picture->bytes),
                    picture->bytes == 2, picture->pixels))
        return nullptr;
    const auto data = std::find_if(chunks.begin(), chunks.end(),
                                   [](const PngChunk& chunk) { return chunk.type == png_type("IDAT"); });
    picture->header.assign({file.data(), static_cast<size_t>(data->data - file.data())});
    return picture;
}

SamplesFound plain_to_frame(const PlainPicture& picture, const FrameFormat& format, void* frame) {
    const bool deep = format.depth != SPARK_DEPTH_8;
    if (picture.bytes == 1)
        deep ? convert<uint16_t, uint8_t>(picture, static_cast<uint16_t*>(frame))
             : convert<uint8_t, uint8_t>(picture, static_cast<uint8_t*>(frame));
    else
        deep ? convert<uint16_t, uint16_t>(picture, static_cast<uint16_t*>(frame))
             : convert<uint8_t, uint16_t>(picture, static_cast<uint8_t*>(frame));
    return {};
}

Bytes upright_frame(const WriteRequest& request) {
    const FrameFormat& format = request.format;
    const size_t row = static_cast<size_t>(format.width) * 3;
    Bytes frame(static_cast<size_t>(format.bytes()));
    for (int y = 0; y < format.height; y++) {
        const size_t from = static_cast<size_t>(format.height - 1 - y) * row, to = static_cast<size_t>(y) * row;
        if (format.depth == SPARK_DEPTH_8) {
            std::memcpy(frame.data() + to, static_cast<const unsigned char*>(request.frame) + from, row);
            continue;
        }
        const uint16_t* const in = static_cast<const uint16_t*>(request.frame) + from;
        uint16_t* const out = reinterpret_cast<uint16_t*>(frame.data()) + to;
        if (format.depth == SPARK_DEPTH_10)
            for (size_t i = 0; i < row; i++) out[i] = static_cast<uint16_t>((in[i] & 0xffc0) | in[i] >> 10);
        else
            for (size_t i = 0; i < row; i++) out[i] = static_cast<uint16_t>((in[i] & 0xfff0) | in[i] >> 12);
    }
    return frame;
}

Bytes add_alpha(const Bytes& colours, int bytes, const PlainPicture* from) {
    if (from && !from->alpha()) from = nullptr;
    return bytes == 1 ? with_alpha<uint8_t>(colours, from) : with_alpha<uint16_t>(colours, from);
}

bool plain_output_p(const std::string& path, const WriteRequest& request) {
    const Picture* const from = request.from;
    if (from && !from->plain) return false;
    if (png_path_p(path)) return true;
    // Metadata go from format to format only where both are understood.
    return tiff_path_p(path) && (from ? from->info.pixel_ratio : request.pixel_ratio) == 1 &&
           !(from && static_cast<const PlainPicture*>(from)->described);
}

bool write_plain(const std::string& path, const WriteRequest& request, WriteResult& result, std::string* error) {
    const auto* const from = static_cast<const PlainPicture*>(request.from);
    Bytes pixels = upright_frame(request);
    PlainImage image;
    image.width = request.format.width, image.height = request.format.height;
    image.bytes = request.format.sample_bytes();
    image.compression = request.compression;
    if (from && from->alpha()) {
        image.channels = 4;
        if (from->bytes > image.bytes) result.losses.push_back("channel A goes from 16 bits to 8 bits");
        pixels = add_alpha(pixels, image.bytes, from);
    }
    image.pixels = pixels.data();
    if (tiff_path_p(path)) {
        std::string cause;
        result.file = encode_tiff(image, from ? from->notes : ColourNotes(), &cause);
        if (!result.file.empty() && !request.making.empty() && !note_in_tiff(result.file, request.making, &cause))
            result.file.clear();
        result.holds_recipe = false;
        if (result.file.empty()) *error = path + ": " + cause;
        return !result.file.empty();
    }
    Bytes around;
    if (from) {
        around = from->kept;
        if (from->bytes == image.bytes && from->info.channels == image.channels) around.append(from->kept_same_kind);
    } else if (request.pixel_ratio > 0 && request.pixel_ratio != 1) {
        unsigned char density[9] = {0, 0, 0x27, 0x10};  // 10000, in no unit
        const auto down = static_cast<uint32_t>(std::min(request.pixel_ratio * 10000.0f + 0.5f, 1e9f));
        for (int i = 0; i < 4; i++) density[4 + i] = static_cast<unsigned char>(down >> (24 - 8 * i));
        add_png_chunk(around, png_type("pHYs"), density, sizeof(density));
    }
    if (!request.recipe.empty()) add_png_text(around, recipe_attribute, request.recipe);
    if (!request.making.empty()) add_png_text(around, making_attribute, request.making);
    result.holds_recipe = true;
    result.file = encode_png(image, around);
    return true;
}

}  // namespace spark_host
