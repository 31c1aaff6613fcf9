// A file of stamps.
#include "fuzz/fuzz.h"

#include "operators/image_files/qmi_file.h"
#include "support/memory.h"

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    StampCollection* const all = new_stamp_collection();
    FUZZ_CHECK(fuzz_call([&] {
        const int n = load_stamps_from_qmi(file.path(), all);
        FUZZ_CHECK(n == all->count);
        for (int i = 0; i < n; ++i) {
            FUZZ_CHECK(stamp_size_p(all->stamps[i].width, all->stamps[i].height));
            FUZZ_CHECK(all->stamps[i].level_count > 0 && all->stamps[i].x_scale > 0);
            mirrored_stamp(&all->stamps[i]);
        }
    }));
    free_stamp_collection(all);
    return 0;
}
