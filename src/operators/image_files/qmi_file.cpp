#include "operators/image_files/qmi_file.h"

#include "operators/image_files/image_file.h"
#include "support/errors.h"
#include "support/memory.h"

#include <cstring>

namespace velloran {

namespace {

constexpr size_t header_size = 16, image_header_size = 13;
constexpr uint8_t compression_none = 0, compression_runs = 1;

struct ImageHeader {
    uint8_t compression;
    int width, height, x_resolution, y_resolution;
    uint32_t data_size;
};

ImageHeader image_header(const uint8_t* p) {
    return {p[0], little_i16(p + 1), little_i16(p + 3), little_i16(p + 5), little_i16(p + 7), little_u32(p + 9)};
}

// The texts stand as they are, so the file is named by a line of its own.
void tell(const char* path, const char* text) {
    V_error(level_error, "%s", text);
    V_error(level_error, "The stamp file is %s\n", path);
}

// Calls put(count, value) for each run until it answers false. False if the data end within a run.
template <class Put>
bool for_each_run(const uint8_t* data, size_t size, Put put) {
    if (size == 0) return true;
    const uint8_t escape = data[0];
    for (size_t i = 1; i < size; ++i) {
        if (data[i] != escape) {
            if (!put(1, data[i])) return true;
            continue;
        }
        if (size - i < 3) return false;
        if (!put(data[i + 1], data[i + 2])) return true;
        i += 2;
    }
    return true;
}

bool data_fit(const ImageHeader& h, const uint8_t* data) {
    const int64_t samples = int64_t{h.width} * h.height;
    if (h.compression == compression_none) return h.data_size == samples;
    int64_t found = 0;
    const bool whole = for_each_run(data, h.data_size, [&](int count, uint8_t) { return (found += count) <= samples; });
    return whole && found == samples;
}

// data fit.
void fill_level_0(const ImageHeader& h, const uint8_t* data, const StampLevel& level) {
    int x = 0, y = 0;
    const auto put = [&](int count, uint8_t value) {
        for (; count > 0; --count) {
            level.samples[ptrdiff_t{y} * level.pitch + x] = stamp_sample(value);
            if (++x < h.width) continue;
            x = 0;
            ++y;
        }
        return true;
    };
    if (h.compression == compression_runs)
        for_each_run(data, h.data_size, put);
    else
        for (uint32_t i = 0; i < h.data_size; ++i) put(1, data[i]);
}

enum Loading : int { loading_goes_on, loading_ends, loading_failed };

// data: those of the header.
void add_stamp(const char* path, const ImageHeader& h, const uint8_t* data, StampCollection* collection) {
    if (!stamp_size_p(h.width, h.height)) {
        tell(path, "QMI file format error: bad image size.");
        return;
    }
    if (!data_fit(h, data)) {
        tell(path, "QMI file format error: the data do not fit the image size.");
        return;
    }
    Stamp& stamp = collection->stamps[collection->count];
    make_stamp_levels(&stamp, h.width, h.height);
    stamp.x_scale = stamp_sample_scale(h.x_resolution);
    stamp.y_scale = stamp_sample_scale(h.y_resolution);
    fill_level_0(h, data, stamp.levels[0]);
    fill_stamp_levels(stamp);
    ++collection->count;
}

Loading load_image(FILE* file, const char* path, const ImageHeader& h, StampCollection* collection) {
    // Whatever the header says, the file holds so much at the most.
    if (bytes_left(file) < h.data_size) {
        tell(path, "QMI file format error: EOF in image data");
        return loading_ends;
    }
    if (h.compression > compression_runs)
        return fseeko(file, h.data_size, SEEK_CUR) == 0 ? loading_goes_on : loading_failed;
    auto* const data = frame_array<uint8_t>(h.data_size + size_t{1});
    const size_t n = std::fread(data, 1, h.data_size, file);
    Loading loading = loading_goes_on;
    if (n == h.data_size) {
        add_stamp(path, h, data, collection);
    } else if (image_file_failed(file, path)) {
        loading = loading_failed;
    } else {
        tell(path, "QMI file format error: EOF in image data");
        loading = loading_ends;
    }
    frame_free(data);
    return loading;
}

void drop_stamps(StampCollection* collection, int keep) {
    while (collection->count > keep) free_stamp(&collection->stamps[--collection->count]);
}

int load_stamps(FILE* file, const char* path, StampCollection* collection) {
    const int before = collection->count;
    uint8_t header[header_size];
    if (std::fread(header, 1, header_size, file) < header_size) {
        if (image_file_failed(file, path)) return stamps_unreadable;
        tell(path, "QMI file format error: EOF in header.");
        return 0;
    }
    if (std::memcmp(header, "QMIF", 4) != 0) {
        tell(path,
             header[4] > 1 ? "QMI file format error: future file format." : "QMI file format error: bad magic number.");
        return 0;
    }
    for (;;) {
        uint8_t bytes[image_header_size];
        const size_t n = std::fread(bytes, 1, image_header_size, file);
        Loading loading = loading_goes_on;
        if (n < image_header_size && image_file_failed(file, path)) {
            loading = loading_failed;
        } else if (n == 0) {
            loading = loading_ends;
        } else if (collection->count == max_stamps) {
            V_error(level_warning, "Too many stamps in load_stamps_from_qmi(%s=%d) -- ignoring extras\n", path,
                    max_stamps);
            loading = loading_ends;
        } else if (n < image_header_size) {
            tell(path, "QMI file format error: EOF in image header.");
            drop_stamps(collection, before);
            return 0;
        } else {
            loading = load_image(file, path, image_header(bytes), collection);
        }
        if (loading == loading_failed) {
            drop_stamps(collection, before);
            return stamps_unreadable;
        }
        if (loading == loading_ends) return collection->count - before;
    }
}

}  // namespace

int load_stamps_from_qmi(const char* path, StampCollection* collection) {
    FILE* const file = open_image_file(path);
    if (!file) return stamps_unreadable;
    const int n = load_stamps(file, path, collection);
    close_image_file(file);
    return n;
}

}  // namespace velloran
