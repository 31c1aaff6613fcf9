// A TIFF file, in a layout by its size.
#include "fuzz/fuzz.h"

#include "operators/image_files/tiff_file.h"
#include "support/memory.h"

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    const TiffLayout layout = size % 3 == 0 ? tiff_grey : size % 3 == 1 ? tiff_rgb : tiff_rgba;
    static TiffPicture picture;
    picture = {};
    FUZZ_CHECK(fuzz_call([&] {
        const bool read = read_tiff(file.path(), layout, &picture);
        FUZZ_CHECK(read == (picture.pixels != nullptr));
    }));
    safe_free(picture.pixels);
    return 0;
}
