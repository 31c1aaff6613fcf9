// The render loop: while the effect makes a frame, the next pictures are read and the last one is written.
#include "hosts/common/numbers.h"
#include "hosts/render/commands.h"
#include "hosts/render/console.h"
#include "hosts/render/failure.h"
#include "hosts/render/frame_writer.h"
#include "hosts/render/making.h"
#include "hosts/render/output_file.h"
#include "hosts/render/progress.h"
#include "hosts/render/render_plan.h"
#include "hosts/render/setup_file.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>

namespace render {
namespace {

using spark_host::PicturePtr;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

struct RenderRun {
    RenderPlan& plan;
    const RenderOptions& options;
    Progress progress;
    FrameWriter writer;
    std::set<std::string> told;  // what is said once a run
    std::vector<int> written;
    double process_seconds = 0;                        // the effect, and waiting for its pictures
    double write_seconds = 0, wait_write_seconds = 0;  // in all threads, and how long the frames stood still for it
    bool stop = false, no_memory = false;

    RenderRun(RenderPlan& p, const RenderOptions& o, const std::string& recipe)
        : plan(p),
          options(o),
          progress(o.progress, p.endless ? 0 : static_cast<int>(p.frames.size())),
          writer(p, o.codec, recipe, making_text(p), o.skip_existing) {}

    void warn_once(const std::string& text) {
        if (told.insert(text).second) warn(text);
    }

    void frame_failed(int frame, const std::string& error) {
        fail("frame " + std::to_string(frame) + ": " + error);
        progress.failed(frame, error);
        no_memory |= no_memory_p(error);
        // A movie with a frame missing is none, and who reads from a pipe counts the frames.
        if (options.on_error == "stop" || plan.movie || !plan.pipe.empty()) stop = true;
    }

    // Takes what has become of written frames, in their order, until there is room for another one; with all until
    // none is left.
    void finish_writes(bool all) {
        const auto start = Clock::now();
        while (const auto outcome = writer.outcome(all || !writer.room())) take(*outcome);
        wait_write_seconds += seconds_since(start);
    }

    void take(const WriteOutcome& outcome) {
        write_seconds += outcome.seconds;
        for (const std::string& loss : outcome.losses) warn_once(loss);
        if (!outcome.error.empty()) return frame_failed(outcome.frame, outcome.error);
        written.push_back(outcome.frame);
        progress.rendered(outcome.frame, outcome.path);
    }

    std::string reason_of_failure() const {
        for (const auto& input : plan.inputs)
            if (input && !input->failure.empty()) return input->failure;
        if (!plan.plugin->failure.empty()) return plan.plugin->failure;
        return "the effect gave no frame";
    }

    void tell_of_samples() {
        for (const auto& input : plan.inputs) {
            if (!input) continue;
            if (!input->first_beyond.empty())
                warn_once(input->path + ": holds samples beyond 0 to 1, which are held to it; the first in " +
                          input->first_beyond);
            if (!input->first_no_number.empty())
                warn_once(input->path + ": holds samples that are no numbers, which count as 0; the first in " +
                          input->first_no_number);
        }
    }

    bool piped() const {
        return std::any_of(plan.inputs.begin(), plan.inputs.end(),
                           [](const auto& input) { return input && input->pipe; });
    }

    bool pipe_ended(int frame) {
        return std::any_of(plan.inputs.begin(), plan.inputs.end(),
                           [frame](const auto& input) { return input && ended_before(*input, frame); });
    }

    // Null if there is none.
    const void* make_frame(const std::vector<int>& make, size_t i) {
        const int frame = make[i];
        for (const auto& input : plan.inputs)
            for (size_t k = 0; input && k <= static_cast<size_t>(plan.beside); k++) {
                if (i + k >= make.size() && !plan.endless) break;
                prefetch(*input, clip_frame(plan, plan.endless ? frame + static_cast<int>(k) : make[i + k]));
            }
        const auto start = Clock::now();
        const void* const made = process(*plan.plugin, frame - plan.first_frame);
        process_seconds += seconds_since(start);
        tell_of_samples();
        return made;
    }

    // Frames in todo are written, the others of make only lead to them.
    void render_frames(std::vector<int> make, const std::set<int>& todo) {
        for (size_t i = 0; i < make.size() && !stop; i++) {
            const int frame = make[i];
            if (plan.endless) {
                if (pipe_ended(frame)) break;
                make.push_back(frame + 1);
            }
            const void* const made = make_frame(make, i);
            if (made && (plan.endless || todo.count(frame))) {
                // An input that is black here has nothing to hand on.
                PicturePtr from;
                if (!plan.inputs.empty() && plan.inputs[0])
                    from = picture_of_frame(*plan.inputs[0], clip_frame(plan, frame));
                finish_writes(false);
                if (!stop) writer.write(frame, made, std::move(from));
            } else if (made) {
                progress.prepared(frame);
            } else {
                const std::string reason = reason_of_failure();
                finish_writes(true);
                // Without it an effect that remembers makes none of the later ones rightly.
                const int asked = plan.endless ? frame : *todo.lower_bound(frame);
                if (!stop)
                    frame_failed(plan.remembers ? asked : frame,
                                 asked == frame || !plan.remembers
                                     ? reason
                                     : "depends on frame " + std::to_string(frame) + ": " + reason);
                stop |= plan.remembers || piped();  // a broken pipe has no next frame
            }
        }
        finish_writes(true);
        if (!plan.endless) return;
        progress.set_total(progress.n_rendered + progress.n_failed);
        if (progress.n_rendered + progress.n_failed == 0) throw Failure("standard input: holds no frames");
    }

