// A parsed effect. Fields only.
#pragma once

#include "records/node.h"
#include "records/param.h"

#include <cstdint>

namespace velloran {

struct UndoList;
struct EffectWidgets;

constexpr int MAX_GENOTYPE_PARAMS = 90;
constexpr int MAX_PARAM_GROUP_NUMBER = 8;
constexpr int MAX_INPUTS = 4;
constexpr int MAX_INPUT_NAME_LENGTH = 8;
constexpr const char* background_name = "Background";  // the one input name that may be longer
constexpr int INPUT_NAME_SIZE = 11;
constexpr int GENOTYPE_NAME_SIZE = 32;

// Genotype::effect_flags_1.
enum : uint8_t {
    effect_has_spatial = 1,
    effect_reads_other_frames = 2,
    effect_keeps_own_images = 4,
    effect_changes_each_frame = 8,
    effect_share_all = 16,
    effect_wont_make_colors_illegal = 32,
    effect_renders_everywhere = 64,
    effect_luma_alpha_ok = 128
};

// Genotype::effect_flags_2: two fields of two bits, then single bits.
enum : uint8_t {
    effect_select_with_radio = 1,
    effect_select_with_yes_no = 3,
    effect_mask_color = 4,
    effect_mask_rgba = 12,
    effect_generates_color = 16,
    effect_generates_alpha = 32,
    effect_source_alpha_affects_rgb = 64,
    effect_needs_bg_pixel = 128
};

// Genotype::effect_flags_3: a field of two bits, then single bits.
enum : uint8_t { effect_combines_2_inputs = 1, effect_combines_2_constant_inputs = 3, effect_spatial_reads_input = 8 };

enum RgbaMode : int8_t { rgba_ok = 1, rgba_default = 2, rgba_set_alpha_to_one = 3, rgba_use_alpha_as_mask = 4 };
enum ZMode : int8_t { z_not_given = 0, z_process = 1, z_no_inputs = 2, z_min = 3 };

struct ParamGroup {
    char* name;
    int index;
    ParamGroup* parent;
};

struct Genotype {
    char name[GENOTYPE_NAME_SIZE];  // underscores stand as blanks
    char input_names[MAX_INPUTS][INPUT_NAME_SIZE];
    int32_t node_number, node_capacity;
    Node* nodes;  // row 0 is dest
    int32_t param_number;
    Param* params[MAX_GENOTYPE_PARAMS];
    int32_t temp_image_number;
    int32_t cache_image_number;
    int32_t group_number;
    ParamGroup groups[MAX_PARAM_GROUP_NUMBER];
    int8_t rgba_mode;  // RgbaMode
    uint8_t rgba_ok_for_input;
    int32_t warp_crop;
    int8_t background_input;  // -1 none
    int8_t z_mode;            // ZMode
    int8_t mask_input;        // -1 none
    uint8_t effect_flags_1, effect_flags_2, effect_flags_3;
    int8_t input_number;
    uint8_t input_elnums[MAX_INPUTS];  // elnums this genotype was last compiled for
    uint8_t dest_elnum;
    uint8_t input_mask;  // cached, of the effect table
    uint8_t input_mask_cached;
    char* effect_popup_name;
    int32_t hide_on_fields_button;
    UndoList* undo_list;     // owned, made at the first undo record
    EffectWidgets* widgets;  // owned by the widget room, null until widgets are made
};

}  // namespace velloran
