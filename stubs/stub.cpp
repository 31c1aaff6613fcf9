// A plug-in module: owns the record of one instance, its control structures and its effect texts, and hands every call
// of the host on to the library.
#include "stubs/describe.h"
#include "stubs/effect_texts.h"
#include "stubs/explain_nodes.h"

#include "host/entry_points.h"
#include "host/stub_services.h"
#include "records/widget_record.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

#define SPARK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using velloran::GlobalsV4Record;
using velloran::Param;

constexpr int n_numbers = velloran::N_CONTROL_NUMBERS;
constexpr int last_number = n_numbers - 1;

// One structure of each kind for every number: which of them a control shows is up to the effects.
struct ControlStructures {
    SparkFloatStruct floats[n_numbers];
    SparkIntStruct ints[n_numbers];
    SparkColourStruct colours[n_numbers];
    SparkBooleanStruct booleans[n_numbers];
    SparkBooleanStruct toggles[n_numbers];
    SparkPopupStruct popups[n_numbers];
    SparkStringStruct strings[n_numbers];
};

ControlStructures own;
GlobalsV4Record* record = nullptr;
std::unique_ptr<velloran::FrameWatch> watch;  // while somebody watches
SparkControl controls_in_use[n_numbers];
int n_controls_in_use = 0;

#ifdef STUB_TEXT_AT_RUN_TIME
struct {
    bool given = false, one_effect = false;
    std::string text, name, effect;
} run_time_text;
#endif

// ---- Callbacks ----

using NumberedCallback = void* (*)(int, SparkInfoStruct);
using NamedCallback = void* (*)(int, SparkInfoStruct, int);

constexpr NumberedCallback numbered_callbacks[] = {
#define ENTRY(N) V4_cbkfun##N,
    V4_FOR_EACH_CONTROL_NUMBER(ENTRY)
#undef ENTRY
};

constexpr struct {
    const char* name;
    NamedCallback function;
} named_callbacks[] = {
#define ENTRY(NAME) {#NAME, V4_##NAME##_callback},
    V4_FOR_EACH_NAMED_CALLBACK(ENTRY)
#undef ENTRY
};

NamedCallback find_named_callback(const char* name) {
    for (const auto& row : named_callbacks)
        if (name && std::strcmp(row.name, name) == 0) return row.function;
    return nullptr;
}

// Before a start has come to its end, and after it failed, what the record points at is not whole.
bool ready_p() { return record && (record->setup_flags & velloran::setup_ready) != 0; }

void* on_control(int number, int action, SparkInfoStruct info) {
    if (!ready_p()) return nullptr;
    Globals_V4 = record;
    const Param* const effects = record->effect_popup_param;
    if (effects && record->n_effects > 1 && effects->first_button + velloran::BUTTON_BASE == number)
        return V4_effect_popup_callback(action, info, 0);
    for (const Param* param : record->global_params) {
        if (!param) continue;
        for (int copy = 0; copy < param->n_global_buttons; copy++) {
            if (param->global_buttons[copy] != number) continue;
            const NamedCallback callback = find_named_callback(param->callback_name);
            // Several params of one key are told apart by their variant, not by the copy.
            if (callback) return callback(action, info, param->extra > 0 ? param->extra : copy);
        }
    }
    return numbered_callbacks[number](action, info);
}

template <int number>
void* control_callback(int action, SparkInfoStruct info) {
    return on_control(number, action, info);
}

template <int... numbers>
constexpr std::array<SparkCallback, sizeof...(numbers)> make_callbacks(std::integer_sequence<int, numbers...>) {
    return {control_callback<numbers>...};
}
constexpr auto control_callbacks = make_callbacks(std::make_integer_sequence<int, n_numbers>());

void* toggle_callback(int action, SparkInfoStruct info) {
    if (!ready_p()) return nullptr;
    Globals_V4 = record;
    return V4_widget_enable_callback(action, info, 0);
}

// ---- The record ----

void fill_structures() {
    std::memset(&own, 0, sizeof(own));
    for (int number = velloran::BUTTON_BASE; number <= last_number; number++) {
        const SparkCallback callback = control_callbacks[static_cast<size_t>(number)];
        own.floats[number] = {0, -1e6f, 1e6f, 0.001f, "", callback};
        own.ints[number] = {0, -1000000, 1000000, 1, "", callback};
        own.colours[number] = {0, "", callback};
        own.booleans[number] = {0, "", callback};
        own.toggles[number] = {0, "", toggle_callback};
        own.popups[number].Title = "";
        own.popups[number].CallBack = callback;
        own.strings[number].Title = "";
        own.strings[number].CallBack = callback;
        record->float_controls[number] = &own.floats[number];
        record->int_controls[number] = &own.ints[number];
        record->color_controls[number] = &own.colours[number];
        record->boolean_controls[number] = &own.booleans[number];
        record->toggle_controls[number] = &own.toggles[number];
        record->popup_controls[number] = &own.popups[number];
        record->string_controls[number] = &own.strings[number];
    }
}

