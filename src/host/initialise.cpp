// The start and the end of an instance: the one-time initialisation that three entry points may reach first, and what
// V4_SparkUnInitialise gives back.
#include "compile/compile.h"
#include "engine/images.h"
#include "frame/add_noise.h"
#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "functions/function_table.h"
#include "genotype/all_defs.h"
#include "genotype/custom_genotypes.h"
#include "genotype/effect_table.h"
#include "genotype/node_table.h"
#include "host/apply_config.h"
#include "host/entry_points.h"
#include "host/guard.h"
#include "host/instance.h"
#include "operators/fields/field_pattern.h"
#include "operators/pixel/query_funs.h"
#include "params/control_callbacks.h"
#include "params/custom_lists.h"
#include "params/effect_selection.h"
#include "params/field_pattern_buttons.h"
#include "params/layout.h"
#include "params/param_values.h"
#include "params/render_request.h"
#include "params/resolution.h"
#include "params/setups.h"
#include "params/standard_controls.h"
#include "params/undo.h"
#include "params/widget_requests.h"
#include "support/errors.h"
#include "support/files.h"
#include "support/host_info.h"
#include "support/memory.h"
#include "support/notices.h"
#include "support/optional_host.h"
#include "support/unload.h"
#include "tasks/tasks.h"
#include "texts/config.h"
#include "widgets/widgets.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {
namespace {

constexpr const char* version_text = "4.04";
constexpr const char* build_date = "15-jan-2008";
constexpr int path_size = 1024;
constexpr float usual_frame_rate = 30;

ErrorPrinter printer_before = nullptr;
bool printers_installed = false;
int version_warning_printed = 0;

// Last component of a path without what follows its first point, and without a leading "V_".
void short_plugin_name(const char* path, char* out, size_t size) {
    const char* name = path ? path : "";
    if (const char* slash = std::strrchr(name, '/')) name = slash + 1;
    if (std::strncmp(name, "V_", 2) == 0) name += 2;
    if (!*name) name = "(unknown)";
    std::snprintf(out, size, "%.*s", static_cast<int>(std::strcspn(name, ".")), name);
}

void* process_frame_again(SparkInfoStruct* info) { return V4_SparkProcess(*info); }

void decide_host_kind() {
    static constexpr struct {
        const char* start;
        int kind;
    } hosts[] = {{"burn", host_burn},   {"spark", host_spark}, {"flint", host_spark},     {"effect", host_spark},
                 {"flame", host_flame}, {"fire", host_fire},   {"inferno", host_inferno}, {"smoke", host_smoke}};
    char name[16];
    get_program_name(name);
    host_kind = host_unknown;
    for (const auto& host : hosts)
        if (std::strncmp(name, host.start, std::strlen(host.start)) == 0) {
            host_kind = host.kind;
            return;
        }
}

void check_depth(int depth) {
    switch (depth) {
        case 24:
        case SPARK_DEPTH_8:
        case SPARK_DEPTH_10:
        case SPARK_DEPTH_12:
        case 64:
            return;
        default:
            V_error(level_fatal, "Unknown FrameDepth: %d.", depth);
    }
}

void set_directories(const char* name) {
    char directory[path_size];
    std::snprintf(directory, sizeof(directory), "%s", name ? name : "");
    if (char* slash = std::strrchr(directory, '/')) {
        *slash = 0;
        spark_set_config_dir(slash == directory ? "/" : directory);
    } else {
        spark_set_config_dir(".");
    }
    set_config_paths();
    std::snprintf(Globals_V4->config_dir, sizeof(Globals_V4->config_dir), "%s", get_config_dir());
}

void say_loading(const char* base_name) {
    if (!notices_p()) return;
    const int depth = spark_info_ptr->FrameDepth, processors = spark_info_ptr->Processors;
    if (get_n_procs() != processors)
        std::printf("Loading: %s, Version %s%s%s, D%dP%d.%d.\n", base_name, version_text, "", " (x86)", depth,
                    processors, get_n_procs());
    else
        std::printf("Loading: %s, Version %s%s%s, D%dP%d.\n", base_name, version_text, "", " (x86)", depth, processors);
    char line[256] = "", part[64];
    const auto add = [&line](const char* text) {
        const size_t used = std::strlen(line);
        std::snprintf(line + used, sizeof(line) - used, "%s%s", used ? ", " : "", text);
    };
    if (fork_enabled != 1) add("multi-processing is disabled in config file");
    if (mp_max_cpus < 32) {
        std::snprintf(part, sizeof(part), "max cpus: %d", mp_max_cpus);
        add(part);
    }
    if (!config.use_footage_pixel_aspect_ratio) add("not using footage aspect ratio");
    if (*line) std::printf("%s\n", line);
    if (verbose_p) {
        char config_path[path_size];
        std::snprintf(config_path, sizeof(config_path), "%s/v_config.text", get_config_dir());
        std::printf("  config: %s\n", config_path);
        std::printf("  version: %s (%g) of %s\n", version_text, 4.04, build_date);
    }
    std::fflush(stdout);
}

void load_effects() {
    GlobalsV4Record* const globals = Globals_V4;
    if (globals->n_effects == 0) {
        load_effect_from_config();
    } else {
        load_effects_from_strings();
    }
    for (int i = 0; i < globals->n_effects; ++i)
        if (globals->genotypes[i]) set_custom_lists(globals->genotypes[i]);
    if (globals->n_effects > 1) init_popup_effect_button();
    free_effect_table(globals->effect_table);  // of an earlier life of the record
    globals->effect_table = nullptr;
    globals->effect_table = make_effect_table(globals->plugin_name);
}

// What the effects of the instance ask of the host's buffers.
void note_buffer_needs() {
    int long_image = 0, mipmap = 0, filter = 0, timewarp = 0;
    any_effects_need_long_image_mipmap_etc(&long_image, &mipmap, &filter, &timewarp);
    uint8_t& flags = Globals_V4->render_flags;
    if (long_image) flags |= render_needs_long_image;
    if (mipmap) flags |= render_needs_mipmap;
    if (filter) flags |= render_mipmap_wide;
    if (timewarp) flags |= render_long_image_every_depth;
}

bool every_effect_reads_other_frames() {
    const GlobalsV4Record* const globals = Globals_V4;
    for (int i = 0; i < globals->n_effects; ++i)
        if (!globals->genotypes[i] || !(globals->genotypes[i]->effect_flags_1 & effect_reads_other_frames))
            return false;
    return globals->n_effects > 0;
}

void set_up_controls(const SparkInfoStruct* info) {
    GlobalsV4Record* const globals = Globals_V4;
    set_crop_and_button_defaults(info->FrameWidth, info->FrameHeight);
    set_input_count_on_buttons();
    if (!called_in_batch_p()) {
        char path[path_size];
        setup_path(path, info->Name, sizeof(path));
        load_setup(path);
    }
    const int selected = globals->selected_effect >= 0 && globals->selected_effect < globals->n_effects
                             ? globals->selected_effect
                             : first_usable_effect();
    setup_effect_buttons(selected, 0);
    spark_select_effect_i(selected, 0, 1);
    set_control_titles();
    set_surround_names();
}

void initialise_steps() {
    GlobalsV4Record* const globals = Globals_V4;
    const SparkInfoStruct* const info = spark_info_ptr;
    byte_order_little_endian_p = 1;
    char name[path_size];
    short_plugin_name(info->Name, name, sizeof(name));
    const char* const own_name = safe_strdup(name);
    if (globals->record_flags & record_plugin_name_owned) safe_free(const_cast<char*>(globals->plugin_name));
    globals->plugin_name = own_name;
    globals->record_flags |= record_plugin_name_owned;
    ++n_plugins_loaded;
    globals->instance_number = total_spark_initialize_count;
    decide_host_kind();
    render_requests = {process_frame_again, get_res_factor};
    widget_requests = {collect_widgets, spark_create_widgets};
    param_value_at_frame = param_value_at;
    set_pattern_param = set_pattern_param_on_button;
    if (!printers_installed) {
        printer_before = set_error_printer(spark_error_printer);
        set_warning_printer(spark_warning_printer);
        printers_installed = true;
    }
    if (n_plugins_loaded == 1) reset_luts();
    sparkViewingCursor(1);
    check_depth(info->FrameDepth);
    set_directories(info->Name);

    char base_name[path_size];
    const char* file = info->Name ? info->Name : "";
    if (const char* slash = std::strrchr(file, '/')) file = slash + 1;
    const char* const ending = std::strrchr(file, '.');
    std::snprintf(base_name, sizeof(base_name), "%.*s",
                  static_cast<int>(ending ? ending - file : static_cast<long>(std::strlen(file))), file);

    fill_node_fun_tables();
    read_config_once();
    apply_config();
    set_cpu_count(info->Processors, 0);
    if (std::getenv("VELLORAN_VERBOSE")) verbose_p = 1;
    say_loading(base_name);
    if (!(config.force_pixel_aspect_ratio > 0.001f))
        set_pixel_aspect_ratio(info->FrameHeight == 486 ? static_cast<float>(info->FrameWidth / 648.0) : 1.0f);

    load_effects();
    note_buffer_needs();
    do_layout_and_init_widgets();
    for (int i = 0; i < globals->n_effects; ++i) {
        if (!globals->genotypes[i]) continue;
        reset_params_to_defaults(globals->genotypes[i]);
        set_param_button_names(globals->genotypes[i]);
    }
    set_up_controls(info);

    if (called_in_batch_p()) {
        enable_getframe_in_batch_p =
            host_api_at_least(4.019f) || std::getenv("VELLORAN_ALLOW_GETFRAME_IN_BATCH") != nullptr;
        if (!enable_getframe_in_batch_p && every_effect_reads_other_frames())
            sparkError("Can not load because sparkGetFrame is not supported in Batch.");
    }
    if (host_api_at_least(4.019f) && !frame_rate_forced) {
        const float rate = v_sparkFrameRate();
        if (rate > 0) frame_rate = rate;
    }
    timeval now;
    gettimeofday(&now, nullptr);
    srand48(now.tv_sec * 1000003L + now.tv_usec);
    globals->random_seed = static_cast<int>(lrand48());
    globals->noise_seed = plugin_noise_seed(globals->plugin_name, n_plugins_loaded);
}

int spark_initialise_1() {
    GlobalsV4Record* const globals = Globals_V4;
    if (globals->setup_flags & setup_initialized) return 2;
    globals->setup_flags |= setup_initialized;
    ++total_spark_initialize_count;
    const bool done = guarded_call(spark_info_ptr, false, [] {
        initialise_steps();
        return true;
    });
    if (done) globals->setup_flags |= setup_ready;
    return 2;
}

// The host's structures outlive the texts that the instance made for them.
void empty_controls() {
    GlobalsV4Record* const globals = Globals_V4;
    for (int i = 0; i < N_CONTROL_NUMBERS; ++i) {
        if (globals->float_controls[i]) globals->float_controls[i]->Title = "";
        if (globals->int_controls[i]) globals->int_controls[i]->Title = "";
        if (globals->color_controls[i]) globals->color_controls[i]->Title = "";
        if (globals->boolean_controls[i]) globals->boolean_controls[i]->Title = "";
        if (globals->toggle_controls[i]) globals->toggle_controls[i]->Title = "";
        if (globals->string_controls[i]) globals->string_controls[i]->Title = "";
        if (SparkPopupStruct* popup = globals->popup_controls[i]) {
            popup->Title = "";
            popup->Value = 0;
            popup->Entries = 0;
            for (const char*& name : popup->Names) name = nullptr;
        }
    }
}

int save_state(const SparkInfoStruct* info) {
    const GlobalsV4Record* const globals = Globals_V4;
    if (called_in_batch_p() || (globals->setup_flags & setup_needs_first_render)) return 0;
    char path[path_size], channel_path[path_size + 4];
    setup_path(path, info->Name, sizeof(path));
    if (config.load_save_channel_setups) {
        std::snprintf(channel_path, sizeof(channel_path), "%sch", path);
        save_channel_setup(channel_path);
        chmod(channel_path, 0666);
    }
    save_setup(path);
    chmod(path, 0666);
    return 1;
}

// The record is as it was before its initialisation, but for what the stub gave it.
void forget_instance(GlobalsV4Record* record) {
    std::memset(record->genotypes, 0, sizeof(record->genotypes));
    std::memset(record->global_params, 0, sizeof(record->global_params));
    std::memset(record->kernel_crop_params, 0, sizeof(record->kernel_crop_params));
    std::memset(record->button_table, 0, sizeof(record->button_table));
    record->n_global_params = 0;
    record->saved_surround_mode = nullptr;
    record->crop_widgets = nullptr;
    record->effect_popup_param = nullptr;
    record->effect_genotype = nullptr;
    record->last_imaged_genotype = nullptr;
    record->pointer_param = nullptr;
    record->watch = nullptr;
    record->selected_effect = -1;
    record->shown_effect = -1;
    record->number_of_input_images = -1;
    record->last_button_used = -1;
    record->instance_number = 0;
    record->setup_flags = setup_needs_first_render;
}

void free_instance() {
    free_crop_widgets();
    free_global_params();
    free_all_undo_lists();
    for (Genotype*& genotype : Globals_V4->genotypes) {
        if (genotype) free_effect_widgets(genotype);
        if (genotype) free_genotype(genotype);
        genotype = nullptr;
    }
    free_popup_effect_button();
}

void uninitialise_steps(SparkInfoStruct* info) {
    if (verbose_p) std::printf("Velloran: SparkUnInitialise()...\n");
    const bool shared = instance_shared_p(Globals_V4);
    // The setup is written from the params, which the emptied controls would overwrite. Without it the rest goes on.
    if (instance_ready_p()) guarded_call(info, 0, [info] { return save_state(info); });
    if (!shared) empty_controls();
    release_instance();
    if (verbose_p) std::printf("Velloran: SparkUnInitialise() done.\n");
}

// A new clip: what the images of the effect hold is of another one.
void clear_images_in_use() {
    Genotype* const genotype = Globals_V4->effect_genotype;
    if (!genotype) return;
    for (int i = 0; i < genotype->node_number; ++i)
        genotype->nodes[i].flags = static_cast<uint8_t>(genotype->nodes[i].flags & ~node_images_valid);
}

void fill_info(SparkInfoStruct* info) {
    std::memset(info, 0, sizeof(*info));
    if (host_api_at_least(2.502f)) sparkGetInfo(info);
}

}  // namespace

