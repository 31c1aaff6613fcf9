// The row kernels as they write themselves down; see fused/recorder.h.
#pragma once

#include "operators/pixel/row_table.h"

namespace velloran {

class ValueGraph;

// in and out: values of the graph, as many as the kernel has inputs and results. False for kernels that take numbers
// for the line.
bool record_row(RowId id, ValueGraph& graph, const int* in, int* out);

}  // namespace velloran
