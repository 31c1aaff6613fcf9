// Convolution of planes by a kernel of any size and shape.
//
// out(p) = gain / kernel_scale * sum over q of kernel(centre + q) * source(p - q), truncated and held to +-32767. Four
// ways of running give the same picture: one multiplication for a kernel of a single sample; sums along runs for
// kernels of at most 64 runs; one transform over the whole crop for kernels that are large against the image; else
// transforms of tiles. Which of them runs follows from the kernel and from sizes alone, so that a picture does not
// depend on the number of tasks. Kernel and tables stay from frame to frame: a text names the kernel, and only a
// changed name builds it anew.
//
// Planes are row-major and packed, the bottom row first; kernels likewise. All functions: host's thread, outside forks.
// A failing transform is reported, and the frame goes on with what it has. A user's abort leaves the result unfinished.
#pragma once

#include "operators/fft/fft.h"
#include "records/fix_pixel.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

enum ConvolveMode : int {
    convolve_direct = 1,
    convolve_one_transform = 2,
    convolve_tiles_in_turn = 3,  // as tiles; kept for a host that cannot fork, never chosen
    convolve_tiles = 4
};

// What lies outside the source: edge_x, edge_y. Values above 3 count as mirrored.
enum ConvolveEdge : int {
    convolve_edge_black = 0,
    convolve_edge_repeat = 1,
    convolve_edge_wrap = 2,
    convolve_edge_mirror = 3
};

// What a kernel is divided by. Any other value: the largest of the channels' sums.
enum ConvolveAutoscale : int {
    autoscale_none = 0,       // 1
    autoscale_area = 1,       // width times height of the part that is not empty
    autoscale_largest = 2,    // the largest of the channels' sums
    autoscale_luminance = 3,  // 0.3, 0.5, 0.2 of the first three sums, 1 for a fourth channel
    autoscale_each = 4,       // each channel's own sum
    autoscale_count = 5       // samples that are not 0, the most of any channel
};

constexpr int max_kernels = 4;
constexpr int max_cheap_runs = 64;  // kernels of more runs are transformed
constexpr int least_tile_rows = 2;  // with fewer rows of tiles all goes through one transform
constexpr int max_fft_processors = 64;

constexpr int max_spare_buffers = 16;

// A buffer of the kernel before, for the next one.
struct SpareBuffer {
    float* block;
    size_t bytes;
};

// A stretch of equal samples in a kernel's row, relative to the centre.
struct KernelRun {
    int32_t row, first, length;
    float value;
};

struct fft_info_t {
    int32_t image_w, image_h;                // source images
    int32_t dest_w, dest_h;                  // destination images
    int32_t crop_x, crop_y, crop_w, crop_h;  // of the destination, to be computed
    int32_t area_x, area_y, area_w, area_h;  // what transforms are laid out over: the crop for which the kernel was set
    int32_t fft_w, fft_h;
    int32_t real_w, real_h;
    int32_t complex_w, complex_h;
    int32_t kernel_stride, kernel_rows;          // stored size
    int32_t kcrop_x, kcrop_y, kcrop_w, kcrop_h;  // its part that is not empty; 0 wide: all zero
    int32_t kcentre_x, kcentre_y;                // as passed in
    int32_t kcrop_centre_x, kcrop_centre_y;      // within the crop; may lie outside of it
    int32_t kernel_right, kernel_top;            // reach beyond the centre: crop size less centre less 1
    int32_t n_kernels;
    float kernel_scale[max_kernels];   // divisor; 0: the result is 0
    size_t real_bytes, complex_bytes;  // of one work buffer
    float* real_buf[max_fft_processors];
    float* complex_buf[max_fft_processors];
    float* kernel_spectrum[max_kernels];
    int32_t complex_stride, real_stride;  // complex samples from line to line of the buffers
    int32_t tile_overlap_x, tile_overlap_y;
    int32_t n_bufs;
    int32_t n_spare;
    SpareBuffer spare[max_spare_buffers];  // while a kernel is set
    int32_t tile_w, tile_h;                // part of a tile that is usable
    int32_t mode;                          // ConvolveMode; 0: no kernel
    int32_t autoscale;
    int32_t edge_x, edge_y;
    char* kernel_key;
    char* dims_key;
    int32_t crop_field;  // render_field
    int32_t crop_set;
    int32_t own_edges;  // 1: the picture ends where the source does, whatever the working raster wraps: a part of it
    KernelRun* runs[max_kernels];  // direct
    int32_t n_runs[max_kernels];
    float single_value[max_kernels];  // one sample at the centre
    int32_t single;
    FixPixel* aside;  // copy of a source that is its own destination
    size_t aside_bytes;
};

