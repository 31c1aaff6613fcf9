// Row functions of frames of other times against their formula, on every target.
#include "operators/time/time_rows.h"
#include "testing/row_targets.h"

#include <algorithm>
#include <random>
#include <vector>

using namespace velloran;
using namespace velloran_tests;

namespace {

// Samples near each other and far apart are mixed by different arithmetic; the later one is held to what planes hold.
TEST(TimeRows, MixesByTheFractionWhateverTheSamples) {
    for_each_row_target([](int64_t) {
        std::mt19937 rng(3);
        for (const int far : {4096, 8300, 40000}) {
            const int fraction = static_cast<int>(rng() % 4096), n = 203;
            std::vector<int32_t> later(n);
            std::vector<FixPixel> mixed(n), earlier(n);
            for (int i = 0; i < n; ++i) {
                later[i] = static_cast<int>(rng() % static_cast<unsigned>(2 * far)) - far;
                earlier[i] = static_cast<FixPixel>(std::clamp(static_cast<int>(rng() % 65535) - 32767, -far, far));
            }
            mixed = earlier;
            time_row_functions().mix(later.data(), fraction, mixed.data(), n);
            for (int i = 0; i < n; ++i) {
                const int way = std::clamp(later[i], -32767, 32767) - earlier[i];
                EXPECT_EQ(mixed[i], earlier[i] + ((way * fraction) >> 12)) << i << " of " << far;
            }
        }
    });
}

}  // namespace
