// A pass: the rows of an area, split among the tasks. Each task works on copies of the tree's nodes with lines of its
// own, row by row and each row in blocks of samples. The block is as wide as the lines of the tree, which serve again
// as soon as their value is used up, fit the first cache: a node then finds what its arguments left there.

#include "engine/passes.h"

#include "compile/compile.h"
#include "compile/node_states.h"
#include "engine/fused_pass.h"
#include "engine/images.h"
#include "engine/watch.h"
#include "frame/lut_files.h"
#include "frame/pixel_formats.h"
#include "records/run_state.h"
#include "rows/line_rows.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velloran {

constinit thread_local int n_pixels = 0;
thread_local int eval_block_column = 0, eval_block_row = 0;

int expanded_rendering_p = 0;
int crop_images_p = 0;
int image_step = 1;

namespace {

constexpr int rows_between_polls = 64;
constexpr int first_cache_bytes = 20 * 1024;  // of 32 or 48; the rest is for the rows of the host's frames
constexpr int smallest_block = 192;           // from here on the cost of calls and row starts does not show
constexpr int line_padding = 16;              // samples, behind a line; keeps lines of equal elements off one cache set

// The pass in hand; written before the fork, read by all tasks.
struct Pass {
    Node* root;
    EvalLineFun line_fun;
    void* dest;
    int left, bottom, width, height;  // samples of the frame's grid
    int step;
    int base_column, base_row;  // sample at which planes begin
    int pitch;
    RasterRect crop;  // pixels that are written to the destination
    int block;
    LineSlots slots;
    bool reads_y;
    bool reads_x;
    bool reads_input[MAX_INPUTS];
    const void* input_frame[MAX_INPUTS];
    int32_t x_inc, y_inc, y_start;  // 24 fraction bits
    int alpha_mode;
    bool keeps_output;  // the effect reads its previous output
    PassTimes* times;   // of a frame that is watched; else null
};

struct TargetPlanes {
    fix_plane planes[4];
    int n;
};
TargetPlanes eval_target_planes;

int ceil_div(int a, int b) { return (a + b - 1) / b; }

// ---- Preparation, on the host's thread

RasterRect area_of(const rinfo& raster) { return {raster.x, raster.y, raster.w, raster.h}; }

RasterRect intersection(const RasterRect& a, const RasterRect& b) {
    const int x0 = std::max(a.x, b.x), x1 = std::min(a.x + a.w, b.x + b.w);
    const int y0 = std::max(a.y, b.y), y1 = std::min(a.y + a.h, b.y + b.h);
    return {x0, y0, std::max(x1 - x0, 0), std::max(y1 - y0, 0)};
}

RasterRect choose_area(bool keeps_output) {
    const RasterRect working = area_of(the_frame->temp_raster_info);
    // An effect that reads its own output needs all of it next time, not only what is shown.
    if (the_frame->eval_to_dest)
        return keeps_output ? working
                            : intersection(the_frame->render_info.croprect, area_of(the_frame->dest_raster_info));
    RasterRect area = working;
    if (expanded_rendering_p) {
        const WrapDims& wrap = the_frame->temp_raster_info.wrap;
        if (Globals_V4->wrapped) {
            area = {wrap.wrap_x, wrap.wrap_y, wrap.wrap_w, wrap.wrap_h};
        } else {
            const int grid = std::max<int>(Globals_V4->res_factor, 1);
            area.x = working.x / grid * grid;
            area.y = working.y / grid * grid;
            area.w = ceil_div(working.x + working.w, grid) * grid - area.x;
            area.h = ceil_div(working.y + working.h, grid) * grid - area.y;
        }
    } else if (crop_images_p && the_frame->eval_to_dest_line) {
        area = the_frame->render_info.croprect;
    }
    return intersection(area, working);
}

// False if there is nothing to do.
bool set_area(Pass& pass) {
    const RasterRect area = choose_area(pass.keeps_output);
    const int s = pass.step;
    pass.left = area.x / s;
    pass.bottom = area.y / s;
    pass.width = area.w > 0 ? ceil_div(area.x + area.w - s * pass.left, s) : 0;
    pass.height = area.h > 0 ? ceil_div(area.y + area.h - s * pass.bottom, s) : 0;
    pass.base_column = the_frame->temp_raster_info.x / s;
    pass.base_row = the_frame->temp_raster_info.y / s;
    pass.pitch = the_frame->temp_raster_info.width;
    const int room_x = the_frame->temp_raster_info.width, room_y = the_frame->temp_raster_info.height;
    if (pass.width > room_x || pass.height > room_y) {
        V_error(level_warning, "Clip/res problem: downsampled size=%dx%d, rinfo says %dx%d.\n", pass.width, pass.height,
                room_x, room_y);
        pass.width = std::min(pass.width, room_x);
        pass.height = std::min(pass.height, room_y);
        fail_frame();
    }
    return pass.width > 0 && pass.height > 0;
}

void note_variable(Pass& pass, const Node* node) {
    if (node->type != node_var || node->image_count) return;
    if (node->var_index == 0 || node->var_index == 2) pass.reads_x = true;
    if (node->var_index == 1 || node->var_index == 2) pass.reads_y = true;
    if (is_input(node) && node->var_index < first_input_var + MAX_INPUTS)
        pass.reads_input[node->var_index - first_input_var] = true;
}

void find_variables(Pass& pass) {
    pass.reads_x = pass.reads_y = false;
    std::fill_n(pass.reads_input, MAX_INPUTS, false);
    for (int i = 0; i < eval_node_count; ++i) {
        const Node* node = eval_nodes[i];
        if (node->type != node_function || node->eval_fun == image_line_reader) continue;
        for (int a = 0; a < node->eval_arg_number; ++a) note_variable(pass, node->args[a]);
    }
    if (!eval_node_count) note_variable(pass, pass.root);
    for (int i = 0; i < MAX_INPUTS; ++i) {
        pass.input_frame[i] = pass.reads_input[i] ? input_frame(i) : nullptr;
    }
}

// Coordinates in fixed point with 24 fraction bits: x from -1 to 1 across the frame at the samples' centres, y in the
// same measure about the frame's middle.
void set_coordinates(Pass& pass) {
    const double frame_width = the_frame->render_info.full_ren.w * the_frame->render_info.pix_scale;
    pass.x_inc = float_to_fix(static_cast<float>(8192.0 / frame_width));
    pass.y_inc = float_to_fix(static_cast<float>(8192.0 * the_frame->pixel_aspect_ratio / frame_width));
    const double half_height = static_cast<double>(the_frame->render_info.full_ren.h) /
                               the_frame->render_info.full_ren.w * the_frame->pixel_aspect_ratio;
    const int32_t r = float_to_fix(static_cast<float>(4096.0 * half_height));
    // Rows keep their place in the frame while a field is rendered: half a row would soften what moves nothing.
    pass.y_start = pass.y_inc / 2 * pass.step - r + 2048;
}

void choose_block(Pass& pass) {
    int inputs = 0;
    for (const bool reads : pass.reads_input) inputs += reads;
    const int lines = pass.slots.count + inputs * (the_frame->render_field ? 6 : 3) + pass.reads_x + pass.reads_y;
    const bool whole_lines =
        pass.keeps_output || (!pass.line_fun && (pass.step > 1 || the_frame->dest_raster_info.add_noise > 0));
    const int fits = first_cache_bytes / static_cast<int>(sizeof(int32_t)) / std::max(lines, 1);
    const int wanted = whole_lines ? pass.width : std::max(fits, smallest_block);
    const int blocks = ceil_div(pass.width, wanted);
    // Blocks of equal size, whole vectors each.
    pass.block = std::min(pass.width, (ceil_div(pass.width, blocks) + 15) & ~15);
}

// ---- The worker

struct Worker {
    Node* nodes;  // copies of eval_nodes, or of the root alone
    Node** node_ptrs;
    int count;
    Node* root;
    SourceLines sources;
    int32_t* lines;    // the block of memory that all lines lie in
    int32_t* whole_x;  // the row's x; the record's x_line walks along it
    int32_t* neighbour[3];
    int32_t* opaque;  // 1.0 throughout
};

size_t padded(int samples) { return static_cast<size_t>((samples + 15) & ~15) + line_padding; }

void link_args(Worker& worker, Node* node) {
    if (node->type != node_function) return;
    for (int a = 0; a < node->arg_number; ++a) {
        Node* arg = node->args[a];
        const int at = arg->ref_index;
        if (worker.count && at >= 0 && at < worker.count && eval_nodes[at] == arg) {
            arg = &worker.nodes[at];
            node->args[a] = arg;
            node->arg_lines[a] = arg->lines;
            node->arg_vals[a] = arg->vals;
        } else if (arg->type == node_var && !arg->image_count) {
            node->arg_lines[a] = expression_var_ptr_from_index(&worker.sources, arg->var_index);
        } else {
            node->arg_lines[a] = arg->lines;
        }
    }
}

// Points the root's own lines at what the pass would otherwise compute.
void link_bare_root(Worker& worker, Node* root, int32_t* lines, size_t pitch) {
    if (root->type == node_var) {
        int32_t** from = expression_var_ptr_from_index(&worker.sources, root->var_index);
        for (int e = 0; from && e < root->elnum; ++e) root->lines[e] = from[e];
        return;
    }
    for (int e = 0; e < root->elnum; ++e) {
        root->lines[e] = lines + static_cast<size_t>(e) * pitch;
        std::fill_n(root->lines[e], pitch, root->vals[e]);
    }
}

void set_up_worker(const Pass& pass, Worker& worker) {
    worker.count = eval_node_count;
    const int copies = std::max(worker.count, 1);
    worker.nodes = frame_array<Node>(static_cast<size_t>(copies));
    worker.node_ptrs = frame_array<Node*>(static_cast<size_t>(copies));

    // One block for all lines.
    int inputs = 0;
    for (const bool reads : pass.reads_input) inputs += reads;
    const size_t pitch = padded(pass.block);
    const int own_lines = worker.count ? pass.slots.count : 4;
    const size_t lines = static_cast<size_t>(own_lines) + static_cast<size_t>(inputs) * 3 + 1 + 3 + 1;
    const size_t whole_row = padded(pass.width);
    worker.lines = frame_array<int32_t>(lines * pitch + whole_row);
    int32_t* node_lines = worker.lines;
    int32_t* at = node_lines;
    at += static_cast<size_t>(own_lines) * pitch;
    worker.opaque = at;
    std::fill_n(worker.opaque, pitch, fix_scale);
    at += pitch;
    for (int i = 0; i < MAX_INPUTS; ++i) {
        for (int e = 0; e < 4; ++e) worker.sources.input_lines[i][e] = worker.opaque;
        if (!pass.reads_input[i]) continue;
        for (int e = 0; e < 3; ++e, at += pitch) worker.sources.input_lines[i][e] = at;
        if (!pass.input_frame[i]) std::memset(at - 3 * pitch, 0, 3 * pitch * sizeof *at);
    }
    worker.sources.y_line = at;
    at += pitch;
    for (int e = 0; e < 3; ++e, at += pitch) worker.neighbour[e] = at;
    worker.sources.x_line = worker.whole_x = at;

    for (int i = 0; i < worker.count; ++i) {
        worker.nodes[i] = *eval_nodes[i];
        worker.node_ptrs[i] = &worker.nodes[i];
        worker.nodes[i].source_lines = &worker.sources;
        for (int e = 0; e < worker.nodes[i].elnum; ++e)
            worker.nodes[i].lines[e] = node_lines + static_cast<size_t>(pass.slots.slot[i][e]) * pitch;
    }
    for (int i = 0; i < worker.count; ++i) link_args(worker, &worker.nodes[i]);
    if (worker.count) {
        worker.root = &worker.nodes[worker.count - 1];
    } else {
        worker.nodes[0] = *pass.root;
        worker.node_ptrs[0] = worker.root = &worker.nodes[0];
        worker.root->source_lines = &worker.sources;
        link_bare_root(worker, worker.root, node_lines, pitch);
    }
    make_nodes_array_caches(worker.node_ptrs, worker.count);

    if (!pass.reads_x) return;
    const int32_t start = pass.left * pass.step * pass.x_inc + pass.x_inc / 2 * pass.step - 0xfff800;
    for (int i = 0; i < pass.width; ++i) worker.whole_x[i] = (start + i * pass.step * pass.x_inc) >> 12;
}

void tear_down_worker(Worker& worker) {
    free_nodes_array_caches(worker.node_ptrs, worker.count);
    frame_free(worker.lines);
    frame_free(worker.node_ptrs);
    frame_free(worker.nodes);
}

// The block of an input's row.
void read_input(const Pass& pass, Worker& worker, int input, int row, int column, int count) {
    read_source_line_of_field(the_frame->source_raster_infos[input], pass.input_frame[input], row, column, count,
                              worker.sources.input_lines[input], worker.neighbour, 3, use_input_lut != 0);
}

void write_dest(const Pass& pass, Node* root, int row, int column, int count) {
    const int s = pass.step;
    const int first_row = std::max(row * s, pass.crop.y);
    const int rows = std::min((row + 1) * s, pass.crop.y + pass.crop.h) - first_row;
    const int first = std::max(column * s, pass.crop.x);
    const int pixels = std::min((column + count) * s, pass.crop.x + pass.crop.w) - first;
    if (rows < 1 || pixels < 1) return;
    const int skipped = first / s - column;
    const int32_t* lines[4] = {};
    for (int e = 0; e < root->elnum; ++e) lines[e] = root->lines[e] + skipped;
    dest_converter(the_frame->dest_raster_info, pass.dest, first_row, first, pixels, lines, root->elnum, s,
                   pass.alpha_mode, use_output_lut != 0);
    if (rows > 1) repeat_dest_row(the_frame->dest_raster_info, pass.dest, first_row, rows - 1, first, pixels);
    // The forms of the host hold no alpha, so there is none to be carried over from the background.
}

// Keeps a whole row of the output for the next frame: as many channels as get_prev_dest has.
void keep_output(const Pass& pass, const Worker& worker, int row) {
    const Node* root = worker.root;
    int32_t* lines[4];
    for (int c = 0; c < 4; ++c)
        lines[c] = c == 3 && root->elnum == 3 ? worker.opaque : root->lines[std::min<int>(c, root->elnum - 1)];
    store_prev_dest_line(lines, pass.left - pass.base_column, pass.width, row - pass.base_row);
}

int row_start(const Pass& pass, int row) { return (row - pass.base_row) * pass.pitch + pass.left - pass.base_column; }

void begin_row(const Pass& pass, Worker& worker, int row) {
    // Images on a finer grid have as many times the rows and columns before this place.
    for (int i = 0; i < worker.count; ++i) worker.nodes[i].line_offset = row_start(pass, row) * image_step;
    if (pass.reads_y)
        std::fill_n(worker.sources.y_line, pass.block, (pass.y_start + row * pass.step * pass.y_inc) >> 12);
    eval_block_row = row;
}

// The lines of the samples from done on, n_pixels of them. after(i) is told of each node, whose lines may serve again
// for the next one; -1 - i of each input.
template <class After>
void eval_block(const Pass& pass, Worker& worker, int row, int done, const After& after) {
    n_pixels = std::min(pass.block, pass.width - done);
    eval_block_column = pass.left + done;
    worker.sources.x_line = worker.whole_x + done;
    if (!worker.count && worker.root->type == node_var && (worker.root->var_index == 0 || worker.root->var_index == 2))
        worker.root->lines[0] = worker.sources.x_line;
    for (int i = 0; i < MAX_INPUTS; ++i) {
        if (!pass.input_frame[i]) continue;
        read_input(pass, worker, i, row, pass.left + done, n_pixels);
        after(-1 - i);
    }
    for (int i = 0; i < worker.count; ++i) {
        worker.nodes[i].eval_fun(&worker.nodes[i]);
        after(i);
    }
}

// The same, with the time of each part.
void eval_block_timed(const Pass& pass, Worker& worker, int row, int done) {
    int64_t before = watch_clock();
    eval_block(pass, worker, row, done, [&](int i) {
        const int64_t now = watch_clock();
        (i < 0 ? pass.times->inputs[-1 - i] : pass.times->nodes[i]) += now - before;
        before = now;
    });
}

void work_row(const Pass& pass, Worker& worker, int row) {
    const int plane_row = row - pass.base_row;
    const int row_offset = row_start(pass, row);
    begin_row(pass, worker, row);
    for (int done = 0; done < pass.width; done += n_pixels) {
        if (pass.times)
            eval_block_timed(pass, worker, row, done);
        else
            eval_block(pass, worker, row, done, [](int) {});
        const int64_t before = pass.times ? watch_clock() : 0;
        if (pass.line_fun) {
            pass.line_fun(worker.root, pass.left - pass.base_column + done, plane_row, row_offset + done);
        } else {
            if (pass.keeps_output) keep_output(pass, worker, row);
            write_dest(pass, worker.root, row, pass.left + done, n_pixels);
        }
        if (pass.times) pass.times->out += watch_clock() - before;
    }
}

void watch_line(FrameWatch* watch, const Node* node, int32_t* const* lines, int n, int at) {
    int32_t value[4] = {};
    for (int e = 0; e < std::min(n, 4); ++e) value[e] = lines[e][at];
    watch_value(watch, node, value, std::min(n, 4), false);
}

// What the nodes of the pass give for the watched pixel, before the pass may write over what it reads.
void watch_pixel(FrameWatch* watch, const Pass& pass) {
    int column, row;
    if (!watched_sample(watch, &column, &row)) return;
    column -= pass.left;
    if (column < 0 || column >= pass.width || row < pass.bottom || row >= pass.bottom + pass.height) return;
    const int n_pixels_before = n_pixels;
    Worker worker = {};
    set_up_worker(pass, worker);
    begin_row(pass, worker, row);
    int done = 0;
    const auto look = [&](int i) {
        const int at = column - done;
        if (i < 0 || at < 0 || at >= n_pixels) return;
        const Node& node = worker.nodes[i];
        watch_line(watch, eval_nodes[i], node.lines, node.elnum, at);
        if (node.type != node_function || node.eval_fun == image_line_reader) return;
        for (int a = 0; a < node.eval_arg_number; ++a) {
            const Node* const arg = eval_nodes[i]->args[a];
            if (arg->type == node_var && !arg->image_count && node.arg_lines[a])
                watch_line(watch, arg, node.arg_lines[a], arg->elnum, at);
        }
    };
    for (eval_block(pass, worker, row, done, look); done + n_pixels <= column;
         eval_block(pass, worker, row, done, look))
        done += n_pixels;
    if (!worker.count) watch_line(watch, pass.root, worker.root->lines, pass.root->elnum, column - done);
    n_pixels = n_pixels_before;
    tear_down_worker(worker);
}

void watch_lines(FrameWatch* watch, const Pass& pass) {
    for (int i = 0; i < eval_node_count; ++i) {
        const int row = watched_row(watch, eval_nodes[i]);
        if (row >= 0 && eval_nodes[i]->eval_fun != image_line_reader)
            watch->nodes[row].line_bytes =
                static_cast<size_t>(eval_nodes[i]->elnum) * padded(pass.block) * sizeof(int32_t);
    }
}

void eval_lines_worker(const Pass& pass, int first, int count) {
    const int n_pixels_before = n_pixels;
    Worker worker = {};
    set_up_worker(pass, worker);
    for (int k = 0; k < count; ++k) {
        if (k % rows_between_polls == 0 && poll_abort()) break;
        const int row = pass.bottom + first + k;
        if (!pass.line_fun && the_frame->render_field && (row & 1) == the_frame->render_field - 1) continue;
        work_row(pass, worker, row);
    }
    n_pixels = n_pixels_before;
    tear_down_worker(worker);
}

// Planes that already hold the result go into the destination as they are.
bool copy_valid_images(Pass& pass) {
    Node* root = pass.root;
    const bool stands = root->in_cache_images && root->image_count && (root->flags & node_images_valid);
    // Noise would be added to the kept planes themselves; and a row that is kept for the next frame passes through the
    // lines.
    if (!stands || pass.keeps_output || the_frame->dest_raster_info.add_noise > 0) return false;
    tell(event_dest_copy, root);
    FrameWatch* const watch = Globals_V4->watch;
    const int watched = watch ? watched_row(watch, root) : -1;
    const WatchedWay made = watched >= 0 && watch->nodes[watched].way ? watch->nodes[watched].way : way_kept;
    if (watch) begin_span(watch, root);
    dest_img_converter(root->images, root->elnum, the_frame->temp_raster_info, the_frame->render_info,
                       the_frame->dest_raster_info, pass.dest, the_frame->render_field, pass.alpha_mode,
                       use_output_lut != 0);
    if (watch) end_span(watch, made);
    if (watch) watch_planes(watch, root, root->images, root->elnum);
    return true;
}

// What the row functions work with.
void plan_rows(Pass& pass) {
    assign_line_slots(&pass.slots);
    find_variables(pass);
    set_coordinates(pass);
    choose_block(pass);
}

bool fuse_pass(const Pass& pass) {
    const bool to_planes = pass.line_fun == image_line_writer;
    if (pass.step != 1 || pass.keeps_output || (pass.line_fun && !to_planes)) return false;
    const FusedArea area = {pass.left,        pass.bottom,   pass.width, pass.height,
                            pass.base_column, pass.base_row, pass.pitch};
    return prepare_fused_pass(pass.root, area, pass.dest, to_planes ? eval_target_planes.planes : nullptr,
                              eval_target_planes.n);
}

void tell_pass(const Node* root) {
    if (!eval_hook) return;
    tell(event_pass, root);
    for (int i = 0; i < eval_node_count; ++i)
        tell(eval_nodes[i]->eval_fun == image_line_reader ? event_image_read : event_pixel_function, eval_nodes[i]);
}

}  // namespace

