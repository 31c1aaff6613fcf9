// The road of one frame: time, look-up tables, resolution, rasters, effect, buffers, evaluation, surround. The steps
// run in a fixed order because each reads what the ones before it have set.
#include "compile/compile.h"
#include "compile/need_walk.h"
#include "engine/evaluate.h"
#include "engine/images.h"
#include "frame/add_noise.h"
#include "frame/host_buffers.h"
#include "frame/lut_files.h"
#include "frame/other_frames.h"
#include "frame/pixel_formats.h"
#include "frame/rasters.h"
#include "genotype/param_record.h"
#include "host/entry_points.h"
#include "host/frame_mapping.h"
#include "host/guard.h"
#include "host/instance.h"
#include "host/log_file.h"
#include "params/control_callbacks.h"
#include "params/effect_selection.h"
#include "params/param_values.h"
#include "params/resolution.h"
#include "params/setups.h"
#include "params/standard_controls.h"
#include "records/frame.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/host_info.h"
#include "support/optional_host.h"
#include "support/user_abort.h"
#include "tasks/tasks.h"
#include "texts/config.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace velloran {
namespace {

using Clock = std::chrono::steady_clock;

void first_render(const SparkInfoStruct* info) {
    GlobalsV4Record* const globals = Globals_V4;
    if (!called_in_batch_p()) {
        if (config.load_save_channel_setups) {
            char name[1024], path[1028];
            setup_path(name, info->Name, sizeof(name));
            std::snprintf(path, sizeof(path), "%sch", name);
            load_channel_setup(path);
        }
        fix_setup_frame_size();
    }
    set_crop_bounds(info->FrameWidth, info->FrameHeight);
    globals->setup_width = info->FrameWidth;
    globals->setup_height = info->FrameHeight;
    globals->setup_flags = static_cast<uint8_t>(globals->setup_flags & ~setup_needs_first_render);
    globals->selected_effect = -1;
    write_log_file(info);
}

// False after a message: a chosen file cannot be used. The next frame tries again.
bool apply_luts() {
    const int index = get_lut_index();
    const char* const input = Globals_V4->lut_in_paths[index];
    const char* const output = Globals_V4->lut_out_paths[index];
    set_lut_paths(input, output);
    set_gamma(global_param_get_value(global_gamma));
    const bool input_lost = input && *input && !HaveInputLut_p, output_lost = output && *output && !HaveOutputLut_p;
    if (!input_lost && !output_lost) return true;
    V_error(level_error, "The LUT file %s cannot be used.", input_lost ? input : output);
    reset_luts();
    return false;
}

struct RasterSizes {
    int temp_w, temp_h, full_w, full_h, depth, step;
    bool operator==(const RasterSizes&) const = default;
};

// Everything about the frame's rectangles but the crop's working area, which depends on the effect's values. False
// after a message: the host's frames are of an unknown kind.
bool fill_rasters(const SparkInfoStruct* info, int step) {
    const int phase = Globals_V4->res_half_step;
    fill_host_raster(&the_frame->dest_raster_info, *info, 1, 0);
    if (the_frame->dest_raster_info.pixel_type == pixel_unknown) return false;
    make_render_info(&the_frame->render_info, *info, step, phase);
    const int width = (info->FrameWidth + step - 1) / step, height = (info->FrameHeight + step - 1) / step;
    set_display_dim_globals(width, height, width, height);
    for (rinfo& source : the_frame->source_raster_infos) fill_host_raster(&source, *info, step, phase);
    fill_temp_raster(&the_frame->temp_raster_info, *info, step, phase, nullptr);
    return true;
}

void drop_images_of_other_size(const SparkInfoStruct* info, int step) {
    static RasterSizes last = {};
    const rinfo& temp = the_frame->temp_raster_info;
    const RasterSizes sizes = {temp.width, temp.height, info->FrameWidth, info->FrameHeight, info->FrameDepth, step};
    if (sizes == last) return;
    last = sizes;
    free_temp_images();
}

// How far the effect reads around a pixel depends on its values, and on whether fields are rendered. Each field has an
// area of its own.
void choose_working_area(const SparkInfoStruct* info, int step) {
    rinfo& temp = the_frame->temp_raster_info;
    fill_temp_raster(&temp, *info, step, Globals_V4->res_half_step, nullptr);
    if (Genotype* const genotype = Globals_V4->effect_genotype) {
        update_parameters(genotype, 1);
        set_temp_raster_crop(&temp, &the_frame->render_info, genotype);
    }
    drop_images_of_other_size(info, step);
    const DisplayDims& dims = the_frame->display_dims;
    set_display_dim_globals(temp.width, temp.height, dims.render_w, dims.render_h);
}

void set_pixel_aspect(const SparkInfoStruct* info) {
    if (config.force_pixel_aspect_ratio > 0.001f) return;
    if (config.use_footage_pixel_aspect_ratio && host_api_at_least(4.02f) && has_sparkGraphSetup_p()) {
        float ratio = 0;
        v_sparkGraphSetup(&ratio);
        const float aspect = ratio >= 0.01f ? 1.0f / ratio : 0.0f;
        if (aspect > 0.01f) {
            set_pixel_aspect_ratio(aspect);
            return;
        }
    }
    set_pixel_aspect_ratio(info->FrameHeight == 486 ? static_cast<float>(info->FrameWidth / 648.0) : 1.0f);
}

void choose_effect() {
    const GlobalsV4Record* const globals = Globals_V4;
    if (globals->n_effects < 2) {
        if (globals->selected_effect < 0) spark_select_effect_i(0, 1, 0);
        return;
    }
    // A stub without a control for the popup shows the first effect.
    const int shown = globals->effect_popup_param ? static_cast<int>(param_get_value(globals->effect_popup_param, 0))
                                                  : std::max<int>(globals->selected_effect, 0);
    if (shown != globals->selected_effect) spark_select_effect_i(shown, 1, 0);
}

// No clip has a frame beyond the largest int.
int frame_number(const SparkInfoStruct* info) { return static_cast<int>(std::min<unsigned>(info->FrameNo, INT_MAX)); }

// The host calls for a frame past the clip's end in two ways: by mistake at the start, or to run on.
bool frame_number_allowed(const SparkInfoStruct* info) {
    const long frame = info->FrameNo;
    const int total = info->TotalFrameNo;
    if (frame < std::max(total, n_dest_frames(total))) return true;
    if (!any_valid_framenos_p) {
        V_error(level_warning, "FrameNo out of bounds: %ld of %d, PLEASE ADJUST!  (API bug)", frame + 1, total);
        usleep(1500000);
        return false;
    }
    if (Globals_V4->render_flags & render_uses_percent_time)
        V_error(level_warning, "FrameNo %ld > Input clip length %d, Elongate clip instead.  (API bug)", frame + 1,
                total);
    return true;
}

// The params of the transitions that run by themselves get their curves once, before the first run of frames.
void setup_animated_params() {
    GlobalsV4Record* const globals = Globals_V4;
    if (globals->setup_flags & setup_animated_params_done) return;
    globals->setup_flags |= setup_animated_params_done;
    const Genotype* const genotype = globals->effect_genotype;
    if (!genotype) return;
    for (int i = 0; i < genotype->param_number; ++i)
        if (genotype->params[i]->scale_flags & scale_autotrans_mask) setup_autotrans_curve(genotype->params[i]);
}

// Values at a moment between frames, for a second field: every float param's curve is read anew.
void update_params_for_field(float time) {
    Genotype* const genotype = Globals_V4->effect_genotype;
    if (!genotype) return;
    for (int i = 0; i < genotype->param_number; ++i) {
        Param* const param = genotype->params[i];
        if (param->type != param_float || param->first_button < 0) continue;
        for (int channel = 0; channel < param->n_buttons; ++channel)
            param->value[channel] = param_value_at(param, channel, time);
    }
}

// A run of frames one after the other, for effects that remember or look into the clip: a jump starts a new run, and so
// does the same frame again, which would otherwise feed on itself. An effect that remembers knows nothing of what was
// before its run, so it does not look there either. What an effect without a memory shows at a frame is the same
// whichever frames were made before it.
void track_run(const SparkInfoStruct* info) {
    const Genotype* const genotype = Globals_V4->effect_genotype;
    const int flags = genotype ? genotype->effect_flags_1 : 0;
    the_frame->timewarp_get_frame_min = 0;
    if (!(flags & (effect_keeps_own_images | effect_reads_other_frames))) return;
    RunRecord* const run = Globals_V4->run_record;
    const int frame = frame_number(info);
    if (frame != run->last_frame + 1) {
        run->feedback_valid = 0;
        run->first_frame = frame;
    }
    run->last_frame = frame;
    if (flags & effect_keeps_own_images) the_frame->timewarp_get_frame_min = run->first_frame;
}

// The params have the values of the frame or the field, and the working area is theirs.
bool render_into(void* dest) {
    const int outer = evaluating_frame_p;
    evaluating_frame_p = 1;
    const int failed = evaluate_frame(dest, 1);
    evaluating_frame_p = outer;
    if (failed) {
        V_error(level_fatal, "SparkProcess: Error performing effect.");
        return false;
    }
    if (Globals_V4->effect_genotype) note_params_rendered(Globals_V4->effect_genotype);
    return true;
}

void tell_aborted() {
    if (!spark_process_from_callback_p) {
        sparkProcessTruncate();
        return;
    }
    if (aborted_by_host_p()) return;
    std::fputc('\a', stderr);
    std::fflush(stderr);
    show_message_delay(300, "PROCESS ABORTED.");
    sparkViewingCursor(1);
    sparkPointerWaitOff();
    ignore_next_pen_up = 1;
}

// All steps between arming the abort and giving the frame back. Null: there is no frame.
void* process_frame(SparkInfoStruct* info) {
    GlobalsV4Record* const globals = Globals_V4;
    if (!instance_ready_p()) {
        V_error(level_error, "The effects of this plug-in were not loaded: there is no frame.");
        return nullptr;
    }
    if (!frame_told_right_p(info)) return nullptr;
    // Images and what they hold are of the record that rendered last.
    if (instance_shared_p(globals)) globals->last_imaged_genotype = nullptr;
    const Clock::time_point start = Clock::now();
    const int total = info->TotalFrameNo;
    const int frame = frame_number(info);
    if (n_dest_frames(total) == 0) return nullptr;

    if (frame != globals->last_frame_no) {
        globals->frame_call_count = 0;
        globals->last_frame_no = frame;
    }
    const bool batch = called_in_batch_p();
    float t = static_cast<float>(info->FrameNo);
    const float length = static_cast<float>(total);
    if (!batch) {
        t = real_dest_frame(total, frame, globals->frame_call_count);
        ++globals->frame_call_count;
        if (t == -1.0f) return nullptr;
    }
    set_time_globals(t, length, 0, length - 1);
    spark_info_ptr = info;
    if (verbose_p) std::printf("Velloran: SparkProcess()...\n");

    if (globals->setup_flags & setup_needs_first_render) first_render(info);
    if (!apply_luts()) return nullptr;

    const int res = get_res_factor(info);
    if (set_res_factor(res)) free_temp_images();
    globals->last_res_factor = res;

    set_pixel_aspect(info);
    choose_effect();
    if (!fill_rasters(info, res)) return nullptr;
    const int field_mode = get_on_fields_mode();
    the_frame->render_field = field_mode == 0 ? 0 : field_mode == 1 ? 2 : 1;
    if (globals->effect_genotype) sync_effect_params(globals->effect_genotype);
    choose_working_area(info, res);
    the_frame->surround_color.on = get_surround_color(the_frame->surround_color.color);

    void* const dest = get_spark_buffer(0);
    if (!dest) return nullptr;
    if (get_redraw_mode() == redraw_never) {
        mp_memset(dest, 0, static_cast<size_t>(info->FrameBytes));
        return dest;
    }
    if (!frame_number_allowed(info)) return nullptr;
    any_valid_framenos_p = 1;
    sparkCursorBusy();

    // An effect may have more inputs than the plug-in: those are missing, and not what another plug-in left.
    for (int i = 0; i < MAX_INPUTS; ++i)
        init_source_image(i < globals->n_inputs ? get_spark_buffer(i + 1) : nullptr, i + 1, 3);
    track_run(info);
    reset_abort();
    rinfo& dest_raster = the_frame->dest_raster_info;
    dest_raster.add_noise = global_param_get_value(global_add_noise);
    if (dest_raster.add_noise > 0) reserve_noise_lines(dest_raster);

    bool made = render_into(dest);
    if (made && field_mode != 0) {
        set_time_globals(t + 0.5f, length, 0, length - 1);
        the_frame->render_field = field_mode == 1 ? 1 : 2;
        if (config.use_curves_in_fields)
            update_params_for_field(t + 0.5f + 1.0f);
        else
            sync_effect_params(globals->effect_genotype);
        choose_working_area(info, res);
        made = render_into(dest);
    }
    globals->last_render_seconds = std::chrono::duration<float>(Clock::now() - start).count();

    if (render_aborted_p())
        tell_aborted();
    else if (made && crop_enabled_p())
        fill_crop_surround(dest);
    if (verbose_p) std::printf("Velloran: SparkProcess() done.\n");
    return made && !the_frame->failed ? dest : nullptr;
}

int start_frames(SparkInfoStruct* info) {
    if (verbose_p) std::printf("Velloran: SparkProcessStart()...\n");
    spark_info_ptr = info;
    setup_animated_params();
    if (verbose_p) std::printf("Velloran: SparkProcessStart() done.\n");
    Globals_V4->frame_call_count = 0;
    if (called_in_batch_p()) return 1;
    const int n = n_dest_frames(info->TotalFrameNo);
    return n > 0 ? n : 1;
}

// Behind an abort target. An abort leaves no frame.
void* process_armed(SparkInfoStruct* info) {
    GlobalsV4Record* const globals = Globals_V4;
    SparkInfoStruct* const caller_info = spark_info_ptr;
    Frame* const frame = the_frame;
    OwnDirectory own;
    enter_own_directory(own);
    AbortTarget outer;
    arm_abort(outer);
    frame->in_hand = true;
    void* dest;
    if (setjmp(_V_jmpbuf)) {
        dest = nullptr;
        globals->render_flags &= static_cast<uint8_t>(~render_evaluating);
    } else {
        dest = process_frame(info);
    }
    Globals_V4 = globals;
    the_frame = frame;
    frame->in_hand = false;
    spark_info_ptr = caller_info;
    disarm_abort(outer);
    leave_own_directory(own);
    return dest;
}

}  // namespace
}  // namespace velloran

using namespace velloran;

int V4_SparkProcessStart(SparkInfoStruct info) {
    if (!instance_ready_p()) return 0;
    const int n = guarded_call(&info, 0, [&] { return start_frames(&info); });
    spark_info_ptr = nullptr;
    return n;
}

void* V4_SparkProcess(SparkInfoStruct info) {
    if (!Globals_V4) return nullptr;
    if (Globals_V4->render_flags & render_evaluating) {
        // It has one set of nodes and planes.
        V_error(level_error, "%s: a frame is wanted while one is being made.", Globals_V4->plugin_name);
        return nullptr;
    }
    if (!the_frame->in_hand) return process_armed(&info);
    Frame own;
    Frame* const outer = begin_inner_frame(&own);
    void* const dest = process_armed(&info);
    end_inner_frame(outer);
    return dest;
}
