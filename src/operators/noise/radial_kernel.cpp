#include "operators/noise/radial_kernel.h"

#include "records/fix_pixel.h"

#include <cmath>

namespace velloran {
namespace {

RadialKernel make_kernel() {
    RadialKernel kernel = {{}, 2 * radial_kernel_size - 1};
    bool ended = false;
    for (int i = 0; i < radial_kernel_size; ++i) {
        const double r = std::sqrt(i / static_cast<double>(radial_kernel_size));
        const double weight = r < 0.5 ? 1 - 2 * r * r : 2 * (1 - r) * (1 - r);
        const auto fixed = static_cast<int32_t>(weight * fix_scale + 0.5);
        kernel.weights[static_cast<size_t>(i)] = fixed;
        if (fixed == 0 && !ended) kernel.limit = 2 * i;
        ended = ended || fixed == 0;
    }
    return kernel;
}

}  // namespace

const RadialKernel radial_kernel = make_kernel();

}  // namespace velloran
