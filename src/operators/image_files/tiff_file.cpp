#include "operators/image_files/tiff_file.h"

#include "operators/image_files/image_file.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace velloran {

namespace {

constexpr uint16_t marker_mm = 0x4D4D, marker_ii = 0x4949, tiff_version = 42;
constexpr uint16_t type_short = 3, type_long = 4, type_rational = 5;
constexpr uint32_t entry_size = 12;
// A side of more, or more of them all, is a fault of the file; bytes of all pixels then fit 32 bits.
constexpr uint32_t max_side = 1 << 20;
constexpr uint64_t max_pixels = uint64_t{1} << 28;

enum TiffTag : uint16_t {
    tag_width = 256,
    tag_length = 257,
    tag_bits = 258,
    tag_compression = 259,
    tag_photometric = 262,
    tag_strip_offsets = 273,
    tag_samples = 277,
    tag_rows_per_strip = 278,
    tag_strip_byte_counts = 279,
    tag_x_resolution = 282,
    tag_y_resolution = 283,
    tag_resolution_unit = 296
};

uint32_t size_of_type(uint32_t type) {
    static constexpr uint8_t sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8};
    return type < sizeof sizes ? sizes[type] : 0;
}

template <class T>
T own_order(const uint8_t* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

bool read_bytes(const tinfo& info, void* to, size_t n) { return std::fread(to, 1, n, info.file_ptr) == n; }
bool seek(const tinfo& info, uint32_t at) { return fseeko(info.file_ptr, at, SEEK_SET) == 0; }

bool refuse(const tinfo& info, const char* text) {
    if (!image_file_failed(info.file_ptr, info.name)) V_error(level_error, "%s", text);
    return false;
}

struct Entry {
    uint16_t tag, type;
    uint32_t count, value;
    uint64_t bytes() const { return uint64_t{count} * size_of_type(type); }
};

Entry entry_at(const uint8_t* p) {
    Entry e = {own_order<uint16_t>(p), own_order<uint16_t>(p + 2), own_order<uint32_t>(p + 4), 0};
    e.value = e.type == type_short && e.bytes() <= 4 ? own_order<uint16_t>(p + 8) : own_order<uint32_t>(p + 8);
    return e;
}

void take_entry(tinfo* info, const Entry& e) {
    switch (e.tag) {
        case tag_width:
            info->image_width = e.value;
            break;
        case tag_length:
            info->image_length = e.value;
            break;
        case tag_bits:
            info->bits_per_sample = e.value;
            break;
        case tag_compression:
            info->compression = e.value;
            break;
        case tag_photometric:
            info->photometric = e.value;
            break;
        case tag_samples:
            info->samples_per_pixel = e.value;
            break;
        case tag_rows_per_strip:
            info->rows_per_strip = e.value;
            break;
        case tag_strip_offsets:
            info->strip_offsets = e.value;
            info->strip_offsets_type = e.type;
            info->strip_number = e.count;
            break;
        case tag_strip_byte_counts:
            info->strip_byte_counts = e.value;
            info->strip_byte_counts_type = e.type;
            info->strip_byte_counts_number = e.count;
            break;
        case tag_x_resolution:
            info->x_resolution = e.value;
            break;
        case tag_y_resolution:
            info->y_resolution = e.value;
            break;
        case tag_resolution_unit:
            info->resolution_unit = e.value;
            break;
        default:
            break;
    }
}

bool info_holds(const tinfo& info) {
    const uint64_t w = info.image_width, h = info.image_length;
    if (w < 1 || w > max_side) return refuse(info, "read tiff info: bad image_width.");
    if (h < 1 || h > max_side || w * h > max_pixels) return refuse(info, "read tiff info: bad image_length.");
    if (info.rows_per_strip < 1) return refuse(info, "read tiff info: bad rows_per_strip");
    if (info.strip_number != (h + info.rows_per_strip - 1) / info.rows_per_strip)
        return refuse(info, "read tiff info: bad strip_number.");
    return true;
}

// The numbers of a value of LONGs, which stands for itself if there is one. Null after a message. Of the call.
uint32_t* read_table(const tinfo& info, uint32_t value, uint32_t count) {
    const uint64_t bytes = uint64_t{count} * sizeof(uint32_t);
    if (count > 1 && (!seek(info, value) || bytes_left(info.file_ptr) < bytes)) {
        refuse(info, "read_tiff_pixels: the file ends within its strips.");
        return nullptr;
    }
    auto* const table = frame_array<uint32_t>(count);
    if (count == 1) {
        *table = value;
    } else if (!read_bytes(info, table, bytes)) {
        refuse(info, "read_tiff_pixels: the file ends within its strips.");
        frame_free(table);
        return nullptr;
    }
    return table;
}

bool read_strips(const tinfo& info, const uint32_t* offsets, const uint32_t* counts, uint8_t* pixels) {
    const uint64_t row_bytes = uint64_t{info.image_width} * info.samples_per_pixel;
    uint64_t row = 0;
    for (uint32_t i = 0; i < info.strip_number; ++i) {
        const uint64_t rows = std::min<uint64_t>(info.rows_per_strip, info.image_length - row);
        const auto bytes = static_cast<size_t>(rows * row_bytes);
        if (counts[i] != bytes) return refuse(info, "read_tiff_pixels: a strip does not hold its rows.");
        if (!seek(info, offsets[i]) || !read_bytes(info, pixels + row * row_bytes, bytes))
            return refuse(info, "read_tiff_pixels: the file ends within its strips.");
        row += rows;
    }
    return true;
}

uint8_t grey_of(const uint8_t* rgb) {
    return static_cast<uint8_t>((77 * rgb[0] + 150 * rgb[1] + 29 * rgb[2] + 128) >> 8);
}

void lay_out(const uint8_t* from, int samples, uint8_t* to, TiffLayout layout, uint64_t pixels) {
    for (uint64_t i = 0; i < pixels; ++i, from += samples, to += layout) {
        if (layout == tiff_grey) {
            *to = samples == 1 ? *from : grey_of(from);
            continue;
        }
        for (int c = 0; c < 3; ++c) to[c] = from[samples == 1 ? 0 : c];
        if (layout == tiff_rgba) to[3] = 255;
    }
}

bool read_picture(tinfo* info, TiffLayout layout, TiffPicture* picture) {
    if (!read_tinfo(info)) return false;
    if (info->compression != 1) return refuse(*info, "read_tiff: compression is not supported.");
    const uint32_t samples = info->samples_per_pixel;
    if (samples != 1 && samples != 3)
        return refuse(*info, "read_tiff: samples_per_sample other than 1 or 3 are not supported.");
    if (info->bits_per_sample != 8) return refuse(*info, "read_tiff: bits_per_sample other than 8 is not supported.");
    const uint64_t pixels = uint64_t{info->image_width} * info->image_length;
    // What stands in the file one to one cannot be more than the file.
    rewind(info->file_ptr);
    if (bytes_left(info->file_ptr) < pixels * samples)
        return refuse(*info, "read_tiff_pixels: the file ends within its strips.");
    auto* const bytes = frame_array<uint8_t>(pixels * samples);
    const bool read = read_tiff_pixels(*info, bytes);
    if (read) {
        picture->pixels = static_cast<uint8_t*>(safe_malloc(pixels * static_cast<uint64_t>(layout)));
        lay_out(bytes, static_cast<int>(samples), picture->pixels, layout, pixels);
        picture->width = static_cast<int>(info->image_width);
        picture->height = static_cast<int>(info->image_length);
    }
    frame_free(bytes);
    return read;
}

// ---- Writing

constexpr uint32_t entry_number = 12, directory_at = 8,
                   resolutions_at = directory_at + 2 + entry_number * entry_size + 4;
constexpr uint32_t y_resolution_at = resolutions_at + 8, pixels_at = y_resolution_at + 8;

struct Writing {
    FILE* file;
    void u16(uint32_t v) {
        const auto own = static_cast<uint16_t>(v);
        std::fwrite(&own, sizeof own, 1, file);
    }
    void u32(uint32_t v) { std::fwrite(&v, sizeof v, 1, file); }
    void entry(uint16_t tag, uint16_t type, uint32_t value) {
        u16(tag);
        u16(type);
        u32(1);
        if (type == type_short) {
            u16(value);
            u16(0);
        } else {
            u32(value);
        }
    }
    bool stands_at(uint64_t at, const char* text) {
        if (std::ferror(file) || ftello(file) == static_cast<off_t>(at)) return true;
        V_error(level_error, "%s", text);
        return false;
    }
};

bool write_tiff(FILE* file, int width, int height, const uint8_t* pixels) {
    Writing out = {file};
    const auto w = static_cast<uint32_t>(width), h = static_cast<uint32_t>(height), bytes = w * h * 3;
    out.u16(marker_mm);
    out.u16(tiff_version);
    out.u32(directory_at);
    out.u16(entry_number);
    out.entry(tag_width, type_short, w);
    out.entry(tag_length, type_short, h);
    out.entry(tag_bits, type_short, 8);
    out.entry(tag_compression, type_short, 1);
    out.entry(tag_photometric, type_short, 2);
    out.entry(tag_samples, type_short, 3);
    out.entry(tag_rows_per_strip, type_short, h);
    out.entry(tag_strip_offsets, type_long, pixels_at);
    out.entry(tag_strip_byte_counts, type_long, bytes);
    out.entry(tag_x_resolution, type_rational, resolutions_at);
    out.entry(tag_y_resolution, type_rational, y_resolution_at);
    out.entry(tag_resolution_unit, type_short, 2);
    out.u32(0);  // no other directory
    if (!out.stands_at(resolutions_at, "write tiff: bad x_resolution_addr.")) return false;
    for (int axis = 0; axis < 2; ++axis) {
        out.u32(300);
        out.u32(1);
    }
    if (!out.stands_at(pixels_at, "write tiff: bad image_data_addr.")) return false;
    std::fwrite(pixels, 1, bytes, file);
    return out.stands_at(uint64_t{pixels_at} + bytes, "write tiff: bad end_addr.");
}

}  // namespace

