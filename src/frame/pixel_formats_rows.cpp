// Blocks of one vector of pixels (two vectors of samples at 8 bits): load and separate the channels, convert, store.
// What is left at a row's end goes through padded copies of one block, so that every sample takes the same road.
//
// The 16-bit forms keep the low bits of what the destination holds, so they must read it; there is nothing to gain by
// going past the caches. Streamed stores serve the planes of a source and the 8-bit destination.
#include "frame/pixel_formats_rows.h"

#include <hwy/cache_control.h>

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "frame/pixel_formats_rows.cpp"
#include "hwy/foreach_target.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran::HWY_NAMESPACE {
namespace {

#if ROW_TARGET_PLAIN
constexpr int lanes16 = 8;
#else
namespace hn = hwy::HWY_NAMESPACE;
constexpr hn::ScalableTag<uint8_t> du8;
constexpr hn::ScalableTag<uint16_t> du16;
constexpr hn::ScalableTag<int16_t> d16;
constexpr hn::ScalableTag<int32_t> d32;
constexpr hn::Half<decltype(du8)> du8_half;
constexpr hn::Half<decltype(d16)> d16_half;
using V16 = hn::Vec<decltype(d16)>;
constexpr int lanes16 = hn::MaxLanes(d16);
constexpr int lanes32 = hn::MaxLanes(d32);
#endif
constexpr int vector_bytes = 2 * lanes16;

template <HostForm form>
constexpr int pixel_bytes = host_form_pixel_bytes[form];
// Pixels of a block: one vector of the form's elements for each channel.
template <HostForm form>
constexpr int block_pixels = form == form_rgb8 ? vector_bytes : lanes16;
template <HostForm form>
constexpr int block_bytes = block_pixels<form>* pixel_bytes<form>;

// Bits of an element that the value takes.
template <HostForm form>
constexpr uint16_t value_bits = form == form_rgb10 ? 0xFFC0 : 0xFFF0;

inline uint16_t load_element(const uint8_t* at) {
    uint16_t v;
    std::memcpy(&v, at, sizeof(v));
    return v;
}
inline void store_element(uint8_t* at, uint16_t v) { std::memcpy(at, &v, sizeof(v)); }

// Asks for the memory of a block some way ahead. Rows are worked in short runs, between which others are read; the
// processor's own prefetching would start anew with each. So what is asked for is the next run, within bounds: closer
// it comes too late, farther it is gone again.
constexpr int least_ahead = 2048, most_ahead = 8192;
constexpr int bytes_ahead(int run_bytes) {
    return run_bytes < least_ahead ? least_ahead : run_bytes > most_ahead ? most_ahead : run_bytes;
}
template <int bytes>
void ask_ahead(const uint8_t* block, int ahead) {
    for (int i = 0; i < bytes; i += 64) __builtin_prefetch(block + ahead + i);
}

// ---- Sources

// The 12-bit value of an element of 16 bits.
template <HostForm form>
int element_value(uint16_t v) {
    if constexpr (form == form_rgb16) return v >> 4;
    const int top = v & 0xFFC0;
    return (top >> 4) | (top >> 14);
}

// A block of pixels. With a LUT the value of an element (at 8 bits the element) is the index of an entry, whose low 16
// bits are the sample.
#if ROW_TARGET_PLAIN
template <HostForm form, bool lut, RowStores, class Sample>
void source_block(const uint8_t* pixels, Sample* r, Sample* g, Sample* b, const int32_t* table) {
    Sample* const planes[3] = {r, g, b};
    for (int i = 0; i < 3 * block_pixels<form>; ++i) {
        int v;
        if constexpr (form != form_rgb8)
            v = element_value<form>(load_element(pixels + 2 * i));
        else
            v = lut ? pixels[i] : (pixels[i] << 4) | (pixels[i] >> 4);
        planes[i % 3][i / 3] = static_cast<FixPixel>(lut ? table[v] : v);
    }
}
#else
template <RowStores stores>
void put_samples(V16 v, FixPixel* out) {
    if constexpr (stores == stores_streamed)
        hn::Stream(v, d16, out);
    else
        hn::StoreU(v, d16, out);
}
template <RowStores stores>
void put_samples(V16 v, int32_t* out) {
    hn::StoreU(hn::PromoteTo(d32, hn::LowerHalf(d16_half, v)), d32, out);
    hn::StoreU(hn::PromoteTo(d32, hn::UpperHalf(d16_half, v)), d32, out + lanes32);
}

inline hn::Vec<decltype(d16_half)> look_up_half(hn::Vec<decltype(d16_half)> index, const int32_t* table) {
    const auto entry = hn::GatherIndex(d32, table, hn::PromoteTo(d32, index));
    return hn::DemoteTo(d16_half, hn::ShiftRight<16>(hn::ShiftLeft<16>(entry)));
}
inline V16 look_up(V16 index, const int32_t* table) {
    return hn::Combine(d16, look_up_half(hn::UpperHalf(d16_half, index), table),
                       look_up_half(hn::LowerHalf(d16_half, index), table));
}

template <bool lut, RowStores stores, class Sample>
void put_8bit_half(hn::Vec<decltype(du8_half)> half, Sample* out, const int32_t* table) {
    const auto wide = hn::PromoteTo(du16, half);
    if constexpr (lut)
        put_samples<stores>(look_up(hn::BitCast(d16, wide), table), out);
    else
        put_samples<stores>(hn::BitCast(d16, hn::Or(hn::ShiftLeft<4>(wide), hn::ShiftRight<4>(wide))), out);
}
template <bool lut, RowStores stores, class Sample>
void put_8bit_channel(hn::Vec<decltype(du8)> v, Sample* out, const int32_t* table) {
    put_8bit_half<lut, stores>(hn::LowerHalf(du8_half, v), out, table);
    put_8bit_half<lut, stores>(hn::UpperHalf(du8_half, v), out + lanes16, table);
}

template <HostForm form, bool lut, RowStores stores, class Sample>
void put_16bit_channel(hn::Vec<decltype(du16)> v, Sample* out, const int32_t* table) {
    if constexpr (form == form_rgb10) {
        const auto top = hn::And(v, hn::Set(du16, 0xFFC0));
        v = hn::Or(hn::ShiftRight<4>(top), hn::ShiftRight<14>(top));
    } else {
        v = hn::ShiftRight<4>(v);
    }
    if constexpr (lut)
        put_samples<stores>(look_up(hn::BitCast(d16, v), table), out);
    else
        put_samples<stores>(hn::BitCast(d16, v), out);
}

template <HostForm form, bool lut, RowStores stores, class Sample>
void source_block(const uint8_t* pixels, Sample* r, Sample* g, Sample* b, const int32_t* table) {
    if constexpr (form == form_rgb8) {
        hn::Vec<decltype(du8)> vr, vg, vb;
        hn::LoadInterleaved3(du8, pixels, vr, vg, vb);
        put_8bit_channel<lut, stores>(vr, r, table);
        put_8bit_channel<lut, stores>(vg, g, table);
        put_8bit_channel<lut, stores>(vb, b, table);
    } else {
        hn::Vec<decltype(du16)> vr, vg, vb;
        hn::LoadInterleaved3(du16, reinterpret_cast<const uint16_t*>(pixels), vr, vg, vb);
        put_16bit_channel<form, lut, stores>(vr, r, table);
        put_16bit_channel<form, lut, stores>(vg, g, table);
        put_16bit_channel<form, lut, stores>(vb, b, table);
    }
}
#endif

// The ends of rows: fewer pixels than a block.
template <HostForm form, bool lut, class Sample>
void source_piece(const uint8_t* pixels, Sample* const* planes, int first, int n, const int32_t* table) {
    alignas(64) uint8_t in[block_bytes<form>] = {};
    alignas(64) Sample out[3][block_pixels<form>];
    std::memcpy(in, pixels + first * pixel_bytes<form>, static_cast<size_t>(n * pixel_bytes<form>));
    source_block<form, lut, stores_cached>(in, out[0], out[1], out[2], table);
    for (int c = 0; c < 3; ++c) std::memcpy(planes[c] + first, out[c], static_cast<size_t>(n) * sizeof(Sample));
}

template <HostForm form, bool lut, RowStores stores, class Sample>
int source_blocks(const uint8_t* pixels, Sample* const* planes, int i, int n, const int32_t* table) {
    Sample *const r = planes[0], *const g = planes[1], *const b = planes[2];
    const int ahead = bytes_ahead(n * pixel_bytes<form>);
    for (; i + block_pixels<form> <= n; i += block_pixels<form>) {
        const uint8_t* const block = pixels + static_cast<ptrdiff_t>(i) * pixel_bytes<form>;
        ask_ahead<block_bytes<form>>(block, ahead);
        source_block<form, lut, stores>(block, r + i, g + i, b + i, table);
    }
    return i;
}

// Samples to the first one that is aligned in all planes; -1 if there is none.
inline int samples_to_alignment(FixPixel* const* planes) {
    const uintptr_t vector = vector_bytes;
    const uintptr_t first = reinterpret_cast<uintptr_t>(planes[0]) % vector;
    for (int c = 1; c < 3; ++c)
        if (reinterpret_cast<uintptr_t>(planes[c]) % vector != first) return -1;
    return static_cast<int>((vector - first) % vector / sizeof(FixPixel));
}

template <HostForm form, bool lut, class Sample>
void source_row(const uint8_t* pixels, Sample* const* planes, int n, const int32_t* table, RowStores stores) {
    int i = 0;
    if constexpr (sizeof(Sample) == sizeof(FixPixel)) {
        if (stores == stores_streamed) {
            const int head = samples_to_alignment(planes);
            if (head >= 0 && head < n) {
                if (head) source_piece<form, lut>(pixels, planes, 0, head, table);
                i = source_blocks<form, lut, stores_streamed>(pixels, planes, head, n, table);
            }
        }
    }
    i = source_blocks<form, lut, stores_cached>(pixels, planes, i, n, table);
    if (i < n) source_piece<form, lut>(pixels, planes, i, n - i, table);
}

// ---- Destinations

// Where a clipped sample and a table's entry stand in an element.
template <HostForm form>
uint16_t sample_element(int32_t s) {
    return static_cast<uint16_t>((s << 4) & value_bits<form>);
}
template <HostForm form>
uint16_t lut_element(int32_t t) {
    if constexpr (form == form_rgb10) return static_cast<uint16_t>((t << 4) & value_bits<form>);
    return static_cast<uint16_t>(((t | (t >> 12)) & 0xFFF) << 4);
}

// Three channels of lanes16 samples, clipped and interleaved. Mono: r in all three.
// write_8bit: a block of the 8-bit form without a table. merge_elements: elements into pixels, keeping the low bits.
#if ROW_TARGET_PLAIN
template <bool mono, class Sample>
void interleave_clipped(const Sample* r, const Sample* g, const Sample* b, uint16_t* out) {
    const Sample* const planes[3] = {r, mono ? r : g, mono ? r : b};
    for (int i = 0; i < 3 * lanes16; ++i) {
        const Sample s = planes[i % 3][i / 3];
        out[i] = static_cast<uint16_t>(s < 0 ? 0 : s > fix_max ? fix_max : s);
    }
}

template <bool mono, class Sample>
void write_8bit(const Sample* r, const Sample* g, const Sample* b, uint8_t* pixels) {
    for (int half = 0; half < 2; ++half) {
        uint16_t clipped[3 * lanes16];
        const int first = half * lanes16;
        interleave_clipped<mono>(r + first, g + first, b + first, clipped);
        for (int i = 0; i < 3 * lanes16; ++i) pixels[3 * first + i] = static_cast<uint8_t>(clipped[i] >> 4);
    }
}

template <HostForm form>
void merge_elements(const uint16_t* elements, uint8_t* pixels) {
    for (int i = 0; i < 3 * lanes16; ++i)
        store_element(pixels + 2 * i, (load_element(pixels + 2 * i) & ~value_bits<form>) | elements[i]);
}
#else
inline V16 get_samples(const FixPixel* in) { return hn::LoadU(d16, in); }
// Saturating, which changes nothing in what follows: samples are clipped to 0..4095.
inline V16 get_samples(const int32_t* in) {
    return hn::Combine(d16, hn::DemoteTo(d16_half, hn::LoadU(d32, in + lanes32)),
                       hn::DemoteTo(d16_half, hn::LoadU(d32, in)));
}

template <class Sample>
hn::Vec<decltype(du16)> get_clipped(const Sample* in) {
    return hn::BitCast(du16, hn::Min(hn::Max(get_samples(in), hn::Zero(d16)), hn::Set(d16, fix_max)));
}

template <bool mono, class Sample>
void interleave_clipped(const Sample* r, const Sample* g, const Sample* b, uint16_t* out) {
    const auto vr = get_clipped(r);
    if constexpr (mono)
        hn::StoreInterleaved3(vr, vr, vr, du16, out);
    else
        hn::StoreInterleaved3(vr, get_clipped(g), get_clipped(b), du16, out);
}

#if ROW_TARGET_GATHERS
// Entries of the 8-bit table, four bytes at a time; those of the last indices lie in the last four bytes.
inline hn::Vec<decltype(d16_half)> look_up_byte_half(hn::Vec<decltype(d16_half)> index, const uint8_t* table) {
    const auto wide = hn::PromoteTo(d32, index);
    const auto from = hn::Min(wide, hn::Set(d32, fix_max - 3));
    const auto four = hn::GatherOffset(d32, reinterpret_cast<const int32_t*>(table), from);
    const auto byte = hn::And(hn::Shr(four, hn::ShiftLeft<3>(hn::Sub(wide, from))), hn::Set(d32, 255));
    return hn::DemoteTo(d16_half, byte);
}
template <class Sample>
V16 look_up_bytes(const Sample* in, const uint8_t* table) {
    const V16 index = hn::BitCast(d16, get_clipped(in));
    return hn::Combine(d16, look_up_byte_half(hn::UpperHalf(d16_half, index), table),
                       look_up_byte_half(hn::LowerHalf(d16_half, index), table));
}
template <class Sample>
hn::Vec<decltype(du8)> look_up_8bit_channel(const Sample* in, const uint8_t* table) {
    const auto low = hn::DemoteTo(du8_half, look_up_bytes(in, table));
    const auto high = hn::DemoteTo(du8_half, look_up_bytes(in + lanes16, table));
    return hn::Combine(du8, high, low);
}

template <HostForm form>
hn::Vec<decltype(d16_half)> look_up_element_half(hn::Vec<decltype(d16_half)> index, const int32_t* table) {
    auto entry = hn::GatherIndex(d32, table, hn::PromoteTo(d32, index));
    if constexpr (form == form_rgb16) entry = hn::Or(entry, hn::ShiftRight<12>(entry));
    return hn::DemoteTo(d16_half, hn::ShiftRight<16>(hn::ShiftLeft<20>(entry)));
}
template <HostForm form, class Sample>
hn::Vec<decltype(du16)> look_up_elements(const Sample* in, const int32_t* table) {
    const V16 index = hn::BitCast(d16, get_clipped(in));
    const V16 element = hn::Combine(d16, look_up_element_half<form>(hn::UpperHalf(d16_half, index), table),
                                    look_up_element_half<form>(hn::LowerHalf(d16_half, index), table));
    return hn::And(hn::BitCast(du16, element), hn::Set(du16, value_bits<form>));
}
#endif

// The saturation to 0..255 does the clip.
template <class Sample>
hn::Vec<decltype(du8)> get_8bit_channel(const Sample* in) {
    const auto low = hn::DemoteTo(du8_half, hn::ShiftRight<4>(get_samples(in)));
    const auto high = hn::DemoteTo(du8_half, hn::ShiftRight<4>(get_samples(in + lanes16)));
    return hn::Combine(du8, high, low);
}

template <bool mono, class Sample>
void write_8bit(const Sample* r, const Sample* g, const Sample* b, uint8_t* pixels) {
    const auto vr = get_8bit_channel(r);
    if constexpr (mono)
        hn::StoreInterleaved3(vr, vr, vr, du8, pixels);
    else
        hn::StoreInterleaved3(vr, get_8bit_channel(g), get_8bit_channel(b), du8, pixels);
}

template <HostForm form>
void merge_elements(const uint16_t* elements, uint8_t* pixels) {
    const auto mask = hn::Set(du16, value_bits<form>);
    for (int i = 0; i < 3; ++i) {
        auto* const at = reinterpret_cast<uint16_t*>(pixels) + i * lanes16;
        const auto kept = hn::AndNot(mask, hn::LoadU(du16, at));
        hn::StoreU(hn::Or(hn::Load(du16, elements + i * lanes16), kept), du16, at);
    }
}
#endif

// Elements of lanes16 pixels in memory order. The table's entries are looked up before the channels are interleaved
// where the processor can gather, and after it otherwise.
template <HostForm form, bool lut, bool mono, class Sample>
void interleave_elements(const Sample* r, const Sample* g, const Sample* b, uint16_t* out,
                         [[maybe_unused]] const int32_t* table) {
#if ROW_TARGET_GATHERS
    if constexpr (lut) {
        const auto vr = look_up_elements<form>(r, table);
        if constexpr (mono)
            hn::StoreInterleaved3(vr, vr, vr, du16, out);
        else
            hn::StoreInterleaved3(vr, look_up_elements<form>(g, table), look_up_elements<form>(b, table), du16, out);
        return;
    }
#endif
    interleave_clipped<mono>(r, g, b, out);
    for (int i = 0; i < 3 * lanes16; ++i)
        out[i] = lut ? lut_element<form>(table[out[i]]) : sample_element<form>(out[i]);
}

// A block of the 8-bit form through a table.
template <bool mono, class Sample>
void write_8bit_lut(const Sample* r, const Sample* g, const Sample* b, uint8_t* pixels, const uint8_t* table) {
#if ROW_TARGET_GATHERS
    const auto vr = look_up_8bit_channel(r, table);
    if constexpr (mono)
        hn::StoreInterleaved3(vr, vr, vr, du8, pixels);
    else
        hn::StoreInterleaved3(vr, look_up_8bit_channel(g, table), look_up_8bit_channel(b, table), du8, pixels);
#else
    alignas(64) uint16_t clipped[6 * lanes16];
    interleave_clipped<mono>(r, g, b, clipped);
    interleave_clipped<mono>(r + lanes16, g + lanes16, b + lanes16, clipped + 3 * lanes16);
    for (int i = 0; i < 6 * lanes16; ++i) pixels[i] = table[clipped[i]];
#endif
}

template <HostForm form, bool lut, bool mono, class Sample>
void dest_block(const Sample* r, const Sample* g, const Sample* b, uint8_t* pixels, const void* table) {
    if constexpr (form != form_rgb8) {
        alignas(64) uint16_t elements[3 * lanes16];
        interleave_elements<form, lut, mono>(r, g, b, elements, static_cast<const int32_t*>(table));
        merge_elements<form>(elements, pixels);
    } else if constexpr (lut) {
        write_8bit_lut<mono>(r, g, b, pixels, static_cast<const uint8_t*>(table));
    } else {
        write_8bit<mono>(r, g, b, pixels);
    }
}

template <HostForm form, bool lut, bool mono, class Sample>
void dest_piece(const Sample* const* planes, uint8_t* pixels, int first, int n, const void* table) {
    alignas(64) Sample in[3][block_pixels<form>] = {};
    alignas(64) uint8_t out[block_bytes<form>] = {};
    const size_t bytes = static_cast<size_t>(n * pixel_bytes<form>);
    uint8_t* const at = pixels + static_cast<ptrdiff_t>(first) * pixel_bytes<form>;
    for (int c = 0; c < (mono ? 1 : 3); ++c)
        std::memcpy(in[c], planes[c] + first, static_cast<size_t>(n) * sizeof(Sample));
    if constexpr (form != form_rgb8) std::memcpy(out, at, bytes);
    dest_block<form, lut, mono>(in[0], in[1], in[2], out, table);
    std::memcpy(at, out, bytes);
}

template <HostForm form, bool lut, bool mono, class Sample>
void dest_row(const Sample* const* planes, uint8_t* pixels, int n, const void* table,
              [[maybe_unused]] RowStores stores) {
    constexpr int block = block_pixels<form>;
    const Sample *const r = planes[0], *const g = mono ? r : planes[1], *const b = mono ? r : planes[2];
    int i = 0;
#if !ROW_TARGET_PLAIN
    if constexpr (form == form_rgb8) {
        // Pixels to the first one whose address is a multiple of the vector: 3 is the inverse of 171 mod 512.
        const int head =
            static_cast<int>((0 - reinterpret_cast<uintptr_t>(pixels)) * 171 % static_cast<unsigned>(vector_bytes));
        if (stores == stores_streamed && head < n) {
            if (head) dest_piece<form, lut, mono>(planes, pixels, 0, head, table);
            alignas(64) uint8_t staged[block_bytes<form>];
            for (i = head; i + block <= n; i += block) {
                dest_block<form, lut, mono>(r + i, g + i, b + i, staged, table);
                for (int v = 0; v < 3; ++v)
                    hn::Stream(hn::Load(du8, staged + v * vector_bytes), du8,
                               pixels + static_cast<ptrdiff_t>(i) * 3 + v * vector_bytes);
            }
        }
    }
#endif
    [[maybe_unused]] const int ahead = bytes_ahead(n * pixel_bytes<form>);
    for (; i + block <= n; i += block) {
        uint8_t* const at = pixels + static_cast<ptrdiff_t>(i) * pixel_bytes<form>;
        if constexpr (form != form_rgb8) ask_ahead<block_bytes<form>>(at, ahead);
        dest_block<form, lut, mono>(r + i, g + i, b + i, at, table);
    }
    if (i < n) dest_piece<form, lut, mono>(planes, pixels, i, n - i, table);
}

void finish_stores() { hwy::FlushStream(); }

template <HostForm form, class Sample>
constexpr void add_dest_rows(DestRow<Sample> (&rows)[2][2]) {
    rows[0][0] = dest_row<form, false, false, Sample>;
    rows[0][1] = dest_row<form, false, true, Sample>;
    rows[1][0] = dest_row<form, true, false, Sample>;
    rows[1][1] = dest_row<form, true, true, Sample>;
}

template <HostForm form>
constexpr void add_form(PixelFormatRows& rows) {
    rows.to_planes[form][0] = source_row<form, false, FixPixel>;
    rows.to_planes[form][1] = source_row<form, true, FixPixel>;
    rows.to_lines[form][0] = source_row<form, false, int32_t>;
    rows.to_lines[form][1] = source_row<form, true, int32_t>;
    add_dest_rows<form, FixPixel>(rows.from_planes[form]);
    add_dest_rows<form, int32_t>(rows.from_lines[form]);
}

constexpr PixelFormatRows all_rows() {
    PixelFormatRows rows = {};
    add_form<form_rgb8>(rows);
    add_form<form_rgb10>(rows);
    add_form<form_rgb16>(rows);
    rows.finish_stores = finish_stores;
    return rows;
}
constexpr PixelFormatRows rows = all_rows();

}  // namespace

const PixelFormatRows* pixel_format_rows_of_target() { return &rows; }

}  // namespace velloran::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {

HWY_EXPORT(pixel_format_rows_of_target);

const PixelFormatRows& pixel_format_rows() { return *HWY_DYNAMIC_DISPATCH(pixel_format_rows_of_target)(); }

}  // namespace velloran
#endif