    // The exit status.
    int finish() {
        std::string error;
        const bool whole = progress.n_failed == 0 && progress.not_tried() == 0;
        if (plan.movie && !writer.finish(whole, &error)) fail(error);
        if (plan.movie && (!whole || !error.empty())) {
            no_memory |= no_memory_p(error);
            progress.lost();
        }
        const int status = whole && error.empty() ? exit_done : no_memory ? exit_no_memory : exit_some_failed;
        if (options.stats && json_p()) show_stats();  // nothing comes behind the end
        progress.end(status, files_text());
        if (options.stats && !json_p()) show_stats();
        return status;
    }

    std::string files_text() const {
        if (progress.n_rendered == 0 || plan.to_stdout) return "";
        if (plan.movie) return plan.output.prefix;
        const auto [first, last] = std::minmax_element(written.begin(), written.end());
        const std::string from = path_of_frame(plan.output, *first);
        return *first == *last ? from : from + " to " + path_of_frame(plan.output, *last);
    }

    void show_stats() const {
        const double seconds = progress.seconds();
        const double pixels = static_cast<double>(plan.host.format.pixels()) * progress.n_rendered;
        struct rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        const auto line = [](const char* name, const std::string& text) { fail(std::string(name) + text); };
        line("frames rendered  ", std::to_string(progress.n_rendered));
        line("seconds          ", spark_host::number_text(seconds, 3));
        double reading = 0, waited = 0;
        for (const auto& input : plan.inputs)
            if (input) reading += input->read_seconds, waited += input->waited_seconds;
        const double effect = std::max(0.0, process_seconds - waited);
        const std::string beside = " in " + std::to_string(plan.beside) + (plan.beside == 1 ? " thread" : " threads");
        const auto share = [&](double all, double stood) {
            return spark_host::number_text(all, 3) + beside + ", waited for " + spark_host::number_text(stood, 3);
        };
        line("  reading        ", share(reading, waited));
        line("  in the effect  ", spark_host::number_text(effect, 3));
        line("  writing        ", share(write_seconds, wait_write_seconds));
        line("bound by         ", effect >= std::max(waited, wait_write_seconds) ? "the effect"
                                  : waited >= wait_write_seconds                 ? "reading"
                                                                                 : "writing");
        line("frames/s         ", spark_host::number_text(seconds > 0 ? progress.n_rendered / seconds : 0, 2));
        line("megapixels/s     ", spark_host::number_text(process_seconds > 0 ? pixels / process_seconds / 1e6 : 0, 1));
        line("peak memory      ", spark_host::number_text(static_cast<double>(usage.ru_maxrss) / 1024, 1) + " MiB");
    }
};

// Frames that are there from an earlier run. A movie is there as a whole or not at all.
std::vector<int> frames_made_before(const RenderPlan& plan, const std::string& recipe) {
    std::vector<int> existing;
    if (plan.to_stdout) return existing;
    if (plan.movie)
        return made_before_p(plan.output.prefix, recipe_of_frame(recipe, plan.frames.front())) ? plan.frames : existing;
    for (const int frame : plan.frames)
        if (made_before_p(path_of_frame(plan.output, frame), recipe_of_frame(recipe, frame))) existing.push_back(frame);
    return existing;
}

// What the run would end with, and the plan.
int dry_run(RenderPlan& plan, std::vector<int> existing) {
    std::vector<int> todo;
    const std::set<int> done(existing.begin(), existing.end());
    for (const int frame : plan.frames)
        if (!done.count(frame)) todo.push_back(frame);
    const auto unreadable = unreadable_frames(plan, frames_to_make(plan, todo));
    std::sort(existing.begin(), existing.end());
    print(plan_text(plan, existing, unreadable));
    for (const auto& [frame, reason] : unreadable) fail("frame " + std::to_string(frame) + ": " + reason);
    return unreadable.empty() ? exit_done : exit_some_failed;
}

}  // namespace

int render_command(const RenderOptions& options) {
    set_quiet(options.quiet);
    if (!options.verbose) drop_plugin_output();
    if (options.verbose) setenv("VELLORAN_VERBOSE", "1", 1);
    remove_parts_on_interruption();
    const auto plan = make_plan(options);
    apply_values(*plan, options);
    settle_frames(*plan, options);
    const std::string recipe = plan_recipe(*plan, options);
    const std::vector<int> existing = options.skip_existing ? frames_made_before(*plan, recipe) : std::vector<int>();
    if (options.dry_run) return dry_run(*plan, existing);
    if (!plan->to_stdout) sweep_parts(path_of_frame(plan->output, plan->frames.front()));
    if (!options.save_setup.empty()) save_setup(*plan, options.save_setup);

    RenderRun run(*plan, options, recipe);
    const std::set<int> done(existing.begin(), existing.end());
    std::vector<int> todo;
    for (const int frame : plan->frames) {
        if (done.count(frame))
            run.progress.skipped(frame, path_of_frame(plan->output, frame));
        else
            todo.push_back(frame);
    }
    if (!todo.empty()) {
        const std::vector<int> make = frames_to_make(*plan, todo);
        process_start(*plan->plugin, make.front() - plan->first_frame);
        hold_given_values(*plan->plugin, plan->assignments, plan->first_frame);
        run.render_frames(make, std::set<int>(todo.begin(), todo.end()));
    }
    return run.finish();
}

}  // namespace render
