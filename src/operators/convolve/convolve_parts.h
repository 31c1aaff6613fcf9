// What the files of the convolution share.
#pragma once

#include "operators/convolve/convolution.h"

namespace velloran {

// Index within the source for position i along an axis; area is what the edges of the picture are: [start, start +
// size). -1: black.
int convolve_edge_index(int i, int start, int size, int edge);

// What the edges of the picture are: the wrap area of the working raster if it has one, else the whole image.
struct SourceArea {
    int x, y, w, h;
};
SourceArea convolve_source_area(const fft_info_t* info);

// Lines of complex samples lie padded to whole blocks of lines that are transposed at a time, a cache line, at
// distances that are no multiple of the page size.
constexpr int convolve_block = 8;
constexpr int padded_line(int n) { return (n + convolve_block - 1) / convolve_block * convolve_block; }
constexpr int line_stride(int n) { return padded_line(n) + convolve_block; }

// Where one plane's convolution comes from and goes to; all destinations but one are null.
struct ConvolveJob {
    const fft_info_t* info;
    const FixPixel* source;
    FixPixel* dest;
    float* float_dest;
    float scale;  // of a sum of products
    int channel;
    SourceArea area;  // of the source
    const SumsTaker* taker;
    const FixPixel* raise;  // of the source's samples that are gathered; null: none
};

// The source row for position y, edges obeyed; null if it is black. On fields a row of the other field is made in
// buffer, of image_w samples, as the mean of the rows around it.
const FixPixel* convolve_source_row(const ConvolveJob& job, int y, FixPixel* buffer);
// n samples of a source row from column x on, edges obeyed.
void convolve_gather(const ConvolveJob& job, const FixPixel* row, int x, int n, FixPixel* out);
// The same, without a copy where the row has them all.
const FixPixel* convolve_samples(const ConvolveJob& job, const FixPixel* row, int x, int n, FixPixel* buffer);
// n finished sums to row y of the destination from column x on, clipped to its size.
void convolve_write(const ConvolveJob& job, int x, int y, const float* sums, int n);

void run_direct(const ConvolveJob& job);
void run_one_transform(const ConvolveJob& job);
void run_tiles(const ConvolveJob& job);
// The kernel's buffers become spare, and everything else of it is freed; a buffer of the next kernel is a spare one of
// its size, or a new one. A kernel that moves from frame to frame would else spend most of its time on fresh pages.
void retire_fft_bufs(fft_info_t* info);
float* take_fft_buf(fft_info_t* info, size_t bytes);
void free_spare_fft_bufs(fft_info_t* info);
// Work buffers and spectra of the mode.
void reserve_one_transform(fft_info_t* info);
void reserve_tiles(fft_info_t* info, int n_processors);
// Spectrum of a kernel plane.
void set_spectrum_of_image(fft_info_t* info, const float* plane, int channel);
void set_spectrum_of_tile(fft_info_t* info, const float* plane, int channel);

}  // namespace velloran
