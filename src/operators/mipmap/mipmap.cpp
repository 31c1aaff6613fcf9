#include "operators/mipmap/mipmap.h"

#include "engine/evaluate.h"
#include "frame/host_buffers.h"
#include "operators/mipmap/mipmap_rows.h"
#include "records/frame.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <hwy/cache_control.h>

#include <algorithm>

namespace velloran {

Mipmap mipmap;

namespace {

// What mipmap was made of. The frame says whether its memory still holds it.
struct Made {
    const Node* value;
    const Frame* frame;
};
Made made;

// A read of 16 bytes from the last pixels must not leave the block.
constexpr size_t read_beyond = 16;

int level_sizes(int size, bool multi_level, int32_t* bordered, int32_t* scales, int32_t* total) {
    int n = 0;
    *total = 0;
    while (n < max_mipmap_levels) {
        bordered[n] = size + 2;
        scales[n] = size << fix_bits;
        *total += size + 2;
        ++n;
        if (!multi_level || (size == 1 && n > 1)) break;
        size = (size + 1) >> 1;
    }
    return n;
}

// The highest level itself is never reached: there is none above it to mix with.
int highest_level(int size, int levels) { return size < 2 ? 0 : std::max(((levels - 1) << fix_bits) - 1, 0); }

// The source's area in samples of the planes.
struct Area {
    int x, y, w, h;
};
Area source_area() {
    const rinfo& planes = the_frame->temp_raster_info;
    const WrapDims& wrap = planes.wrap;
    const Area whole = {0, 0, planes.width, planes.height};
    if (!Globals_V4 || !Globals_V4->wrapped || wrap.wrap_sw <= 0 || wrap.wrap_sh <= 0) return whole;
    const int step = std::max(planes.render_step, 1);
    const int x = std::clamp(wrap.wrap_sx - planes.x / step, 0, planes.width - 1);
    const int y = std::clamp(wrap.wrap_sy - planes.y / step, 0, planes.height - 1);
    return {x, y, std::min(wrap.wrap_sw, planes.width - x), std::min(wrap.wrap_sh, planes.height - y)};
}

int16_t* level_row(const Mipmap& map, int level, int row) {
    return map.y_level_ptr[level] + (ptrdiff_t{row} + 1) * map.row_samples;
}

void copy_pixel(const int16_t* from, int16_t* to, int elements) { std::copy_n(from, elements, to); }

// The borders and x levels of a row of level (0, 0) that is complete and begins at start.
void finish_row(const Mipmap& map, int16_t* start) {
    const int n = map.elements;
    int16_t outside[4];
    get_warp_outside(outside);
    for (int i = 0; i < map.n_x_levels; ++i) {
        const int w = map.x_level_w[i] - 2;
        int16_t* const left = start + map.x_level_offset[i];
        int16_t* const first = left + n;
        int16_t* const right = first + ptrdiff_t{w} * n;
        if (i > 0) mipmap_rows().halve[n - 1](start + map.x_level_offset[i - 1] + n, first, map.x_level_w[i - 1] - 2);
        int16_t* const last = right - n;
        const bool around = map.settings.wrap_x == wrap_repeat, none = map.settings.wrap_x == wrap_none;
        copy_pixel(none ? outside : around ? last : first, left, n);
        copy_pixel(none ? outside : around ? first : last, right, n);
    }
}

// The borders below and above a y level whose rows are complete.
void fill_y_borders(const Mipmap& map, int level) {
    const int h = map.y_level_h[level] - 2;
    int16_t* const below = level_row(map, level, -1);
    int16_t* const above = level_row(map, level, h);
    if (map.settings.wrap_y == wrap_none) {
        int16_t outside[4];
        get_warp_outside(outside);
        for (int x = 0; x < map.x_total; ++x) {
            copy_pixel(outside, below + ptrdiff_t{x} * map.elements, map.elements);
            copy_pixel(outside, above + ptrdiff_t{x} * map.elements, map.elements);
        }
        return;
    }
    const bool around = map.settings.wrap_y == wrap_repeat;
    std::copy_n(level_row(map, level, around ? h - 1 : 0), map.row_samples, below);
    std::copy_n(level_row(map, level, around ? 0 : h - 1), map.row_samples, above);
}

// n pixels from column on of a row that begins at start; with the last of them the row is complete.
void set_pixels(const Mipmap& map, int16_t* start, int column, const int32_t* const* lines, int n) {
    int16_t* const out = start + (ptrdiff_t{column} + 1) * map.elements;
    const bool whole = map.settings.whole_range;
    mipmap_rows().interleave[map.elements - 1](lines, out, n, whole ? -fix_image_limit : 0,
                                               whole ? fix_image_limit : mipmap_highest);
    if (column + n == map.top_w) finish_row(map, start);
}

// ---- Large mipmaps
//
// Memory is what they wait for. So a task makes a row of level 0 where it stays in the caches, and whenever that
// completes a pair, the row of the next y level, and so on upwards; each goes past the caches to its place. Rows whose
// pair was not made by one task, one after the other, are made at the end.

constexpr size_t large_mipmap_bytes = size_t{16} << 20;

// The rows that a task has at hand: of each y level the one that waits for its other half, and one in the making.
struct TaskRows {
    int waiting[max_mipmap_levels];  // -1: none
    int16_t* samples[max_mipmap_levels][2];
};
struct LargeMipmap {
    TaskRows* tasks;  // null: the mipmap is not a large one
    int16_t* block;   // their rows
    uint8_t* made;    // rows of y levels above 0, one behind the other
    int first_row[max_mipmap_levels];
};
LargeMipmap large;

void forget_large(void*) { large = {}; }

void begin_large(const Mipmap& map) {
    if (!map.settings.multi_level || mipmap_data_bytes(map) < large_mipmap_bytes) return;
    const auto tasks = static_cast<size_t>(get_n_procs()), samples = static_cast<size_t>(map.row_samples);
    const auto levels = static_cast<size_t>(map.n_y_levels);
    LargeMipmap begun = {};
    begun.tasks = frame_array<TaskRows>(tasks);
    auto* const block = frame_array<int16_t>(tasks * levels * 2 * samples);
    for (size_t t = 0; t < tasks; ++t)
        for (size_t j = 0; j < levels; ++j) {
            begun.tasks[t].waiting[j] = -1;
            for (size_t k = 0; k < 2; ++k) begun.tasks[t].samples[j][k] = block + ((t * levels + j) * 2 + k) * samples;
        }
    begun.block = block;
    int rows = 0;
    for (int j = 1; j < map.n_y_levels; ++j) {
        begun.first_row[j] = rows;
        rows += map.y_level_h[j] - 2;
    }
    begun.made = frame_array<uint8_t>(static_cast<size_t>(rows));
    std::fill_n(begun.made, rows, uint8_t{0});
    large = begun;
    push_abort_cleanup(forget_large, nullptr);
}

void end_large() {
    if (!large.tasks) return;
    pop_abort_cleanup();
    frame_free(large.made);
    frame_free(large.block);
    frame_free(large.tasks);
    large = {};
}

// What has come of a row to its place, in whole cache lines but for its ends.
void stream_until(const int16_t* in, int16_t* out, int* streamed, int end, int n) {
    constexpr int line = 64 / static_cast<int>(sizeof(int16_t));
    if (end < n) end -= static_cast<int>(reinterpret_cast<uintptr_t>(out + end) % 64 / sizeof(int16_t));
    if (end - *streamed < line && end < n) return;
    mipmap_rows().stream(in + *streamed, out + *streamed, end - *streamed);
    *streamed = end;
}

// A row of level 0 that stands in samples[0][0] of the task, and those above that it completes: piece by piece, so
// that each is read from the first cache, and memory takes the one piece while the next one is computed.
void keep_row(const Mipmap& map, TaskRows& task, int row) {
    constexpr int piece = 1024;
    const MipmapRows& rows = mipmap_rows();
    const int n = map.row_samples;
    int top = 0;
    while (top + 1 < map.n_y_levels && (row >> top & 1) && task.waiting[top] == (row >> top) - 1) ++top;
    int streamed[max_mipmap_levels] = {};
    for (int at = 0; at < n; at += piece) {
        const int end = std::min(at + piece, n);
        for (int level = 0; level <= top; ++level) {
            int16_t* const here = task.samples[level][0];
            if (level > 0) {
                int16_t* const* const below = task.samples[level - 1];
                rows.mean(below[1] + at, below[0] + at, here + at, end - at);
            }
            stream_until(here, level_row(map, level, row >> level), &streamed[level], end, n);
        }
    }
    hwy::FlushStream();
    for (int level = 1; level <= top; ++level) large.made[large.first_row[level] + (row >> level)] = 1;
    if (top + 1 < map.n_y_levels && !(row >> top & 1)) {
        std::swap(task.samples[top][0], task.samples[top][1]);
        task.waiting[top] = row >> top;
    }
}

template <int elements>
void set_mipmap_line(Node* root, int column, int row) {
    const int y = row - mipmap.bottom;
    if (y < 0 || y >= mipmap.top_h) return;
    const int first = std::max(column, mipmap.left), end = std::min(column + n_pixels, mipmap.left + mipmap.top_w);
    if (first >= end) return;
    const int32_t* lines[elements];
    for (int e = 0; e < elements; ++e) lines[e] = root->lines[e] + (first - column);
    if (!large.tasks) {
        mipmap_set_row(mipmap, y, first - mipmap.left, lines, end - first);
        return;
    }
    TaskRows& task = large.tasks[get_processor_index()];
    set_pixels(mipmap, task.samples[0][0], first - mipmap.left, lines, end - first);
    if (end == mipmap.left + mipmap.top_w) keep_row(mipmap, task, y);
}

}  // namespace

void mipmap_set_sizes(Mipmap* map, int w, int h, int elements, const MipmapSettings& settings) {
    *map = {};
    map->settings = settings;
    map->top_w = w;
    map->top_h = h;
    map->n_x_levels = level_sizes(w, settings.multi_level, map->x_level_w, map->x_scale_fix, &map->x_total);
    map->n_y_levels = level_sizes(h, settings.multi_level, map->y_level_h, map->y_scale_fix, &map->y_total);
    map->max_x_level_fix = highest_level(w, map->n_x_levels);
    map->max_y_level_fix = highest_level(h, map->n_y_levels);
    map->elements = elements;
    map->row_samples = map->x_total * elements;
    for (int i = 0, at = 0; i < map->n_x_levels; at += map->x_level_w[i++] * elements) map->x_level_offset[i] = at;
}

size_t mipmap_data_bytes(const Mipmap& map) {
    const size_t samples = static_cast<size_t>(map.row_samples) * static_cast<size_t>(map.y_total) * sizeof(int16_t);
    const size_t beyond = map.elements < mipmap_elements ? read_beyond : 0;  // with four, 16 bytes are two pixels
    return std::max(samples + beyond, static_cast<size_t>(map.top_w) * static_cast<size_t>(map.top_h) * 8);
}

void mipmap_set_data(Mipmap* map, int16_t* data) {
    map->data = data;
    for (int j = 0; j < map->n_y_levels; data += ptrdiff_t{map->row_samples} * map->y_level_h[j++])
        map->y_level_ptr[j] = data;
}

bool get_warp_outside(int16_t color[4]) {
    std::fill_n(color, 4, int16_t{0});
    // The crop of the input shows the frame around it, in the colour of the surround. The surround of a crop of the
    // result is painted afterwards.
    if (!Globals_V4 || !Globals_V4->wrapped || !the_frame->surround_color.on) return false;
    for (int c = 0; c < 4; ++c)
        color[c] = static_cast<int16_t>(std::clamp(the_frame->surround_color.color[c], 0, mipmap_highest));
    return true;
}

bool mipmap_setup(Node* value, const MipmapSettings& settings) {
    const Area area = source_area();
    const bool same = the_frame->mipmap_holds && made.value == value && made.frame == the_frame &&
                      mipmap.settings == settings && mipmap.elements == value->elnum && mipmap.top_w == area.w &&
                      mipmap.top_h == area.h && mipmap.left == area.x && mipmap.bottom == area.y;
    if (same) return true;
    mipmap_set_sizes(&mipmap, area.w, area.h, value->elnum, settings);
    mipmap.left = area.x;
    mipmap.bottom = area.y;
    mipmap_set_data(&mipmap, static_cast<int16_t*>(spark_set_mipmap(mipmap_data_bytes(mipmap))));
    begin_large(mipmap);
    eval_node_tree_into_mipmap_toplevel(value);
    const bool filled = mipmap_fill_levels(mipmap);
    end_large();
    if (!filled) return false;
    made = {value, the_frame};
    the_frame->mipmap_holds = true;
    return true;
}

void set_mipmap_line_1(Node* root, int column, int row, int) { set_mipmap_line<1>(root, column, row); }
void set_mipmap_line_2(Node* root, int column, int row, int) { set_mipmap_line<2>(root, column, row); }
void set_mipmap_line_3(Node* root, int column, int row, int) { set_mipmap_line<3>(root, column, row); }
void set_mipmap_line_4(Node* root, int column, int row, int) { set_mipmap_line<4>(root, column, row); }

void eval_node_tree_into_mipmap_toplevel(Node* node) {
    constexpr EvalLineFun set_line[] = {set_mipmap_line_1, set_mipmap_line_2, set_mipmap_line_3, set_mipmap_line_4};
    if (node->elnum < 1 || node->elnum > 4) {
        V_error(level_warning, "eval_node_tree_into_mipmap_toplevel: unsupported elnum %d \n", node->elnum);
        fail_frame();
        return;
    }
    eval_node_tree_pixel_loop(node, set_line[node->elnum - 1], eval_as_target, 1);
}

void mipmap_set_row(const Mipmap& map, int row, int column, const int32_t* const* lines, int n) {
    set_pixels(map, level_row(map, 0, row), column, lines, n);
}

bool mipmap_fill_levels(const Mipmap& map) {
    fill_y_borders(map, 0);
    for (int level = 1; level < map.n_y_levels && !poll_abort(); ++level) {
        forked_fill_mipmap_y_level(map, level);
        fill_y_borders(map, level);
    }
    return !poll_abort();
}

void forked_fill_mipmap_y_level(const Mipmap& map, int level) {
    if (level < 1) {
        V_error(level_error, "forked_fill_mipmap_y_level should not get level %d. \n", level);
        return;
    }
    const int h_before = map.y_level_h[level - 1] - 2, h = map.y_level_h[level] - 2;
    const MipmapRows& rows = mipmap_rows();
    fork_rows_if_big_image(map.row_samples, h, [&](int first, int n) {
        for (int y = first; y < first + n; ++y) {
            if (&map == &mipmap && large.tasks && large.made[large.first_row[level] + y]) continue;
            const int16_t* const a = level_row(map, level - 1, 2 * y);
            const int16_t* const b = level_row(map, level - 1, std::min(2 * y + 1, h_before - 1));
            rows.mean(a, b, level_row(map, level, y), map.row_samples);
        }
    });
}

}  // namespace velloran
