// Finding a cadence from pixels, against the plain model and against what the clips were made of.
#include "operators/fields/field_compare.h"
#include "operators/fields/pattern.h"
#include "testing/engine_rig.h"
#include "testing/row_targets.h"
#include "testing/telecine.h"

using namespace velloran;
using namespace velloran_tests;

namespace {

// A detection over a clip, as the model and the library do it.
struct Detection {
    explicit Detection(const TelecineClip& of, int tasks = 2)
        : clip(of), frames((int)of.pictures.size() / 2), rig(tasks, {of.width, of.height}) {
        rig.host.info.TotalFrameNo = frames;
        rig.clips() = {spark_host::generated_clip(frames, [this](int f, const spark_host::FrameFormat&, void* dest) {
            ++reads;
            clip.write(f, static_cast<uint16_t*>(dest));
            return true;
        })};
        storage.assign(6, HostVector<FixPixel>((size_t)(clip.width * clip.height)));
        for (size_t i = 0; i < 6; ++i) planes[i] = storage[i].data();
        the_frame->failed = false;
    }
    ~Detection() { rig.clips().clear(); }
    FieldCompare compare(int base, int n) { return {planes, planes + 3, 3, base, n, frames, 0}; }
    FieldModel model(int base, int n) {
        return {clip.width, clip.height, [this](int f) { return clip.planes(f); }, base, n, frames};
    }

    TelecineClip clip;
    int frames, reads = 0;
    EngineRig rig;
    std::vector<HostVector<FixPixel>> storage;
    fix_plane planes[6];
};

TEST(FieldsDetect, DifferencesAreThoseOfTheFormulas) {
    for (const auto& size : {std::pair{48, 32}, {51, 9}, {203, 6}, {7, 2}, {3, 4}, {9, 1}}) {
        const int width = size.first, height = size.second;
        SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height));
        TelecineClip clip;
        clip.width = width;
        clip.height = height;
        clip.noise = 900;
        clip.pictures = telecine_pictures({2, 3}, 1, 12);
        for_each_row_target([&](int64_t) {
            Detection detection(clip);
            FieldCompare compare = detection.compare(0, 6);
            FieldModel model = detection.model(0, 6);
            for (const int dominance : {0, 1}) {
                compare.set_dominance((physical_field)dominance);
                model.dominance = dominance;
                for (int i = 0; i < 12; ++i)
                    for (int k = i; k < std::min(i + 4, 12); ++k) {
                        const FieldDelta* const delta =
                            compare.compare_fields(i / 2, (logical_field)(i % 2), k / 2, (logical_field)(k % 2));
                        ASSERT_NE(delta, nullptr);
                        const float want =
                            width < 4 || height < 2 ? 0 : model.compare(i / 2, i % 2, k / 2, k % 2).value;
                        EXPECT_FLOAT_EQ(delta->value, want) << i << " and " << k;
                        EXPECT_EQ(delta->threshold, 0);
                    }
            }
            EXPECT_EQ(compare.compare_fields(5, field_second_in_time, 6, field_first_in_time), nullptr);
        });
    }
}

TEST(FieldsDetect, EachFrameIsReadOnce) {
    TelecineClip clip;
    clip.pictures = telecine_pictures({2, 3}, 0, 40);
    Detection detection(clip);
    FieldCompare compare = detection.compare(3, 15);
    Pattern pattern(&compare);
    int holds[30], start;
    unsigned length;
    EXPECT_TRUE(pattern.find_pattern(3, holds, 30, &length, &start));
    // The window of 15 frames, which the first hold made longer by one or two, once in its order.
    EXPECT_LE(detection.reads, 17);
}

struct Cadence {
    std::vector<int> holds;
    const char* name;
};
const Cadence cadences[] = {{{2, 3}, "2:3"},      {{2, 2}, "2:2"},      {{2, 3, 3, 2}, "2:3:3:2"},
                            {{5, 5}, "5:5"},      {{3, 3, 2}, "3:3:2"}, {{1, 2, 2, 3}, "1:2:2:3"},
                            {{2, 2, 4}, "2:2:4"}, {{4}, "4"},           {{3, 2, 3, 2, 2}, "3:2:3:2:2"}};

// Whether the holds from field start on are those of the clip.
bool true_to(const std::vector<int>& pattern, int start, const std::vector<int>& pictures) {
    std::vector<bool> begins(pictures.size(), false);
    for (size_t at = (size_t)start, i = 0; at < pictures.size();
         at += (size_t)std::abs(pattern[i]), i = (i + 1) % pattern.size())
        begins[at] = true;
    for (size_t t = 1; t < pictures.size(); ++t)
        if (begins[t] != (pictures[t] != pictures[t - 1])) return false;
    return true;
}