int32_t** expression_var_ptr_from_index(SourceLines* record, int index) {
    switch (index) {
        case 0:
        case 2:
            return &record->x_line;
        case 1:
            return &record->y_line;
        case 3:
        case 4:
        case 5:
        case 6:
            return record->input_lines[index - first_input_var];
        default:
            V_error(level_error, "expression_var_ptr_from_index: bad index %d.", index);
            return nullptr;
    }
}

const void* input_frame(int input) {
    if (input < 0 || input >= MAX_INPUTS || the_frame->source_raster_infos[input].width <= 0) return nullptr;
    return the_frame->source_frames[input];
}

void image_line_reader(Node* node) {
    const LineRows& rows = line_rows();
    if (image_step == 1) {
        for (int e = 0; e < node->elnum; ++e)
            rows.samples_to_line(node->images[e] + node->line_offset, node->lines[e], n_pixels);
        node->line_offset += n_pixels;
        return;
    }
    for (int e = 0; e < node->elnum; ++e)
        for (int i = 0; i < n_pixels; ++i) node->lines[e][i] = node->images[e][node->line_offset + i * image_step];
    node->line_offset += n_pixels * image_step;
}

void set_eval_target_planes(fix_plane* planes, int n) {
    eval_target_planes.n = n;
    std::copy_n(planes, n, eval_target_planes.planes);
}