#ifndef STUB_TEXT_AT_RUN_TIME
std::string family_text() {
    std::string text;
    for (const StubEffectText* part = stub_effect_texts; part->text; part++) text.append(part->text).append("\n");
    return text;
}
#endif

void fill_effects() {
#ifdef STUB_TEXT_AT_RUN_TIME
    if (run_time_text.given)
        V4_split_effects(run_time_text.text.c_str(), run_time_text.name.c_str(),
                         run_time_text.one_effect ? run_time_text.effect.c_str() : nullptr, record);
#else
    V4_split_effects(family_text().c_str(), stub_effect_texts[0].name, nullptr, record);
#endif
}

void make_record() {
    record = V4_init_globals(nullptr);
    if (!record) return;
    fill_structures();
    fill_effects();
}

void free_record() {
    if (!record) return;
    V4_free_globals(record);
    if (Globals_V4 == record) Globals_V4 = nullptr;
    record = nullptr;
    watch.reset();
    n_controls_in_use = 0;
}

// Planes that the largest effect needs; the host is asked for them in SparkMemoryTempBuffers.
void note_required_buffers() {
    int most = 0;
    for (int i = 0; i < record->n_effects; i++) {
        const velloran::Genotype* const effect = record->genotypes[i];
        if (effect) most = std::max(most, effect->temp_image_number + effect->cache_image_number);
    }
    record->required_buffers = static_cast<int16_t>(most);
}

SparkInfoStruct host_info() {
    SparkInfoStruct info = {};
    sparkGetInfo(&info);
    return info;
}

// ---- Controls in use ----

template <class T>
bool add_if_in(T (&table)[n_numbers], SparkControlKind kind, void* structure, SparkControl (&in_use)[n_numbers]) {
    const auto at = reinterpret_cast<uintptr_t>(structure), first = reinterpret_cast<uintptr_t>(&table[0]);
    if (at < first || at >= first + sizeof(table)) return false;
    const int number = static_cast<int>((at - first) / sizeof(T));
    in_use[number] = {number, kind, structure};
    return true;
}

void add_structure(void* structure, SparkControl (&in_use)[n_numbers]) {
    if (!structure) return;
    add_if_in(own.floats, SPARK_CONTROL_FLOAT, structure, in_use) ||
        add_if_in(own.ints, SPARK_CONTROL_INT, structure, in_use) ||
        add_if_in(own.colours, SPARK_CONTROL_COLOUR, structure, in_use) ||
        add_if_in(own.booleans, SPARK_CONTROL_BOOLEAN, structure, in_use) ||
        add_if_in(own.toggles, SPARK_CONTROL_TOGGLE, structure, in_use) ||
        add_if_in(own.popups, SPARK_CONTROL_POPUP, structure, in_use) ||
        add_if_in(own.strings, SPARK_CONTROL_STRING, structure, in_use);
}

void add_param(const Param* param, SparkControl (&in_use)[n_numbers]) {
    if (!param) return;
    for (void* structure : param->controls) add_structure(structure, in_use);
    for (int copy = 0; copy < param->n_global_buttons; copy++) add_structure(param->global_controls[copy], in_use);
    // A colour that shows its name takes the float control of its first number for that.
    const int number = param->first_button + velloran::BUTTON_BASE;
    const bool named_colour = param->type == velloran::param_color &&
                              !(param->kind_flags & velloran::kind_color_only) &&
                              !(param->owner_flags & velloran::owner_global) && param->first_button >= 0;
    if (named_colour && number <= last_number) add_structure(&own.floats[number], in_use);
}

void find_controls_in_use() {
    SparkControl in_use[n_numbers] = {};
    for (int i = 0; i < record->n_effects; i++) {
        const velloran::Genotype* const effect = record->genotypes[i];
        for (int p = 0; effect && p < effect->param_number; p++) add_param(effect->params[p], in_use);
        // The switches of on-screen handles.
        for (int w = 0; w < velloran::widget_count(effect); w++)
            add_param(effect->widgets->widgets[w].enable_param, in_use);
    }
    for (const Param* param : record->global_params) add_param(param, in_use);
    add_param(record->effect_popup_param, in_use);
    n_controls_in_use = 0;
    for (const SparkControl& control : in_use)
        if (control.Control) controls_in_use[n_controls_in_use++] = control;
}

// ---- Description ----

const char* kind_name(int type) {
    constexpr const char* names[] = {"unknown", "float",  "int",    "color", "popup",
                                     "boolean", "button", "string", "label"};
    return type >= 0 && type < static_cast<int>(std::size(names)) ? names[type] : names[0];
}

