// A file of film stocks. Tones are made of all that is read: any numbers that the reader lets through have to give
// samples.
#include "fuzz/fuzz.h"

#include "operators/film/film_tone.h"
#include "operators/film/film_types.h"
#include "support/memory.h"
#include "texts/text_reader.h"

#include <algorithm>
#include <cmath>

using namespace velloran;

namespace {

FilmTable negatives, prints;

void free_tables() {
    free_film_table(&negatives);
    free_film_table(&prints);
}

void check_stock(const FilmType& type) {
    for (int c = 0; c < film_colors; ++c) {
        FUZZ_CHECK(type.point_count[c] >= 0 && type.point_count[c] <= MAX_CURVE_POINTS);
        FUZZ_CHECK(std::isfinite(type.grain[c]) && std::isfinite(type.exposure_compensation[c]));
        for (int i = 1; i < type.point_count[c]; ++i) FUZZ_CHECK(type.x[c][i - 1] < type.x[c][i]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    // The reader tells which file it opens.
    static const bool quiet = [] { return std::freopen("/dev/null", "w", stdout) != nullptr; }();
    FUZZ_CHECK(quiet);
    const char* const path = file.path();
    const bool read = fuzz_call([=] {
        start_film_table(&negatives, false);
        start_film_table(&prints, true);
        read_film_types(path, &negatives, &prints);
    });
    if (!read) reset_text_reader();
    for (int i = 0; i < negatives.count; ++i) check_stock(negatives.types[i]);
    for (int i = 0; i < prints.count; ++i) check_stock(prints.types[i]);
    for (int i = 0; read && i < std::min(negatives.count, 4); ++i)
        for (int k = 0; k < std::min(prints.count, 4); ++k) {
            const FilmTone tone = make_film_tone({}, negatives.types[i], prints.types[k]);
            for (const double v : {0.0, 0.3, 1.0}) {
                const FixPixel sample = film_sample(film_tone(tone, 1, v));
                FUZZ_CHECK(sample >= -fix_image_limit);
            }
        }
    free_tables();
    free_frame_memory();
    return 0;
}
