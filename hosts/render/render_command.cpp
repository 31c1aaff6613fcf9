// The render loop: while the effect makes a frame, the next pictures are read and the last one is written.
#include "hosts/common/numbers.h"
#include "hosts/common/setup_text.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/output_file.h"
#include "hosts/render/progress.h"
#include "hosts/render/recipe.h"
#include "hosts/render/render_plan.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <future>
#include <set>

namespace render {
namespace {

using spark_host::PicturePtr;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

std::string recipe_of_frame(const std::string& plan, int frame) { return plan + ":" + std::to_string(frame); }

bool made_before_p(const std::string& path, const std::string& recipe) {
    std::string error, kept;
    const auto* const pictures = spark_host::picture_functions(&error);
    if (!pictures || !pictures->check_whole(path, kept)) return false;
    if (kept.empty()) kept = recipe_beside(path);
    return kept == recipe;
}

struct WriteOutcome {
    int frame = 0;
    std::string path, error;
    std::vector<std::string> losses;
    double seconds = 0;
};

// Owns all that a write needs, for it runs while the plug-in makes the next frame.
struct WriteJob {
    int frame = 0;
    std::string path, recipe;
    bool recipe_beside = false;
    PicturePtr from;
    spark_host::FrameFormat format;
    float pixel_ratio = 1;
    std::vector<unsigned char> pixels;
};

WriteOutcome write_frame(const WriteJob& job) {
    const auto start = Clock::now();
    WriteOutcome outcome;
    outcome.frame = job.frame;
    outcome.path = job.path;
    try {
        spark_host::WriteRequest request;
        request.from = job.from.get();
        request.format = job.format;
        request.frame = job.pixels.data();
        request.pixel_ratio = job.pixel_ratio;
        request.recipe = job.recipe;
        spark_host::WriteResult result;
        const auto* const pictures = spark_host::picture_functions(&outcome.error);
        if (pictures && pictures->write(job.path, request, result, &outcome.error) &&
            write_whole_file(job.path, result.file, &outcome.error) && job.recipe_beside && !result.holds_recipe)
            write_whole_file(recipe_path(job.path), recipe_file(job.recipe, result.file), &outcome.error);
        outcome.losses = std::move(result.losses);
    } catch (const std::bad_alloc&) {
        outcome.error = job.path + ": out of memory";
    } catch (const std::exception& problem) {
        outcome.error = job.path + ": " + problem.what();
    }
    outcome.seconds = seconds_since(start);
    return outcome;
}

struct RenderRun {
    RenderPlan& plan;
    const RenderOptions& options;
    Progress progress;
    std::future<WriteOutcome> writing;
    std::set<std::string> told_losses;
    double process_seconds = 0, write_seconds = 0;
    bool stop = false, no_memory = false;

    RenderRun(RenderPlan& p, const RenderOptions& o)
        : plan(p), options(o), progress(o.progress, static_cast<int>(p.frames.size())) {}

    void frame_failed(int frame, const std::string& error) {
        fail("frame " + std::to_string(frame) + ": " + error);
        progress.failed(frame, error);
        no_memory |= error.find("out of memory") != std::string::npos;
        if (options.on_error == "stop") stop = true;
    }

    void finish_write() {
        if (!writing.valid()) return;
        const WriteOutcome outcome = writing.get();
        write_seconds += outcome.seconds;
        for (const std::string& loss : outcome.losses)
            if (told_losses.insert(loss).second) warn(loss);
        if (outcome.error.empty())
            progress.rendered(outcome.frame, outcome.path);
        else
            frame_failed(outcome.frame, outcome.error);
    }

    std::string reason_of_failure() const {
        for (const auto& input : plan.inputs)
            if (input && !input->failure.empty()) return input->failure;
        if (!plan.plugin->failure.empty()) return plan.plugin->failure;
        return "the effect gave no frame";
    }

