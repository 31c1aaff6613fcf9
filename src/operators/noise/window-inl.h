// A table of two floats for each of four by four lattice points, kept in registers: what neighbouring samples of a line
// have in common. Where a line moves on to other points, the window is filled anew.

#if defined(VELLORAN_NOISE_WINDOW_INL_H) == defined(HWY_TARGET_TOGGLE)
#ifdef VELLORAN_NOISE_WINDOW_INL_H
#undef VELLORAN_NOISE_WINDOW_INL_H
#else
#define VELLORAN_NOISE_WINDOW_INL_H
#endif

#include "operators/noise/hash_lanes-inl.h"
#include "rows/row_targets.h"

HWY_BEFORE_NAMESPACE();
namespace velloran {
namespace HWY_NAMESPACE {
namespace {

// The gradient at lattice points.
struct Gradient {
    F x, y;
};

// Source: Gradient operator()(I u, I v) const, of any lattice points.
#if ROW_TARGET_GATHERS
template <class Source>
class GradientWindow {
public:
    // True if the lattice points (u, v) and their neighbours to (u + 1, v + 1) are all in the window, which is moved
    // there if that helps.
    HWY_INLINE bool covers(const Source& source, I u, I v) {
        if (filled_ && inside(u, v)) return true;
        u0_ = hn::GetLane(hn::MinOfLanes(DI(), u.v));
        v0_ = hn::GetLane(hn::MinOfLanes(DI(), v.v));
        if (!inside(u, v)) {
            filled_ = false;
            return false;
        }
        for (int k = 0; k < parts; ++k) {
            const I point = count_from(k * lane_count);
            part_[k] = source(I(u0_) + (point & I(3)), I(v0_) + shr<2>(point));
        }
        return filled_ = true;
    }
    // Index of a point that is covered; that of (u + i, v + j) is i + 4 j more.
    HWY_INLINE I index(I u, I v) const { return (u - I(u0_)) + shl<2>(v - I(v0_)); }
    HWY_INLINE Gradient at(I index) const {
        const auto entry = hn::IndicesFromVec(DF(), parts == 1 ? index.v : (index & I(lane_count - 1)).v);
        const Gradient low = {hn::TableLookupLanes(part_[0].x.v, entry), hn::TableLookupLanes(part_[0].y.v, entry)};
        if constexpr (parts == 1) {
            return low;
        } else {
            const Gradient high = {hn::TableLookupLanes(part_[parts - 1].x.v, entry),
                                   hn::TableLookupLanes(part_[parts - 1].y.v, entry)};
            const MF upper = {hn::RebindMask(DF(), (index > I(lane_count - 1)).m)};
            return {select(upper, high.x, low.x), select(upper, high.y, low.y)};
        }
    }

private:
    static constexpr int parts = 16 / lane_count;
    static_assert(parts == 1 || parts == 2);

    HWY_INLINE bool inside(I u, I v) const {
        const hn::RebindToUnsigned<DI> du;
        const I du0 = u - I(u0_), dv0 = v - I(v0_);
        // Neither is negative or above 2.
        const auto most = hn::Max(hn::BitCast(du, du0.v), hn::BitCast(du, dv0.v));
        return hn::AllTrue(du, hn::Lt(most, hn::Set(du, 3u)));
    }

    bool filled_ = false;
    int32_t u0_ = 0, v0_ = 0;
    Gradient part_[parts];
};
#else
// Samples are looked up one by one.
template <class Source>
class GradientWindow {
public:
    HWY_INLINE bool covers(const Source&, I, I) { return false; }
    HWY_INLINE I index(I, I) const { return I(0); }
    HWY_INLINE Gradient at(I) const { return {F(0.0f), F(0.0f)}; }
};
#endif

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace velloran
HWY_AFTER_NAMESPACE();

#endif  // toggle
