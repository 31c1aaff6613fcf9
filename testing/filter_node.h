// One image function called by hand: a node with constant arguments and arguments that are planes, and the records of a
// frame around it. For tests of operators.
#pragma once

#include "engine/images.h"
#include "records/frame.h"
#include "records/node.h"
#include "tasks/tasks.h"
#include "testing/host_of_tasks.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <random>
#include <utility>
#include <vector>

namespace velloran_tests {

using Plane = std::vector<velloran::FixPixel>;

inline Plane random_plane(int width, int height, int low = 0, int high = 4095, unsigned seed = 1) {
    std::mt19937 rng(seed);
    Plane plane(static_cast<size_t>(width) * static_cast<size_t>(height));
    for (velloran::FixPixel& v : plane)
        v = static_cast<velloran::FixPixel>(std::uniform_int_distribution<int>(low, high)(rng));
    return plane;
}

// A plane from a function of the position.
inline Plane plane_of(int width, int height, const std::function<double(int, int)>& value) {
    Plane plane;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) plane.push_back(static_cast<velloran::FixPixel>(std::lround(value(x, y))));
    return plane;
}

// The frame is step times as large as the planes.
class FilterFrameRig {
public:
    FilterFrameRig(int frame_width, int frame_height, int tasks = 2, int step = 1)
        : width((frame_width + step - 1) / step), height((frame_height + step - 1) / step), host(tasks) {
        using namespace velloran;
        rinfo& raster = the_frame->temp_raster_info = {};
        raster.width = width;
        raster.height = height;
        raster.w = frame_width;
        raster.h = frame_height;
        raster.render_step = step;
        the_frame->dest_raster_info = raster;
        RenderInfo& info = the_frame->render_info = {};
        info.full_ren = info.croprect = {0, 0, frame_width, frame_height};
        info.downsampled = {0, 0, width, height};
        info.pix_scale = info.ratio_scale[0] = info.ratio_scale[1] = 1;
        info.render_step = step;
    }
    ~FilterFrameRig() {
        using velloran::the_frame;
        the_frame->temp_raster_info = the_frame->dest_raster_info = {};
        the_frame->render_info = {};
        the_frame->render_field = 0;
    }

    // An argument: numbers, or planes.
    struct Arg {
        std::vector<double> numbers;
        std::vector<Plane> planes;
        Arg(double v) : numbers{v} {}
        Arg(std::initializer_list<double> v) : numbers(v) {}
        Arg(std::vector<Plane> p) : planes(std::move(p)) {}
    };

    // Runs function for a result of elnum elements; extra: work planes behind them.
    std::vector<Plane> run(velloran::PixelFun function, int elnum, int extra, std::vector<Arg> arguments) {
        using namespace velloran;
        short_planes_ = static_cast<size_t>(width) * static_cast<size_t>(height);
        the_frame->short_image_size = short_planes_ * sizeof(FixPixel);
        std::vector<Node> args(arguments.size());
        Node node = {};
        node.type = node_function;
        node.elnum = static_cast<int8_t>(elnum);
        node.image_index = 50;
        node.pass_arg = -1;
        std::vector<Plane> planes(static_cast<size_t>(elnum + extra), Plane(short_planes_, 77));
        for (size_t i = 0; i < planes.size(); ++i) node.images[i] = planes[i].data();
        node.image_count = static_cast<int8_t>(planes.size());
        for (size_t i = 0; i < arguments.size(); ++i) {
            Node& arg = args[i];
            Arg& from = arguments[i];
            arg.pass_arg = -1;
            if (from.planes.empty()) {
                arg.type = node_constant;
                arg.flags = node_constant_p;
                arg.elnum = static_cast<int8_t>(from.numbers.size());
                for (size_t e = 0; e < 4; ++e)
                    arg.vals[e] = float_to_fix(static_cast<float>(from.numbers[std::min(e, from.numbers.size() - 1)]));
            } else {
                arg.type = node_function;
                arg.flags = node_images_valid;
                arg.elnum = static_cast<int8_t>(from.planes.size());
                arg.image_count = arg.elnum;
                arg.image_index = 60;
                for (size_t e = 0; e < from.planes.size(); ++e) arg.images[e] = from.planes[e].data();
            }
            node.args[i] = &arg;
            node.arg_vals[i] = arg.vals;
        }
        function(&node);
        planes.resize(static_cast<size_t>(elnum));
        return planes;
    }

    const int width, height;
    HostOfTasks host;

private:
    size_t short_planes_ = 0;
};

}  // namespace velloran_tests
