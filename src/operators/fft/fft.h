// Fourier transforms: a small layer over the transform library chosen at build time. Nothing else knows its name.
//
// Complex samples are pairs of floats, real part first. No transform scales: forward and then backward multiplies by
// the number of samples. All buffers begin at multiples of 64 bytes. Functions that make plans run on the host's thread
// outside forks; running a plan is for any task, any number at once.
//
// A status is 0, or an error whose text fft_error_text gives.
#pragma once

namespace velloran {

enum FftDirection : int { fft_backward = 0, fft_forward = 1 };
enum FftStatus : int { fft_ok = 0, fft_memory_error = 1, fft_invalid_configuration = 2, fft_not_ready = 3 };

const char* fft_error_text(int status);

// One complex line of n samples, in and out apart; in keeps its content.
struct FftLine;
int fft_make_line(int n, int direction, FftLine** line);
int fft_run_line(const FftLine* line, const float* in, float* out);
void fft_free_line(FftLine* line);

// For tests: the next make answers this status instead of doing anything; 0 none.
extern int fft_fail_with;
int fft_take_failure();

}  // namespace velloran
