#include "hosts/pictures/tiff_file.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace spark_host {
namespace {

constexpr size_t strip_bytes = 256 * 1024;  // what readers take at once

// A file in memory. The library calls back through C, so nothing may throw here.
struct Memory {
    Bytes bytes;
    size_t at = 0;
    std::string error;
    bool out_of_memory = false;
};

Memory& memory_of(thandle_t handle) { return *static_cast<Memory*>(handle); }

tmsize_t read_some(thandle_t handle, void* to, tmsize_t size) {
    Memory& memory = memory_of(handle);
    const size_t n =
        memory.at < memory.bytes.size() ? std::min(static_cast<size_t>(size), memory.bytes.size() - memory.at) : 0;
    if (n > 0) std::memcpy(to, memory.bytes.data() + memory.at, n);
    memory.at += n;
    return static_cast<tmsize_t>(n);
}

tmsize_t write_some(thandle_t handle, void* from, tmsize_t size) {
    Memory& memory = memory_of(handle);
    const size_t n = static_cast<size_t>(size);
    try {
        if (memory.bytes.size() < memory.at + n) memory.bytes.resize(memory.at + n);
    } catch (const std::bad_alloc&) {
        memory.out_of_memory = true;
        return -1;
    }
    std::memcpy(memory.bytes.data() + memory.at, from, n);
    memory.at += n;
    return size;
}

toff_t seek(thandle_t handle, toff_t to, int whence) {
    Memory& memory = memory_of(handle);
    memory.at = (whence == SEEK_SET ? 0 : whence == SEEK_CUR ? memory.at : memory.bytes.size()) + to;
    return memory.at;
}

toff_t size_of(thandle_t handle) { return memory_of(handle).bytes.size(); }
int close_nothing(thandle_t) { return 0; }

int keep_error(TIFF*, void* user, const char*, const char* format, va_list values) {
    char text[256];
    std::vsnprintf(text, sizeof(text), format, values);
    Memory& memory = *static_cast<Memory*>(user);
    try {
        if (memory.error.empty()) memory.error = text;
    } catch (const std::bad_alloc&) {
        memory.out_of_memory = true;
    }
    return 1;  // nobody else hears of it
}
int keep_silent(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct FreeOptions {
    void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};
struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

std::unique_ptr<TIFF, CloseTiff> open_memory(Memory& memory, const char* mode) {
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    if (!options) throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keep_error, &memory);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), keep_silent, nullptr);
    return std::unique_ptr<TIFF, CloseTiff>(TIFFClientOpenExt("picture", mode, &memory, read_some, write_some, seek,
                                                              close_nothing, size_of, nullptr, nullptr, options.get()));
}

// A number from the range that is free for all; readers that do not know it pass over it.
constexpr uint32_t making_tag = 65141;

void know_making(TIFF* tiff) {
    static char name[] = "VelloranMaking";
    static const TIFFFieldInfo field = {making_tag, TIFF_VARIABLE, TIFF_VARIABLE, TIFF_ASCII, FIELD_CUSTOM, 1, 0, name};
    TIFFMergeFieldInfo(tiff, &field, 1);
}

// In the directory of a camera's notes, where other programs look for it.
bool note_srgb(TIFF* tiff) {
    constexpr uint16_t srgb = 1;
    uint64_t place = 0;
    return TIFFWriteDirectory(tiff) && TIFFCreateEXIFDirectory(tiff) == 0 &&
           TIFFSetField(tiff, EXIFTAG_COLORSPACE, srgb) && TIFFWriteCustomDirectory(tiff, &place) &&
           TIFFSetDirectory(tiff, 0) && TIFFSetField(tiff, TIFFTAG_EXIFIFD, place) && TIFFRewriteDirectory(tiff);
}

