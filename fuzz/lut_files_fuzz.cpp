// A LUT file, used as both of a pair, with a gamma from its size.
#include "fuzz/fuzz.h"

#include "frame/lut_files.h"

using namespace velloran;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz_begin();
    const FuzzFile file(data, size);
    set_lut_paths(file.path(), file.path());
    const float gamma = size % 3 == 0 ? 1.0f : static_cast<float>(size % 101) / 20.0f;
    FUZZ_CHECK(fuzz_call([gamma] { set_gamma(gamma); }));
    FUZZ_CHECK(HaveInputLut_p == HaveOutputLut_p);
    if (use_input_lut) {
        for (int i = 0; i < 256; ++i) FUZZ_CHECK(input_lut_8[i] >= 0 && input_lut_8[i] <= 4095);
        for (int i = 0; i < 4096; ++i) FUZZ_CHECK(input_lut_12[i] >= 0 && input_lut_12[i] <= 4095);
    }
    if (use_output_lut)
        for (int i = 0; i < 4096; ++i) FUZZ_CHECK(output_lut_16[i] >= 0 && output_lut_16[i] <= 4095);
    reset_luts();
    return 0;
}
