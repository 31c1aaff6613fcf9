// The layer over KissFFT, for builds that want a permissive licence throughout. It has no threads.
#include "ops/fft.h"
#include "support/memory.h"

#include <kiss_fft.h>
#include <kiss_fftndr.h>

#include <cstdlib>

namespace velloran {

struct FftLine {
    kiss_fft_cfg plan;
};
struct FftImage {
    kiss_fftndr_cfg plan;
};

int fft_make_line(int n, int direction, FftLine** line) {
    *line = nullptr;
    if (const int status = fft_take_failure()) return status;
    if (n < 1) return fft_invalid_configuration;
    const kiss_fft_cfg plan = kiss_fft_alloc(n, direction == fft_backward, nullptr, nullptr);
    if (!plan) return fft_memory_error;
    *line = static_cast<FftLine*>(safe_malloc(sizeof(FftLine)));
    (*line)->plan = plan;
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

int fft_make_image(int width, int height, int direction, int, FftImage** image) {
    *image = nullptr;
    if (const int status = fft_take_failure()) return status;
    if (width < 2 || height < 1 || width % 2 != 0) return fft_invalid_configuration;
    const int dims[2] = {height, width};
    const kiss_fftndr_cfg plan = kiss_fftndr_alloc(dims, 2, direction == fft_backward, nullptr, nullptr);
    if (!plan) return fft_memory_error;
    *image = static_cast<FftImage*>(safe_malloc(sizeof(FftImage)));
    (*image)->plan = plan;
    return fft_ok;
}

int fft_run_forward(const FftImage* image, const float* real, float* spectrum) {
    if (const int status = fft_take_failure()) return status;
    if (!image) return fft_not_ready;
    kiss_fftndr(image->plan, real, reinterpret_cast<kiss_fft_cpx*>(spectrum));
    return fft_ok;
}

int fft_run_backward(const FftImage* image, float* spectrum, float* real) {
    if (const int status = fft_take_failure()) return status;
    if (!image) return fft_not_ready;
    kiss_fftndri(image->plan, reinterpret_cast<const kiss_fft_cpx*>(spectrum), real);
    return fft_ok;
}

void fft_free_image(FftImage* image) {
    if (!image) return;
    std::free(image->plan);
    safe_free(image);
}

}  // namespace velloran
