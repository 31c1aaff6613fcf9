// A file of flares, read with and without centres. What is read is drawn small: any numbers that the reader lets
// through have to be drawn without harm.
#include "fuzz/fuzz.h"

#include "operators/flares/draw_flare.h"
#include "operators/flares/flare_file.h"
#include "support/memory.h"
#include "texts/text_reader.h"

using namespace velloran;

namespace {

constexpr int width = 24, height = 16;
LensFlare* flares[max_flares_in_table];
FixPixel planes[3][width * height];

void draw(const LensFlare& flare) {
    const FlareCanvas canvas = {{planes[0], planes[1], planes[2]}, width, height, 0, 0, width, 1};
    FlareSettings settings;
    settings.hotspot[0] = 10.3;
    settings.hotspot[1] = 4;
    settings.pivot[0] = 15;
    settings.saturation = 1.5f;
    draw_lens_flare_noclear(canvas, flare, settings);
    for (const auto& plane : planes)
        for (const FixPixel v : plane) FUZZ_CHECK(v <= fix_scale);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    // The reader tells which file it opens.
    static const bool quiet = [] { return std::freopen("/dev/null", "w", stdout) != nullptr; }();
    FUZZ_CHECK(quiet);
    for (const int has_center : {1, 0}) {
        int count = 0;
        int* const count_pointer = &count;
        const char* const path = file.path();
        if (!fuzz_call([=] {
                *count_pointer = load_lens_flares_from_file(path, flares, max_flares_in_table, has_center,
                                                            has_center ? "Lens:" : "Type:");
            })) {
            reset_text_reader();
            return 0;
        }
        FUZZ_CHECK(count >= 0 && count <= max_flares_in_table);
        for (int i = 0; i < count; ++i) {
            LensFlare* const flare = flares[i];
            FUZZ_CHECK(flare->spot_count <= LENS_FLARE_MAX_SPOTS && flare->ray_count <= LENS_FLARE_MAX_RAYS &&
                       flare->polar_count <= LENS_FLARE_MAX_POLARS);
            if (i < 8) fuzz_call([=] { draw(*flare); });
            free_lens_flare(flare);
        }
        free_frame_memory();
    }
    return 0;
}
