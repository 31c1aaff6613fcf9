#include "hosts/desk/worker.h"

#include "hosts/common/task_pool.h"
#include "hosts/desk/command_line.h"
#include "hosts/desk/handle_layer.h"
#include "hosts/desk/panel_state.h"
#include "hosts/desk/thumbnails.h"
#include "hosts/render/failure.h"
#include "hosts/render/look_file.h"
#include "hosts/render/making.h"
#include "hosts/render/output_file.h"

#include <algorithm>
#include <filesystem>

namespace desk {

namespace fs = std::filesystem;
using render::RenderPlan;

namespace {

constexpr size_t kept_bytes = size_t{768} << 20;  // of the pictures of an input, so that scrubbing finds them

// What is asked for where a picture was given that may say how it was made.
OpenRequest as_made(const OpenRequest& request) {
    OpenRequest known = request;
    known.made.clear();
    known.inputs_otherwise.clear();
    std::string error;
    if (spark_host::picture_functions().making_of(request.made, &error).empty()) {
        known.inputs = request.inputs_otherwise;
        return known;
    }
    const render::Making making = render::read_making(request.made);
    known.edited = !making.choice.text_path.empty();
    known.text = making.choice.text;
    known.effect = making.choice.plugin + (known.edited ? ".text:" : ":") + render::underscored(making.choice.effect);
    known.setup = making.setup;
    return known;
}

bool same_place(const OpenRequest& a, const OpenRequest& b) { return a.inputs == b.inputs && a.length == b.length; }

}  // namespace

Worker::Worker(Sink sink) : sink_(std::move(sink)) {
    // Plug-ins keep their own setups beside their data; those of this program go with it.
    std::error_code error;
    const fs::path from = render::default_config_directory(), to = private_dir_.path().toStdString();
    for (auto at = fs::directory_iterator(from, error); !error && at != fs::directory_iterator(); at.increment(error))
        fs::create_symlink(fs::absolute(at->path()), to / at->path().filename(), error);
    catalogue_ = std::make_unique<Catalogue>(to.string());
}

Worker::~Worker() = default;

// ---- Opening ----

std::unique_ptr<RenderPlan> Worker::load(const OpenRequest& request) {
    auto plan = std::make_unique<RenderPlan>();
    if (request.edited) {
        const size_t colon = request.effect.rfind(':');
        plan->choice.text_path = request.effect.substr(0, colon);
        plan->choice.effect = colon == std::string::npos ? "" : request.effect.substr(colon + 1);
        plan->choice.plugin = fs::path(plan->choice.text_path).stem().string();
        plan->choice.module_path = render::text_module_path();
        plan->choice.text = request.text;
    } else {
        plan->choice = render::choose_effect(request.effect);
    }
    plan->config = private_dir_.path().toStdString();
    std::error_code error;
    fs::remove(fs::path(plan->config) / plan->choice.plugin, error);
    plan->plugin = render::load_choice(plan->host, plan->choice, plan->config);
    return plan;
}

void Worker::start(RenderPlan& plan, const OpenRequest& request) {
    for (const std::string& path : request.inputs)
        plan.inputs.push_back(path.empty() ? nullptr : render::open_input(path, render::Missing::error, "", 0));
    spark_host::Host& host = plan.host;
    const render::InputClip* first = nullptr;
    const render::InputClip* timed = nullptr;
    for (const auto& input : plan.inputs) {
        if (!input) continue;
        input->kept_bytes = kept_bytes;
        if (!first) first = input.get();
        if (!timed && input->kind != render::InputClip::Kind::still) timed = input.get();
    }
    host.format = {1920, 1080, SPARK_DEPTH_8};
    if (first) {
        host.format = {first->info.width, first->info.height, first->info.eight_bits ? SPARK_DEPTH_8 : SPARK_DEPTH_12};
        host.pixel_ratio = first->info.pixel_ratio;
    }
    for (const auto& input : plan.inputs)
        if (input && (input->info.width != host.format.width || input->info.height != host.format.height))
            throw render::Failure(input->path + ": is " + std::to_string(input->info.width) + "x" +
                                  std::to_string(input->info.height) + ", but " + first->path + " is " +
                                  std::to_string(host.format.width) + "x" + std::to_string(host.format.height) +
                                  "; all inputs must be of one size");
    host.processors = spark_host::processors_here();
    host.frame_rate = timed && timed->info.frame_rate > 0 ? timed->info.frame_rate : 24;
    host.memory_buffers = spark_host::memory_buffers_here(host.format);
    host.read_pen = [] { return spark_host::Pen(); };  // holding a pen down stops nothing: a newer value does
    host.on_error = [this](const std::string& text) { sink_.message(2, QString::fromStdString(text).trimmed()); };
    host.on_message = [this](const std::string& text) { sink_.message(0, QString::fromStdString(text).trimmed()); };
    plan.first_frame = timed ? timed->frames.front() : 1;
    host.total_frames =
        timed ? timed->frames.back() - timed->frames.front() + 1 : std::clamp(request.length, 1, 1000000);
    host.frame = std::clamp(request.frame, 0, host.total_frames - 1);
    if (!start_plugin(*plan.plugin))
        throw render::Failure(plan.choice.plugin + ": " +
                              (plan.plugin->failure.empty() ? "the plug-in cannot be used" : plan.plugin->failure));
    plan.description = render::describe_plugin(*plan.plugin);
    plan.effect = render::find_effect(plan.description, plan.choice);
    if (plan.description.effects.empty()) throw render::Failure(plan.choice.plugin + ": there is no effect in it");
    plan.remembers = plan.description.effects[plan.effect].remembers;
    if (plan.inputs.size() > static_cast<size_t>(plan.plugin->n_clips)) {
        sink_.message(1, QString("%1 takes %2 pictures; the others are left aside")
                             .arg(QString::fromStdString(plan.description.effects[plan.effect].name))
                             .arg(plan.plugin->n_clips));
        plan.inputs.resize(static_cast<size_t>(plan.plugin->n_clips));
    }
    plan.inputs.resize(static_cast<size_t>(plan.plugin->n_clips));
    for (const auto& input : plan.inputs)
        plan.plugin->inputs.push_back(input ? render::host_clip(*input, plan.first_frame, host.total_frames) : nullptr);
    spark_host::inputs_changed(*plan.plugin);
    render::select_effect(*plan.plugin, plan.description, plan.effect);
}

void Worker::open(const OpenRequest& given) {
    std::unique_ptr<RenderPlan> plan;
    OpenRequest request = given;
    std::vector<render::Assignment> look;
    try {
        if (!given.made.empty()) request = as_made(given);
        plan = load(request);
        start(*plan, request);
        if (!request.look.empty()) look = render::read_look(*plan, request.look);
    } catch (const std::exception& problem) {
        return tell_failure(QString::fromStdString(problem.what()));
    }
    // Pictures that were read stay.
    if (plan_ && same_place(request, request_))
        for (size_t i = 0; i < std::min(plan->inputs.size(), plan_->inputs.size()); i++)
            if (plan->inputs[i] && plan_->inputs[i]) plan->inputs[i]->loaded.swap(plan_->inputs[i]->loaded);
    {
        const std::lock_guard lock(frame_mutex_);
        abort_render_ = reinterpret_cast<void (*)()>(plugin_symbol(*plan->plugin, "V4_abort_render"));
    }
    frame_ = nullptr;
    plan_ = std::move(plan);
    request_ = request;
    full_cost_ = 0;
    last_made_ = -1;
    hand_moves_ = step_open_ = false;
    process_start(*plan_->plugin, plan_->host.frame);
    // Nothing is told of it before it is told that it is open.
    if (!request.setup.empty()) show_values(request.setup, false);
    apply(look);
    if (!request.setup_file.empty() && !apply_setup(request.setup_file)) request.setup_file.clear();

    OpenState state;
    state.request = request;
    const auto& effect = plan_->description.effects[plan_->effect];
    state.plugin = QString::fromStdString(plan_->choice.plugin);
    state.name = QString::fromStdString(effect.name);
    state.note = QString::fromStdString(effect.note);
    const bool from_text = !plan_->choice.text_path.empty();
    state.effect = QString::fromStdString((from_text ? plan_->choice.text_path : plan_->choice.plugin) + ":" +
                                          render::underscored(effect.name));
    for (const std::string& name : effect.inputs) state.inputs << QString::fromStdString(name);
    while (state.inputs.size() < plan_->plugin->n_clips)
        state.inputs << QString("Input %1").arg(state.inputs.size() + 1);
    for (const auto& input : plan_->inputs) state.input_paths << (input ? QString::fromStdString(input->path) : "");
    const spark_host::Host& host = plan_->host;
    state.width = host.format.width;
    state.height = host.format.height;
    state.bits = host.format.depth == SPARK_DEPTH_8 ? 8 : 12;
    state.first_frame = plan_->first_frame;
    state.frames = host.total_frames;
    state.frame_rate = host.frame_rate;
    state.pixel_ratio = host.pixel_ratio > 0 ? host.pixel_ratio : 1;
    state.from_text = from_text;
    state.text_path = QString::fromStdString(plan_->choice.text_path);
    using DefinitionsFn = const char* (*)();
    const auto definitions = reinterpret_cast<DefinitionsFn>(plugin_symbol(*plan_->plugin, "SparkDefinitionsText"));
    state.definitions = QString::fromStdString(from_text ? plan_->choice.text : definitions ? definitions() : "");
    state.setup = render::setup_lines(*plan_);
    try {
        state.looks = look_states(plan_->choice, effect.name, plan_->config);
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()), 1);
    }
    sink_.opened(state);
    tell_panel();
    if (!given.made.empty() && !request.setup.empty() && given.setup != request.setup) {
        const std::string name = fs::path(given.made).filename().string();
        const bool none = std::all_of(request.inputs.begin(), request.inputs.end(), [](auto& i) { return i.empty(); });
        sink_.message(0, QString::fromStdString("As " + name + " was made" +
                                                (none ? "; now drop the picture to make it of"
                                                      : ". To take it as a picture, hold Shift while it is dropped")));
    }
    if (view_.area.isEmpty()) view_.area = QRect(0, 0, host.format.width, host.format.height);
    make_frame(true);
    settled_ = false;
}

