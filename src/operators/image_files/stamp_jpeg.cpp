// A file is opened twice, for its size and for its pixels: so no decoder and no file are open while memory is taken,
// which may end in a jump past them. libjpeg reports errors by a function that must not return, and jumps back here
// from it; a warning counts as an error, for a stamp that is half grey would be drawn as dirt.
#include "operators/image_files/stamp_jpeg.h"

#include "operators/image_files/image_file.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"

#include <csetjmp>
#include <cstdio>
#include <cstring>

// They need <cstdio>, and the second the first.
#include <jpeglib.h>

#include <jerror.h>

namespace velloran {

namespace {

constexpr int most_scans = 200;  // a progressive file has about ten; each costs a pass over the picture
constexpr size_t message_size = JMSG_LENGTH_MAX;

// All that lives across a jump out of the library.
struct Decoding {
    jpeg_error_mgr errors;  // first: the library hands out its address
    jpeg_progress_mgr progress;
    jmp_buf end;
    char message[message_size];
    bool out_of_memory;
    jpeg_decompress_struct decompressor;
};

struct JpegHead {
    int width, height;
    float x_scale, y_scale;
};

[[noreturn]] void leave(Decoding* d) { std::longjmp(d->end, 1); }

[[noreturn]] void on_error(j_common_ptr record) {
    auto* const d = reinterpret_cast<Decoding*>(record->err);
    record->err->format_message(record, d->message);
    d->out_of_memory = record->err->msg_code == JERR_OUT_OF_MEMORY;
    leave(d);
}
// Below 0: something is wrong with the data.
void on_message(j_common_ptr record, int level) {
    if (level < 0) on_error(record);
}
void on_progress(j_common_ptr record) {
    auto* const d = reinterpret_cast<Decoding*>(record->err);
    if (d->decompressor.input_scan_number <= most_scans) return;
    std::snprintf(d->message, message_size, "more than %d scans", most_scans);
    leave(d);
}

void decode_head(Decoding* d, FILE* file, JpegHead* head) {
    jpeg_decompress_struct* const c = &d->decompressor;
    c->err = jpeg_std_error(&d->errors);
    d->errors.error_exit = on_error;
    d->errors.emit_message = on_message;
    jpeg_create_decompress(c);
    c->progress = &d->progress;
    d->progress.progress_monitor = on_progress;
    jpeg_stdio_src(c, file);
    jpeg_read_header(c, TRUE);
    if (!stamp_size_p(c->image_width, c->image_height)) {
        std::snprintf(d->message, message_size, "%u x %u is too large for a stamp", c->image_width, c->image_height);
        leave(d);
    }
    c->out_color_space = JCS_GRAYSCALE;
    c->output_components = 1;
    *head = {static_cast<int>(c->image_width), static_cast<int>(c->image_height), 1, 1};
    if (c->saw_JFIF_marker && c->density_unit == 1) {
        head->x_scale = stamp_sample_scale(c->X_density);
        head->y_scale = stamp_sample_scale(c->Y_density);
    }
}

void decode_pixels(Decoding* d, const StampLevel& level) {
    jpeg_decompress_struct* const c = &d->decompressor;
    jpeg_start_decompress(c);
    if (c->output_width != static_cast<JDIMENSION>(level.width) ||
        c->output_height != static_cast<JDIMENSION>(level.height)) {
        std::snprintf(d->message, message_size, "its size has changed");
        leave(d);
    }
    const JSAMPARRAY row = c->mem->alloc_sarray(reinterpret_cast<j_common_ptr>(c), JPOOL_IMAGE,
                                                c->output_width * static_cast<JDIMENSION>(c->output_components), 1);
    while (c->output_scanline < c->output_height) {
        FixPixel* const out = level.samples + ptrdiff_t{c->output_scanline} * level.pitch;
        jpeg_read_scanlines(c, row, 1);
        for (int x = 0; x < level.width; ++x) out[x] = stamp_sample(row[0][x]);
    }
    jpeg_finish_decompress(c);
}

// level null: the head alone. Nothing here aborts.
bool decode(Decoding* d, FILE* file, JpegHead* head, const StampLevel* level) {
    if (setjmp(d->end)) return false;
    decode_head(d, file, head);
    if (level) decode_pixels(d, *level);
    return true;
}

StampJpegResult read_jpeg(const char* path, JpegHead* head, const StampLevel* level) {
    FILE* const file = open_image_file(path);
    if (!file) return stamp_jpeg_unreadable;
    Decoding d;
    std::memset(&d, 0, sizeof d);
    const bool done = decode(&d, file, head, level);
    jpeg_destroy_decompress(&d.decompressor);  // it knows whether it was begun
    // The library takes a failed read for the end of the file.
    const bool failed = image_file_failed(file, path);
    close_image_file(file);
    if (failed) return stamp_jpeg_unreadable;
    if (done) return stamp_jpeg_done;
    V_error(level_error, "load_stamp_from_jpeg: %s: %s\n", path, d.message);
    return d.out_of_memory ? stamp_jpeg_unreadable : stamp_jpeg_refused;
}

void drop_pixels(void* of) {
    auto* const stamp = static_cast<Stamp*>(of);
    safe_free(stamp->data);
    stamp->data = nullptr;
    stamp->level_count = 0;
}

StampJpegResult read_pixels(const char* path, Stamp* stamp) {
    make_stamp_levels(stamp, stamp->width, stamp->height);
    JpegHead head = {};
    const StampJpegResult result = read_jpeg(path, &head, &stamp->levels[0]);
    if (result != stamp_jpeg_done) {
        drop_pixels(stamp);
        return result;
    }
    // The stamp goes on living after an abort, and must not be taken for whole.
    push_abort_cleanup(drop_pixels, stamp);
    fill_stamp_levels(*stamp);
    pop_abort_cleanup();
    return result;
}

}  // namespace

StampJpegResult load_stamp_from_jpeg(const char* path, bool deferred, Stamp* stamp) {
    JpegHead head = {};
    StampJpegResult result = read_jpeg(path, &head, nullptr);
    if (result != stamp_jpeg_done) return result;
    stamp->width = head.width;
    stamp->height = head.height;
    stamp->x_scale = head.x_scale;
    stamp->y_scale = head.y_scale;
    if (deferred)
        stamp->path = safe_strdup(path);
    else
        result = read_pixels(path, stamp);
    if (result != stamp_jpeg_done) free_stamp(stamp);
    return result;
}

StampJpegResult read_deferred_stamp(Stamp* stamp) {
    if (stamp->unreadable) return stamp_jpeg_refused;
    if (stamp->level_count) return stamp_jpeg_done;
    const StampJpegResult result = read_pixels(stamp->path, stamp);
    stamp->unreadable = result == stamp_jpeg_refused;
    return result;
}

}  // namespace velloran
