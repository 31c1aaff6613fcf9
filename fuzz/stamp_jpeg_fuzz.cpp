// A stamp in a JPEG file, at once and deferred.
#include "fuzz/fuzz.h"

#include "operators/image_files/stamp_jpeg.h"

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    StampCollection* const all = new_stamp_collection();
    FUZZ_CHECK(fuzz_call([&] {
        Stamp &now = all->stamps[0], &later = all->stamps[1];
        const StampJpegResult result = load_stamp_from_jpeg(file.path(), false, &now);
        FUZZ_CHECK((result == stamp_jpeg_done) == (now.level_count > 0));
        if (load_stamp_from_jpeg(file.path(), true, &later) == stamp_jpeg_done)
            FUZZ_CHECK(read_deferred_stamp(&later) == result);
    }));
    free_stamp_collection(all);
    return 0;
}
