#include "operators/fft/fft.h"

namespace velloran {

int fft_fail_with = 0;

int fft_take_failure() {
    const int status = fft_fail_with;
    fft_fail_with = 0;
    return status;
}

const char* fft_error_text(int status) {
    static const char* const texts[] = {"No error", "Memory error", "Invalid configuration", "Transform is not ready"};
    return status >= 0 && status < 4 ? texts[status] : "Unknown error";
}

}  // namespace velloran
