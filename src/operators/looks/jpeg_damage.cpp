#include "engine/evaluate.h"
#include "frame/host_buffers.h"
#include "frame/pixel_formats_rows.h"
#include "operators/blur/filter_args.h"
#include "operators/looks/jpeg_blocks.h"
#include "operators/looks/looks_functions.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/hash.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

enum JpegDamageArg : int {
    arg_image,
    arg_quality,
    arg_scale_freqs,
    arg_scale_xy_freqs,
    arg_chroma_luma,
    arg_error_rate,
    arg_error_density,
    arg_error_amp,
    arg_error_coherence,
    arg_seed,
    arg_res_factor
};

constexpr int channels = 3, bands = 4, band_unit = 8;
// Beyond these a block is noise already.
constexpr float most_hits = 1000.0f, most_amp = 1e6f;

struct Damage {
    int quality;
    float rate, density, start_p, amp;
    int seed, max_run;
};

// The picture in points of rx by ry working samples, interleaved.
struct SmallImage {
    int rx, ry, width, height;
    uint8_t* bytes;
    size_t row_bytes() const { return static_cast<size_t>(width) * channels; }
};

SmallImage small_image(const Node* node) {
    const auto points = [&](int e) {
        const double n = (filter_arg(node, arg_res_factor, e) >> fix_bits) * the_frame->render_info.ratio_scale[e];
        return static_cast<int>(std::clamp(n, 1.0, 1e6));
    };
    SmallImage small;
    small.rx = points(0);
    small.ry = points(1);
    small.width = (the_frame->temp_raster_info.width + small.rx - 1) / small.rx;
    small.height = (the_frame->temp_raster_info.height + small.ry - 1) / small.ry;
    return small;
}

Damage read_damage(const Node* node, const SmallImage& small) {
    Damage d;
    d.quality = std::clamp(static_cast<int>(filter_arg_float(node, arg_quality) * 100.0f + 0.5f), 0, 100);
    d.density = filter_arg_float(node, arg_error_density);
    d.rate = std::min(filter_arg_float(node, arg_error_rate) * std::max(1.0f, d.density), most_hits);
    d.amp = std::min(filter_arg_float(node, arg_error_amp) * 1000.0f, most_amp);
    d.seed = filter_arg(node, arg_seed) * 33333;
    const float coherence = std::max(filter_arg_float(node, arg_error_coherence), 0.0f);
    d.max_run = static_cast<int>(std::min(coherence * static_cast<float>(small.width) * 0.5f + 1.0f, 1e9f));
    const float run = std::max(1.0f, static_cast<float>(d.max_run) * 0.5f);
    d.start_p = d.density / (1.0f + run * std::max(1.0f - d.density, 0.001f));
    return d;
}

float lerp(float a, float b, float t) { return a + (b - a) * t; }

// The factor for one direction: below 1 all its frequencies alike, above 1 those the most that are its own.
float direction_factor(float scale, int own, int other) {
    if (own == 0) return 1.0f;
    if (scale <= 1.0f) return scale;
    return lerp(1.0f, scale, static_cast<float>(std::max(own - other, 0)) / static_cast<float>(own));
}

// The straight line through frequencies 1 and 3, and through 4 and 6.
float frequency_factor(const Node* node, int d) {
    const auto scale = [&](int e) { return filter_arg_float(node, arg_scale_freqs, e); };
    const float at = static_cast<float>(std::clamp(d, 1, 6));
    return d < 4 ? lerp(scale(0), scale(1), (at - 1.0f) / 2.0f) : lerp(scale(1), scale(2), (at - 4.0f) / 2.0f);
}

// The mean of a block stays.
void set_table_factors(const Node* node, JpegDecoding* decoding) {
    for (int t = 0; t < 2; ++t)
        for (int i = 0; i < 64; ++i) {
            const int u = i & 7, v = i >> 3;
            const float f = direction_factor(filter_arg_float(node, arg_scale_xy_freqs, 0), u, v) *
                            direction_factor(filter_arg_float(node, arg_scale_xy_freqs, 1), v, u) *
                            frequency_factor(node, std::max(u, v));
            decoding->table_factors[t][i] =
                i ? std::max(lerp(1.0f, f, filter_arg_float(node, arg_chroma_luma, t)), 0.0f) : 1.0f;
        }
}