std::string group_path(const velloran::ParamGroup* group) {
    if (!group || !group->name) return "";
    const std::string outer = group_path(group->parent);
    return outer.empty() ? group->name : outer + "/" + group->name;
}

// Bounds are kept in the units of the evaluation; what the frame's size scales has none worth telling.
void describe_bounds(const Param& param, SparkParamInfo& info) {
    const int mode = param.scale_flags & velloran::scale_mode_mask;
    float scale = 1;
    if (mode == velloran::screen_normalize_scale && param.normalize_scale != 0) scale = param.normalize_scale;
    info.Min = param.min_value / scale;
    info.Max = param.max_value / scale;
    info.Step = param.step;
    if (mode == velloran::screen_to_norm || mode == velloran::screen_center_to_norm) {
        info.Min = 1;
        info.Max = 0;
    }
}

void describe_param(const SparkDescribeVisitor& visitor, const Param& param, int effect, const char* group) {
    SparkParamInfo info = {};
    const bool standard = (param.owner_flags & velloran::owner_global) != 0;
    info.Effect = effect;
    info.Name = param.name ? param.name : "";
    info.Key = standard ? param.callback_name : nullptr;
    info.Variant = param.extra;
    info.Kind = kind_name(param.type);
    info.Group = group && group[0] ? group : nullptr;
    info.Channels = std::clamp<int>(param.n_channels, 1, 4);
    for (int i = 0; i < 4; i++) {
        info.ChannelNames[i] = param.channel_names[i];
        info.Default[i] = param.default_value[i];
        info.Numbers[i] = -1;
    }
    if (standard) {
        info.Controls = std::clamp(param.n_global_buttons, 0, 4);
        std::copy_n(param.global_buttons, info.Controls, info.Numbers);
        info.Flags |= SPARK_PARAM_STANDARD;
    } else if (param.first_button >= 0) {
        const bool colour = param.type == velloran::param_color;
        const bool colour_only = (param.kind_flags & velloran::kind_color_only) != 0;
        info.Controls = colour ? 1 : std::clamp<int>(param.n_buttons, 0, 4);
        const int first =
            param.first_button + velloran::BUTTON_BASE + (colour && !colour_only ? SPARK_CONTROLS_PER_COLUMN : 0);
        // The channels of a vector may stand on both sides of a colour's pot.
        for (int i = 0; i < info.Controls; i++)
            info.Numbers[i] = colour ? first : param.buttons[i] + velloran::BUTTON_BASE;
    }
    if (param.save_flags & velloran::save_hidden) info.Flags |= SPARK_PARAM_HIDDEN;
    if (param.kind_flags & velloran::kind_color_only) info.Flags |= SPARK_PARAM_COLOUR_ONLY;
    if (param.widget_list) info.Flags |= SPARK_PARAM_ON_SCREEN;
    if (param.scale_flags & velloran::scale_autotrans_mask) info.Flags |= SPARK_PARAM_MOVES;
    describe_bounds(param, info);
    switch (param.scale_flags & velloran::scale_mode_mask) {
        case velloran::screen_screen:
        case velloran::screen_center:
        case velloran::screen_to_norm:
        case velloran::screen_center_to_norm:
            info.Flags |= SPARK_PARAM_PIXELS;
    }
    if (param.type == velloran::param_popup || param.type == velloran::param_label) {
        // A popup of several elements has a list for each, with a null between.
        info.Labels = std::min((param.n_popup_entries + 1) * info.Channels - 1, velloran::max_popup_entries);
        info.LabelTexts = param.popup_entries;
        if (param.custom_entries) {
            info.Labels = param.n_popup_entries;
            info.LabelTexts = param.custom_entries;
        }
    }
    visitor.Param(visitor.Context, &info);
}

void describe_effect(const SparkDescribeVisitor& visitor, const velloran::Genotype& effect, int index) {
    SparkEffectInfo info = {};
    info.Index = index;
    info.Name = effect.name;
    info.Inputs = std::clamp<int>(effect.input_number, 0, 4);
    for (int i = 0; i < info.Inputs; i++) info.InputNames[i] = effect.input_names[i];
    if (effect.effect_flags_1 & velloran::effect_keeps_own_images) info.Flags |= SPARK_EFFECT_REMEMBERS;
    if (effect.effect_flags_1 & velloran::effect_reads_other_frames) info.Flags |= SPARK_EFFECT_READS_FRAMES;
    if (V4_changes_frame_count(record)) info.Flags |= SPARK_EFFECT_RETIMES;
    visitor.Effect(visitor.Context, &info);
    for (int i = 0; i < effect.param_number; i++) {
        const Param* const param = effect.params[i];
        if (!param) continue;
        const bool grouped = param->group_index >= 0 && param->group_index < effect.group_number;
        const std::string group = grouped ? group_path(&effect.groups[param->group_index]) : "";
        describe_param(visitor, *param, index, group.c_str());
    }
}

