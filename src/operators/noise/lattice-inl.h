// A lattice of hashed values, as noises read it along a line: for each sample the cell that it lies in and those
// around.
//
// Hashing nine cells for each sample would be most of the work. So the cells that a stretch of samples touches are
// hashed once into a small table, and the samples look there: eight or sixteen neighbours in one row of cells by
// permuting registers, others by gathers. Where a stretch touches more cells than the table holds, each sample hashes
// for itself. Whichever way, a cell has the same value.

#if defined(VELLORAN_NOISE_LATTICE_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_NOISE_LATTICE_INL_H
#undef VELLORAN_NOISE_LATTICE_INL_H
#else
#define VELLORAN_NOISE_LATTICE_INL_H
#endif

#include "operators/noise/hash_lanes-inl.h"

#include <algorithm>

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// Lines are worked in stretches of so many samples, so that what belongs to one stays in the first cache.
constexpr int stretch_length = 1024;
// Room in the arrays of a stretch: whole registers.
constexpr int stretch_room = stretch_length + 16;
using Stretch = int32_t[stretch_room];

// So many lattice cells at most are hashed for a stretch. Where it touches more, each sample hashes its own.
constexpr int table_cells = 4096;
constexpr int table_margin = 16;  // before and behind, for registers that reach over the ends

// Where the samples of a stretch are, in cells with 12 fraction bits; the rest of the last register repeats the last.
HWY_INLINE void scale_stretch(const int32_t* in, float scale, int n, int32_t* out) {
    for (int i = 0; i < n; i += lane_count) {
        const F v = number(load_some(in + i, n - i)) * F(scale);
        store(whole(v + with_sign(F(0.5f), v)), out + i);
    }
}

// The lattice numbers around a stretch.
struct CellRange {
    int32_t u0, u1, v0, v1;
};
HWY_INLINE CellRange range_of(const int32_t* u, const int32_t* v, int n) {
    CellRange r = {u[0], u[0], v[0], v[0]};
    for (int i = 1; i < n; ++i) {
        r.u0 = std::min(r.u0, u[i]);
        r.u1 = std::max(r.u1, u[i]);
        r.v0 = std::min(r.v0, v[i]);
        r.v1 = std::max(r.v1, v[i]);
    }
    return r;
}

// A lattice for a stretch of samples.
//   Values  what is wanted of a cell, with
//               static constexpr int planes;           numbers for each cell
//               void of(I hash, I* values) const;      made of the cell's hash
//   reach   cells on each side of a sample's own that it looks at
// Cell (u, v) has the hash of u and of sixteen times v, mixed with a key.
template <class Values, int reach>
struct Lattice {
    static constexpr int planes = Values::planes, side = 2 * reach + 1;

    Values values;
    uint32_t key;
    bool fits;       // the cells of the stretch are in the table
    int32_t u0, v0;  // its first cell
    int stride;
    HWY_ALIGN int32_t table[planes][table_cells + 2 * table_margin];

    HWY_INLINE const int32_t* cell(int plane, int32_t u, int32_t v) const {
        return table[plane] + table_margin + (v - v0) * stride + (u - u0);
    }
    HWY_INLINE void fill(const int32_t* u, const int32_t* v, int n) {
        const CellRange r = range_of(u, v, n);
        const int64_t columns = int64_t{r.u1} - r.u0 + side, rows = int64_t{r.v1} - r.v0 + side;
        const int64_t pitch = (columns + lane_count - 1) / lane_count * lane_count;
        fits = pitch * rows <= std::min<int64_t>(table_cells, int64_t{4} * n + 64);
        if (!fits) return;
        u0 = r.u0 - reach;
        v0 = r.v0 - reach;
        stride = static_cast<int>(pitch);
        for (int row = 0; row < rows; ++row) {
            const uint32_t row_hash = bit_hash((static_cast<uint32_t>(v0 + row) * 16) ^ key);
            for (int column = 0; column < stride; column += lane_count) {
                I made[planes];
                values.of(
                    bit_hash_lanes(count_from(static_cast<int32_t>(row_hash + static_cast<uint32_t>(u0 + column)))),
                    made);
                for (int p = 0; p < planes; ++p) store(made[p], table[p] + table_margin + row * stride + column);
            }
        }
    }
};

