// The evaluator: whole frames of 3840x2160 at 12 significant bits, in multiples of the time that a plain copy takes for
// the bytes of inputs and output; the cost of one node for each kind of row; and what a frame costs before its passes.
#include "bench/bench_host.h"
#include "engine/fused_pass.h"
#include "frame/lut_files.h"
#include "fused/fused_code.h"
#include "testing/engine_rig.h"

#include <string>
#include <vector>

using namespace velloran;
using namespace velloran_bench;
using velloran_tests::EngineRig;
using velloran_tests::Shape;

namespace {

const Shape uhd = {3840, 2160};

// A colour expression of 20 operations on three elements.
std::string twenty_operations() {
    std::string value = "Source";
    const char* const steps[] = {"(* %s 0.9)", "(+ %s [0.01 0.02 0.03])", "(- %s Back)", "(screen %s Back)",
                                 "(interp %s Source 0.25)"};
    std::string body;
    for (int i = 0; i < 20; ++i) {
        std::string step = steps[i % 5];
        step.replace(step.find("%s"), 2, value);
        value = "a" + std::to_string(i);
        body += value + " = " + step + " ";
    }
    return body + "dest = (max a19 0)";
}

struct FrameBench {
    const char* name;
    std::string body;
    int inputs;  // frames read
};

const std::vector<FrameBench>& frame_benches() {
    static const std::vector<FrameBench> benches = {
        {"input", "dest = Source", 1},
        {"multiply_add", "dest = (*+ Source Back Front)", 3},
        {"20_operations", twenty_operations(), 2},
        {"float_functions", "dest = (+ (sin Source) (* (expt Back 0.45) (sqrt Source)))", 2},
        {"sines", "dest = (sin Source)", 1},
        {"ramp", "dest = x", 0},
        {"shared_image", "a = (* Source Back) dest = (+ a (copy (* a 0.5)))", 2},
    };
    return benches;
}

void frame(benchmark::State& state, const FrameBench& bench, int tasks) {
    EngineRig rig(tasks, uhd);
    rig.keep_dest = true;
    if (!rig.load_body(bench.body) || rig.render()) return state.SkipWithError("does not render");
    const double pixels = (double)uhd.width * uhd.height;
    // Every form of destination keeps its low bits, but a copy writes over what is there too: they count once.
    run_against_limit(state, (size_t)pixels * 6 * (size_t)(bench.inputs + 1), pixels, [&] { rig.render(); });
}

// Frames of bytes through a LUT in and out.
void bytes_through_lut(benchmark::State& state, const std::string& body, int inputs, int tasks) {
    EngineRig rig(tasks, uhd);
    rig.keep_dest = true;
    rig.host.host.format.depth = SPARK_DEPTH_8;
    rig.host.info = spark_host::current_info(rig.host.host);
    set_gamma(2.2f);
    use_input_lut = use_output_lut = 1;
    const double pixels = (double)uhd.width * uhd.height;
    if (!rig.load_body(body) || rig.render())
        state.SkipWithError("does not render");
    else
        run_against_limit(state, (size_t)pixels * 3 * (size_t)(inputs + 1), pixels, [&] { rig.render(); });
    use_input_lut = use_output_lut = 0;
    reset_luts();
}

// One node on three elements with image arguments, beyond what the frame costs without it.
void node_cost(benchmark::State& state, const char* expression) {
    EngineRig rig(1, uhd);
    rig.keep_dest = true;
    const std::string before = "a = (+ Source Back) ";
    const auto frame_time = [&](const std::string& body) {
        if (!rig.load_body(body) || rig.render()) return -1.0;
        Times times;
        for (int i = 0; i < 3; ++i) velloran_bench::time_of(times, [&] { rig.render(); });
        return median(times.cpu);
    };
    // Ten of them, so that the frame's own cost vanishes.
    std::string chain = before, last = "a";
    for (int i = 0; i < 10; ++i) {
        std::string step = expression;
        for (size_t at; (at = step.find('%')) != std::string::npos;) step.replace(at, 1, last);
        last = "n" + std::to_string(i);
        chain += last + " = " + step + " ";
    }
    for (auto _ : state) {
        const double with = frame_time(chain + "dest = " + last), without = frame_time(before + "dest = a");
        if (with < 0 || without < 0) return state.SkipWithError("does not render");
        state.SetIterationTime(with);
        state.counters["ns_per_sample"] = (with - without) / 10 / (3.0 * uhd.width * uhd.height) * 1e9;
    }
}

std::string two_hundred_nodes() {
    std::string body = "p = 0.5 a0 = (+ Source p) ";
    for (int i = 1; i < 99; ++i) {
        const std::string before = "a" + std::to_string(i - 1);
        body += "a" + std::to_string(i) + " = (* " + before + " (sin (* p 0." + std::to_string(i) + "))) ";
    }
    return body + "dest = (- a98 0.1)";
}

void compile(benchmark::State& state) {
    EngineRig rig(1, {64, 64});
    const std::string body = two_hundred_nodes();
    for (auto _ : state)
        if (!rig.load_body(body)) return state.SkipWithError("does not compile");
    state.counters["nodes"] = rig.record.effect_genotype->node_number;
}

void update(benchmark::State& state) {
    EngineRig rig(1, {64, 64});
    if (!rig.load_body(two_hundred_nodes()) || rig.render()) return state.SkipWithError("does not render");
    for (auto _ : state) update_parameters(rig.record.effect_genotype, 1);
}

// A frame of few pixels whose pass is fused: what it takes to look at the tree, and to make its code.
void fuse(benchmark::State& state, const std::string& body, bool new_code) {
    EngineRig rig(1, {32, 2});
    least_fused_samples = 1;
    if (!rig.load_body(body) || rig.render()) return state.SkipWithError("does not render");
    const int before = n_fused_passes;
    for (auto _ : state) {
        if (new_code) forget_fused_code();
        rig.render();
    }
    if (n_fused_passes == before) state.SkipWithError("not fused");
    state.counters["nodes"] = rig.record.effect_genotype->node_number;
}

std::string ninety_sums() {
    std::string body = "a0 = (* Source Back) ";
    for (int i = 1; i < 90; ++i)
        body += "a" + std::to_string(i) + " = (" + (i % 3 ? "screen" : "interp") + " a" + std::to_string(i - 1) +
                (i % 3 ? " (* Front 0." : " (- Matte 0.") + std::to_string(10 + i) + ")" + (i % 3 ? ") " : " 0.3) ");
    return body + "dest = (min a89 1)";
}

const char* const node_expressions[] = {
    "(+ % Back)",     "(* % Back)",        "(* % 0.99)",          "(*+ % Back Source)",  "(screen % Back)",
    "(max % Back)",   "(clamp % 0 0.9)",   "(if+ % Source Back)", "(interp % Back 0.3)", "(sin %)",
    "(expt % 0.9)",   "(sqrt %)",          "(/ % Back)",          "(mod % Back)",        "(hue_shift % 0.1)",
    "(rgb_to_hsv %)", "(sat_scale % 0.9)",
};

}  // namespace