bool read_tinfo(tinfo* info) {
    if (!info->file_ptr) {
        V_error(level_error, "read_tinfo: no file_ptr.");
        fatal_abort(1);
        return false;
    }
    tinfo fresh;
    fresh.file_ptr = info->file_ptr;
    fresh.name = info->name;
    *info = fresh;
    uint8_t start[8] = {};
    const bool whole = read_bytes(*info, start, sizeof start);
    if (!whole && image_file_failed(info->file_ptr, info->name)) return false;
    if (own_order<uint16_t>(start) == marker_ii) {
        V_error(level_error, "%s, reverse byte order not supported.", info->name);
        return false;
    }
    if (!whole || own_order<uint16_t>(start) != marker_mm || own_order<uint16_t>(start + 2) != tiff_version) {
        V_error(level_error, "open tiff: %s is not a valid tiff file.", info->name);
        return false;
    }
    uint8_t number[2];
    if (!seek(*info, own_order<uint32_t>(start + 4)) || !read_bytes(*info, number, sizeof number))
        return refuse(*info, "read tiff info: the file ends within its directory.");
    for (int n = own_order<uint16_t>(number); n > 0; --n) {
        uint8_t bytes[entry_size];
        if (!read_bytes(*info, bytes, sizeof bytes))
            return refuse(*info, "read tiff info: the file ends within its directory.");
        take_entry(info, entry_at(bytes));
    }
    return info_holds(*info);
}

