// The cache of transform plans. It holds the plans of one tile size and of one image size: a frame uses one size, and
// the next frame mostly the same.
#include "operators/convolve/convolve_parts.h"
#include "support/errors.h"
#include "support/task_state.h"

#include "tasks/tasks.h"

#include <algorithm>
#include <cstdlib>

namespace velloran {

namespace {

struct fft_config {
    int cfg_w, cfg_h;
    FftLine* rows[2];
    FftLine* columns[2];
} tiles;

struct {
    int cfg_w, cfg_h, n_threads;
    FftImage* images[2];
} whole;

v_mutex config_mutex;

// The one transform runs on the library's own threads, as many as processors are in use, but no more than the
// environment allows.
int transform_threads() {
    const char* text = std::getenv("OMP_NUM_THREADS");
    const int limit = text ? std::atoi(text) : 0;
    const int n = get_n_procs();
    return limit > 0 ? std::min(n, limit) : n;
}

void free_tiles() {
    for (int direction = 0; direction < 2; ++direction) {
        fft_free_line(tiles.rows[direction]);
        fft_free_line(tiles.columns[direction]);
    }
    tiles = {};
}

void free_whole() {
    for (FftImage* image : whole.images) fft_free_image(image);
    whole = {};
}

}  // namespace

bool fft_check(const char* name, int status) {
    if (status) V_error(level_error, "%s error: %d = %s", name, status, fft_error_text(status));
    return status == 0;
}

void fft_config_make_tiles(int width, int height) {
    const v_lock lock(config_mutex);
    if (tiles.cfg_w == width && tiles.cfg_h == height && tiles.rows[0] && tiles.rows[1] && tiles.columns[0] &&
        tiles.columns[1])
        return;
    free_tiles();
    tiles.cfg_w = width;
    tiles.cfg_h = height;
    for (int direction = 0; direction < 2; ++direction) {
        fft_check("DftiCreateDescriptor", fft_make_line(width, direction, &tiles.rows[direction]));
        fft_check("DftiCreateDescriptor", fft_make_line(height, direction, &tiles.columns[direction]));
    }
}

TilePlans fft_config_get_tiles(int width, int height) {
    const v_lock lock(config_mutex);
    TilePlans plans = {};
    for (int direction = 0; direction < 2; ++direction) {
        if (tiles.cfg_w == width && tiles.cfg_h == height) {
            plans.row[direction] = tiles.rows[direction];
            plans.column[direction] = tiles.columns[direction];
        }
        if (!plans.row[direction] || !plans.column[direction])
            V_error(level_error, "thread %d dir %d expecting cached fft_config, but didn't find it!\n",
                    get_processor_index(), direction);
    }
    return plans;
}

const FftImage* fft_config_get_image(int width, int height, int direction) {
    const v_lock lock(config_mutex);
    const int n_threads = transform_threads();
    if (whole.cfg_w != width || whole.cfg_h != height || whole.n_threads != n_threads) free_whole();
    whole.cfg_w = width;
    whole.cfg_h = height;
    whole.n_threads = n_threads;
    FftImage*& image = whole.images[direction];
    if (!image) fft_check("DftiCreateDescriptor", fft_make_image(width, height, direction, n_threads, &image));
    return image;
}

void fft_config_free() {
    free_tiles();
    free_whole();
}

}  // namespace velloran
