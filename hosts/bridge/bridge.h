// Effects for a program that is no host: it loads this library, in whatever way, and asks for pictures.
//
//     bridge::Effect effect("blur:Soft_Focus", {.width = 640, .height = 360, .depth = 8});
//     effect.set("width", "0.4");
//     effect.render(1, [&](int, int) { return picture; }, result);
//
// Any thread may call anything here. One call at a time works with plug-ins: the others wait for their turn, and a
// frame uses all processors by itself. What reads an input may call in again, on the thread that it runs on; it must
// not wait for another thread that does. Whatever goes wrong is thrown as an Error and leaves everything usable. A
// process that forks can render in one of the two alone: the one that was there first.
#pragma once

#include "hosts/render/effect.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// Also seen where a module that includes this hides its own.
#pragma GCC visibility push(default)
namespace bridge {

// Why there is no picture, in words for people.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& text) : std::runtime_error(text) {}
    Error(const Error&) = default;
    ~Error() override;

    // Where in a text of effects, from 1; line 0: no place.
    std::string file;
    int line = 0, column = 0;
};

// The frame was given up because abort was called.
class Aborted : public Error {
public:
    Aborted() : Error("the render was aborted") {}
    Aborted(const Aborted&) = default;
    ~Aborted() override;
};

// Floats are 1 at white; what is outside 0 to 1 is held to it, and what is no number is 0.
enum class Samples { uint8, uint16, float16, float32 };

// A picture in the caller's memory. The sample of row y from the top, column x and channel c stands at
// data + y * down + x * across + c * between, in bytes; any of them may be negative. Samples need not be aligned.
struct Pixels {
    void* data = nullptr;  // of an input it is only read; null: black
    Samples samples = Samples::uint8;
    int width = 0, height = 0;
    int channels = 3;  // 1 grey; 3 red, green, blue; 4 with alpha, which no effect sees
    std::ptrdiff_t down = 0, across = 0, between = 0;
    std::shared_ptr<const void> keep;  // held until the picture was read; may be null
};
Pixels packed_pixels(void* data, Samples samples, int width, int height, int channels);

struct Settings {
    int width = 1920, height = 1080;
    // What the library works from and to: 8, 10 or 12. Words of 16 bits fill 12.
    int depth = 12;
    int first_frame = 1;   // number of the first frame of all inputs
    int total_frames = 1;  // of all inputs, from 1
    float frame_rate = 30, pixel_ratio = 1;
    int processors = 0;  // 0: all that this process may use
    bool operator==(const Settings&) const = default;
};

// The picture of an input, counted from 0, at a frame between the first and the last. Of the settings' size. What it
// throws ends the render and comes out of it as it is.
using ReadInput = std::function<Pixels(int input, int frame)>;

class Effect {
public:
    // Opens "family:Effect", a family (its first effect), or "file.text:Effect".
    Effect(const std::string& name, const Settings& settings);
    // An effect of definitions in a string; an empty name stands for the first. file stands in messages.
    Effect(const std::string& text, const std::string& name, const std::string& file, const Settings& settings);
    ~Effect();
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    const render::EffectDescription& description() const;
    // Also those that cannot be set here: see render::settable_p.
    const std::vector<render::ParamDescription>& standard_controls() const;
    const Settings& settings() const;

    // Values as the command line's -p and -c take them: "0.5", "1,0.8,0.6", "0@1,1@24", a popup's label, "on". A value
    // beyond its bounds is held to them, with a warning.
    void set(const std::string& param, const std::string& value);
    void set_control(const std::string& control, const std::string& value);
    // As if it had just been opened.
    void reset();

    // Makes a frame; to: of the settings' size. Grey becomes the brightness of the colours, alpha is that of the first
    // input at this frame, opaque if it has none. An effect that remembers is made from the first frame on where the
    // last render was not that of the frame before.
    void render(int frame, const ReadInput& read, const Pixels& to);
    // Any thread, also while nothing is rendered: a render that has begun is given up soon, and throws Aborted.
    // May be called again and again until it has.
    void abort();
    // Number of frames that come out, as the params stand.
    int frames();

    // What was said since it was last asked, but for errors: values that were held, samples beyond 0 to 1.
    std::vector<std::string> take_warnings();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The families that can be named, sorted, and what `velloran list` tells of one.
std::vector<std::string> families();
render::PluginDescription describe(const std::string& family);
// As `velloran list --json` prints it; an empty name lists all families.
std::string list_json(const std::string& name);

struct CheckedText {
    std::vector<render::TextMessage> messages;
    int failed = 0;  // definitions that cannot be used
};
CheckedText check(const std::string& text, const std::string& file);
// The message as editors read it.
std::string message_text(const render::TextMessage& message, const std::string& text, const std::string& file);

}  // namespace bridge
#pragma GCC visibility pop
