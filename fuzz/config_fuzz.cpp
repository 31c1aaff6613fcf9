// A configuration file.
#include "fuzz/fuzz.h"

#include "texts/config.h"

#include <cstring>

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    const char* const path = file.path();
    reset_config();
    FUZZ_CHECK(fuzz_call([path] { read_config_file(path); }));
    FUZZ_CHECK(config.enable_pointer_abort == 0 || config.enable_pointer_abort == 1);
    FUZZ_CHECK(config.force_frames_per_second == 0 || config.force_frames_per_second > 0.001f);
    FUZZ_CHECK(config.pointer_read_lock == -1 || config.pointer_read_lock >= 0);
    FUZZ_CHECK(std::strlen(config.input_lut) < token_size && std::strlen(config.output_lut) < token_size);
    FUZZ_CHECK(unread_token_p == 0 && !reading_from_file_ptr);
    reset_config();
    return 0;
}