void Worker::check_text(const OpenRequest& request) {
    std::vector<TextMessageState> told;
    int failed = 1;
    try {
        const std::string path = request.effect.substr(0, request.effect.rfind(':'));
        // Any module of a library can check; what is open stays as it is.
        spark_host::Host host;
        std::string error;
        const auto module = spark_host::load_plugin(host, render::text_module_path(), "", &error);
        if (!module) throw render::Failure(error);
        std::vector<render::TextMessage> messages;
        failed = render::check_text(*module, request.text, path, nullptr, messages);
        for (const render::TextMessage& message : messages)
            told.push_back(
                {render::error_p(message), message.line, message.column, QString::fromStdString(message.text)});
    } catch (const std::exception& problem) {
        told.push_back({true, 0, 0, QString::fromStdString(problem.what())});
    }
    sink_.text_checked(told, failed == 0);
    if (failed != 0) return;
    OpenRequest again = request;
    if (plan_ && same_place(request, request_)) again.setup = render::setup_lines(*plan_);
    if (plan_) again.frame = plan_->host.frame;
    open(again);
}

// ---- Going out ----

std::string Worker::command(const std::string& output, const std::string& frames) {
    if (!plan_) return "";
    try {
        return render_line(*plan_, request_.length, output, frames, private_dir_.path().toStdString());
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
        return "";
    }
}

