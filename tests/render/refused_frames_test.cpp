// A frame that cannot be made right is not given to the host, and the reason is told once.
#include "tests/render/panel.h"

#include <algorithm>

using namespace test_render;

namespace {

struct TwoInputs : TextPlugin {
    explicit TwoInputs(const std::string& body, const char* modifiers = "")
        : TextPlugin("(def_effect Test (Source Back) (" + std::string(modifiers) +
                     ")\n  none = 0 (max 1)\n  dest = " + body + "\n)\n") {
        host.format = {29, 17, SPARK_DEPTH_12};
        host.processors = 3;
        host.total_frames = 5;
        inputs = {random_clip(5, 1), random_clip(5, 2)};
    }
    std::vector<unsigned> samples(int frame = 0) {
        testing::internal::CaptureStderr();
        auto made = significant(render(frame), host.format.depth);
        reports = testing::internal::GetCapturedStderr();
        return made;
    }
    // How often the last frame's reports say this.
    int told(const std::string& words) const {
        int n = 0;
        for (size_t at = 0; (at = reports.find(words, at)) != std::string::npos; at += words.size()) ++n;
        return n;
    }

    std::string reports;
};

TEST(RefusedFrames, UnknownDepths) {
    for (const char* body : {"Source", "(+ Source (* (blur Back 0.1 1 1 0) 0.5))", "x"}) {
        TwoInputs effect(body);
        ASSERT_TRUE(effect.start());
        const auto good = effect.samples();
        ASSERT_FALSE(good.empty());
        for (const int depth : {24, 64, 0, 1000, -1, 27}) {
            effect.host.format.depth = effect.plugin->format.depth = depth;
            EXPECT_TRUE(effect.samples().empty()) << body << " " << depth;
            EXPECT_EQ(effect.told("Unknown spark pixel type " + std::to_string(depth)), 1) << body << " " << depth;
            effect.host.format.depth = effect.plugin->format.depth = SPARK_DEPTH_12;
            EXPECT_EQ(effect.samples(), good) << body << " after " << depth;
        }
    }
}

// Two elements are luminance and alpha, and alpha goes nowhere unless the effect says so.
TEST(RefusedFrames, ElementsThatDoNotGoOut) {
    for (const char* body : {"(v2 x y)", "(blur (v2 x y) 0.1 1 1 0)", "(+ (v2 x y) 0.25)"})
        for (const int depth : {SPARK_DEPTH_8, SPARK_DEPTH_10, SPARK_DEPTH_12})
            for (const int fields : {0, 1}) {
                TwoInputs effect(body);
                effect.host.format.depth = depth;
                ASSERT_TRUE(effect.start());
                set_control_value(Panel(effect).at(number_fields), 0, static_cast<float>(fields));
                for (int frame = 0; frame < 3; ++frame) {
                    EXPECT_TRUE(effect.samples(frame).empty()) << body << " " << depth;
                    EXPECT_EQ(effect.told("invalid alpha mode"), 1) << body << " " << depth;
                }
            }
}

struct Missing {
    const char* name;
    bool explicit_buffers;
};
const Missing ways[] = {{"not allocated", true}, {"null", false}};

// Input i has no frame from now on.
void lose_input(TwoInputs& effect, int i) {
    if (!effect.host.explicit_buffers) {
        effect.plugin->buffers.addresses[static_cast<size_t>(i)] = nullptr;
        return;
    }
    effect.host.on_get_buffer = [i](int id, SparkMemBufStruct* buffer) {
        if (id == first_input_buffer_id + i) buffer->BufferState &= ~SPARK_BUF_ALLOCATED;
        return 1;
    };
}

// An input is needed where the picture changes with it. Without one that is needed there is no frame; without one that
// is not, the frame is as it was.
TEST(RefusedFrames, InputsThatAreNotThere) {
    struct {
        const char* body;
        int surround;  // of a crop: 0 colour, 1 or 2 the input; -1 no crop
    } const cases[] = {
        {"Source", -1},
        {"Back", -1},
        {"(+ Source Back)", -1},
        {"(max (blur Back 0.2 1 1 0) Source)", -1},
        {"(gamma (+ Source Back) 2)", -1},
        {"(+ Source (* Back none))", -1},
        {"(interp Source Back none)", -1},
        {"(if+ (- none 1) Source Back)", -1},
        {"(+ x y)", -1},
        {"(+ (* (get_prev_dest Back) 0.5) (* Source 0.25))", -1},
        {"Source", 1},
        {"Source", 2},
        {"(blur Back 0.1 1 1 0)", 0},
        {"(+ x 0.5)", 2},
    };
    for (const auto& c : cases)
        for (const Missing& way : ways)
            for (int input = 0; input < 2; ++input) {
                SCOPED_TRACE(std::string(c.body) + ", surround " + std::to_string(c.surround) + ", input " +
                             std::to_string(input) + " " + way.name);
                std::vector<unsigned> frames[3];  // as it is; with another input; without
                for (int f = 0; f < 3; ++f) {
                    TwoInputs effect(c.body);
                    effect.host.explicit_buffers = way.explicit_buffers;
                    if (f == 1) effect.inputs[static_cast<size_t>(input)] = random_clip(5, 77);
                    ASSERT_TRUE(effect.start());
                    if (c.surround >= 0) {
                        Panel panel(effect);
                        panel.crop(5, 4, 20, 12);
                        panel.set(number_surround, static_cast<float>(c.surround));
                    }
                    if (f == 2) lose_input(effect, input);
                    frames[f] = effect.samples();
                    if (f != 2 || frames[0] == frames[1]) continue;
                    const char* const name = input ? "Back" : "Source";
                    EXPECT_EQ(effect.told("Test: there is no frame for the input " + std::string(name) + ".") +
                                  effect.told("There is no frame for the surround of the crop."),
                              1);
                }
                ASSERT_FALSE(frames[0].empty());
                if (frames[0] == frames[1])
                    EXPECT_EQ(frames[2], frames[0]);
                else
                    EXPECT_TRUE(frames[2].empty());
            }
}

TEST(RefusedFrames, LutsThatCannotBeRead) {
    for (const char* lost : {"in", "out"})
        for (const bool damaged : {false, true}) {
            TwoInputs effect("Source");
            const std::string path = effect.dir().path() + "/luts/dim-" + lost + ".lut";
            std::filesystem::create_directory(effect.dir().path() + "/luts");
            const auto write_luts = [&] {
                for (const char* which : {"in", "out"})
                    effect.dir().write(std::string("luts/dim-") + which + ".lut", "lut: 1 2\n0\n3\n");
            };
            write_luts();
            ASSERT_TRUE(effect.start());
            Control& popup = Panel(effect).at(number_lut);
            const auto plain = effect.samples();
            if (damaged)
                effect.dir().write("luts/dim-" + std::string(lost) + ".lut", "lut: 1 2\n0\n");
            else
                std::filesystem::remove(path);
            set_control_value(popup, 0, 1);
            for (int frame = 0; frame < 2; ++frame) {
                EXPECT_TRUE(effect.samples(frame).empty()) << lost << damaged;
                EXPECT_EQ(effect.told("The LUT file " + path + " cannot be used."), 1) << effect.reports;
            }
            set_control_value(popup, 0, 0);
            EXPECT_EQ(effect.samples(), plain);
            write_luts();
            set_control_value(popup, 0, 1);
            EXPECT_EQ(effect.samples().size(), plain.size());
        }
}

}  // namespace
