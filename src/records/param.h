// The record of one user value of an effect, declared in the effect's text or standard. Fields only.
#pragma once

#include <cstdint>

namespace velloran {

struct Node;
struct ParamWidgetData;

enum ParamType : int {
    param_unknown = 0,
    param_float = 1,
    param_int = 2,
    param_color = 3,
    param_popup = 4,
    param_boolean = 5,
    param_button = 6,
    param_string = 7,
    param_label = 8
};

// Bits of Param::owner_flags.
enum : uint8_t {
    owner_global = 1,
    owner_name_not_owned = 2,
    owner_popup_entries_not_owned = 4,
    owner_formats_not_owned = 8,
    owner_widgets_not_owned = 16,
    owner_button_param = 32,
    owner_shared = 128  // share_all of the effect, "shared": one value for all effects of the plug-in
};

// Bits of Param::kind_flags. The list bits say which custom list a popup shows.
enum : uint8_t {
    kind_pointer_set = 1,
    kind_color_only = 2,
    kind_widget_enable = 4,  // switches an on-screen handle; stands on a toggle control
    kind_lens_flares = 8,
    kind_glares = 16,
    kind_neg_films = 32,
    kind_print_films = 64,
    kind_custom_list = 128
};

// Param::scale_flags: the low four bits are the screen mode.
enum : uint8_t {
    scale_mode_mask = 15,
    scale_ignore = 16,  // the row stays even if nothing reads it
    scale_autotrans = 32,
    scale_autotrans_hermite = 64,
    scale_autotrans_mask = 96,
    scale_hold_action = 128
};

enum ScreenMode : uint8_t {
    screen_none = 0,
    screen_screen = 1,
    screen_center = 2,
    screen_center0 = 3,
    screen_normalize = 4,
    screen_normalize_scale = 5,
    screen_to_norm = 6,
    screen_center_to_norm = 7,
    screen_x = 8,
    screen_y = 9
};

// Bits of Param::save_flags.
enum : uint8_t {
    save_measured = 1,  // "hold_level"
    save_standard = 4,
    save_not_in_setups = 8,
    save_rescaled = 16,  // work bit of the frame-size fix
    save_hidden = 32
};

// Param::group_marks.
enum : uint8_t {
    group_starts_mask = 7,  // number of groups that start at this param
    group_open = 8,
    group_ends_mask = 0x70,  // number of groups that end at it, times 16
    group_ends_one = 0x10,
    group_doc = 128
};

constexpr int max_popup_entries = 32;

struct Param {
    int type;
    char* name;              // shown name and key
    int8_t n_channels;       // value channels, 1 to 4; 3 for a colour
    int8_t n_buttons;        // controls used; 1 for a colour
    int16_t ref_count;       // effects of a plug-in may share a param; freed at 0
    float value[4];          // internal units
    float default_value[4];  // button units
    float min_value, max_value, step;
    float normalize_scale;
    float rendered_value[4];  // value at the last render
    char* channel_names[4];
    ParamWidgetData* widget_list;
    uint8_t owner_flags, kind_flags, scale_flags, save_flags;
    uint8_t group_marks;
    int8_t group_index;  // -1 none
    uint8_t n_popup_entries;
    char* popup_entries[max_popup_entries];
    const char* const* custom_entries;  // of a list that a data file defines, instead of these; null: none. Not owned
    Node* node;  // the constant node that takes the value, re-pointed when the node table moves; null: plain param
    int16_t buttons[4];  // button index of each channel once laid out; one may skip the second half of a colour
    int first_button;    // button index of the first channel, -1 unset; a control number is this plus 6
    void* controls[4];   // host control of each channel
    char* button_formats[4];
    const char* callback_name;  // key of a standard control
    int extra;
    int callback_number;  // "button n" of a declaration
    const char* host_flag_name;
    int global_index;
    int n_global_buttons;
    int global_buttons[4];  // control numbers
    void* global_controls[4];
};

// One widget clause of a declaration.
struct ParamWidgetData {
    ParamWidgetData* next;
    char* part_name;
    char* widget_name;
    char* widget_type;
    char* glyph_name;  // null: the widget's own
    char* param_name;
    char* enable_param_name;
    int8_t default_on;    // 0, 1, or -1 not said
    int8_t enable_index;  // -1 none
    uint8_t enable_here;  // the word "here"
    uint8_t use_enable;   // 0 none, 1 "wenable", 2 "use_wenable"
    int number;           // the clause's last number, -1 none
};

}  // namespace velloran