void init_fft();  // once; called by get_fft_info
void free_fft();  // plans and the record's buffers
void free_fft_bufs(fft_info_t* info);
// Gives work buffers back and keeps the kernel, for one of many records: the next convolution takes buffers anew. What
// goes through one transform is as large as the picture: it is kept as a whole, or if it is too large for that given
// back as a whole.
void release_fft_work(fft_info_t* info);
fft_info_t* get_fft_info();

struct ConvolveCrop {
    int image_w, image_h;  // sizes of the planes
    int dest_w, dest_h;
    int x, y, w, h;  // of the destination, to be computed
    int field;       // 0, or 1 or 2 where the rows of the other field are to be taken from their neighbours
};

// A kernel is set for a crop; a smaller one that is set after that, within the first, leaves the sizes and places of
// transforms as they are, so that no sample inside it changes.
void fft_set_crop(fft_info_t* info, const ConvolveCrop& crop);
// The field in hand as the rows of the planes have it, which may begin on a row of either.
int convolve_field();
void fft_set_no_crop(fft_info_t* info);   // the whole working image
void fft_set_std_crop(fft_info_t* info);  // the frame's crop: all samples that show in it

// True if the kernel named key is not at hand for the crop that is set.
bool need_to_set_kernel(const fft_info_t* info, const char* key);

struct KernelSettings {
    int width, height, n_kernels;  // of the planes: one for each channel, or one for all
    int centre_x, centre_y;
    int autoscale;       // ConvolveAutoscale
    int edge_x, edge_y;  // ConvolveEdge
    const char* key;
    // No row from the centre's on falls off on the side of the first rows, so that a kernel that lies above its centre
    // alone counts from there (for autoscale_area, and for the size of transforms).
    bool symmetrical = false;
};

// Outer rows and columns that are 0 in every channel are left away.
void fft_set_kernel_float(fft_info_t* info, const float* const* planes, const KernelSettings& settings);
void fft_set_kernel(fft_info_t* info, const FixPixel* const* planes, const KernelSettings& settings);

// One plane by the kernel of channel (0 for all if there is one kernel); 1.0 is a gain that keeps the scale. source may
// be dest. The crop alone is written.
void convolve_fix_fix(fft_info_t* info, const FixPixel* source, FixPixel* dest, float gain, int channel);
// The same into floats, in units of a sample's last bit times gain, not held. dest has dest_w columns.
void convolve_fix_float(fft_info_t* info, const FixPixel* source, float* dest, float gain, int channel);

// Is given finished sums instead of a plane's being written: n of row y from column x on, in units of a sample's last
// bit times gain. Called by the tasks, once for each sample of the crop.
struct SumsTaker {
    void (*take)(const SumsTaker* self, int x, int y, const float* sums, int n);
    const FixPixel* written = nullptr;  // the plane of the destination's size that it writes, to be fetched in time
};
// Whether the kernel in force goes through transforms, for which alone there is convolve_fix_taken.
bool convolve_transforms_p(const fft_info_t* info);
// raise: what a sample of the source counts as, by its bits; null: as itself. The taker may write where the source
// lies.
void convolve_fix_taken(fft_info_t* info, const FixPixel* source, const FixPixel* raise, float gain, int channel,
                        const SumsTaker& taker);

struct ConvolveParams {
    float gamma;           // power before, its inverse after; 1 none
    float boost;           // highlight boost, 0 none
    float boost_exponent;  // where highlights begin, 0 to 1
    float final_scale;
    fft_info_t* fft_info;
};

// dests[i] = the convolution of sources[i], or of source 0 where there are fewer. The sources are raised in place. A
// missing fft_info is fatal.
void convolve_images(FixPixel* const* sources, FixPixel* const* dests, int n_sources, int n_dests,
                     const ConvolveParams* params);

// Centroid of a kernel plane; its middle if its sum is 0.
void fft_get_centroid(const FixPixel* plane, int width, int height, float* x, float* y);

// Kernels built so far, for tests.
extern int fft_kernels_built;
// For tests: runs kernels in this mode instead of the one that would be chosen; 0 none. Set before the kernel is.
extern int fft_forced_mode;

}  // namespace velloran
