// The layer over KissFFT, for builds that want a permissive licence throughout.
#include "operators/fft/fft.h"
#include "support/memory.h"

#include <kiss_fft.h>

#include <cstddef>
#include <cstdlib>

namespace velloran {

struct FftLine {
    kiss_fft_cfg plan;
};

int fft_make_line(int n, int direction, FftLine** line) {
    *line = nullptr;
    if (const int status = fft_take_failure()) return status;
    if (n < 1) return fft_invalid_configuration;
    FftLine* const made = static_cast<FftLine*>(safe_malloc(sizeof(FftLine)));  // first: it may abort
    made->plan = kiss_fft_alloc(n, direction == fft_backward, nullptr, nullptr);
    if (!made->plan) {
        safe_free(made);
        return fft_memory_error;
    }
    *line = made;
    return fft_ok;
}

int fft_run_line(const FftLine* line, const float* in, float* out) {
    if (!line) return fft_not_ready;
    kiss_fft(line->plan, reinterpret_cast<const kiss_fft_cpx*>(in), reinterpret_cast<kiss_fft_cpx*>(out));
    return fft_ok;
}

void fft_free_line(FftLine* line) {
    if (!line) return;
    std::free(line->plan);
    safe_free(line);
}

}  // namespace velloran