struct Outcome {
    bool found;
    std::vector<int> pattern;
    int start, dominance;
    float max_repeat;
};
Outcome run_library(Detection& detection, int base, int n) {
    FieldCompare compare = detection.compare(base, n);
    Pattern pattern(&compare);
    const physical_field dominance = pattern.get_dominance();
    compare.set_dominance(dominance);
    std::vector<int> holds((size_t)(2 * n));
    unsigned length = 0;
    int start = 0;
    const bool found = pattern.find_pattern(base, holds.data(), (unsigned)holds.size(), &length, &start);
    holds.resize(length);
    return {found, holds, start, dominance, pattern.max_repeat_delta};
}
Outcome run_model(Detection& detection, int base, int n) {
    FieldModel model = detection.model(base, n);
    const int dominance = model.find_dominance();
    int start = 0;
    std::vector<int> pattern = model.find(base, (size_t)(2 * n), start);
    const bool found = model.found;
    if (found && start != 0) clean_up_pattern(pattern.data(), (unsigned)pattern.size(), &start);
    return {found, pattern, start, dominance, model.max_repeat};
}
void expect_alike(const Outcome& got, const Outcome& want) {
    EXPECT_EQ(got.found, want.found);
    EXPECT_EQ(got.pattern, want.pattern);
    EXPECT_EQ(got.start, want.start);
    EXPECT_EQ(got.dominance, want.dominance);
    EXPECT_FLOAT_EQ(got.max_repeat, want.max_repeat);
}

TEST(FieldsDetect, CadencesAreFoundAtEachPhase) {
    for (const Cadence& cadence : cadences) {
        int period = 0;
        for (const int hold : cadence.holds) period += hold;
        for (const int dominance : {0, 1})
            for (int phase = 0; phase < period; ++phase) {
                SCOPED_TRACE(std::string(cadence.name) + " phase " + std::to_string(phase) + " dominance " +
                             std::to_string(dominance));
                TelecineClip clip;
                clip.dominance = dominance;
                clip.noise = phase % 2 ? 12 : 0;
                clip.pictures = telecine_pictures(cadence.holds, phase, 64);
                Detection detection(clip);
                const int base = phase % 3;
                const Outcome got = run_library(detection, base, 18);
                expect_alike(got, run_model(detection, base, 18));
                ASSERT_TRUE(got.found);
                EXPECT_GE(got.start, 0);
                EXPECT_LT(got.start, std::abs(got.pattern.back()));
                // Frames whose pictures all begin with a frame say nothing of the order of fields.
                const bool order_shows = cadence.holds != std::vector{2, 2} && cadence.holds != std::vector{4} &&
                                         cadence.holds != std::vector{2, 2, 4};
                if (order_shows) {
                    EXPECT_EQ(got.dominance, dominance);
                }
                if (got.dominance == dominance) {
                    EXPECT_TRUE(true_to(got.pattern, got.start, clip.pictures));
                }
            }
    }
}

TEST(FieldsDetect, HardClipsAreJudgedByTheFormulas) {
    TelecineClip film;
    film.pictures = telecine_pictures({2, 3}, 2, 60);
    TelecineClip noisy = film, still = film, cut = film, reversed = film, video = film, calm = film, one = film,
                 two = film;
    noisy.noise = 120;
    still.still_to = 4;
    cut.cut_at = 8;
    reversed.dominance = 1;
    for (size_t t = 0; t < video.pictures.size(); ++t) video.pictures[t] = calm.pictures[t] = (int)t;
    video.contrast = 2047;
    video.noise = 2000;
    video.width = video.height = 16;
    calm.contrast = 300;
    one.pictures.resize(2);
    two.pictures.resize(4);
    TelecineClip black = film;
    black.contrast = 0;
    const struct {
        const char* name;
        const TelecineClip& clip;
    } clips[] = {{"noisy", noisy},       {"still part", still}, {"scene cut", cut},
                 {"reversed", reversed}, {"video", video},      {"calm video", calm},
                 {"one frame", one},     {"two frames", two},   {"black", black}};
    for (const auto& c : clips)
        for (const int base : {0, 1}) {
            SCOPED_TRACE(std::string(c.name) + " from frame " + std::to_string(base));
            Detection detection(c.clip);
            const Outcome got = run_library(detection, base, 18);
            expect_alike(got, run_model(detection, base, 18));
            std::string shown;
            for (const int hold : got.pattern) shown += " " + std::to_string(hold);
            RecordProperty(c.name, shown);
        }
    Detection surely(video);
    const Outcome got = run_library(surely, 0, 18);
    EXPECT_TRUE(got.found);
    EXPECT_EQ(got.pattern, std::vector{1});
    EXPECT_GT(got.max_repeat, 20);
    Detection nothing(black);
    EXPECT_FALSE(run_library(nothing, 0, 18).found) << "no hold ends where nothing changes";
}

// With the wrong order of fields the out of order ones show; the sign stays where the rest fits.
TEST(FieldsDetect, TheStartIsBroughtIntoTheFirstHold) {
    const struct {
        std::vector<int> pattern;
        int start;
        std::vector<int> want;
        int want_start;
    } cases[] = {
        {{2, 3}, 0, {2, 3}, 0},
        {{2, 3}, 4, {3, 2}, 1},
        {{2, 3}, 13, {3, 2}, 0 + 0},
        {{3, 2}, 22, {2, 3}, 0},
        {{5}, 17, {5}, 2},
        {{-2}, 3, {2}, 1},
        {{2, 1, -1, 1}, 0, {2, 1, -1, 1}, 0},
        {{2, -1, 1}, 6, {1, 1, 2}, 0},
    };
    for (const auto& c : cases) {
        std::vector<int> pattern = c.pattern;
        int start = c.start;
        clean_up_pattern(pattern.data(), (unsigned)pattern.size(), &start);
        EXPECT_EQ(pattern, c.want);
        EXPECT_EQ(start, c.want_start);
    }
}

}  // namespace
