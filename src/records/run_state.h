// Everything that belongs to one plug-in instance, and what belongs to the call in hand or to the process.
#pragma once

#include "records/fix_pixel.h"
#include "records/frame.h"
#include "records/genotype.h"
#include "spark/spark.h"

#include <cstdint>

namespace velloran {

struct EffectTable;
struct FrameWatch;
namespace widgets {
class WidgetDispatcher;
}

constexpr int MAX_EFFECTS_PER_PLUGIN = 49;  // table size; indices at or above it are refused
constexpr int N_BUTTON_TABLE = 87;
constexpr int N_CONTROL_NUMBERS = 93;  // control numbers 0 to 92: the crop page has buttons up to the last
constexpr int MAX_LUTS = 32;
constexpr int MAX_BUFFER_IDS = 64;
constexpr int BUTTON_BASE = 6;  // a button index is a control number minus this

// Indices of GlobalsV4Record::global_params: global_redraw_wait and so on.
enum GlobalParamIndex : int {
#define ROW(index, ...) global_##index,
#include "records/standard_controls.inc"
#undef ROW
    N_GLOBAL_PARAMS
};

enum RedrawMode : int {
    redraw_never = 0,
    redraw_process = 1,
    redraw_pen_up = 2,
    redraw_drag = 3,
    redraw_drag_auto_res = 4
};

// Bits of GlobalsV4Record::render_flags.
enum : uint8_t {
    render_eval_arrays_ready = 1,
    render_needs_long_image = 2,
    render_needs_mipmap = 4,
    render_mipmap_wide = 8,
    render_long_image_every_depth = 16,
    render_evaluating = 32,
    render_uses_percent_time = 64,
    render_full_pass = 128
};

// Bits of GlobalsV4Record::record_flags.
enum : uint8_t { record_plugin_name_owned = 1, record_not_on_heap = 2, record_explicit_global_buttons = 4 };

// Bits of GlobalsV4Record::setup_flags.
enum : uint8_t {
    setup_animated_params_done = 1,
    setup_needs_first_render = 2,
    setup_initialized = 4,  // the one-time initialisation was run
    setup_ready = 8         // and came to its end
};

struct ButtonEntry {
    Param* param;
    int16_t channel;
    uint8_t mark;
    uint8_t button_kinds;  // 0 none, 1 first channel, 2 later channel, 3 a mix or a kind without channels
};

struct RunRecord {
    uint8_t feedback_valid;
    int last_frame, first_frame;
};

// PrevDest::valid of planes that hold an output.
enum : uint8_t {
    prev_dest_whole = 1,
    prev_dest_in_work = 2  // good for the frame in hand only: it has begun to fill them and may not come to its end
};

// Planes that an effect keeps from frame to frame.
struct PrevDest {
    int16_t width, height;  // allocated
    int16_t current_width, current_height;
    uint8_t channels;
    uint8_t valid;     // 0, prev_dest_whole or prev_dest_in_work
    int frame_number;  // -1000000 at start
    fix_plane planes[4];
};

struct GlobalsV4Record {
    const char* plugin_name;
    const char* effect_strings[MAX_EFFECTS_PER_PLUGIN];  // from the stub
    int16_t owned_strings;  // bit i: effect_strings[i] is freed with the record; only the low 16 can be marked
    int16_t n_effects;
    int16_t selected_effect;  // -1 none
    int16_t shown_effect;     // -1 at start
    uint8_t source_tags[8];   // elements of the output, x, y, xy and the inputs; see variable_elnum
    uint8_t changed_tags[8];  // by variable index: may differ from frame to frame
    Genotype* effect_genotype;
    Genotype* genotypes[MAX_EFFECTS_PER_PLUGIN];
    int16_t required_buffers;  // temporary planes required, from the stub
    int16_t n_inputs;
    int number_of_input_images;  // of the selected effect; -1 until set
    int last_button_used;        // -1 at start
    Param* pointer_param;
    ButtonEntry button_table[N_BUTTON_TABLE];
    Param* effect_popup_param;
    Param* global_params[N_GLOBAL_PARAMS];
    int n_global_params;
    Param* kernel_crop_params[4];    // left, top, right, bottom
    const int* global_button_table;  // optional, four control numbers per global param
    int n_param_pages;
    int crop_page;
    int frame_call_count;
    int last_frame_no;
    char* lut_in_paths[MAX_LUTS];
    char* lut_out_paths[MAX_LUTS];
    int n_luts;
    int not_enough_memory;
    int random_seed;
    uint32_t noise_seed;  // of the add noise control; differs among plug-ins, the same from run to run
    uint8_t render_flags;
    uint8_t record_flags;
    // The stub's control structures by control number, null where it has none.
    SparkFloatStruct* float_controls[N_CONTROL_NUMBERS];
    SparkColourStruct* color_controls[N_CONTROL_NUMBERS];
    SparkBooleanStruct* boolean_controls[N_CONTROL_NUMBERS];
    SparkPopupStruct* popup_controls[N_CONTROL_NUMBERS];
    SparkBooleanStruct* toggle_controls[N_CONTROL_NUMBERS];
    SparkStringStruct* string_controls[N_CONTROL_NUMBERS];
    SparkIntStruct* int_controls[N_CONTROL_NUMBERS];  // the crop edges
    uint8_t setup_flags;
    int setup_width, setup_height;
    int buffer_ids[MAX_BUFFER_IDS];  // 0 destination, 1 to n_inputs inputs, then registered temporaries
    int long_buffer_id;              // 0 none
    float last_render_seconds;
    int last_res_factor;
    int dragging;
    uint8_t res_half_step;  // (res - 1) / 2
    int16_t res_factor;     // at least 1
    RunRecord run_records[2];
    RunRecord* run_record;
    PrevDest prev_dests[2];
    PrevDest* prev_dest;             // the one in use
    Genotype* last_imaged_genotype;  // whose image pointers were set last; null while a frame is being evaluated
    int imaged_field;                // render_field of the kept images
    uint64_t imaged_geometry;        // stands for what the kept images depend on beside their nodes; see evaluate.cpp
    EffectTable* effect_table;
    GlobalsV4Record* parent_record;  // owns the effect strings
    GlobalsV4Record* next_record;    // of all that V4_init_globals made
    char config_dir[299];            // of the plug-in's module; empty before the one-time initialisation
    int instance_number;             // which one-time initialisation made what this points at; 0 none
    int wrapped;                     // the crop uses wrap dimensions
    // Frame size of the setup that was read, until it has been compared with the frame's; pending 0: none.
    int frame_size_pending, setup_width_in_file, setup_height_in_file;
    widgets::WidgetDispatcher* crop_widgets;  // the crop's handle, null until it is made
    Param* saved_surround_mode;               // on no panel: the surround of before the crop input was switched on
    FrameWatch* watch;                        // who watches the frames of this instance; null: nobody. Not owned
    const char* doc_page;                     // help page of the plug-in, from the stub; null: the effect's own
};

// Notes that part of the frame in hand cannot be made. True the first time, when the reason has to be told. Any task.
bool fail_frame();

// Sizes of the frame in samples, see DisplayDims.
void set_display_dim_globals(int frame_w, int frame_h, int full_w, int full_h);

// Sets the time of the frame: t in frames, length of the clip, first and last frame of the normalised range.
void set_time_globals(float t, float length, float first, float last);

// Stores the factor and its half step in the record; true if it changed.
bool set_res_factor(int res);

// Frees everything that the library holds for all instances.
void free_all();

// Notes the frame of an input: number counts from 1, channels are the elements it has for the effect.
void init_source_image(const void* frame, int number, int channels);

extern SparkInfoStruct* spark_info_ptr;  // the host record of the call in hand; null outside calls
extern int n_plugins_loaded;
extern int total_spark_initialize_count;
extern int any_valid_framenos_p;
extern int spark_process_from_callback_p;
extern int ignore_next_pen_up;  // the pen's release after an aborted drag starts nothing
extern int explicit_spark_buffer_allocation_p;
extern int enable_getframe_in_batch_p;
extern int byte_order_little_endian_p;
extern int host_kind;
extern int verbose_p;
extern float frame_rate;                   // frames per second, 30 unless told
extern int frame_rate_forced;              // the configuration gave it
void set_pixel_aspect_ratio(float ratio);  // values at or below 0.001 count as 1

enum HostKind : int {
    host_unknown = 0,
    host_spark = 1,
    host_flame = 2,
    host_fire = 3,
    host_inferno = 4,
    host_smoke = 5,
    host_burn = 6
};

}  // namespace velloran

// The record of the plug-in instance now being called; the stub sets it before each call. Exported data.
extern "C" __attribute__((visibility("default"))) velloran::GlobalsV4Record* Globals_V4;

namespace velloran {
// Elements of a variable (Node::var_index) and of the output, in the instance now being called.
inline int variable_elnum(int var_index) { return Globals_V4->source_tags[var_index + 1]; }
inline int output_elnum() { return Globals_V4->source_tags[0]; }
inline bool variable_changed_p(int var_index) { return Globals_V4->changed_tags[var_index] != 0; }
}  // namespace velloran