bool write_all(TIFF* tiff, const PlainImage& image, const ColourNotes& notes) {
    const size_t row = static_cast<size_t>(image.width) * static_cast<size_t>(image.channels * image.bytes);
    const size_t strip = std::clamp<size_t>(strip_bytes / row, 1, static_cast<size_t>(image.height));
    const bool packed = image.compression == Compression::fast || image.compression == Compression::small;
    bool done = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, image.width) &&
                TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, image.height) &&
                TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bytes * 8) &&
                TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, image.channels) &&
                TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
                TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB) &&
                TIFFSetField(tiff, TIFFTAG_COMPRESSION, packed ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE) &&
                TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(strip));
    if (packed)
        done = done && TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
               TIFFSetField(tiff, TIFFTAG_ZIPQUALITY, image.compression == Compression::small ? 9 : 1);
    if (image.channels == 4) {
        const uint16_t alpha[] = {EXTRASAMPLE_UNASSALPHA};
        done = done && TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, alpha);
    }
    if (notes.density[0] > 0 && notes.density[1] > 0)
        done = done && TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER) &&
               TIFFSetField(tiff, TIFFTAG_XRESOLUTION, notes.density[0] / 100.0) &&
               TIFFSetField(tiff, TIFFTAG_YRESOLUTION, notes.density[1] / 100.0);
    if (notes.primaries)
        done = done && TIFFSetField(tiff, TIFFTAG_WHITEPOINT, notes.chromaticities) &&
               TIFFSetField(tiff, TIFFTAG_PRIMARYCHROMATICITIES, notes.chromaticities + 2);
    Bytes rows;  // the predictor works in place
    for (size_t y = 0, i = 0; done && y < static_cast<size_t>(image.height); y += strip, i++) {
        const size_t size = std::min(strip, static_cast<size_t>(image.height) - y) * row;
        rows.assign({image.pixels + y * row, size});
        done = TIFFWriteEncodedStrip(tiff, static_cast<uint32_t>(i), rows.data(), static_cast<tmsize_t>(size)) >= 0;
    }
    return done && (!notes.srgb || note_srgb(tiff)) && TIFFFlush(tiff);
}

}  // namespace

Bytes encode_tiff(const PlainImage& image, const ColourNotes& notes, std::string* error) {
    Memory memory;
    memory.bytes.reserve(static_cast<size_t>(image.width) * static_cast<size_t>(image.height) *
                             static_cast<size_t>(image.channels * image.bytes) +
                         4096);
    bool done = false;
    {
        const auto tiff = open_memory(memory, "w");
        done = tiff && write_all(tiff.get(), image, notes);
    }
    if (memory.out_of_memory) throw std::bad_alloc();
    if (!done) {
        *error = memory.error.empty() ? "cannot be written" : memory.error;
        memory.bytes.clear();
    }
    return std::move(memory.bytes);
}

bool note_in_tiff(Bytes& file, const std::string& making, std::string* error) {
    Memory memory;
    memory.bytes = std::move(file);
    bool done = false;
    if (const auto tiff = open_memory(memory, "r+")) {
        know_making(tiff.get());
        done = TIFFSetField(tiff.get(), making_tag, making.c_str()) && TIFFRewriteDirectory(tiff.get());
    }
    if (memory.out_of_memory) throw std::bad_alloc();
    file = std::move(memory.bytes);
    if (!done) *error = memory.error.empty() ? "cannot be written" : memory.error;
    return done;
}

std::string making_of_tiff(const std::string& path) {
    const std::unique_ptr<TIFFOpenOptions, FreeOptions> options(TIFFOpenOptionsAlloc());
    if (!options) throw std::bad_alloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), keep_silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), keep_silent, nullptr);
    const std::unique_ptr<TIFF, CloseTiff> tiff(TIFFOpenExt(path.c_str(), "r", options.get()));
    // Read as a tag that nobody knows, which comes with its length.
    char* text = nullptr;
    uint32_t size = 0;
    if (!tiff || !TIFFGetField(tiff.get(), making_tag, &size, &text) || !text || size == 0) return "";
    return std::string(text, text[size - 1] == 0 ? size - 1 : size);
}

}  // namespace spark_host
