#include "operators/pixel/node_rows.h"

#include "fused/recorder.h"
#include "operators/pixel/recorded_rows.h"

#include <cstring>

namespace velloran {

const int32_t one_sample = 4096;

namespace {

void fill(int32_t* out, int32_t value, int n) {
    for (int i = 0; i < n; ++i) out[i] = value;
}

// The call of a kernel as the recorder in hand has it: in[k] is constant where its bit is set.
void record_call(RowId id, const int32_t* const* in, unsigned constant, int inputs, int32_t* const* out, int results) {
    int values[max_row_params], made[max_row_params];
    for (int k = 0; k < inputs; ++k) values[k] = recorder->value_of(in[k], constant >> k & 1);
    if (recorder->refused || !record_row(id, recorder->graph, values, made)) {
        recorder->refused = true;
        return;
    }
    for (int r = 0; r < results; ++r) recorder->values[out[r]] = made[r];
}

// Sample i of all elements of all arguments.
void gather(const Node* node, int i, int32_t (*vals)[4]) {
    for (int a = 0; a < node->eval_arg_number; ++a)
        for (int e = 0; e < 4; ++e) {
            const Line line = arg_line(node, a, e);
            vals[a][e] = line.samples[line.constant ? 0 : i];
        }
}

}  // namespace

void copy_line(int32_t* out, Line line) {
    if (recorder) {
        recorder->values[out] = recorder->value_of(line.samples, line.constant);
        return;
    }
    const int n = n_pixels;
    if (line.constant) {
        fill(out, *line.samples, n);
    } else if (line.samples != out) {
        std::memmove(out, line.samples, static_cast<size_t>(n) * sizeof(int32_t));
    }
}

namespace {

// pattern: of the arguments. lines: one sample of those that are constant.
inline void run_pattern(const RowFun* row, unsigned pattern, int args, const int32_t* const* lines, int32_t* const* out,
                        int results, int n) {
    if (pattern != (1u << args) - 1u) {
        row[pattern](lines, out, n, nullptr);
        return;
    }
    // All is constant: one sample says everything. Folding asks for no more.
    row[0](lines, out, 1, nullptr);
    for (int r = 0; r < results; ++r) fill(out[r], *out[r], n);
}

}  // namespace

void run_row(RowId id, const Line* in, const int* counts, int args, int32_t* const* out, int results) {
    const int32_t* lines[max_row_params];
    unsigned pattern = 0, constant = 0;
    int k = 0;
    for (int a = 0; a < args; ++a) {
        if (in[k].constant) pattern |= 1u << a;
        for (const int end = k + counts[a]; k < end; ++k) {
            lines[k] = in[k].samples;
            constant |= unsigned{in[k].constant} << k;
        }
    }
    if (recorder) {
        record_call(id, lines, constant, k, out, results);
        return;
    }
    run_pattern(pixel_rows().fun[id], pattern, args, lines, out, results, n_pixels);
}

void run_element(Node* node, RowId id, int element, const Line* in, int args) {
    static constexpr int ones[4] = {1, 1, 1, 1};
    run_row(id, in, ones, args, &node->lines[element], 1);
}

// Most of a frame's calls come through here, for a few hundred samples each.
void run_elements(Node* node, RowId id) {
    const int args = node->eval_arg_number, n = n_pixels;
    const RowFun* const row = pixel_rows().fun[id];
    // From the last element down: a shorter argument's last line may be the memory of an element before.
    for (int e = node->elnum - 1; e >= 0; --e) {
        const int32_t* lines[4];
        unsigned pattern = 0;
        for (int a = 0; a < args; ++a) {
            const Line line = arg_line_or_one(node, a, e);
            lines[a] = line.samples;
            pattern |= unsigned{line.constant} << a;
        }
        if (recorder) {
            record_call(id, lines, pattern, args, &node->lines[e], 1);
            continue;
        }
        run_pattern(row, pattern, args, lines, &node->lines[e], 1, n);
    }
}

void run_vectors(Node* node, RowId id, const int* counts, int args, int results) {
    Line in[max_row_params];
    int k = 0;
    for (int a = 0; a < args; ++a)
        for (int e = 0; e < counts[a]; ++e) in[k++] = arg_line(node, a, e);
    run_row(id, in, counts, args, node->lines, results);
}

void run_params(Node* node, RowId id, int varying_arg, ParamSetup setup, int results) {
    if (recorder) {
        recorder->refused = true;
        return;
    }
    const int n = n_pixels;
    const RowFun row = pixel_rows().fun[id][0];
    bool same = true;
    for (int a = 0; a < node->eval_arg_number; ++a)
        if (a != varying_arg && !arg_constant(node, a)) same = false;
    int32_t vals[MAX_ARG_NUMBER][4];
    float params[max_row_params];
    const int32_t* in[4];
    if (same && !arg_constant(node, varying_arg)) {
        gather(node, 0, vals);
        setup(vals, params);
        for (int e = 0; e < 4; ++e) in[e] = arg_line(node, varying_arg, e).samples;
        row(in, node->lines, n, params);
        return;
    }
    for (int i = 0; i < n; ++i) {
        gather(node, i, vals);
        setup(vals, params);
        int32_t* out[4];
        for (int e = 0; e < 4; ++e) in[e] = &vals[varying_arg][e];
        for (int r = 0; r < results; ++r) out[r] = node->lines[r] + i;
        row(in, out, 1, params);
    }
}

void run_samples(Node* node, SampleFun function) {
    if (recorder) {
        recorder->refused = true;
        return;
    }
    const int n = n_pixels;
    bool same = true;
    for (int a = 0; a < node->eval_arg_number; ++a) same = same && arg_constant(node, a);
    int32_t vals[MAX_ARG_NUMBER][4], result[4];
    for (int i = 0; i < n; ++i) {
        if (i == 0 || !same) {
            gather(node, i, vals);
            function(node, vals, result);
        }
        for (int e = 0; e < node->elnum; ++e) node->lines[e][i] = result[e];
    }
}

}  // namespace velloran
