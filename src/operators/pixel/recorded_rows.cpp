#include "operators/pixel/recorded_rows.h"

#include "fused/recorded_lanes.h"
#include "fused/value_graph.h"
#include "operators/pixel/luma.h"
#include "rows/arc_tangent-inl.h"

#include "hwy/highway.h"

namespace velloran {
namespace recorded {
namespace {

// The operations on doubles are not written down, but their bodies stand among the others.
namespace hn = hwy::HWY_NAMESPACE;
using HWY_NAMESPACE::arc_tangent_turns;

template <int... elements>
struct Shape {
    static constexpr int input_count = (elements + ...);
};

using RecordFun = void (*)(const int* in, int* out);
struct RecordTable {
    RecordFun fun[row_count];
};

template <class Body>
void record(const int* in, int* out) {
    constexpr int inputs = Body::Args::input_count, results = Body::results;
    I a[inputs], b[results];
    for (int k = 0; k < inputs; ++k) a[k].id = in[k];
    Body::run(a, b);
    for (int r = 0; r < results; ++r) out[r] = b[r].id;
}
template <class Body>
void add_row(RecordFun& row) {
    row = record<Body>;
}
template <class Body>
void add_row_of_params(RecordFun&) {}

#include "rows/fast_math.inc"
// After the functions that they are made of.
#include "operators/pixel/arithmetic_bodies.inc"
#include "operators/pixel/color_bodies.inc"
namespace of_functions {
#include "operators/pixel/function_bodies.inc"
}
namespace of_vectors {
#include "operators/pixel/vector_bodies.inc"
}

RecordTable make_table() {
    RecordTable table{};
    fill_arithmetic_into(table);
    fill_color_into(table);
    of_functions::fill_function_into(table);
    of_vectors::fill_vector_into(table);
    return table;
}

}  // namespace
}  // namespace recorded

bool record_row(RowId id, ValueGraph& graph, const int* in, int* out) {
    static const recorded::RecordTable table = recorded::make_table();
    if (!table.fun[id]) return false;
    recorded::graph_in_hand = &graph;
    table.fun[id](in, out);
    recorded::graph_in_hand = nullptr;
    return true;
}

}  // namespace velloran
