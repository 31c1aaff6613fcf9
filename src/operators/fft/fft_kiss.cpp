// The layer over KissFFT, for builds that want a permissive licence throughout. It has no threads.
#include "operators/fft/fft.h"
#include "support/memory.h"

#include <kiss_fft.h>
#include <kiss_fftr.h>

#include <cstddef>
#include <cstdlib>

namespace velloran {

struct FftLine {
    kiss_fft_cfg plan;
};
struct FftImage {
    int width, height;
    kiss_fftr_cfg row;
    kiss_fft_cfg column;
    kiss_fft_cpx* line;  // a column, before and after
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

// Rows as real transforms, then columns as complex ones. The library's own transform of several dimensions (131.1.0)
// fails for most sizes.
int fft_make_image(int width, int height, int direction, int, FftImage** image) {
    *image = nullptr;
    if (const int status = fft_take_failure()) return status;
    if (width < 2 || height < 1 || width % 2 != 0) return fft_invalid_configuration;
    const int inverse = direction == fft_backward;
    auto* made = static_cast<FftImage*>(safe_calloc(sizeof(FftImage)));
    made->width = width;
    made->height = height;
    made->row = kiss_fftr_alloc(width, inverse, nullptr, nullptr);
    made->column = kiss_fft_alloc(height, inverse, nullptr, nullptr);
    made->line = static_cast<kiss_fft_cpx*>(safe_malloc(2 * sizeof(kiss_fft_cpx) * static_cast<size_t>(height)));
    if (!made->row || !made->column) {
        fft_free_image(made);
        return fft_memory_error;
    }
    *image = made;
    return fft_ok;
}

static void transform_columns(const FftImage* image, kiss_fft_cpx* spectrum) {
    const int columns = image->width / 2 + 1;
    kiss_fft_cpx *in = image->line, *out = in + image->height;
    for (int x = 0; x < columns; ++x) {
        kiss_fft_cpx* at = spectrum + x;
        for (int y = 0; y < image->height; ++y) in[y] = at[static_cast<ptrdiff_t>(y) * columns];
        kiss_fft(image->column, in, out);
        for (int y = 0; y < image->height; ++y) at[static_cast<ptrdiff_t>(y) * columns] = out[y];
    }
}

int fft_run_forward(const FftImage* image, const float* real, float* spectrum) {
    if (const int status = fft_take_failure()) return status;
    if (!image) return fft_not_ready;
    auto* to = reinterpret_cast<kiss_fft_cpx*>(spectrum);
    for (int y = 0; y < image->height; ++y)
        kiss_fftr(image->row, real + static_cast<ptrdiff_t>(y) * image->width,
                  to + static_cast<ptrdiff_t>(y) * (image->width / 2 + 1));
    transform_columns(image, to);
    return fft_ok;
}

int fft_run_backward(const FftImage* image, float* spectrum, float* real) {
    if (const int status = fft_take_failure()) return status;
    if (!image) return fft_not_ready;
    auto* from = reinterpret_cast<kiss_fft_cpx*>(spectrum);
    transform_columns(image, from);
    for (int y = 0; y < image->height; ++y)
        kiss_fftri(image->row, from + static_cast<ptrdiff_t>(y) * (image->width / 2 + 1),
                   real + static_cast<ptrdiff_t>(y) * image->width);
    return fft_ok;
}

void fft_free_image(FftImage* image) {
    if (!image) return;
    std::free(image->row);
    std::free(image->column);
    safe_free(image->line);
    safe_free(image);
}

}  // namespace velloran