// Faults come in runs of blocks, like a burst on a bad line. All is decided by the number of the block.
bool damage_block(int16_t* block, JpegDecoding* decoding) {
    const Damage& d = *static_cast<const Damage*>(decoding->settings);
    const int32_t k = decoding->block_count++;
    if ((k & 63) == 0 && poll_abort()) return false;
    uint32_t s = static_cast<uint32_t>(d.seed) + static_cast<uint32_t>(k);
    if (decoding->block_run == 0) {
        uint32_t h = bit_hash(s);
        if (!(unit_hash(h) < static_cast<double>(k == 0 ? d.density : d.start_p))) return true;
        const int longest = k == 0 ? std::max(1, d.max_run / 2) : d.max_run;
        h = bit_hash(h);
        s = h;
        decoding->block_run = static_cast<int>(unit_hash(h) * longest) + 1;
    }
    --decoding->block_run;
    uint32_t h = bit_hash(s);
    int hits = static_cast<int>(d.rate);
    if (unit_hash(h) < static_cast<double>(d.rate - static_cast<float>(hits))) ++hits;
    for (int hit = 0; hit < hits; ++hit) {
        const uint32_t a = bit_hash(h);
        const int position = static_cast<int>(a & 63), highest = std::max(position & 7, position >> 3);
        // The highest frequency gets a fifth of what the lowest does.
        const int amp = static_cast<int>(d.amp * (1.0f - static_cast<float>(highest) * (0.8f / 7.0f)));
        h = bit_hash(a);
        const int fault = static_cast<int>(unit_hash(h) * (2 * amp + 1)) - amp;
        block[position] = static_cast<int16_t>(std::clamp(block[position] + fault, -32767, 32767));
    }
    return true;
}

// Points of a pixel are what frames of 8 bits hold, and have their row functions.
constexpr bool without_table = false, in_color = false;

void shrink_rows(const Node* node, const SmallImage& small, int first, int n) {
    const int width = the_frame->temp_raster_info.width;
    const auto to_bytes = pixel_format_rows().from_planes[form_rgb8][without_table][in_color];
    for (int r = first; r < first + n; ++r) {
        uint8_t* const out = small.bytes + static_cast<size_t>(r) * small.row_bytes();
        const ptrdiff_t row = ptrdiff_t{r} * small.ry * width;
        const FixPixel* const in[channels] = {node->images[0] + row, node->images[1] + row, node->images[2] + row};
        if (small.rx == 1) {
            to_bytes(in, out, width, nullptr, stores_cached);
            continue;
        }
        for (int c = 0; c < channels; ++c)
            for (int x = 0; x < small.width; ++x)
                out[x * channels + c] = static_cast<uint8_t>(std::clamp(in[c][ptrdiff_t{x} * small.rx] >> 4, 0, 255));
    }
}

// A row of bytes to one of samples in each plane.
void enlarge_row(const SmallImage& small, const uint8_t* in, FixPixel* const* out, int width) {
    if (small.rx == 1) {
        pixel_format_rows().to_planes[form_rgb8][without_table](in, out, width, nullptr, stores_cached);
        // They give white its last bits as well.
        for (int c = 0; c < channels; ++c)
            for (int x = 0; x < width; ++x) out[c][x] = static_cast<FixPixel>(out[c][x] & ~15);
        return;
    }
    for (int c = 0; c < channels; ++c)
        for (int x = 0; x < small.width; ++x)
            std::fill_n(out[c] + ptrdiff_t{x} * small.rx, std::min(small.rx, width - x * small.rx),
                        static_cast<FixPixel>(in[x * channels + c] << 4));
}

