// Row kernels of the pixel functions, one per kind of row and pattern of constants, on the plain target and every other
// that the machine has: pixel/NAME/TARGET, with the time per sample. A copy of a line stands for the limit.
#include "operators/pixel/row_table.h"
#include "operators/pixel/transform_params.h"
#include "rows/row_target.h"

#include <benchmark/benchmark.h>
#include <hwy/targets.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace velloran;

namespace {

constexpr int line = 1024;  // samples of a block: the lines of a small tree stay in the first cache

struct BenchRow {
    const char* name;
    RowId id;
    unsigned pattern;  // constant arguments
};
const BenchRow rows[] = {
    {"add", row_add, 0},
    {"add_constant", row_add, 2},
    {"multiply", row_multiply, 0},
    {"multiply_add", row_multiply_add, 0},
    {"multiply_add_constants", row_multiply_add, 6},
    {"interp", row_interp, 0},
    {"overlay", row_overlay, 0},
    {"clamp_constants", row_clamp, 6},
    {"select", row_select, 0},
    {"comp_rgba", row_comp_rgba, 0},
    {"divide", row_divide, 0},
    {"mod_constant", row_mod, 2},
    {"sin", row_sin, 0},
    {"sqrt", row_sqrt, 0},
    {"expt", row_expt, 0},
    {"expt_constant", row_expt, 2},
    {"log", row_log, 0},
    {"atan", row_atan, 0},
    {"posterize_constants", row_posterize, 14},
    {"luma", row_luma, 0},
    {"rgb_to_hsv", row_rgb_to_hsv, 0},
    {"hue_shift_constant", row_hue_shift, 2},
    {"sat_scale_constant", row_sat_scale, 2},
    {"normalize3", row_normalize3, 0},
    {"dot3", row_dot3, 0},
    {"xy_to_polar_constant", row_xy_to_polar, 2},
    {"rotate", row_rotate, 0},
    {"rotate_constants", row_rotate, 6},
    {"vortex", row_vortex, 0},
    {"project", row_project, 0},
    {"kaleido_constant", row_kaleido, 2},
};

struct Lines {
    std::vector<std::vector<int32_t>> in, out;
    const int32_t* in_lines[16];
    int32_t* out_lines[4];
    float params[16];
    Lines() : in(16, std::vector<int32_t>(line)), out(4, std::vector<int32_t>(line)) {
        std::mt19937 rng(1);
        for (size_t k = 0; k < in.size(); ++k) {
            for (int32_t& v : in[k]) v = static_cast<int32_t>(rng() % 8192u) + 1;
            in_lines[k] = in[k].data();
        }
        for (size_t k = 0; k < out.size(); ++k) out_lines[k] = out[k].data();
        for (float& p : params) p = 0.7f;
        params[project_period] = params[project_period + 1] = project_never;
        params[project_turn] = params[project_turn + 1] = project_never;
    }
};

void report(benchmark::State& state) {
    state.SetItemsProcessed(state.iterations() * line);
    state.counters["ns/sample"] = benchmark::Counter(
        static_cast<double>(line) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void run_row(benchmark::State& state, RowFun fun) {
    Lines lines;
    for (auto _ : state) {
        fun(lines.in_lines, lines.out_lines, line, lines.params);
        benchmark::ClobberMemory();
    }
    report(state);
}
void run_copy(benchmark::State& state) {
    Lines lines;
    for (auto _ : state) {
        std::memcpy(lines.out_lines[0], lines.in_lines[0], line * sizeof(int32_t));
        benchmark::ClobberMemory();
    }
    report(state);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark("pixel/copy", run_copy);
    for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
        force_row_target(target);
        const RowTable& table = pixel_rows();
        for (const BenchRow& row : rows)
            benchmark::RegisterBenchmark((std::string("pixel/") + row.name + "/" + hwy::TargetName(target)).c_str(),
                                         run_row, table.fun[row.id][row.pattern]);
    }
    force_row_target(0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
