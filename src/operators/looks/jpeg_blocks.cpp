// libjpeg shows nobody the dequantised blocks: each inverse transform multiplies by the table on its way. So the hook
// stands in the place of the transforms, the decoder is told that all steps are 1, and the hook multiplies.
//
// Of the library's inside this needs the record of the transforms alone (jpegint.h: jpeg_inverse_dct, with a function
// for each component), which came with version 6b and stands the same in libjpeg-turbo since. Another version would
// break it if
//   - a function's arguments or their order changed: the compiler tells, as long as header and library belong together;
//   - the functions were fetched before jpeg_start_decompress returns and kept: the hook would never be called, which
//     the test of blocks that are counted tells;
//   - blocks came to the functions in another order: damage would fall elsewhere, without harm.
#include "operators/looks/jpeg_blocks.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// They need <cstdio>, and the second the first.
#include <jpeglib.h>

#include <jpegint.h>

namespace velloran {

namespace {

constexpr int n_tables = 2, block_size = 64;

// All that lives across a jump out of the library.
struct RoundTrip {
    jpeg_error_mgr errors;  // first: the library hands out its address
    jmp_buf end;
    JpegResult result;
    char* message;
    jpeg_compress_struct compressor;
    jpeg_decompress_struct decompressor;
    unsigned char* compressed;
    unsigned long compressed_bytes;
    JpegDecoding* decoding;
    int16_t steps[n_tables][block_size];
    inverse_DCT_method_ptr transforms[MAX_COMPONENTS];
};

void end_trip(RoundTrip* trip, JpegResult result) {
    trip->result = result;
    std::longjmp(trip->end, 1);
}

[[noreturn]] void on_error(j_common_ptr record) {
    auto* trip = reinterpret_cast<RoundTrip*>(record->err);
    char text[JMSG_LENGTH_MAX];
    record->err->format_message(record, text);
    std::snprintf(trip->message, jpeg_message_size, "%s", text);
    end_trip(trip, jpeg_failed);
    __builtin_unreachable();
}
void on_message(j_common_ptr) {}

jpeg_error_mgr* quiet_errors(RoundTrip* trip) {
    jpeg_std_error(&trip->errors);
    trip->errors.error_exit = on_error;
    trip->errors.output_message = on_message;
    return &trip->errors;
}

void compress(RoundTrip* trip, uint8_t* pixels, int width, int height, int quality) {
    jpeg_compress_struct* const c = &trip->compressor;
    c->err = quiet_errors(trip);
    jpeg_create_compress(c);
    jpeg_mem_dest(c, &trip->compressed, &trip->compressed_bytes);
    c->image_width = static_cast<JDIMENSION>(width);
    c->image_height = static_cast<JDIMENSION>(height);
    c->input_components = 3;
    c->in_color_space = JCS_RGB;
    jpeg_set_defaults(c);
    c->dct_method = JDCT_IFAST;
    jpeg_set_quality(c, quality, FALSE);
    jpeg_start_compress(c, TRUE);
    while (c->next_scanline < c->image_height) {
        JSAMPROW row = pixels + size_t{c->next_scanline} * static_cast<size_t>(width) * 3;
        jpeg_write_scanlines(c, &row, 1);
    }
    jpeg_finish_compress(c);
}

// The inverse transform with the hook before it. What a coefficient cannot hold stays at the end of its range.
void transform_with_hook(j_decompress_ptr d, jpeg_component_info* component, JCOEFPTR coefficients, JSAMPARRAY out,
                         JDIMENSION column) {
    auto* trip = static_cast<RoundTrip*>(d->client_data);
    const int16_t* const steps = trip->steps[std::clamp(component->quant_tbl_no, 0, n_tables - 1)];
    alignas(64) JCOEF block[block_size];
    for (int i = 0; i < block_size; ++i)
        block[i] = static_cast<JCOEF>(std::clamp(coefficients[i] * steps[i], -32767, 32767));
    if (trip->decoding->block_hook && !trip->decoding->block_hook(block, trip->decoding)) end_trip(trip, jpeg_stopped);
    trip->transforms[component->component_index](d, component, block, out, column);
}

// Keeps the rescaled steps for the hook and leaves steps of 1 to the decoder.
void take_steps(RoundTrip* trip) {
    for (int t = 0; t < n_tables; ++t) {
        JQUANT_TBL* table = trip->decompressor.quant_tbl_ptrs[t];
        for (int i = 0; table && i < block_size; ++i) {
            const float step = static_cast<float>(table->quantval[i]) * trip->decoding->table_factors[t][i];
            trip->steps[t][i] = static_cast<int16_t>(std::clamp(step, 0.0f, 32767.0f));
            table->quantval[i] = 1;
        }
    }
}

bool changes_anything(const JpegDecoding& decoding) {
    if (decoding.block_hook) return true;
    for (const auto& table : decoding.table_factors)
        for (const float factor : table)
            if (factor != 1.0f) return true;
    return false;
}

void decompress(RoundTrip* trip, uint8_t* pixels, int width) {
    jpeg_decompress_struct* const d = &trip->decompressor;
    d->err = quiet_errors(trip);
    jpeg_create_decompress(d);
    d->client_data = trip;
    jpeg_mem_src(d, trip->compressed, trip->compressed_bytes);
    jpeg_read_header(d, TRUE);
    const bool hooked = changes_anything(*trip->decoding);
    if (hooked) take_steps(trip);
    jpeg_start_decompress(d);
    for (int i = 0; hooked && i < d->num_components; ++i) {
        trip->transforms[i] = d->idct->inverse_DCT[i];
        d->idct->inverse_DCT[i] = transform_with_hook;
    }
    while (d->output_scanline < d->output_height) {
        JSAMPROW row = pixels + size_t{d->output_scanline} * static_cast<size_t>(width) * 3;
        jpeg_read_scanlines(d, &row, 1);
    }
    jpeg_finish_decompress(d);
}

void run(RoundTrip* trip, uint8_t* pixels, int width, int height, int quality) {
    if (setjmp(trip->end)) return;
    compress(trip, pixels, width, height, quality);
    decompress(trip, pixels, width);
    trip->result = jpeg_done;
}

}  // namespace

// As much as three bytes for each pixel of whole blocks, after the library's own reckoning for its colour sampling.
size_t jpeg_most_bytes(int width, int height) {
    const auto padded = [](int n) { return (static_cast<size_t>(n) + 15) / 16 * 16; };
    return padded(width) * padded(height) * 3 + 4096;
}

JpegResult jpeg_round_trip(uint8_t* pixels, int width, int height, int quality, JpegDecoding* decoding, uint8_t* work,
                           char (&message)[jpeg_message_size]) {
    RoundTrip trip;
    std::memset(&trip, 0, sizeof trip);
    trip.message = message;
    trip.decoding = decoding;
    trip.compressed = work;
    trip.compressed_bytes = jpeg_most_bytes(width, height);
    message[0] = 0;
    run(&trip, pixels, width, height, quality);
    // Both know whether they were begun.
    jpeg_destroy_compress(&trip.compressor);
    jpeg_destroy_decompress(&trip.decompressor);
    if (trip.compressed != work) std::free(trip.compressed);
    return trip.result;
}

}  // namespace velloran
