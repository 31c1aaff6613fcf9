// The layer over FFTW 3, single precision. Plans are made by estimate: measuring would take up to a second for each new
// size, and could choose differently from run to run, which would show in the last bit of some samples.
#include "operators/fft/fft.h"
#include "support/memory.h"

#include <dlfcn.h>
#include <fftw3.h>

namespace velloran {

struct FftLine {
    fftwf_plan plan;
};

namespace {
fftwf_complex* complex_at(const float* p) { return reinterpret_cast<fftwf_complex*>(const_cast<float*>(p)); }

// Planning looks at the alignment of the arrays alone.
constexpr int plan_arrays = 2;

// The library keeps what it has learnt while planning. Cleaning that up would take away the plans of a host that uses
// it too; unloading the library with the last plug-in would lose it, and the next load begin anew. So it stays loaded.
void keep_loaded() {
    static bool kept = false;
    Dl_info here;
    if (kept || !dladdr(reinterpret_cast<void*>(&fftwf_plan_dft_1d), &here)) return;
    if (void* const library = dlopen(here.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE)) dlclose(library);
    kept = true;
}

}  // namespace

int fft_make_line(int n, int direction, FftLine** line) {
    *line = nullptr;
    if (const int status = fft_take_failure()) return status;
    if (n < 1) return fft_invalid_configuration;
    keep_loaded();
    FftLine* const made = static_cast<FftLine*>(safe_malloc(sizeof(FftLine)));  // first: it may abort
    fftwf_complex* arrays[plan_arrays] = {fftwf_alloc_complex(static_cast<size_t>(n)),
                                          fftwf_alloc_complex(static_cast<size_t>(n))};
    fftwf_plan plan = nullptr;
    if (arrays[0] && arrays[1])
        plan = fftwf_plan_dft_1d(n, arrays[0], arrays[1], direction == fft_forward ? FFTW_FORWARD : FFTW_BACKWARD,
                                 FFTW_ESTIMATE | FFTW_PRESERVE_INPUT);
    for (fftwf_complex* array : arrays) fftwf_free(array);
    if (!plan) {
        safe_free(made);
        return fft_memory_error;
    }
    made->plan = plan;
    *line = made;
    return fft_ok;
}

int fft_run_line(const FftLine* line, const float* in, float* out) {
    if (!line) return fft_not_ready;
    fftwf_execute_dft(line->plan, complex_at(in), complex_at(out));
    return fft_ok;
}

void fft_free_line(FftLine* line) {
    if (!line) return;
    fftwf_destroy_plan(line->plan);
    safe_free(line);
}

}  // namespace velloran
