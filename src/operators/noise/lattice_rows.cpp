// Rows of noise on a lattice of hashed values: solid noise, spots, cells.
#ifndef VELLORAN_NOISE_LATTICE_ROWS_ONCE
#define VELLORAN_NOISE_LATTICE_ROWS_ONCE
#include "operators/noise/fix_circle.h"
#include "operators/noise/noise_rows.h"
#include "operators/noise/radial_kernel.h"
#endif

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "operators/noise/lattice_rows.cpp"
#include "hwy/foreach_target.h"
// After foreach_target.h.
#include "rows/row_targets.h"

#include "operators/noise/lattice-inl.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// body(first, n) for the stretches of a line.
template <class Body>
HWY_INLINE void for_each_stretch(int n, Body body) {
    for (int first = 0; first < n; first += stretch_length) body(first, std::min(stretch_length, n - first));
}

// The place of each sample of a stretch, and the cell whose middle is nearest.
struct Places {
    HWY_ALIGN Stretch x, y, u, v;
};
HWY_INLINE void scale_places(const NoiseLine& line, int first, int n, Places* p) {
    scale_stretch(line.x + first, line.scale_x, n, p->x);
    scale_stretch(line.y + first, line.scale_y, n, p->y);
}
HWY_INLINE I nearest(I place) { return shr<12>(place + I(2048)); }

// Truncated quotient of whole numbers of up to 24 bits, b above 0. The float next to it may be a whole number above.
HWY_INLINE I quotient(I a, I b) {
    const I q = whole_of_small(number(a) / number(b));
    return select(q * b > a, q - I(1), q);
}

HWY_INLINE I signed13(I bits) { return (bits & I(0x1fff)) - I(4096); }

// The last registers of a stretch hold more samples than the line.
HWY_INLINE void store_stretch(const int32_t* from, int32_t* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = from[i];
}

// ---- Solid noise

template <int channels>
struct SolidValues {
    static constexpr int planes = channels == 3 ? 2 : 1;
    HWY_INLINE void of(I h, I* values) const {
        values[0] = h;
        if constexpr (channels == 3) values[1] = signed13(logical_shr<8>(h + random_entry(h & I(255))));
    }
    static HWY_INLINE void channel_values(const I* values, I* of_channels) {
        of_channels[0] = signed13(values[0]);
        if constexpr (channels > 1) of_channels[1] = signed13(logical_shr<16>(values[0]));
        if constexpr (channels > 2) of_channels[2] = values[1];
    }
};

// The mean of the nine cells around, weighted by a hump of 1.5 cells' radius. The weights are brought to a sum of one,
// so that the result does not swing with the position in the cell.
template <int channels, class Cells>
HWY_INLINE void kernel_mean(I dx, I dy, const Cells& cells, I amplitude, I* means) {
    const I x2 = shr<12>(dx * dx), y2 = shr<12>(dy * dy);
    const I from_x[3] = {x2 + shl<1>(dx) + I(4096), x2, x2 - shl<1>(dx) + I(4096)};
    const I from_y[3] = {y2 + shl<1>(dy) + I(4096), y2, y2 - shl<1>(dy) + I(4096)};
    I sums[channels], weights(0);
    for (I& sum : sums) sum = I(0);
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            // Beyond the limit the kernel is 0.
            const I entry = min(shr<1>(from_x[i + 1] + from_y[j + 1]), I(radial_kernel_size - 1));
            const I weight = gather(radial_kernel.weights.data(), entry);
            I values[SolidValues<channels>::planes], of_channels[channels];
            cells.at(i, j, values);
            SolidValues<channels>::channel_values(values, of_channels);
            for (int c = 0; c < channels; ++c) sums[c] = sums[c] + fmul(of_channels[c], weight);
            weights = weights + weight;
        }
    const I scale = quotient(amplitude, weights);
    for (int c = 0; c < channels; ++c) means[c] = fmul(sums[c], scale);
}

