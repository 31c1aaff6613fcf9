#include "engine/images.h"

#include "engine/evaluate.h"
#include "frame/host_buffers.h"
#include "records/rinfo.h"
#include "records/run_state.h"
#include "rows/line_rows.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "tasks/tasks.h"

#include <algorithm>

namespace velloran {

int images_moved = 0;

namespace {

constexpr int prev_dest_limit = 8191;  // two bits below a plane's range, so that feedback cannot run away
constexpr int no_frame = -1000000;

PrevDest* prev_dest_in_use() {
    // A copied record must not write into the planes of the one that it was copied from.
    PrevDest* own = Globals_V4->prev_dests;
    if (Globals_V4->prev_dest != own && Globals_V4->prev_dest != own + 1) Globals_V4->prev_dest = own;
    return Globals_V4->prev_dest;
}

void free_planes(PrevDest* prev) {
    prev->channels = 0;
    for (fix_plane& plane : prev->planes) {
        safe_free(plane);
        plane = nullptr;
    }
}

bool keeps_own_images(const Node& node) {
    return node.type == node_function && (node.fun_info->fun_flags & fun_keeps_own_images);
}

bool any_image_lost(const Genotype* genotype, const Node& node) {
    const int first = node.image_index + (node.in_cache_images ? genotype->temp_image_number : 0);
    for (int i = 0; i < node.image_count; ++i)
        if (image_buffer_changed_p(first + i)) return true;
    return false;
}

}  // namespace

void set_short_image_size() {
    const rinfo& temp = the_frame->temp_raster_info;
    const size_t size = static_cast<size_t>(temp.width) * static_cast<size_t>(temp.height) * 2;
    if (size == the_frame->short_image_size) return;
    free_temp_images();
    the_frame->short_image_size = size;
}

fix_plane get_temp_image_array_i(const Genotype* genotype, int slot, int in_cache) {
    if (!the_frame->short_image_size) {
        V_error(level_error, "get_temp_image_array_i:  short_image_size is not set.");
        fatal_abort(1);
        return nullptr;
    }
    const int index = slot + (in_cache ? genotype->temp_image_number : 0);
    fix_plane plane = get_temp_short_buffer_from_spark_info(index);
    if (!plane) {
        V_error(level_error, "get_temp_image_array_i: buffer was NULL.");
        fatal_abort(1);
    }
    return plane;
}

void set_node_image_ptrs(Genotype* genotype, int force, int clear_valid) {
    const bool last = Globals_V4->last_imaged_genotype == genotype && !images_moved;
    for (int i = 0; i < genotype->node_number; ++i) {
        Node& node = genotype->nodes[i];
        if (!node.image_count) continue;
        if (keeps_own_images(node)) {
            get_prev_dest_images(&node);
            continue;
        }
        bool moved = force || !last;
        for (int k = 0; k < node.image_count; ++k) {
            fix_plane plane = get_temp_image_array_i(genotype, node.image_index + k, node.in_cache_images);
            moved = moved || plane != node.images[k];
            node.images[k] = plane;
        }
        if (moved || clear_valid || is_input(&node)) node.flags &= static_cast<uint8_t>(~node_images_valid);
        if ((node.flags & node_images_valid) && any_image_lost(genotype, node))
            node.flags &= static_cast<uint8_t>(~node_images_valid);
    }
    Globals_V4->last_imaged_genotype = genotype;
    images_moved = 0;
}

void free_temp_images() {
    images_moved = 1;
    if (Globals_V4) Globals_V4->last_imaged_genotype = nullptr;
}

size_t prev_dest_image_size() {
    const PrevDest* prev = prev_dest_in_use();
    return static_cast<size_t>(prev->width) * 2 * static_cast<size_t>(prev->height);
}

fix_plane malloc_prev_dest_image(int index) {
    PrevDest* prev = prev_dest_in_use();
    return prev->planes[index] = static_cast<fix_plane>(safe_malloc_aligned(prev_dest_image_size()));
}

// Several such nodes of an effect share the planes, so there are as many as the widest of them needs.
static int prev_dest_channels(const Genotype* genotype, const Node* node) {
    int channels = std::max<int>(node->elnum, 3);
    if (!genotype || node < genotype->nodes || node >= genotype->nodes + genotype->node_number) return channels;
    for (int i = 0; i < genotype->node_number; ++i) {
        const Node& other = genotype->nodes[i];
        if (other.type == node_function && other.fun_info && (other.fun_info->fun_flags & fun_keeps_own_images))
            channels = std::max<int>(channels, other.elnum);
    }
    return channels;
}

void get_prev_dest_images(Node* node) {
    PrevDest* prev = prev_dest_in_use();
    const int width = std::max(the_frame->dest_raster_info.width, the_frame->temp_raster_info.width);
    const int height = std::max(the_frame->dest_raster_info.height, the_frame->temp_raster_info.height);
    const int channels = prev_dest_channels(Globals_V4->effect_genotype, node);
    if (width != prev->current_width || height != prev->current_height) {
        prev->valid = 0;
        prev->current_width = static_cast<int16_t>(width);
        prev->current_height = static_cast<int16_t>(height);
    }
    if (prev->channels != channels || prev->width * prev->height < width * height) {
        free_planes(prev);
        prev->valid = 0;
        prev->width = static_cast<int16_t>(width);
        prev->height = static_cast<int16_t>(height);
        for (int c = 0; c < channels; ++c) malloc_prev_dest_image(c);
        prev->channels = static_cast<uint8_t>(channels);
    }
    for (int c = 0; c < std::max<int>(node->image_count, channels); ++c)
        node->images[c] = c < channels ? prev->planes[c] : nullptr;
}

void store_prev_dest_line(int32_t* const* lines, int first, int count, int row) {
    const PrevDest* prev = prev_dest_in_use();
    const int pitch = the_frame->temp_raster_info.width;
    const LineRows& rows = line_rows();
    for (int c = 0; c < prev->channels; ++c) {
        FixPixel* start = prev->planes[c] + static_cast<size_t>(row) * static_cast<size_t>(pitch);
        std::fill_n(start, first, FixPixel{0});
        rows.line_to_samples(lines[c], start + first, count, prev_dest_limit);
        std::fill_n(start + first + count, pitch - first - count, FixPixel{0});
    }
}

void free_prev_dest_images() {
    for (PrevDest& prev : Globals_V4->prev_dests) {
        free_planes(&prev);
        prev.valid = 0;
        prev.frame_number = no_frame;
        prev.current_width = prev.current_height = 0;
        prev.width = prev.height = 0;
    }
}

void image_get_prev_dest(Node* node) {
    PrevDest* prev = prev_dest_in_use();
    RunRecord* run = Globals_V4->run_record;
    if (prev->valid && (!run || run->feedback_valid)) return;
    Node* init = node->args[0];
    const bool zero = is_constant(init) && !init->vals[0] && !init->vals[1] && !init->vals[2];
    if (zero) {
        for (int c = 0; c < prev->channels; ++c) mp_memset(prev->planes[c], 0, prev_dest_image_size());
    } else {
        eval_node_tree_into_images(init, node->images, node->image_index, 0);
        // A scalar stands for all elements.
        for (int c = std::max<int>(init->elnum, 1); c < node->elnum; ++c)
            mp_memcpy(prev->planes[c], prev->planes[init->elnum - 1], prev_dest_image_size());
    }
    // Beside a node with alpha, a colour without counts as opaque.
    for (int c = node->elnum; c < prev->channels; ++c)
        std::fill_n(prev->planes[c], prev_dest_image_size() / sizeof(FixPixel), static_cast<FixPixel>(fix_scale));
    prev->valid = prev_dest_in_work;
    if (run) run->feedback_valid = 1;
}

void any_effects_need_long_image_mipmap_etc(int* long_out, int* mipmap_out, int* filter_out, int* timewarp_out) {
    *long_out = *mipmap_out = *filter_out = *timewarp_out = 0;
    for (int g = 0; g < Globals_V4->n_effects && g < MAX_EFFECTS_PER_PLUGIN; ++g) {
        const Genotype* genotype = Globals_V4->genotypes[g];
        for (int i = 0; genotype && i < genotype->node_number; ++i) {
            const Node& node = genotype->nodes[i];
            if (node.type != node_function) continue;
            const NodeFun& fun = *node.fun_info;
            if (fun.def_flags & def_needs_long_image) *long_out = 1;
            if (fun.fun_flags & fun_uses_timewarp) *timewarp_out = 1;
            if (!(fun.def_flags & def_needs_mipmap)) continue;
            *mipmap_out = 1;
            if (!(fun.def_flags & def_needs_filter_mipmap)) continue;
            bool filtered = true;
            if (fun.filter_arg >= 0) {  // without a param it stays what the text says
                const Node& filter = genotype->nodes[node.arg_indices[fun.filter_arg]];
                filtered = filter.type != node_constant || filter.param_index || filter.vals[0];
            }
            if (filtered) *filter_out = 1;
        }
    }
}

}  // namespace velloran