    void render_frame(int frame, int next, const std::string& recipe) {
        for (const auto& input : plan.inputs) {
            if (!input) continue;
            prefetch(*input, frame);
            if (next >= 0) prefetch(*input, next);
        }
        const auto start = Clock::now();
        const void* const made = process(*plan.plugin, frame - plan.first_frame);
        process_seconds += seconds_since(start);
        if (!made) return frame_failed(frame, reason_of_failure());
        WriteJob job;
        job.frame = frame;
        job.path = path_of_frame(plan.output, frame);
        job.recipe = recipe_of_frame(recipe, frame);
        job.recipe_beside = options.skip_existing;
        job.format = plan.host.format;
        job.pixel_ratio = plan.host.pixel_ratio;
        // An input that is black here has nothing to hand on.
        if (!plan.inputs.empty() && plan.inputs[0]) job.from = picture_of_frame(*plan.inputs[0], frame);
        const auto* const bytes = static_cast<const unsigned char*>(made);
        job.pixels.assign(bytes, bytes + job.format.bytes());
        finish_write();
        writing = std::async(std::launch::async, [job = std::move(job)] { return write_frame(job); });
    }

    void show_stats() const {
        const double seconds = progress.seconds();
        const double pixels = static_cast<double>(plan.host.format.pixels()) * progress.n_rendered;
        struct rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        const auto line = [](const char* name, const std::string& text) { fail(std::string(name) + text); };
        line("frames rendered  ", std::to_string(progress.n_rendered));
        line("seconds          ", spark_host::number_text(seconds, 3));
        line("  in the effect  ", spark_host::number_text(process_seconds, 3) + " (with waiting for pictures)");
        line("  writing        ", spark_host::number_text(write_seconds, 3) + " (beside)");
        line("frames/s         ", spark_host::number_text(seconds > 0 ? progress.n_rendered / seconds : 0, 2));
        line("megapixels/s     ", spark_host::number_text(process_seconds > 0 ? pixels / process_seconds / 1e6 : 0, 1));
        line("peak memory      ", spark_host::number_text(static_cast<double>(usage.ru_maxrss) / 1024, 1) + " MiB");
    }
};

void apply_values(RenderPlan& plan, const RenderOptions& options) {
    // A callback may want to look at a frame, so there must be one in hand.
    plan.host.frame = plan.frames.front() - plan.first_frame;
    select_effect(*plan.plugin, plan.description, plan.effect);
    if (!options.setup.empty()) apply_setup(*plan.plugin, plan.description, options.setup);
    for (const Assignment& assignment : plan.assignments) apply_assignment(*plan.plugin, assignment, plan.first_frame);
}

}  // namespace

int render_command(const RenderOptions& options) {
    set_quiet(options.quiet);
    if (options.verbose) setenv("VELLORAN_VERBOSE", "1", 1);
    remove_parts_on_interruption();
    const auto plan = make_plan(options);
    const std::string recipe = plan_recipe(*plan, options);

    std::vector<int> existing;
    if (options.skip_existing)
        for (const int frame : plan->frames)
            if (made_before_p(path_of_frame(plan->output, frame), recipe_of_frame(recipe, frame)))
                existing.push_back(frame);
    apply_values(*plan, options);
    if (!options.save_setup.empty() && !options.dry_run) {
        std::string error;
        const std::string text = spark_host::setup_text(plan->host, *plan->plugin);
        if (!write_whole_file(options.save_setup, std::vector<unsigned char>(text.begin(), text.end()), &error))
            throw Failure(error);
    }
    if (options.dry_run) {
        std::sort(existing.begin(), existing.end());
        print(plan_text(*plan, existing));
        return exit_done;
    }

    RenderRun run(*plan, options);
    const std::set<int> done(existing.begin(), existing.end());
    std::vector<int> todo;
    for (const int frame : plan->frames) {
        if (done.count(frame))
            run.progress.skipped(frame, path_of_frame(plan->output, frame));
        else
            todo.push_back(frame);
    }
    if (!todo.empty()) process_start(*plan->plugin, todo.front() - plan->first_frame);
    for (size_t i = 0; i < todo.size() && !run.stop; i++)
        run.render_frame(todo[i], i + 1 < todo.size() ? todo[i + 1] : -1, recipe);
    run.finish_write();
    run.progress.end();
    if (options.stats) run.show_stats();
    if (run.progress.n_failed == 0) return exit_done;
    if (run.no_memory) return exit_no_memory;
    return run.progress.n_rendered + run.progress.n_skipped > 0 ? exit_some_failed : exit_nothing_done;
}

}  // namespace render
