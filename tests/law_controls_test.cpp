// Every control of every shipped effect moves the picture, and none breaks it at the ends of its range. What a control
// does may hang on another one: where it does nothing at the values that come with the effect, it is tried again with
// each other control moved.
#include "tests/render/shipped_plugin.h"

#include <cmath>
#include <map>
#include <set>

using namespace test_render;

namespace {

constexpr int width = 96, height = 60, frames = 4, shown = 1;
using Picture = std::vector<unsigned char>;

// Controls that wait for two others at once, or for more frames than are made here.
constexpr const char* near_glow = "needs a near glow, and light that is near";
constexpr const char* later = "needs frames further on";
constexpr const char* rays = "the light that comes with the effect stands beside a frame as small as this";
const std::map<std::string, const char*> exceptions = {{"depth:Depth Glow.near_color/0", near_glow},
                                                       {"depth:Depth Glow.near_color/1", near_glow},
                                                       {"depth:Depth Glow.near_color/2", near_glow},
                                                       {"flares:Lens Flare.rays_number", rays},
                                                       {"flares:Lens Flare.rays_width", rays},
                                                       {"flares:Lens Flare.rays_length", rays},
                                                       {"flares:Lens Flare.rays_color/0", rays},
                                                       {"flares:Lens Flare.rays_color/1", rays},
                                                       {"flares:Lens Flare.rays_color/2", rays},
                                                       {"time:Trails.trail_color/0", later},
                                                       {"time:Trails.trail_color/1", later},
                                                       {"time:Trails.trail_color/2", later},
                                                       {"time:Freeze.go_on", later}};

// What these controls do is which frames come out, and how many: their ends may ask for none. Tests of their own look
// at them over clips of fields.
const std::set<std::string> of_frames = {"Deinterlace", "DeinterlaceAuto", "Reinterlace"};

// Slopes, edges, a bright disc that moves, lines as thin as a pixel and a little grain.
ClipPtr scene(int turn) {
    return generated_clip(frames, [turn](int frame, const FrameFormat& format, void* dest) {
        auto* word = static_cast<uint16_t*>(dest);
        std::minstd_rand random(static_cast<unsigned>(frame * 8 + turn + 1));
        for (int y = 0; y < format.height; ++y)
            for (int x = 0; x < format.width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const int dx = x - 36 - 16 * turn - 5 * frame, dy = y - 29 + 4 * turn;
                    int value = (x * (c + 1) * 9 + y * (turn + 1) * 7) % 2600 + 200;
                    if (x + turn * 12 > 70) value /= 3;
                    if (x % 31 == 7) value = 3600;
                    if (dx * dx + dy * dy < 130) value = 4095 - 150 * c;
                    value += static_cast<int>((random() >> 8) % 100);
                    *word++ = static_cast<uint16_t>(std::min(value, 4095) << 4);
                }
        return true;
    });
}

class Moved {
public:
    Moved(const std::string& family, size_t effect) : shipped_(family) {
        shipped_.host.format = {width, height, SPARK_DEPTH_12};
        shipped_.host.total_frames = frames;
        for (const std::string name : {"v_filmtypes.text", "v_lensflares.text", "v_glares.text"}) {
            std::ifstream file(EFFECT_DATA + name, std::ios::binary);
            shipped_.config.write(name, {std::istreambuf_iterator<char>(file), {}});
        }
        started = shipped_.start();
        if (!started) return;
        Plugin& plugin = *shipped_.plugin;
        for (int i = 0; i < 4; ++i) plugin.inputs[static_cast<size_t>(i)] = scene(i);
        const Described all = describe(plugin);
        if (all.effects.size() > 1) {
            set_control_value(*find_control(plugin.panel, SPARK_FIRST_CONTROL), 0, static_cast<float>(effect));
            use_control(plugin, SPARK_FIRST_CONTROL, SPARK_ACTION_RELEASE);
        }
        shipped_.render();
        remembers_ = all.remembers[effect];
        for (const DescribedParam& p : all.params) {
            const bool value = p.kind != "button" && p.kind != "label" && p.kind != "string" && !p.numbers.empty();
            if (p.effect != static_cast<int>(effect) || !value) continue;
            for (int c = 0; c < p.channels; ++c) dials.push_back(make_dial(p, c));
        }
        for (auto& [number, control] : plugin.panel.controls)
            for (Curve& curve : control.curves) curve = {};
        for (const Dial& dial : dials) set(dial, dial.usual);
    }

    struct Dial {
        int channel;
        std::string name;
        std::vector<int> numbers;
        std::vector<float> values;
        float usual = 0;
        size_t ends = 0;  // so many of values, the first, are the ends of the range
    };