bool read_tiff_pixels(const tinfo& info, uint8_t* pixels) {
    if (!info.file_ptr) {
        V_error(level_error, "read_tiff_pixels: file_ptr not set.");
        return false;
    }
    if (info.strip_offsets_type != type_long) return refuse(info, "read_tiff_pixels: strip_offsets type is not int32.");
    if (info.strip_byte_counts_type != type_long)
        return refuse(info, "read_tiff_pixels: strip_byte_counts type is not int32.");
    if (info.strip_byte_counts_number != info.strip_number) return refuse(info, "read tiff info: bad strip_number.");
    uint32_t* const offsets = read_table(info, info.strip_offsets, info.strip_number);
    uint32_t* const counts = offsets ? read_table(info, info.strip_byte_counts, info.strip_number) : nullptr;
    const bool read = counts && read_strips(info, offsets, counts, pixels);
    frame_free(counts);
    frame_free(offsets);
    return read;
}

bool read_tiff(const char* path, TiffLayout layout, TiffPicture* picture) {
    *picture = {};
    FILE* const file = open_image_file(path);
    if (!file) return false;
    tinfo info;
    info.file_ptr = file;
    info.name = path;
    const bool read = read_picture(&info, layout, picture);
    close_image_file(file);
    return read;
}

bool write_rgb_tiff_file(const char* path, int width, int height, const uint8_t* pixels) {
    log_print("writing tiff file: %s (%d x %d)\n", path, width, height);
    constexpr int most = 65535;  // of a SHORT
    if (width < 1 || height < 1 || width > most || height > most || uint64_t(width) * uint64_t(height) > max_pixels) {
        V_error(level_error, "write_rgb_tiff_file: bad dims %d x %d.\n", width, height);
        return false;
    }
    const size_t size = std::strlen(path) + sizeof ".part";
    auto* const part = frame_array<char>(size);
    std::snprintf(part, size, "%s.part", path);
    bool written = false;
    if (FILE* const file = safe_fopen(part, "wb", file_report_failure)) {
        written = write_tiff(file, width, height, pixels);
        const bool failed = std::fflush(file) != 0 || std::ferror(file);
        int cause = errno;
        bool kept = safe_fclose(file) == 0 && !failed && written;
        if (kept && std::rename(part, path) != 0) {
            cause = errno;
            kept = false;
        }
        if (!kept) {
            if (written) V_error(level_error, "Write of %s failed: %s\n", path, std::strerror(cause));
            std::remove(part);
        }
        written = kept;
    }
    frame_free(part);
    return written;
}

}  // namespace velloran
