// Exact-area coverage of closed polygons: every edge adds the signed area to its right, and a running sum across a row
// makes coverage of it. Nothing is sampled, so there are no jaggies at any size, and slivers keep their weight.
//
//     init_polygon_buffer(&pb, width, height, nullptr, true);
//     start_polygon(&pb);
//     for (...) add_polygon_point(&pb, x, y, 0, height);
//     close_polygon(&pb, 0, height);
//     finish_polygon(&pb);
//     free_polygon_buffer(&pb);
//
// Windings add up, with their sign; the coverage is the sum's size, at most 1. Points may lie anywhere. Entries are
// whole multiples of coverage_unit, of which floats hold sums exactly up to 64 windings: the coverage of a pixel does
// not depend on what was clipped, on the order of the edges, nor on the stripes.
#pragma once

namespace velloran {

constexpr double coverage_unit = 1.0 / (1 << 18);
// Rounds to a multiple of it: what is added lets no smaller bits pass.
constexpr double in_coverage_units(double area) {
    constexpr double sieve = 6755399441055744.0 * coverage_unit;
    return (area + sieve) - sieve;
}

struct PolygonBuffer {
    float* buffer;      // width * height, rows from the bottom; signed area until a row is finished, then coverage
    int width, height;  // in samples
    int left, bottom;   // where the buffer's first sample lies, in samples; 0 after init
    double current_x, current_y, first_x, first_y;  // in samples
    double scale;  // samples of the buffer in a unit of the points that are added; 1.0 after init
    bool owns_buffer;
    bool started;
};

// A null buffer allocates one of the call in hand (frame_malloc). clear zeroes the buffer, which must be zero before
// edges are added. A null pb reports.
void init_polygon_buffer(PolygonBuffer* pb, int width, int height, float* buffer, bool clear);
// A record with points of its own over the same buffer, for a task that works its own rows of it.
PolygonBuffer clone_polygon_buffer(const PolygonBuffer& pb);
void free_polygon_buffer(PolygonBuffer* pb);

// Any task; rows [row_lo, row_hi) of the buffer alone are touched.
void start_polygon(PolygonBuffer* pb);
void add_polygon_point(PolygonBuffer* pb, double x, double y, int row_lo, int row_hi);
void close_polygon(PolygonBuffer* pb, int row_lo, int row_hi);
void finish_polygon_stripe(PolygonBuffer* pb, int row_lo, int row_hi);
// All rows, forked. Host's thread.
void finish_polygon(PolygonBuffer* pb);

}  // namespace velloran