    static Dial make_dial(const DescribedParam& p, int c) {
        Dial dial;
        dial.channel = c;
        dial.name = p.name + (p.channels > 1 ? "/" + std::to_string(c) : "");
        dial.numbers = p.numbers;
        dial.usual = p.name == "transition" ? 0.4f : p.defaults[static_cast<size_t>(c)];
        const float usual = dial.usual;
        const int choices = p.kind == "boolean" ? 2 : p.kind == "popup" ? (p.labels + 1) / p.channels : 0;
        if (choices > 0) {
            for (int i = 0; i < choices; ++i) dial.values.push_back(static_cast<float>(i));
            dial.ends = dial.values.size();
        } else if (p.kind == "color") {
            dial.values = {0, 1, 0.5f};
            dial.ends = 2;
        } else {
            if (p.min <= p.max && std::abs(p.min) < 1e5f) dial.values.push_back(p.min);
            if (p.min <= p.max && std::abs(p.max) < 1e5f) dial.values.push_back(p.max);
            dial.ends = dial.values.size();
            const float reach = p.pixels ? 24.0f : std::max(std::abs(usual), 1.0f);
            for (const float part : {0.3f, -0.3f, 1.0f, -1.0f, 0.1f}) {
                const float value = usual + part * reach;
                if (p.min > p.max || (value >= p.min && value <= p.max)) dial.values.push_back(value);
            }
        }
        return dial;
    }

    void set(const Dial& dial, float value) {
        const auto c = static_cast<size_t>(dial.channel);
        const bool own = dial.numbers.size() > c;
        const int number = own ? dial.numbers[c] : dial.numbers.back();
        Control* const control = find_control(shipped_.plugin->panel, number);
        if (!control || !control->structure) return;
        set_control_value(*control, own ? 0 : dial.channel, value);  // the next frame reads it
    }
    // Frames before it are made too, for effects that remember.
    Picture render() {
        Picture picture;
        for (int frame = remembers_ ? shown - 1 : shown; frame <= shown; ++frame) picture = shipped_.render(frame);
        return picture;
    }
    size_t errors() const { return shipped_.host.errors.size(); }
    std::string last_error() const { return shipped_.host.errors.empty() ? "" : shipped_.host.errors.back(); }

    // Whether some value of the dial gives another picture than before. ends: those of the range are all looked at.
    bool moves(const Dial& dial, const Picture& before, bool ends) {
        bool moved = false;
        for (size_t i = 0;
             i < std::min<size_t>(dial.values.size(), ends ? 16 : 3) && (!moved || (ends && i < dial.ends)); ++i) {
            const size_t told = errors();
            set(dial, dial.values[i]);
            const Picture picture = render();
            if (ends && i < dial.ends) {
                EXPECT_FALSE(picture.empty()) << dial.name << " at " << dial.values[i];
                EXPECT_EQ(errors(), told) << dial.name << " at " << dial.values[i] << ": " << last_error();
            }
            moved |= !picture.empty() && picture != before;
        }
        set(dial, dial.usual);
        return moved;
    }
    // The same with each other control moved.
    bool moves_beside(const Dial& dial) {
        for (const Dial& other : dials) {
            if (other.name == dial.name) continue;
            for (size_t k = 0; k < std::min(other.values.size(), std::max<size_t>(other.ends, 4)); ++k) {
                if (other.values[k] == other.usual) continue;
                set(other, other.values[k]);
                const Picture before = render();
                const bool moved = !before.empty() && moves(dial, before, false);
                set(other, other.usual);
                if (moved) return true;
            }
        }
        return false;
    }

    std::vector<Dial> dials;
    bool started = false;

private:
    ShippedPlugin shipped_;
    bool remembers_ = true;
};

TEST(Controls, MoveThePictureAndNeverBreakIt) {
    std::map<std::string, bool> used;
    int n_controls = 0;
    for (const std::string& family : shipped_families()) {
        if (of_frames.count(family)) continue;
        for (size_t effect = 0, n = 1; effect < n; ++effect) {
            std::string name;
            {
                ShippedPlugin named(family);
                ASSERT_TRUE(named.start());
                const auto effects = describe(*named.plugin).effects;
                n = effects.size();
                name = family + ":" + effects[effect];
            }
            SCOPED_TRACE(name);
            Moved moved(family, effect);
            ASSERT_TRUE(moved.started);
            const Picture usual = moved.render();
            ASSERT_FALSE(usual.empty());
            for (const Moved::Dial& dial : moved.dials) {
                ++n_controls;
                const bool moves = moved.moves(dial, usual, true) ||
                                   (!exceptions.count(name + "." + dial.name) && moved.moves_beside(dial));
                const std::string key = name + "." + dial.name;
                if (exceptions.count(key)) used[key] = true;
                EXPECT_TRUE(moves || exceptions.count(key)) << key << " moves nothing";
                EXPECT_FALSE(moves && exceptions.count(key)) << key << " moves the picture after all";
            }
            EXPECT_EQ(moved.render(), usual) << "all controls are back";
        }
    }
    EXPECT_GT(n_controls, 300);
    for (const auto& [key, reason] : exceptions) EXPECT_TRUE(used[key]) << key << " is gone";
}

}  // namespace
