// What handles cost: drawing twenty of them over the viewer, and a pen that passes over them or drags one. The goal for
// each is below a millisecond. The software renderer draws, the fastest there is, as in the desk; "layer" is its lines.
#include "hosts/common/plugin.h"
#include "hosts/offscreen/offscreen.h"
#include "stubs/describe.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace spark_host;

// Ten ellipses, each with a size and a turn, and ten points.
std::string text_of_handles() {
    std::string params, sum = "Source";
    int button = 1;
    const auto add = [&](const std::string& name, const std::string& value, const std::string& words) {
        const int channels = value[0] == '[' ? 2 : 1;
        // The foot of a page belongs to the standard controls.
        if (button % 29 + channels > 24) button += 29 - button % 29;
        params +=
            " " + name + " = " + value + " (button " + std::to_string(button) + " min -8 max 8 widget " + words + ")";
        sum = "(+ " + sum + " (* 0.0001 " + (channels == 2 ? "(mag " + name + ")" : name) + "))";
        button += channels;
    };
    for (int i = 0; i < 20; ++i) {
        const std::string n = std::to_string(i);
        const std::string place =
            "[" + std::to_string(-0.8 + 0.08 * i) + " " + std::to_string(-0.3 + 0.13 * (i % 5)) + "]";
        add("place" + n, place, (i % 2 ? "center.center " : "ellipse.center ") + n);
        if (i % 2) continue;
        add("size" + n, "0.2", "ellipse.width " + n);
        add("turn" + n, "0.1", "ellipse.angle " + n);
    }
    return "(def_effect Handles (Source)" + params + " dest = " + sum + ")";
}

struct Session {
    Session() {
        std::string error;
        host.format = {1920, 1080, SPARK_DEPTH_8};
        host.processors = 2;
        host.calling_env = SPARK_ENV_BATCH;  // it leaves no setup behind
        plugin = load_plugin(host, TEXT_PLUGIN, "/nonexistent/bench", &error);
        const auto define = reinterpret_cast<SparkTextDefinitionsFn>(plugin_symbol(*plugin, "SparkTextDefinitions"));
        const std::string text = text_of_handles();
        define(text.c_str(), "bench", nullptr);
        if (!start_plugin(*plugin)) std::abort();
        for (auto& [number, control] : plugin->panel.controls) {
            if (number == 31 && control.structure) set_control_value(control, 0, 1);  // nothing is rendered on the way
            n_handles += control.structure && control.kind == SPARK_CONTROL_TOGGLE;
        }
        process_start(*plugin, 0);
        if (!process(*plugin, 0) || n_handles != 20) std::abort();
    }

    Host host;
    std::unique_ptr<Plugin> plugin;
    int n_handles = 0;
};

void redraw_20_handles(benchmark::State& state, OffscreenKind kind) {
    setenv("GALLIUM_DRIVER", "llvmpipe", 1);
    Session session;
    std::string error;
    const OffscreenFunctions* const offscreen = offscreen_functions(&error);
    OffscreenViewer* const viewer = offscreen ? offscreen->open(1920, 1080, kind, &error) : nullptr;
    if (!viewer) {
        state.SkipWithError(error.c_str());
        return;
    }
    const std::vector<unsigned char> grey(1920 * 1080 * 3, 90);
    offscreen->show(*viewer, grey.data(), 1920, 1080, 0, 0, 1);
    for (auto _ : state) overlay(*session.plugin, 1);
    state.counters["of_a_millisecond"] = benchmark::Counter(static_cast<double>(state.iterations()) / 1000,
                                                            benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    offscreen->close(viewer);
}
BENCHMARK_CAPTURE(redraw_20_handles, plain, OffscreenKind::plain)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(redraw_20_handles, layer, OffscreenKind::layer)->Unit(benchmark::kMillisecond)->UseRealTime();

void pen_over_20_handles(benchmark::State& state) {
    Session session;
    float x = 0;
    for (auto _ : state) {
        x = x < 1900 ? x + 7 : 0;
        interact(*session.plugin, {x, 500, 0}, 1);
    }
}
BENCHMARK(pen_over_20_handles)->Unit(benchmark::kMillisecond);

void drag_a_handle(benchmark::State& state) {
    Session session;
    // The first ellipse's centre.
    const float x = 960 - 0.8f * 960, y = 540 - 0.3f * 960;
    interact(*session.plugin, {x, y, 0}, 1);
    interact(*session.plugin, {x, y, 1}, 1);
    float way = 0;
    for (auto _ : state) {
        way = way < 100 ? way + 1 : 0;
        interact(*session.plugin, {x + way, y, 1}, 1);
    }
}
BENCHMARK(drag_a_handle)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