// A host may unload the module without a word after a failed start.
struct FreeAtUnload {
    ~FreeAtUnload() { free_record(); }
} free_at_unload;

}  // namespace

SPARK_EXPORT int SparkIsInputFormatSupported(int depth) { return V4_SparkIsInputFormatSupported(depth); }

SPARK_EXPORT int SparkClips(void) {
    if (!record) make_record();
    if (!record) return 0;
    Globals_V4 = record;
    const int clips = V4_SparkClips(VELLORAN_VERSION);
    note_required_buffers();
    return clips;
}

SPARK_EXPORT void SparkMemoryTempBuffers(void) {
    if (!record) return;
    Globals_V4 = record;
    V4_SparkMemoryTempBuffers(host_info());
}

SPARK_EXPORT int SparkInitialise(SparkInfoStruct info) {
    if (!record) return 0;
    Globals_V4 = record;
    const int answer = V4_SparkInitialise(info);
    if (answer != 2) {
        // The host does not come back; what SparkClips set up must not stay.
        Globals_V4 = record;
        V4_SparkUnInitialise(info);
        free_record();
    }
    return answer;
}

SPARK_EXPORT int SparkControls(const SparkControl** list) {
    if (!ready_p()) return 0;
    find_controls_in_use();
    if (list) *list = controls_in_use;
    return n_controls_in_use;
}

SPARK_EXPORT int SparkProcessStart(SparkInfoStruct info) {
    if (!record) return 0;
    Globals_V4 = record;
    return V4_SparkProcessStart(info);
}

SPARK_EXPORT void* SparkProcess(SparkInfoStruct info) {
    if (!record) return nullptr;
    Globals_V4 = record;
    if (watch) watch->whole = false;
    return V4_SparkProcess(info);
}

SPARK_EXPORT void* SparkInteract(SparkInfoStruct info, int event, int modifiers, float pressure, float x, float y,
                                 float zoom) {
    if (!record) return nullptr;
    Globals_V4 = record;
    return V4_SparkInteract(info, event, modifiers, pressure, x, y, zoom);
}

SPARK_EXPORT void SparkOverlay(SparkInfoStruct info, float zoom) {
    if (!record) return;
    Globals_V4 = record;
    V4_SparkOverlay(info, zoom);
}

SPARK_EXPORT void SparkUnInitialise(SparkInfoStruct info) {
    if (!record) return;
    Globals_V4 = record;
    V4_SparkUnInitialise(info);
    free_record();
}

SPARK_EXPORT int SparkLoadSetup(SparkInfoStruct info, const char* path) {
    if (!ready_p()) return -1;
    Globals_V4 = record;
    return V4_load_setup(info, path);
}

SPARK_EXPORT int SparkDestFrames(int frames) {
    if (!ready_p()) return frames;
    Globals_V4 = record;
    return V4_dest_frames(frames);
}

SPARK_EXPORT int SparkWatch(int x, int y) {
    if (!ready_p()) return 0;
    if (!watch) watch.reset(new (std::nothrow) velloran::FrameWatch());
    if (!watch) return 0;
    watch->whole = false;
    watch->column = x;
    watch->row = y;
    record->watch = watch.get();
    return 1;
}

SPARK_EXPORT int SparkExplain(const SparkExplainVisitor* visitor) {
    if (!ready_p() || !watch) return 0;
    const bool explained = stub::explain_frame(*watch, *visitor);
    record->watch = nullptr;
    watch.reset();
    return explained;
}

SPARK_EXPORT const char* SparkDefinitionsText(void) {
#ifdef STUB_TEXT_AT_RUN_TIME
    return run_time_text.text.c_str();
#else
    static const std::string text = family_text();
    return text.c_str();
#endif
}

SPARK_EXPORT int SparkDescribe(const SparkDescribeVisitor* visitor) {
    if (!ready_p()) return 0;
    for (int i = 0; i < record->n_effects; i++)
        if (record->genotypes[i]) describe_effect(*visitor, *record->genotypes[i], i);
    for (const Param* param : record->global_params)
        if (param) describe_param(*visitor, *param, -1, nullptr);
    return record->n_effects;
}

#ifdef STUB_TEXT_AT_RUN_TIME
SPARK_EXPORT void SparkTextDefinitions(const char* text, const char* name, const char* effect) {
    run_time_text.given = true;
    run_time_text.one_effect = effect != nullptr;
    run_time_text.text = text ? text : "";
    run_time_text.name = name ? name : "";
    run_time_text.effect = effect ? effect : "";
}
#endif