template <int channels>
void solid(const NoiseLine& line, int32_t octaves, int32_t* const* out) {
    const int last = ((octaves + 4095) >> 12) - 1;
    Places p;
    Lattice<SolidValues<channels>, 1> lattice;
    for_each_stretch(line.n, [&](int first, int n) HWY_ATTR {
        scale_places(line, first, n, &p);
        HWY_ALIGN Stretch totals[channels] = {};
        for (int o = 0; o <= last; ++o) {
            for (int i = 0; i < n; i += lane_count) {
                store(nearest(load(p.x + i)), p.u + i);
                store(nearest(load(p.y + i)), p.v + i);
            }
            lattice.key = line.seed ^ static_cast<uint32_t>(o);
            lattice.fill(p.u, p.v, n);
            // A fraction of an octave fades the last one in; the first always counts in full.
            const int32_t amplitude = o == 0 ? 4096 : o < last ? 4096 >> o : (octaves - last * 4096) >> o;
            for_each_register(lattice, p.u, p.v, n, [&](int i, I u, I v, const auto& cells) HWY_ATTR {
                I means[channels];
                const I x = load(p.x + i), y = load(p.y + i);
                kernel_mean<channels>(x - shl<12>(u), y - shl<12>(v), cells, I(amplitude << 12), means);
                for (int c = 0; c < channels; ++c) store(load(totals[c] + i) + means[c], totals[c] + i);
                store(shl<1>(x), p.x + i);
                store(shl<1>(y), p.y + i);
            });
        }
        for (int c = 0; c < channels; ++c) {
            for (int i = 0; i < n; i += lane_count) store(shr<1>(load(totals[c] + i)) + I(2048), totals[c] + i);
            store_stretch(totals[c], out[c] + first, n);
        }
    });
}

// ---- Two numbers of 16 bits in one

HWY_INLINE I pack(I low, I high) { return (low & I(0xffff)) | shl<16>(high); }
HWY_INLINE I low_of(I packed) { return shr<16>(shl<16>(packed)); }
HWY_INLINE I high_of(I packed) { return shr<16>(packed); }

// ---- Spots

// Where the spot of a cell is, from its middle. It never leaves the cell.
struct SpotValues {
    static constexpr int planes = 1;
    int32_t room;
    HWY_INLINE I offset(I jitter) const { return fmul(shr<1>(jitter), I(room)); }
    HWY_INLINE void of(I h, I* values) const {
        values[0] = pack(offset(signed13(h)), offset(signed13(logical_shr<16>(h))));
    }
};

void spots(const NoiseLine& line, int32_t radius, int32_t* out) {
    const int32_t radius2 = (radius * radius) >> 12;
    if (radius < 1 || radius2 == 0) {
        for (int i = 0; i < line.n; ++i) out[i] = 0;
        return;
    }
    Places p;
    Lattice<SpotValues, 0> lattice;
    lattice.values.room = 4096 - 2 * radius;
    for_each_stretch(line.n, [&](int first, int n) HWY_ATTR {
        scale_places(line, first, n, &p);
        HWY_ALIGN Stretch result = {};
        // Two layers, half a cell apart.
        for (int layer = 0; layer < 2; ++layer) {
            const I half(layer * 2048);
            for (int i = 0; i < n; i += lane_count) {
                store(nearest(load(p.x + i) + half), p.u + i);
                store(nearest(load(p.y + i) + half), p.v + i);
            }
            lattice.key = line.seed + static_cast<uint32_t>(layer);
            lattice.fill(p.u, p.v, n);
            for_each_register(lattice, p.u, p.v, n, [&](int i, I u, I v, const auto& cells) HWY_ATTR {
                I offset[1];
                cells.at(0, 0, offset);
                const I ax = abs(load(p.x + i) + half - shl<12>(u) - low_of(offset[0]));
                const I ay = abs(load(p.y + i) + half - shl<12>(v) - high_of(offset[0]));
                const I d = ax * ax + ay * ay;
                const I entry = quotient(d + shr<4>(d), I(radius2));
                const auto inside =
                    hn::And(hn::And((ax < I(radius)).m, (ay < I(radius)).m), (entry < I(radial_kernel_size)).m);
                const I weight = gather(radial_kernel.weights.data(), min(entry, I(radial_kernel_size - 1)));
                const I before = load(result + i);
                const I merged = select(before < I(1), weight, before + fmul(I(4096) - before, weight));
                store(select(MI{inside}, merged, before), result + i);
            });
        }
        store_stretch(result, out + first, n);
    });
}

