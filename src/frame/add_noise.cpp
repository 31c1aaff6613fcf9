// One hash gives the noise of four samples, a byte each. Groups of four begin at multiples of four of the frame's
// columns, so that any part of a row can be made for itself.
#include "frame/add_noise.h"

#include "records/run_state.h"
#include "support/hash.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {
namespace {

constexpr int max_channels = 4;

// Odd, without common patterns: frame, row and channel each move the seed far away, and so does a step along the row.
constexpr uint32_t frame_factor = 0x8DA6B343u, row_factor = 0xD8163841u, channel_factor = 0xCB1AB31Fu,
                   group_factor = 0x9E3779B9u;

uint32_t sequence_seed(int frame, int row, int channel) {
    const auto part = [](int number, uint32_t factor) { return (static_cast<uint32_t>(number) + 1) * factor; };
    return bit_hash2(bit_hash2(part(frame, frame_factor) ^ Globals_V4->noise_seed, part(row, row_factor)),
                     part(channel, channel_factor));
}

// A host may be at any frame; a float holds whole ones up to 2^24.
int current_frame() { return static_cast<int>(std::clamp(the_frame->time_globals.frame, -16777216.0f, 16777216.0f)); }

// What the four samples of a group get, the first in the low byte.
struct GroupNoise {
    uint32_t bytes;
    int of(int sample, float amount) const {
        const int byte = static_cast<int>((bytes >> (8 * sample)) & 255);
        return static_cast<int>(static_cast<float>(byte * 16 - 2048) * amount * (1.0f / 256.0f));
    }
};
GroupNoise group_noise(uint32_t seed, int group) {
    const uint32_t s = seed + static_cast<uint32_t>(group) * group_factor;
    return {bit_hash2(s, s + 1)};
}

int32_t add_to_sample(int32_t sample, int noise) { return sample + noise; }
FixPixel add_to_sample(FixPixel sample, int noise) { return clip_to_image(sample + noise); }

template <class Sample>
void add_noise_row(const Sample* in, Sample* out, int first, int count, uint32_t seed, float amount) {
    for (int i = 0; i < count;) {
        const int column = first + i;
        const GroupNoise noise = group_noise(seed, column >> 2);
        const int end = std::min(count, i + 4 - (column & 3));
        for (int s = column & 3; i < end; ++i, ++s) out[i] = add_to_sample(in[i], noise.of(s, amount));
    }
}

size_t noise_line_bytes(const rinfo& dest) { return static_cast<size_t>(dest.w) * sizeof(int32_t); }

}  // namespace

uint32_t plugin_noise_seed(const char* name, int n_loaded) {
    uint32_t seed = bit_hash2(static_cast<uint32_t>(n_loaded), group_factor);
    for (; *name; ++name) seed = bit_hash2(seed, static_cast<unsigned char>(*name));
    return seed;
}

void reserve_noise_lines(const rinfo& dest) { maybe_malloc_forked_buffers(noise_line_bytes(dest), max_channels); }

void fix_add_noise_to_line(const int32_t** lines, int vlen, int row, int first, int count, const rinfo& dest) {
    const int frame = current_frame();
    for (int c = 0; c < vlen; ++c) {
        auto* const noisy = static_cast<int32_t*>(get_forked_buffer(c, noise_line_bytes(dest)));
        add_noise_row(lines[c], noisy, first, count, sequence_seed(frame, row, c), dest.add_noise);
        lines[c] = noisy;
    }
}

void fix_add_noise_to_images(const fix_plane* planes, int vlen, const rinfo& working, float amount) {
    const int frame = current_frame(), step = working.render_step;
    fork_rows_if_big_image(working.width, working.height, [&](int first, int n) {
        for (int c = 0; c < vlen; ++c)
            for (int row = first; row < first + n; ++row) {
                FixPixel* const samples = planes[c] + static_cast<ptrdiff_t>(row) * working.width;
                const uint32_t seed = sequence_seed(frame, working.y / step + row, c);
                add_noise_row(samples, samples, working.x / step, working.width, seed, amount);
            }
    });
}

}  // namespace velloran
