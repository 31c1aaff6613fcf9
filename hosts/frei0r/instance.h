// An effect at work in a frei0r host: its values, and the frames that it makes.
#pragma once

#include "hosts/bridge/bridge.h"
#include "hosts/frei0r/records.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace frei0r {

// Frames in a second, unless VELLORAN_FREI0R_RATE says otherwise: hosts tell no rate.
constexpr double usual_rate = 25;
constexpr int most_frames = 1000000;  // of a clip whose end nobody knows

// The frame, from 0, at a host's time; -1: that is no time.
int frame_at(double time, double rate);

// Any thread may call; one call at a time goes on, and the others wait for it.
class Instance {
public:
    // Fails where no frame can be of that size.
    Instance(const Module& module, int width, int height);

    // As frei0r's params are: a double, three floats, or a pointer to a text. A param that is not there is passed over.
    void set(int param, const void* value);
    // A text stays valid until it is set again.
    void get(int param, void* value) const;

    // unit: of time, in seconds. Pixels of 4 bytes, red first, top row first, rows of so many pixels one after the
    // other. inputs: as many as the module has; null is black. The effect is opened when it makes its first frame,
    // since programs make instances of all modules only to ask for their params. Fails if there is no frame.
    void update(double time, double unit, double rate, const uint32_t* const* inputs, uint32_t* output);
    // Fills a frame that nobody takes for the right one, and tells why once.
    void fail(const std::string& reason, uint32_t* output);
    int width() const { return width_; }

private:
    struct Value {
        double numbers[3] = {0, 0, 0};  // as the host gave them
        std::string text;
    };
    void open(double rate);
    void apply(const std::string& param);

    const Module module_;
    const int width_, height_;
    mutable std::mutex mutex_;
    std::vector<Value> values_;
    std::set<std::string> changed_;  // params that the effect has not been told of
    std::unique_ptr<bridge::Effect> effect_;
    int frame_ = -1;      // made last
    std::string failed_;  // what was told last
};

}  // namespace frei0r