// ---- Cells

// The point of a cell, as what is added to a place before its distance is taken; in quarters of a step, so that the
// square of a 16-bit number has the right scale in its upper half.
struct VoronoiValues {
    static constexpr int planes = 1;
    int32_t sine, cosine;
    static HWY_INLINE I shorten(I a) { return shl<2>(fmul(a, I(1638))); }
    HWY_INLINE void of(I h, I* values) const {
        const I a = signed13(h), b = signed13(logical_shr<16>(h));
        values[0] =
            pack(shorten(fmul(I(cosine), a) + fmul(I(-sine), b)), shorten(fmul(a, I(sine)) + fmul(I(cosine), b)));
    }
};

// Squared distances to the nearest and the second nearest of the nine points around.
struct TwoNearest {
    I first, second;
    HWY_INLINE void add(I d) {
        second = min(second, max(first, d));
        first = min(first, d);
    }
};

template <class Cells>
HWY_INLINE TwoNearest nearest_points(I dx, I dy, const Cells& cells) {
    TwoNearest found = {I(INT32_MAX), I(INT32_MAX)};
#if ROW_TARGET_GATHERS
    // Both axes at once in halves of 16 bits. A distance beyond two cells on one axis is held there; it is never among
    // the two least, as the nine cells have nearer points for every place.
    const hn::Repartition<int16_t, DI> d16;
    const I here = pack(shl<2>(dx), shl<2>(dy));
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            I point[1];
            cells.at(i, j, point);
            const I cell((-i * 16384 & 0xffff) | static_cast<int32_t>(static_cast<uint32_t>(-j * 16384) << 16));
            const auto from = hn::SaturatedAdd(hn::Add(hn::BitCast(d16, here.v), hn::BitCast(d16, cell.v)),
                                               hn::BitCast(d16, point[0].v));
            const I squares = hn::BitCast(DI(), hn::MulHigh(from, from));
            found.add(squares + shl<16>(squares));  // the sum is in the upper half
        }
    return {shr<16>(found.first), shr<16>(found.second)};
#else
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            I point[1];
            cells.at(i, j, point);
            const I x = dx - I(i * 4096) + shr<2>(low_of(point[0])), y = dy - I(j * 4096) + shr<2>(high_of(point[0]));
            found.add(fmul(x, x) + fmul(y, y));
        }
    return found;
#endif
}

HWY_INLINE I cell_shade(I first, I second) {
    const auto distance = [](I squared) HWY_ATTR { return whole_of_small(sqrt(real(squared)) * F(4096.0f)); };
    const I d1 = distance(first), d2 = distance(second);
    const MI apart = d2 > I(0);
    // (d2 - d1) has at most 14 bits: shifted, it is exact as a float.
    const I a = shl<12>(d2 - d1), b = select(apart, d1 + d2, I(1));
    return select(apart, I(4096) - quotient(a, b), I(0));
}