std::vector<std::string> Worker::job(const std::string& output, const std::string& frames) {
    if (!plan_) return {};
    try {
        const std::string directory = private_dir_.path().toStdString();
        std::vector<std::string> words = render_arguments(*plan_, request_.length, output, frames, directory);
        if (plan_->choice.text_path.empty()) return words;
        // The text as it is now, whatever becomes of the file.
        static int n = 0;
        const fs::path copy = fs::path(directory) / ("job" + std::to_string(++n)) / (plan_->choice.plugin + ".text");
        fs::create_directory(copy.parent_path());
        std::string error;
        const std::string& text = plan_->choice.text;
        if (!render::write_whole_file(copy.string(), std::vector<unsigned char>(text.begin(), text.end()), &error))
            throw render::Failure(error);
        words[1] = copy.string() + words[1].substr(words[1].rfind(':'));
        return words;
    } catch (const std::exception& problem) {
        tell_failure(QString::fromStdString(problem.what()));
        return {};
    }
}

// ---- Telling ----

void Worker::tell_failure(const QString& text, int level) { sink_.message(level, text.trimmed()); }

void Worker::tell_panel() { sink_.panel(panel_state(*plan_)); }

void Worker::tell_step(const QString& label) {
    step_open_ = false;
    hand_moves_ = false;
    sink_.step({label, render::setup_lines(*plan_)});
}

}  // namespace desk
