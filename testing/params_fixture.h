// A plug-in's record with all control structures and effects built by hand, for tests of the params room that need no
// effect text.
#pragma once

#include "genotype/param_record.h"
#include "hosts/common/controls.h"
#include "hosts/common/host.h"
#include "hosts/common/plugin.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "params/widget_requests.h"
#include "records/genotype.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/memory.h"
#include "widgets/widgets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace velloran {

inline std::vector<std::string> reported;  // "LEVEL text" of every V_error

inline void keep_report(int level, const char* text) { reported.push_back(std::to_string(level) + " " + text); }

struct Structures {
    SparkFloatStruct floats[N_CONTROL_NUMBERS] = {};
    SparkIntStruct ints[N_CONTROL_NUMBERS] = {};
    SparkColourStruct colours[N_CONTROL_NUMBERS] = {};
    SparkBooleanStruct booleans[N_CONTROL_NUMBERS] = {};
    SparkBooleanStruct toggles[N_CONTROL_NUMBERS] = {};
    SparkPopupStruct popups[N_CONTROL_NUMBERS] = {};
    SparkStringStruct strings[N_CONTROL_NUMBERS] = {};
};

class ParamsTest : public testing::Test {
protected:
    ParamsTest() {
        reported.clear();
        widget_requests = {collect_widgets, spark_create_widgets};
        printer_before_ = set_error_printer(keep_report);
        spark_set_config_dir("/nonexistent");
        Globals_V4 = &record;
        record.selected_effect = record.shown_effect = -1;
        record.res_factor = 1;
        record.plugin_name = "Testing";
        for (int n = 0; n < N_CONTROL_NUMBERS; ++n) {
            record.float_controls[n] = &at->floats[n];
            record.int_controls[n] = &at->ints[n];
            record.color_controls[n] = &at->colours[n];
            record.boolean_controls[n] = &at->booleans[n];
            record.toggle_controls[n] = &at->toggles[n];
            record.popup_controls[n] = &at->popups[n];
            record.string_controls[n] = &at->strings[n];
        }
        info.FrameWidth = 720;
        info.FrameHeight = 486;
        info.TotalFrameNo = 10;
        info.Processors = 1;
        spark_info_ptr = &info;
        the_frame->pixel_aspect_ratio = 1;
        before_ = spark_host::use_host(&host);
        host.plugin = &plugin;
        plugin.host = &host;
    }
    ~ParamsTest() override {
        forget_effects();
        set_error_printer(printer_before_);
        spark_host::use_host(before_);
        Globals_V4 = nullptr;
        spark_info_ptr = nullptr;
    }

    void forget_effects() {
        free_all_undo_lists();
        free_crop_widgets();
        free_global_params();
        free_param(record.effect_popup_param);
        record.effect_popup_param = nullptr;
        for (Genotype*& genotype : record.genotypes) {
            if (!genotype) continue;
            free_effect_widgets(genotype);
            for (int i = 0; i < genotype->param_number; ++i) free_param(genotype->params[i]);
            safe_free(genotype);
            genotype = nullptr;
        }
        record.n_effects = 0;
    }

    Genotype* add_effect(const char* name) {
        auto* const genotype = safe_new_zeroed<Genotype>();
        std::strcpy(genotype->name, name);
        record.genotypes[record.n_effects++] = genotype;
        return genotype;
    }

    static Param* add_param(Genotype* genotype, int type, const char* name, int channels = 1) {
        Param* const p = new_param(type, name);
        if (type != param_color) p->n_channels = p->n_buttons = static_cast<int8_t>(channels);
        genotype->params[genotype->param_number++] = p;
        return p;
    }

    // One effect laid out and shown.
    void show(int effect) {
        do_layout_and_init_widgets();
        for (int i = 0; i < record.n_effects; ++i) set_param_button_names(record.genotypes[i]);
        record.selected_effect = record.shown_effect = static_cast<int16_t>(effect);
        record.effect_genotype = record.genotypes[effect];
        setup_effect_buttons(effect, 0);
        make_panel();
    }

    // The host takes over the controls of the effect shown.
    void make_panel() {
        std::vector<SparkControl> list;
        for (int index = 0; index < N_BUTTON_TABLE; ++index) {
            const int number = index + BUTTON_BASE;
            const Param* const p = record.button_table[index].param;
            if (!p) continue;
            const bool global = (p->owner_flags & owner_global) != 0;
            switch (p->type) {
                case param_float:
                    list.push_back({number, SPARK_CONTROL_FLOAT, &at->floats[number]});
                    break;
                case param_int:
                    if (global)
                        list.push_back({number, SPARK_CONTROL_INT, &at->ints[number]});
                    else
                        list.push_back({number, SPARK_CONTROL_FLOAT, &at->floats[number]});
                    break;
                case param_color:
                    if (p->controls[1] == &at->floats[number])
                        list.push_back({number, SPARK_CONTROL_FLOAT, &at->floats[number]});
                    else
                        list.push_back({number, SPARK_CONTROL_COLOUR, &at->colours[number]});
                    break;
                case param_popup:
                case param_label:
                    list.push_back({number, SPARK_CONTROL_POPUP, &at->popups[number]});
                    break;
                case param_string:
                    list.push_back({number, SPARK_CONTROL_STRING, &at->strings[number]});
                    break;
                default:
                    if (p->kind_flags & kind_widget_enable)
                        list.push_back({number, SPARK_CONTROL_TOGGLE, &at->toggles[number]});
                    else
                        list.push_back({number, SPARK_CONTROL_BOOLEAN, &at->booleans[number]});
            }
        }
        spark_host::set_controls(plugin.panel, list.data(), static_cast<int>(list.size()));
    }

    Param* global(int index) const { return record.global_params[index]; }

    GlobalsV4Record record = {};
    std::unique_ptr<Structures> at = std::make_unique<Structures>();
    SparkInfoStruct info = {};
    spark_host::Host host;
    spark_host::Plugin plugin;

private:
    ErrorPrinter printer_before_;
    spark_host::Host* before_;
};

}  // namespace velloran
