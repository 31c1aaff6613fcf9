// One effect with params of every kind on a panel, for targets that read setups.
#pragma once

#include "genotype/param_record.h"
#include "params/effect_selection.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "params/widget_requests.h"
#include "records/run_state.h"
#include "support/memory.h"
#include "widgets/widgets.h"

#include <cstring>

namespace velloran {

struct FuzzPanel {
    FuzzPanel() {
        Globals_V4 = &record;
        widget_requests = {collect_widgets, spark_create_widgets};
        record.selected_effect = record.shown_effect = -1;
        record.res_factor = 1;
        record.plugin_name = "fuzz";
        record.setup_width = info.FrameWidth = 720;
        record.setup_height = info.FrameHeight = 486;
        info.TotalFrameNo = 10;
        spark_info_ptr = &info;
        for (int n = 0; n < N_CONTROL_NUMBERS; ++n) {
            record.float_controls[n] = &floats[n];
            record.int_controls[n] = &ints[n];
            record.color_controls[n] = &colours[n];
            record.boolean_controls[n] = &booleans[n];
            record.toggle_controls[n] = &toggles[n];
            record.popup_controls[n] = &popups[n];
            record.string_controls[n] = &strings[n];
        }
        for (const char* const name : {"A", "B"}) {
            auto* const genotype = safe_new_zeroed<Genotype>();
            std::strcpy(genotype->name, name);
            record.genotypes[record.n_effects++] = genotype;
            for (const int type : {param_float, param_int, param_color, param_popup, param_boolean, param_string}) {
                Param* const p = new_param(type, "p");
                if (type == param_float) {
                    p->n_channels = p->n_buttons = 2;
                    p->scale_flags = screen_to_norm;
                    p->min_value = -1000000;
                }
                if (type == param_popup) {
                    for (int i = 0; i < 3; ++i) p->popup_entries[i] = safe_strdup("entry");
                    p->n_popup_entries = 3;
                    p->max_value = 3;
                }
                genotype->params[genotype->param_number++] = p;
            }
        }
        record.effect_genotype = record.genotypes[0];
        init_popup_effect_button();
        do_layout_and_init_widgets();
        for (int i = 0; i < 2; ++i) set_param_button_names(record.genotypes[i]);
        record.selected_effect = 0;
        setup_effect_buttons(0, 0);
    }
    void reset() {
        record.selected_effect = 0;
        for (int i = 0; i < 2; ++i) reset_params_to_defaults(record.genotypes[i]);
        for (Param* const p : record.global_params)
            if (p) set_param_default(p, 0);
        std::memset(strings, 0, sizeof(strings));
        setup_effect_buttons(0, 0);
    }

    GlobalsV4Record record = {};
    SparkInfoStruct info = {};
    SparkFloatStruct floats[N_CONTROL_NUMBERS] = {};
    SparkIntStruct ints[N_CONTROL_NUMBERS] = {};
    SparkColourStruct colours[N_CONTROL_NUMBERS] = {};
    SparkBooleanStruct booleans[N_CONTROL_NUMBERS] = {}, toggles[N_CONTROL_NUMBERS] = {};
    SparkPopupStruct popups[N_CONTROL_NUMBERS] = {};
    SparkStringStruct strings[N_CONTROL_NUMBERS] = {};
};

}  // namespace velloran
