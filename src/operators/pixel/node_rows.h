// From nodes to row kernels: where the lines of a node's arguments are, and calls of a kernel for a node.
#pragma once

#include "operators/pixel/row_table.h"
#include "records/node.h"

#include <cstdint>

namespace velloran {

// One input of a kernel: n_pixels samples, or a single one if it is constant.
struct Line {
    const int32_t* samples;
    bool constant;
};

// The 1.0 that a colour without alpha counts as its fourth element.
extern const int32_t one_sample;
inline Line one_line() { return {&one_sample, true}; }

inline int arg_elnum(const Node* node, int arg) { return node->args[arg]->elnum; }
inline bool arg_constant(const Node* node, int arg) { return is_constant(node->args[arg]); }
inline Line arg_line(const Node* node, int arg, int element) {
    const int last = arg_elnum(node, arg) - 1;
    return {node->arg_lines[arg][element < last ? element : last], arg_constant(node, arg)};
}
// The same for arithmetic, where a colour without alpha meets one with alpha.
inline Line arg_line_or_one(const Node* node, int arg, int element) {
    return element == 3 && arg_elnum(node, arg) == 3 ? one_line() : arg_line(node, arg, element);
}

// Copies or fills; the line may be the output itself.
void copy_line(int32_t* out, Line line);

// Runs a kernel whose input k is in[k]. An argument of several inputs has one bit in the pattern, so all of its lines
// are constant or none is.
//   counts  number of inputs of each argument.
void run_row(RowId id, const Line* in, const int* counts, int args, int32_t* const* out, int results);

// Result element by element, each from the same element of the arguments.
void run_elements(Node* node, RowId id);
// One element from the given lines, one to each argument.
void run_element(Node* node, RowId id, int element, const Line* in, int args);

// A kernel over whole vectors: counts[a] elements of argument a, the last one repeated where it has fewer.
void run_vectors(Node* node, RowId id, const int* counts, int args, int results);

// A kernel with numbers for the line. setup makes them from the first sample of each argument's elements,
// vals[argument][element]. Where arguments beyond the first vary within the line, each sample has its own.
using ParamSetup = void (*)(const int32_t (*vals)[4], float* params);
constexpr int max_row_params = 16;
void run_params(Node* node, RowId id, int varying_arg, ParamSetup setup, int results);

// A function of the arguments' samples without a kernel, for rows whose arguments hold for the whole frame.
using SampleFun = void (*)(const Node* node, const int32_t (*vals)[4], int32_t* result);
void run_samples(Node* node, SampleFun function);

}  // namespace velloran
