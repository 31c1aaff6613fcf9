#include "hosts/frei0r/instance.h"

#include "hosts/common/numbers.h"

#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace frei0r {
namespace {

// While one lives, what the library prints goes to standard error: a program may be writing pictures to its standard
// output. That of other threads' printf goes there, too; what is written by descriptor does not.
class QuietOutput {
public:
    QuietOutput() {
        const std::lock_guard lock(mutex);
        if (users++ > 0) return;
        before = stdout;
        stdout = stderr;
    }
    ~QuietOutput() {
        const std::lock_guard lock(mutex);
        if (--users == 0) stdout = before;
    }
    QuietOutput(const QuietOutput&) = delete;
    QuietOutput& operator=(const QuietOutput&) = delete;

private:
    static inline std::mutex mutex;
    static inline int users = 0;
    static inline FILE* before = nullptr;
};

constexpr double most_pixels = 1 << 28;  // as many as a host may speak of

}  // namespace

int frame_at(double time, double rate) {
    const double frame = std::floor(time * rate + 0.5);
    return frame >= 0 && frame < most_frames ? static_cast<int>(frame) : -1;
}

Instance::Instance(const Module& module, int width, int height) : module_(module), width_(width), height_(height) {
    if (width < 1 || height < 1 || static_cast<double>(width) * height > most_pixels)
        throw std::invalid_argument("frames of " + std::to_string(width) + "x" + std::to_string(height) +
                                    " cannot be made");
    for (const Param& param : module_.params) {
        Value& value = values_.emplace_back();
        for (int i = 0; i < 3; i++) value.numbers[i] = host_value(param, param.defaults[i]);
        changed_.insert(param.param);
    }
}

void Instance::set(int index, const void* value) {
    const std::lock_guard lock(mutex_);
    if (index < 0 || static_cast<size_t>(index) >= values_.size()) return;
    const Param& param = module_.params[static_cast<size_t>(index)];
    Value& kept = values_[static_cast<size_t>(index)];
    changed_.insert(param.param);
    if (param.kind == Kind::text) {
        const char* const text = *static_cast<const char* const*>(value);
        kept.text = text ? text : "";
    } else if (param.kind == Kind::colour) {
        for (int i = 0; i < 3; i++) kept.numbers[i] = static_cast<const float*>(value)[i];
    } else {
        kept.numbers[0] = *static_cast<const double*>(value);
    }
}

void Instance::get(int index, void* value) const {
    const std::lock_guard lock(mutex_);
    if (index < 0 || static_cast<size_t>(index) >= values_.size()) return;
    const Param& param = module_.params[static_cast<size_t>(index)];
    const Value& kept = values_[static_cast<size_t>(index)];
    if (param.kind == Kind::text)
        *static_cast<const char**>(value) = kept.text.c_str();
    else if (param.kind == Kind::colour)
        for (int i = 0; i < 3; i++) static_cast<float*>(value)[i] = static_cast<float>(kept.numbers[i]);
    else
        *static_cast<double*>(value) = kept.numbers[0];
}

void Instance::open(double rate) {
    bridge::Settings settings;
    settings.width = width_;
    settings.height = height_;
    settings.depth = 8;
    settings.total_frames = most_frames;
    settings.frame_rate = static_cast<float>(rate);
    effect_ = std::make_unique<bridge::Effect>(module_.effect, settings);
}

// All channels of a param are told together, whichever of them changed.
void Instance::apply(const std::string& name) {
    std::string text;
    for (size_t i = 0; i < values_.size(); i++) {
        const Param& param = module_.params[i];
        if (param.param != name) continue;
        if (param.kind == Kind::text) {
            text = values_[i].text;
        } else if (param.kind == Kind::colour) {
            for (int c = 0; c < 3; c++) {
                Param channel = param;
                channel.defaults[0] = param.defaults[c];
                text += (c ? "," : "") + spark_host::number_text(effect_value(channel, values_[i].numbers[c]));
            }
        } else {
            text += (text.empty() ? "" : ",") + spark_host::number_text(effect_value(param, values_[i].numbers[0]));
        }
    }
    effect_->set(name, text);
}

void Instance::update(double time, double unit, double rate, const uint32_t* const* inputs, uint32_t* output) {
    const std::lock_guard lock(mutex_);
    const QuietOutput quiet;
    if (!effect_) open(rate);
    while (!changed_.empty()) {
        // Those whose place alone is left have no name.
        if (!changed_.begin()->empty()) apply(*changed_.begin());
        changed_.erase(changed_.begin());
    }
    const int frame = frame_at(time * unit, rate);
    frame_ = frame >= 0 ? frame : (frame_ + 1) % most_frames;
    const auto pixels = [&](const uint32_t* data) {
        return bridge::packed_pixels(const_cast<uint32_t*>(data), bridge::Samples::uint8, width_, height_, 4);
    };
    effect_->render(
        frame_ + 1, [&](int input, int) { return pixels(input < module_.inputs ? inputs[input] : nullptr); },
        pixels(output));
    effect_->take_warnings();
    failed_.clear();
}

void Instance::fail(const std::string& reason, uint32_t* output) {
    const std::lock_guard lock(mutex_);
    if (failed_ != reason) std::fprintf(stderr, "%s: no frame: %s\n", module_.slug.c_str(), reason.c_str());
    failed_ = reason;
    constexpr int stripe = 8;
    constexpr unsigned char colours[2][4] = {{255, 0, 255, 255}, {0, 0, 0, 255}};
    auto* const bytes = reinterpret_cast<unsigned char*>(output);
    for (int y = 0; y < height_; y++)
        for (int x = 0; x < width_; x++)
            for (int c = 0; c < 4; c++)
                bytes[(static_cast<size_t>(y) * static_cast<size_t>(width_) + static_cast<size_t>(x)) * 4 +
                      static_cast<size_t>(c)] = colours[(x + y) / stripe % 2][c];
}

}  // namespace frei0r
