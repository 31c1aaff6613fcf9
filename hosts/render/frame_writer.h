// Finished frames on their way to disk, beside each other and the making of the next ones: each in a file of its own,
// or one after the other in a movie.
#pragma once

#include "hosts/pictures/pictures.h"
#include "hosts/render/output_file.h"
#include "hosts/render/render_plan.h"

#include <deque>
#include <future>
#include <optional>
#include <string>
#include <vector>

namespace render {

// What became of a frame.
struct WriteOutcome {
    int frame = 0;
    std::string path;
    std::string error;                // empty: it is written
    std::vector<std::string> losses;  // what the format could not keep
    double seconds = 0;
};

class FrameWriter {
public:
    // The plan must live as long. recipe: of the frames, see plan_recipe; making: see making_text. beside: the recipe
    // is kept in a file of its own where the format holds no text.
    FrameWriter(const RenderPlan& plan, const std::string& codec, const std::string& recipe, const std::string& making,
                bool beside);
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    // Begins to write a frame; pixels are copied. from: what travels through, or null. There must be room.
    void write(int frame, const void* pixels, spark_host::PicturePtr from);
    bool room() const { return writing_.size() < most_; }
    // What became of the frame begun the longest ago: waits for it, or nothing if it is still on its way. Nothing if
    // there is none.
    std::optional<WriteOutcome> outcome(bool wait);
    // Gives a movie its name if whole, else removes it; the reason in *error. Other outputs are done already.
    bool finish(bool whole, std::string* error);

private:
    struct Job;
    WriteOutcome write_file(const Job& job) const;
    void add_to_movie(const Job& job, WriteOutcome& outcome);

    const RenderPlan& plan_;
    std::string codec_, recipe_, making_;
    bool beside_;
    size_t most_;
    std::deque<std::future<WriteOutcome>> writing_;
    PartFile part_;
    spark_host::MovieWriter* movie_ = nullptr;
};

// The mark of one frame, or of a movie with all frames.
std::string recipe_of_frame(const std::string& recipe, int frame);
// True if the file is whole and was made with that recipe.
bool made_before_p(const std::string& path, const std::string& recipe);

}  // namespace render