void enlarge_rows(const Node* node, const SmallImage& small, int first, int n) {
    const int width = the_frame->temp_raster_info.width, height = the_frame->temp_raster_info.height;
    for (int r = first; r < first + n; ++r) {
        const int y = r * small.ry, rows = std::min(small.ry, height - y);
        FixPixel* out[channels];
        for (int c = 0; c < channels; ++c) out[c] = node->images[c] + ptrdiff_t{y} * width;
        enlarge_row(small, small.bytes + static_cast<size_t>(r) * small.row_bytes(), out, width);
        for (FixPixel* const row : out)
            for (int copy = 1; copy < rows; ++copy) std::copy_n(row, width, row + ptrdiff_t{copy} * width);
    }
}

// The bands of a picture: rows [first, end) of the small image, the last band with what remains. Blocks are numbered
// from first_block on, so that bands number theirs apart.
struct Band {
    int first, end;
    int32_t first_block;
};
Band band_of(const SmallImage& small, int band) {
    const int rows = (small.height + 15) / bands / band_unit * band_unit;
    const int first = std::min(band * rows, small.height);
    const int end = band == bands - 1 ? small.height : std::min(first + rows, small.height);
    const int64_t blocks = static_cast<int64_t>(small.row_bytes()) * rows / 64;
    return {first, end, static_cast<int32_t>(band * blocks)};
}

void through_jpeg(const SmallImage& small, const Damage& damage, const JpegDecoding& decoding) {
    struct Work {
        JpegResult results[bands];
        char messages[bands][jpeg_message_size];
        uint8_t* compressed[bands];
    };
    Work* const work = frame_array<Work>(1);
    for (int b = 0; b < bands; ++b) {
        const Band band = band_of(small, b);
        work->results[b] = jpeg_done;
        work->compressed[b] = frame_array<uint8_t>(jpeg_most_bytes(small.width, band.end - band.first));
    }
    fork_rows(bands, [&](int first, int n) {
        for (int b = first; b < first + n; ++b) {
            const Band band = band_of(small, b);
            if (band.first >= band.end) continue;
            JpegDecoding own = decoding;
            own.block_count = band.first_block;
            work->results[b] =
                jpeg_round_trip(small.bytes + static_cast<size_t>(band.first) * small.row_bytes(), small.width,
                                band.end - band.first, damage.quality, &own, work->compressed[b], work->messages[b]);
        }
    });
    const auto failed = std::find(work->results, work->results + bands, jpeg_failed);
    if (failed != work->results + bands && fail_frame())
        V_error(level_error, "jpeg_damage: %s", work->messages[failed - work->results]);
    for (uint8_t* bytes : work->compressed) frame_free(bytes);
    frame_free(work);
}

}  // namespace

// image through JPEG compression and back, in points of res_factor working samples: the picture is cut into four bands,
// each compressed at quality (0 to 1) by itself. scale_freqs (factors of low, middle and high frequencies) and
// scale_xy_freqs (of those across and up) change the steps of the decoder alone, by the share chroma_luma of its tables
// for brightness and colour. error_density of the blocks lie in damaged runs, up to error_coherence half widths long;
// each has error_rate faults (times the density above 1) of up to error_amp * 1000 in its coefficients.
void image_jpeg_damage(Node* node) {
    eval_node_tree_into_images(node->args[arg_image], node->images, node->image_index, 1);
    SmallImage small = small_image(node);
    const Damage damage = read_damage(node, small);
    JpegDecoding decoding = {};
    set_table_factors(node, &decoding);
    if (damage.start_p > 0.0f && damage.amp > 0.0f && damage.rate > 0.0f) decoding.block_hook = damage_block;
    decoding.settings = &damage;
    // Four bytes for each point: more than it takes, and there already from the frame before.
    small.bytes = reinterpret_cast<uint8_t*>(spark_set_long_image(small.width, small.height));
    fork_rows_if_big_image(small.width, small.height, [&](int first, int n) { shrink_rows(node, small, first, n); });
    if (!poll_abort()) {
        through_jpeg(small, damage, decoding);
        fork_rows_if_big_image(small.width, small.height,
                               [&](int first, int n) { enlarge_rows(node, small, first, n); });
    }
}

}  // namespace velloran