void release_instance() {
    GlobalsV4Record* const globals = Globals_V4;
    free_prev_dest_images();
    const bool counted = globals->instance_number != 0 && !instance_shared_p(globals);
    if (counted) {
        free_instance();
        --n_plugins_loaded;
    }
    forget_instance(globals);
    if (!counted || n_plugins_loaded > 0) return;
    free_all();
    if (!printers_installed) return;
    set_error_printer(printer_before);
    set_warning_printer(nullptr);
    printers_installed = false;
}

void free_all() {
    run_unload_functions();
    free_temp_images();
    free_eval_arrays();
    spark_free_mipmap();
    spark_free_long_image();
    free_luts();
    free_forked_buffers();
    free_all_defs();
    free_custom_genotype_infos();
    reset_config();
    frame_rate = usual_frame_rate;
    apply_config();
}

}  // namespace velloran

using namespace velloran;

int V4_SparkIsInputFormatSupported(int depth) {
    return depth == SPARK_DEPTH_8 || depth == SPARK_DEPTH_10 || depth == SPARK_DEPTH_12;
}

namespace {

int clips(float version, SparkInfoStruct* info) {
    if (version != VELLORAN_VERSION) {
        V_error(level_warning,
                "Velloran library libvelloran_xxx.so v%g is out of date with respect to\nthe Velloran spark, v%g.\n",
                static_cast<double>(VELLORAN_VERSION), static_cast<double>(version));
        version_warning_printed = 1;
    }
    if (host_api_at_least(2.502f)) {
        sparkGetInfo(info);
        spark_info_ptr = info;
        spark_initialise_1();
    }
    clear_images_in_use();
    any_valid_framenos_p = 0;
    const int inputs = Globals_V4->n_inputs;
    if (verbose_p) std::printf("Velloran: SparkClips(): %d inputs.\n", inputs);
    return inputs;
}

int memory_temp_buffers(SparkInfoStruct* info) {
    fill_info(info);
    if (host_api_at_least(2.502f)) spark_initialise_1();
    if (verbose_p)
        std::printf("Velloran: SparkMemoryTempBuffers() %dx%d depth %d\n", info->FrameWidth, info->FrameHeight,
                    info->FrameDepth);
    register_host_buffers();
    if (verbose_p) std::printf("Velloran: SparkMemoryTempBuffers() done.\n");
    return 0;
}

int initialise() {
    if (Globals_V4->not_enough_memory) {
        V_error(level_fatal, "Not enough memory buffers.  This spark requires %d, but there are only %d available.\n",
                Globals_V4->required_buffers, sparkMemGetFreeMemory());
        return 0;
    }
    if (verbose_p) std::printf("Velloran: SparkInitialise()...\n");
    spark_initialise_1();
    if (verbose_p) std::printf("Velloran: SparkInitialise() done.\n");
    return 2;
}

}  // namespace

int V4_SparkClips(float version) {
    SparkInfoStruct info = {};
    if (!Globals_V4) return 0;
    const int inputs = guarded_call(nullptr, 0, [&] { return clips(version, &info); });
    spark_info_ptr = nullptr;
    return inputs;
}

void V4_SparkMemoryTempBuffers(SparkInfoStruct) {
    SparkInfoStruct info = {};
    if (Globals_V4) guarded_call(&info, 0, [&] { return memory_temp_buffers(&info); });
}

int V4_SparkInitialise(SparkInfoStruct info) {
    return Globals_V4 ? guarded_call(&info, 0, [] { return initialise(); }) : 0;
}

void V4_SparkUnInitialise(SparkInfoStruct info) {
    if (!Globals_V4) return;
    guarded_call(&info, 0, [&] {
        uninitialise_steps(&info);
        return 0;
    });
    spark_info_ptr = nullptr;
}