#if HWY_TARGET == HWY_AVX3
// As nearest_points, for 32 samples that read one register of cells: words can be permuted, so that a point's halves
// are looked up by themselves and nothing is added up in lanes of 32 bits. What neither all lie in one row of cells nor
// near each other is refused. Returns the samples that are done, of which there have to be 32.
HWY_INLINE int shade_words(const Lattice<VoronoiValues, 1>& lattice, const Places& p, int at, int32_t* out) {
    using Cells = PermutedCells<VoronoiValues, 1>;
    const I u[2] = {load(p.u + at), load(p.u + at + lane_count)}, v[2] = {load(p.v + at), load(p.v + at + lane_count)};
    const int32_t first_u = p.u[at], first_v = p.v[at];
    if (!Cells::possible(u[0], v[0], first_u, first_v) || !Cells::possible(u[1], v[1], first_u, first_v)) return 0;
    const Cells cells(lattice, u[0], first_u, first_v);
    const __m512i count = hn::Iota(hn::ScalableTag<int16_t>(), 0).raw, even = _mm512_slli_epi16(count, 1);
    const auto word = [](int32_t w) HWY_ATTR { return _mm512_set1_epi16(static_cast<int16_t>(w)); };
    // Lower halves of 32 numbers.
    const auto words = [&](I a, I b) HWY_ATTR { return _mm512_permutex2var_epi16(a.v.raw, even, b.v.raw); };
    const __m512i x = words(load(p.x + at), load(p.x + at + lane_count)),
                  y = words(load(p.y + at), load(p.y + at + lane_count)), columns = words(u[0], u[1]);
    const __m512i dx = _mm512_sub_epi16(_mm512_slli_epi16(x, 2), _mm512_slli_epi16(columns, 14)),
                  dy = _mm512_sub_epi16(_mm512_slli_epi16(y, 2), _mm512_slli_epi16(word(first_v), 14));
    const __m512i index = _mm512_slli_epi16(_mm512_sub_epi16(columns, word(first_u - Cells::ahead)), 1);
    __m512i first = word(INT16_MAX), second = first;
    for (int j = -1; j <= 1; ++j)
        for (int i = -1; i <= 1; ++i) {
            const __m512i row = cells.rows[0][j + 1].v.raw, entry = _mm512_add_epi16(index, word(2 * i));
            const __m512i point_x = _mm512_permutexvar_epi16(entry, row),
                          point_y = _mm512_permutexvar_epi16(_mm512_add_epi16(entry, word(1)), row);
            const __m512i from_x = _mm512_adds_epi16(_mm512_sub_epi16(dx, word(i * 16384)), point_x),
                          from_y = _mm512_adds_epi16(_mm512_sub_epi16(dy, word(j * 16384)), point_y);
            const __m512i d = _mm512_add_epi16(_mm512_mulhi_epi16(from_x, from_x), _mm512_mulhi_epi16(from_y, from_y));
            second = _mm512_min_epi16(second, _mm512_max_epi16(first, d));
            first = _mm512_min_epi16(first, d);
        }
    const auto half = [](__m512i of, bool upper) HWY_ATTR {
        const __m256i narrow = upper ? _mm512_extracti64x4_epi64(of, 1) : _mm512_castsi512_si256(of);
        return I(hn::Vec<DI>{_mm512_cvtepi16_epi32(narrow)});
    };
    store(cell_shade(half(first, false), half(second, false)), out + at);
    store(cell_shade(half(first, true), half(second, true)), out + at + lane_count);
    return 2 * lane_count;
}
#else
HWY_INLINE int shade_words(const Lattice<VoronoiValues, 1>&, const Places&, int, const int32_t*) { return 0; }
#endif

void voronoi(const NoiseLine& line, int32_t rotate, int32_t* out) {
    Places p;
    Lattice<VoronoiValues, 1> lattice;
    lattice.values = {fix_sin(rotate), fix_cos(rotate)};
    lattice.key = line.seed;
    for_each_stretch(line.n, [&](int first, int n) HWY_ATTR {
        scale_places(line, first, n, &p);
        for (int i = 0; i < n; i += lane_count) {
            store(nearest(load(p.x + i)), p.u + i);
            store(nearest(load(p.y + i)), p.v + i);
        }
        lattice.fill(p.u, p.v, n);
        for (int done = 0; done < n;) {
            const int by_words = lattice.fits && done + 2 * lane_count <= n ? shade_words(lattice, p, done, p.x) : 0;
            done += by_words;
            if (by_words) continue;
            for_each_register(lattice, p.u + done, p.v + done, lane_count,
                              [&](int, I u, I v, const auto& cells) HWY_ATTR {
                                  const I dx = load(p.x + done) - shl<12>(u), dy = load(p.y + done) - shl<12>(v);
                                  const TwoNearest found = nearest_points(dx, dy, cells);
                                  store(cell_shade(found.first, found.second), p.x + done);
                              });
            done += lane_count;
        }
        store_stretch(p.x, out + first, n);
    });
}

constexpr LatticeRows rows = {{solid<1>, solid<2>, solid<3>}, spots, voronoi};

}  // namespace

const LatticeRows* lattice_rows_of_target() { return &rows; }

}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace velloran {
HWY_EXPORT(lattice_rows_of_target);
const LatticeRows& lattice_rows() { return *HWY_DYNAMIC_DISPATCH(lattice_rows_of_target)(); }
}  // namespace velloran
#endif