void image_line_writer(Node* root, int, int, int offset) {
    for (int e = 0; e < eval_target_planes.n; ++e)
        line_rows().line_to_samples(root->lines[e], eval_target_planes.planes[e] + offset, n_pixels, fix_image_limit);
}

void long_image_line_writer(Node* root, int, int, int offset) {
    std::copy_n(root->lines[0], n_pixels, the_frame->eval_long_image + offset);
}

void eval_node_tree_pixel_loop(Node* node, EvalLineFun line_fun, int mode, int rebuild) {
    if (!node) {
        V_error(level_error, "eval_node_tree_pixel_loop: node is NULL");
        fatal_abort(1);
        return;
    }
    if (node->elnum <= 0) {
        V_error(level_error, "eval_node_tree_pixel_loop: node elnum <= 0.");
        fatal_abort(1);
        return;
    }
    const Genotype* genotype = Globals_V4->effect_genotype;
    Pass pass;
    pass.root = maybe_pass_through_args(node);
    pass.line_fun = line_fun;
    pass.dest = the_frame->eval_dest_frame;
    pass.step = std::max(the_frame->temp_raster_info.render_step, 1);
    pass.crop = intersection(the_frame->render_info.croprect, area_of(the_frame->dest_raster_info));
    pass.keeps_output = !line_fun && genotype && (genotype->effect_flags_1 & effect_keeps_own_images);
    if (!line_fun) {
        pass.alpha_mode = get_dest_alpha_mode(genotype ? genotype->rgba_mode : int{rgba_default}, pass.root->elnum);
        if (copy_valid_images(pass)) return;
    }
    if (rebuild) build_eval_nodes(pass.root, mode);
    if (!set_area(pass)) {
        if (!line_fun && fail_frame()) V_error(level_error, "There is nothing to render: the area is empty.");
        return;
    }
    if (!line_fun && !dest_line_convertible_p(the_frame->dest_raster_info, pass.root->elnum, pass.alpha_mode)) return;
    tell_pass(pass.root);
    pass.times = nullptr;
    FrameWatch* const watch = Globals_V4->watch;
    if (watch) {
        plan_rows(pass);
        watch_pixel(watch, pass);
        begin_span(watch, pass.root);
    }
    if (fuse_pass(pass)) {
        fork_rows(pass.height, [](int first, int count) { run_fused_rows(first, count); });
        if (watch) end_fused_pass(watch);
        return;
    }
    if (!watch) {
        plan_rows(pass);
        fork_rows(pass.height, [&](int first, int count) { eval_lines_worker(pass, first, count); });
        return;
    }
    PassTimes times = {};
    pass.times = &times;
    watch_lines(watch, pass);
    fork_rows(pass.height, [&](int first, int count) { eval_lines_worker(pass, first, count); });
    end_row_pass(watch, times, !line_fun || line_fun == image_line_writer || line_fun == long_image_line_writer);
}

}  // namespace velloran
