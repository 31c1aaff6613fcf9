// What a control costs besides the render that it asks for: a callback, an undo, an effect switch, a setup. The goal
// for each is half a millisecond.
#include "compile/compile.h"
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "params/control_callbacks.h"
#include "params/effect_selection.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "params/render_request.h"
#include "params/setups.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "records/run_state.h"
#include "support/files.h"

#include <benchmark/benchmark.h>

#include <unistd.h>
#include <cstdio>
#include <string>

using namespace velloran;

namespace {

constexpr int params_per_effect = 24;

std::string effect_text(const std::string& name) {
    std::string text = "(def_effect " + name + " (Source) ", sum = "Source";
    for (int i = 0; i < params_per_effect; ++i) {
        const std::string p = "param_" + std::to_string(i);
        text += p + " = 0.5 (min 0 max 4 step 0.01) ";
        sum = "(* (+ " + sum + " " + p + ") 0.9)";
    }
    return text + "tint = [1 1 1] (color) dest = (* " + sum + " tint))";
}

struct Panel {
    Panel() {
        spark_set_config_dir("/nonexistent");
        host.format = {1920, 1080, SPARK_DEPTH_8};
        spark_host::use_host(&host);
        host.plugin = &plugin;
        plugin.host = &host;
        info = spark_host::current_info(host);
        spark_info_ptr = &info;
        Globals_V4 = &record;
        record.selected_effect = record.shown_effect = -1;
        record.res_factor = 1;
        record.plugin_name = "bench";
        record.source_tags[0] = 4;
        for (int i = 1; i < 8; ++i) record.source_tags[i] = i < 3 ? 1 : i == 3 ? 2 : 3;
        for (int n = 0; n < N_CONTROL_NUMBERS; ++n) {
            record.float_controls[n] = &floats[n];
            record.int_controls[n] = &ints[n];
            record.color_controls[n] = &colours[n];
            record.boolean_controls[n] = &booleans[n];
            record.toggle_controls[n] = &toggles[n];
            record.popup_controls[n] = &popups[n];
            record.string_controls[n] = &strings[n];
        }
        record.effect_strings[0] = texts[0].c_str();
        record.effect_strings[1] = texts[1].c_str();
        record.n_effects = 2;
        load_effects_from_strings();
        init_popup_effect_button();
        do_layout_and_init_widgets();
        for (int i = 0; i < 2; ++i) {
            reset_params_to_defaults(record.genotypes[i]);
            set_param_button_names(record.genotypes[i]);
        }
        render_requests = {[](SparkInfoStruct*) -> void* { return &rendered; }, nullptr};
        spark_select_effect_i(0, 1, 1);
    }

    const std::string texts[2] = {effect_text("First"), effect_text("Second")};
    spark_host::Host host;
    spark_host::Plugin plugin;
    SparkInfoStruct info = {};
    GlobalsV4Record record = {};
    SparkFloatStruct floats[N_CONTROL_NUMBERS] = {};
    SparkIntStruct ints[N_CONTROL_NUMBERS] = {};
    SparkColourStruct colours[N_CONTROL_NUMBERS] = {};
    SparkBooleanStruct booleans[N_CONTROL_NUMBERS] = {}, toggles[N_CONTROL_NUMBERS] = {};
    SparkPopupStruct popups[N_CONTROL_NUMBERS] = {};
    SparkStringStruct strings[N_CONTROL_NUMBERS] = {};
    static int rendered;
};
int Panel::rendered;

Panel& panel() {
    static auto* const p = new Panel;
    return *p;
}

// A drag's callback up to the render, and the update that the render begins with.
void callback(benchmark::State& state) {
    Panel& p = panel();
    float v = 0;
    for (auto _ : state) {
        p.floats[8].Value = v = v < 3 ? v + 0.01f : 0.0f;
        callbkfun(SPARK_ACTION_DRAG, &p.info, 8);
        sync_effect_params(p.record.effect_genotype);
        update_parameters(p.record.effect_genotype, 1);
    }
}

void change_and_undo(benchmark::State& state) {
    Panel& p = panel();
    Genotype* const genotype = p.record.effect_genotype;
    float v = 0;
    for (auto _ : state) {
        param_set_value(genotype->params[1], 0, v = v < 3 ? v + 0.01f : 0.02f, set_update_control | set_undo_boundary);
        undo_list_undo(get_undo_list(genotype));
    }
}

void effect_switch(benchmark::State& state) {
    Panel& p = panel();
    int effect = 0;
    for (auto _ : state) spark_select_effect_i(effect = 1 - effect, 1, 1);
    spark_select_effect_i(0, 1, 1);
    (void)p;
}

void setup_load(benchmark::State& state) {
    panel();
    const std::string path = "/tmp/velloran_params_bench." + std::to_string(getpid());
    save_setup(path.c_str());
    for (auto _ : state) {
        load_setup(path.c_str());
        setup_effect_buttons(0, 0);
    }
    std::remove(path.c_str());
}

void setup_save(benchmark::State& state) {
    panel();
    const std::string path = "/tmp/velloran_params_bench." + std::to_string(getpid());
    for (auto _ : state) save_setup(path.c_str());
    std::remove(path.c_str());
}

BENCHMARK(callback)->Unit(benchmark::kMicrosecond);
BENCHMARK(change_and_undo)->Unit(benchmark::kMicrosecond);
BENCHMARK(effect_switch)->Unit(benchmark::kMicrosecond);
BENCHMARK(setup_load)->Unit(benchmark::kMicrosecond);
BENCHMARK(setup_save)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