// The cells around a register of samples, found in three ways: at(i, j, values) gives the values of cell (u + i, v +
// j).

#if ROW_TARGET_GATHERS
// All samples in one row of cells, none further than a register's length from the first one's.
template <class Values, int reach>
struct PermutedCells {
    // The registers begin so many cells before the first sample's.
    static constexpr int ahead = std::min(6, lane_count / 2 - 1);
    using Table = Lattice<Values, reach>;
    I index, rows[Table::planes][Table::side];

    static HWY_INLINE bool possible(I u, I v, int32_t first_u, int32_t first_v) {
        const I from_start = u - I(first_u - ahead);
        const auto within = hn::And((from_start > I(reach - 1)).m, (from_start < I(lane_count - reach)).m);
        return hn::AllTrue(DI(), hn::And(within, (v == I(first_v)).m));
    }
    HWY_INLINE PermutedCells(const Table& lattice, I u, int32_t first_u, int32_t first_v)
        : index(u - I(first_u - ahead)) {
        for (int p = 0; p < Table::planes; ++p)
            for (int j = 0; j < Table::side; ++j)
                rows[p][j] = load(lattice.cell(p, first_u - ahead, first_v + j - reach));
    }
    HWY_INLINE void at(int i, int j, I* values) const {
        const auto indices = hn::IndicesFromVec(DI(), (index + I(i)).v);
        for (int p = 0; p < Table::planes; ++p) values[p] = hn::TableLookupLanes(rows[p][j + reach].v, indices);
    }
};
#endif

template <class Values, int reach>
struct GatheredCells {
    const Lattice<Values, reach>& lattice;
    I index;

    HWY_INLINE GatheredCells(const Lattice<Values, reach>& l, I u, I v)
        : lattice(l), index((v - I(l.v0)) * I(l.stride) + (u - I(l.u0)) + I(table_margin)) {}
    HWY_INLINE void at(int i, int j, I* values) const {
        const I at_index = index + I(j * lattice.stride + i);
        for (int p = 0; p < Values::planes; ++p) values[p] = gather(lattice.table[p], at_index);
    }
};

template <class Values, int reach>
struct HashedCells {
    const Values& of;
    I u, row_hashes[2 * reach + 1];

    HWY_INLINE HashedCells(const Lattice<Values, reach>& lattice, I cell_u, I v) : of(lattice.values), u(cell_u) {
        for (int j = -reach; j <= reach; ++j)
            row_hashes[j + reach] = bit_hash_lanes(shl<4>(v + I(j)) ^ I(static_cast<int32_t>(lattice.key)));
    }
    HWY_INLINE void at(int i, int j, I* values) const {
        of.of(bit_hash_lanes(row_hashes[j + reach] + u + I(i)), values);
    }
};

// body(i, u, v, cells) for each register of samples of a stretch, from sample i on.
template <class Values, int reach, class Body>
HWY_INLINE void for_each_register(const Lattice<Values, reach>& lattice, const int32_t* us, const int32_t* vs, int n,
                                  Body body) {
    for (int i = 0; i < n; i += lane_count) {
        const I u = load(us + i), v = load(vs + i);
        if (!lattice.fits) {
            body(i, u, v, HashedCells<Values, reach>(lattice, u, v));
            continue;
        }
#if ROW_TARGET_GATHERS
        if (PermutedCells<Values, reach>::possible(u, v, us[i], vs[i])) {
            body(i, u, v, PermutedCells<Values, reach>(lattice, u, us[i], vs[i]));
            continue;
        }
#endif
        body(i, u, v, GatheredCells<Values, reach>(lattice, u, v));
    }
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
