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

// Where one plane's convolution comes from and goes to; one of the destinations is null.
struct ConvolveJob {
    const fft_info_t* info;
    const FixPixel* source;
    FixPixel* dest;
    float* float_dest;
    float scale;  // of a sum of products
    int channel;
    SourceArea area;  // of the source
};

// A rectangle of a plane into floats, edges obeyed. x, y may lie outside the plane. Rows first_row .. of the rectangle
// alone are done: callers stripe them. buffer: image_w + w samples.
void fft_copy_subimage(const ConvolveJob& job, float* out, int out_stride, int x, int y, int w, int first_row,
                       int n_rows, FixPixel* buffer);

// The source row for position y, edges obeyed; null if it is black. On fields a row of the other field is made in
// buffer, of image_w samples, as the mean of the rows around it.
const FixPixel* convolve_source_row(const ConvolveJob& job, const SourceArea& area, int y, FixPixel* buffer);
// n samples of a source row from column x on, edges obeyed.
void convolve_gather(const ConvolveJob& job, const SourceArea& area, const FixPixel* row, int x, int n, FixPixel* out);
// n finished sums to row y of the destination from column x on, clipped to its size.
void convolve_write(const ConvolveJob& job, int x, int y, const float* sums, int n);

void run_direct(const ConvolveJob& job);
void run_one_transform(const ConvolveJob& job);
void run_tiles(const ConvolveJob& job);
// Work buffers and spectra of the mode.
void reserve_one_transform(fft_info_t* info);
void reserve_tiles(fft_info_t* info, int n_processors);
// Spectrum of a kernel plane.
void set_spectrum_of_image(fft_info_t* info, const float* plane, int channel);
void set_spectrum_of_tile(fft_info_t* info, const float* plane, int channel);

// Reports a status that is not 0 and says whether it was 0.
bool fft_check(const char* name, int status);

// Plans, kept from frame to frame. Line plans of both axes and directions, and image plans.
struct TilePlans {
    const FftLine* row[2];  // by FftDirection
    const FftLine* column[2];
};
void fft_config_make_tiles(int width, int height);
// Inside a fork: what fft_config_make_tiles made; a plan that is missing is reported.
TilePlans fft_config_get_tiles(int width, int height);
const FftImage* fft_config_get_image(int width, int height, int direction);
void fft_config_free();

}  // namespace velloran