int main(int argc, char** argv) {
    for (const FrameBench& bench : frame_benches())
        for (const int tasks : {1, 2})
            benchmark::RegisterBenchmark(
                ("frame/" + std::string(bench.name) + "/tasks:" + std::to_string(tasks)).c_str(),
                [&bench, tasks](benchmark::State& state) { frame(state, bench, tasks); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(9);
    const struct {
        const char *name, *body;
        int inputs;
    } of_bytes[] = {{"input", "dest = Source", 1},
                    {"gain", "dest = (clamp (* Source [1.2 1 0.9]) 0 1)", 1},
                    {"multiply", "dest = (* Source Back)", 2}};
    for (const auto& bench : of_bytes)
        for (const int tasks : {1, 2})
            benchmark::RegisterBenchmark(
                ("bytes_lut/" + std::string(bench.name) + "/tasks:" + std::to_string(tasks)).c_str(),
                [bench, tasks](benchmark::State& state) { bytes_through_lut(state, bench.body, bench.inputs, tasks); })
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(15);
    for (const char* expression : node_expressions)
        benchmark::RegisterBenchmark(("node/" + std::string(expression)).c_str(),
                                     [expression](benchmark::State& state) { node_cost(state, expression); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(1);
    benchmark::RegisterBenchmark("compile/200_nodes", compile)->Unit(benchmark::kMicrosecond);
    benchmark::RegisterBenchmark("update/200_nodes", update)->Unit(benchmark::kMicrosecond);
    for (const bool new_code : {true, false}) {
        const std::string kind = new_code ? "new_code" : "kept_code";
        benchmark::RegisterBenchmark(("fuse/20_operations/" + kind).c_str(), fuse, twenty_operations(), new_code)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("fuse/180_operations/" + kind).c_str(), fuse, ninety_sums(), new_code)
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
