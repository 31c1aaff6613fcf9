#include "hosts/render/frame_writer.h"

#include "hosts/render/console.h"
#include "hosts/render/frame_pipe.h"
#include "hosts/render/recipe.h"

#include <chrono>
#include <exception>
#include <new>
#include <string_view>

namespace render {

using spark_host::picture_functions;
using spark_host::PicturePtr;
using Clock = std::chrono::steady_clock;

// Owns all that a write needs, for it runs while the plug-in makes the next frame.
struct FrameWriter::Job {
    int frame = 0;
    PicturePtr from;
    spark_host::Bytes pixels;
};

std::string recipe_of_frame(const std::string& recipe, int frame) { return recipe + ":" + std::to_string(frame); }

bool made_before_p(const std::string& path, const std::string& recipe) {
    std::string kept;
    if (!picture_functions().check_whole(path, kept)) return false;
    if (kept.empty()) kept = recipe_beside(path);
    return kept == recipe;
}

FrameWriter::FrameWriter(const RenderPlan& plan, const std::string& codec, const std::string& recipe,
                         const std::string& making, bool beside)
    : plan_(plan),
      codec_(codec),
      recipe_(recipe),
      making_(making),
      beside_(beside),
      most_(plan.movie || plan.to_stdout ? 1 : static_cast<size_t>(plan.beside) * 2) {}

FrameWriter::~FrameWriter() {
    for (const auto& writing : writing_) writing.wait();
    std::string unheard;
    finish(false, &unheard);
}

WriteOutcome FrameWriter::write_file(const Job& job) const {
    WriteOutcome outcome;
    outcome.frame = job.frame;
    outcome.path = path_of_frame(plan_.output, job.frame);
    spark_host::WriteRequest request;
    request.from = job.from.get();
    request.format = plan_.host.format;
    request.frame = job.pixels.data();
    request.pixel_ratio = plan_.host.pixel_ratio;
    request.recipe = recipe_of_frame(recipe_, job.frame);
    request.making = making_;
    request.compression = plan_.compression;
    if (!plan_.pipe.empty()) {
        outcome.path = "-";
        const bool first = job.frame == plan_.frames.front();
        const auto bytes = pipe_frame(plan_.pipe, request, plan_.host.frame_rate, first, &outcome.error);
        if (!bytes) return outcome;
        print(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()));
        if (!close_console()) outcome.error = "standard output cannot be written";
        return outcome;
    }
    spark_host::WriteResult result;
    if (!picture_functions().write(plan_.format_path, request, result, &outcome.error)) return outcome;
    outcome.losses = std::move(result.losses);
    if (plan_.to_stdout) {
        print(std::string_view(reinterpret_cast<const char*>(result.file.data()), result.file.size()));
        if (!close_console()) outcome.error = "standard output cannot be written";
    } else if (write_whole_file(outcome.path, result.file, &outcome.error) && beside_ && !result.holds_recipe) {
        write_whole_file(recipe_path(outcome.path), recipe_file(request.recipe, result.file), &outcome.error);
    }
    return outcome;
}

void FrameWriter::add_to_movie(const Job& job, WriteOutcome& outcome) {
    outcome.path = plan_.output.prefix;
    if (!movie_) {
        if (!part_.open(outcome.path, &outcome.error)) return;
        spark_host::MovieRequest request;
        request.path = outcome.path;
        request.descriptor = part_.descriptor();
        request.format = plan_.host.format;
        request.frame_rate = plan_.host.frame_rate;
        request.pixel_ratio = plan_.host.pixel_ratio;
        request.from = job.from.get();
        request.codec = codec_;
        request.recipe = recipe_of_frame(recipe_, plan_.frames.front());
        movie_ = picture_functions().open_movie(request, outcome.losses, &outcome.error);
        if (!movie_) return;
    }
    picture_functions().add_frame(*movie_, job.pixels.data(), job.from.get(), &outcome.error);
}

void FrameWriter::write(int frame, const void* pixels, PicturePtr from) {
    Job job;
    job.frame = frame;
    job.from = std::move(from);
    job.pixels.assign({static_cast<const unsigned char*>(pixels), static_cast<size_t>(plan_.host.format.bytes())});
    writing_.push_back(std::async(std::launch::async, [this, job = std::move(job)] {
        const auto start = Clock::now();
        WriteOutcome outcome;
        outcome.frame = job.frame;
        try {
            if (plan_.movie)
                add_to_movie(job, outcome);
            else
                outcome = write_file(job);
        } catch (const std::bad_alloc&) {
            outcome.error = path_of_frame(plan_.output, job.frame) + ": out of memory";
        } catch (const std::exception& problem) {
            outcome.error = path_of_frame(plan_.output, job.frame) + ": " + problem.what();
        }
        outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
        return outcome;
    }));
}

std::optional<WriteOutcome> FrameWriter::outcome(bool wait) {
    if (writing_.empty()) return std::nullopt;
    if (!wait && writing_.front().wait_for(std::chrono::seconds(0)) != std::future_status::ready) return std::nullopt;
    WriteOutcome outcome = writing_.front().get();
    writing_.pop_front();
    return outcome;
}

bool FrameWriter::finish(bool whole, std::string* error) {
    if (!movie_) return true;
    const bool finished = whole && picture_functions().finish_movie(*movie_, error);
    picture_functions().close_movie(movie_);
    movie_ = nullptr;
    if (finished) return part_.commit(error);
    part_.drop();
    return !whole;
}

}  // namespace render
