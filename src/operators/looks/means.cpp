// Means of an image over a region, as an image of one colour.
#include "engine/evaluate.h"
#include "frame/pixel_formats.h"
#include "operators/blur/filter_args.h"
#include "operators/looks/looks_functions.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

void (*save_flicker_ave_last_result)(const FixPixel* means, int channels) = nullptr;

namespace {

enum AveInRectArg : int { arg_rect_image, arg_rect_center, arg_rect_size };
enum AveInMatteArg : int { arg_matte_image, arg_matte };

// Samples [first, last) of an axis of the planes.
struct Range {
    int first, last;
};

// The range of so many samples, from the middle of an axis of whole samples in all, of which the planes hold size from
// sample start on. It is held to the planes, and at least a sample long.
Range range_of(double center, double extent, int whole, int start, int size) {
    const double middle = (whole >> 1) + center - start;
    double low = std::trunc(middle - extent / 2), high = std::trunc(middle + extent / 2);
    if (low > high) std::swap(low, high);
    const int first = static_cast<int>(std::clamp(low, 0.0, size - 1.0));
    return {first, static_cast<int>(std::clamp(high, first + 1.0, static_cast<double>(size)))};
}

// The sum over rows of row_sum(y), in whole numbers, so that it does not depend on how rows are shared.
template <class RowSum>
int64_t sum_of_rows(int width, int height, const RowSum& row_sum) {
    int64_t* const sums = frame_array<int64_t>(static_cast<size_t>(height));
    fork_rows_if_big_image(width, height, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) sums[y] = row_sum(y);
    });
    int64_t sum = 0;
    for (int y = 0; y < height; ++y) sum += sums[y];
    frame_free(sums);
    return sum;
}

FixPixel rounded_mean(int64_t sum, int64_t weight) {
    return weight > 0 ? clip_to_image(static_cast<int32_t>(
                            std::floor(static_cast<double>(sum) / static_cast<double>(weight) + 0.5)))
                      : FixPixel{0};
}

}  // namespace

// The mean of image in a rectangle, everywhere. rect_center, from the frame's middle, and rect_size count in pixels of
// the frame. A rectangle beyond the frame takes the pixels at its border.
void image_ave_in_rect(Node* node) {
    eval_node_tree_into_images(node->args[arg_rect_image], node->images, node->image_index, 1);
    const rinfo& planes = the_frame->temp_raster_info;
    const int width = planes.width, step = std::max(planes.render_step, 1);
    const auto samples = [&](int arg, int e) { return static_cast<double>(filter_arg_float(node, arg, e)) / step; };
    const Range x =
        range_of(samples(arg_rect_center, 0), samples(arg_rect_size, 0), filter_frame_width(), planes.x / step, width);
    const Range y = range_of(samples(arg_rect_center, 1), samples(arg_rect_size, 1), filter_frame_height(),
                             planes.y / step, planes.height);
    if (poll_abort()) return;
    FixPixel means[4];
    for (int c = 0; c < node->elnum; ++c) {
        const FixPixel* const plane = node->images[c];
        const int64_t sum = sum_of_rows(x.last - x.first, y.last - y.first, [&](int row) {
            const FixPixel* const p = plane + ptrdiff_t{y.first + row} * width;
            int64_t of_row = 0;
            for (int i = x.first; i < x.last; ++i) of_row += p[i];
            return of_row;
        });
        means[c] = rounded_mean(sum, int64_t{x.last - x.first} * (y.last - y.first));
        fill_samples(node->images[c], means[c], static_cast<size_t>(width) * static_cast<size_t>(planes.height));
    }
    if (save_flicker_ave_last_result) save_flicker_ave_last_result(means, node->elnum);
}

// The mean of image everywhere, each pixel weighing as much as matte is there; less than 0 weighs nothing. 0 where the
// whole matte is.
void image_ave_in_matte(Node* node) {
    eval_node_tree_into_images(node->args[arg_matte_image], node->images, node->image_index, 1);
    FixPixel* matte_plane[1] = {node->images[node->elnum]};
    eval_node_tree_into_images(node->args[arg_matte], matte_plane, node->image_index + node->elnum, 1);
    if (poll_abort()) return;
    const rinfo& planes = the_frame->temp_raster_info;
    const int width = planes.width, height = planes.height;
    const FixPixel* const matte = matte_plane[0];
    const int64_t weight = sum_of_rows(width, height, [&](int row) {
        const FixPixel* const m = matte + ptrdiff_t{row} * width;
        int64_t of_row = 0;
        for (int i = 0; i < width; ++i) of_row += std::max<int32_t>(m[i], 0);
        return of_row;
    });
    for (int c = 0; c < node->elnum; ++c) {
        const FixPixel* const plane = node->images[c];
        const int64_t sum = sum_of_rows(width, height, [&](int row) {
            const FixPixel *const p = plane + ptrdiff_t{row} * width, *const m = matte + ptrdiff_t{row} * width;
            int64_t of_row = 0;
            for (int i = 0; i < width; ++i) of_row += p[i] * std::max<int32_t>(m[i], 0);
            return of_row;
        });
        fill_samples(node->images[c], rounded_mean(sum, weight),
                     static_cast<size_t>(width) * static_cast<size_t>(height));
    }
}

}  // namespace velloran
