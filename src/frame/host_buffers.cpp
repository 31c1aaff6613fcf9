// Two kinds of hosts: those with registered ("explicit") buffers hand out memory by id, older ones give an array of
// frame-sized buffers. The long image and the mipmap live in one registered buffer of their own where there
// is one; the heap stands in for whatever the host cannot give, and the two then share one heap block.
#include "frame/host_buffers.h"

#include "frame/lut_files.h"
#include "frame/mipmap_size.h"
#include "records/frame.h"
#include "support/abort.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/task_state.h"
#include "tasks/tasks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velloran {

namespace {

// Environment switches are read once and hold for the process.
bool environment_flag(const char* name) { return std::getenv(name) != nullptr; }
bool malloc_long_image_p() {
    static const bool set = environment_flag("VELLORAN_MALLOC_LONG_IMAGE");
    return set;
}
bool register_long_at_12_bits_p() {
    static const bool set = environment_flag("VELLORAN_REG_LONG_12B");
    return set;
}

long plane_pixels(const SparkInfoStruct* info) {
    return static_cast<long>(info->FrameWidth) * static_cast<long>(info->FrameHeight);
}

bool long_image_buffer_wanted(const SparkInfoStruct* info) {
    const uint8_t flags = Globals_V4->render_flags;
    if (malloc_long_image_p()) return false;
    if (flags & render_needs_mipmap) return true;
    if (!(flags & render_needs_long_image)) return false;
    return (flags & render_long_image_every_depth) || info->FrameDepth < 32 || register_long_at_12_bits_p();
}

constexpr int longest_side =
    1 << 17;  // what is longer is a mistake; images kept from frame to frame have a limit of their own

bool long_image_on_heap() { return the_frame->long_image_source == long_image_heap; }

// What the long image shares with the mipmap is one heap block, recorded in both slots.
void take_heap_block(void* block, size_t bytes) {
    the_frame->long_image.address = static_cast<int32_t*>(block);
    the_frame->long_image.capacity = bytes;
    the_frame->long_image_source = long_image_heap;
}

int32_t* heap_long_image(int width, int height) {
    const size_t bytes = std::max<size_t>(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, 64);
    if (!long_image_on_heap() || the_frame->long_image.capacity < bytes) {
        const bool mipmap_on_heap =
            the_frame->mipmap_source == mipmap_heap || the_frame->mipmap_source == mipmap_shares_long_image;
        if (mipmap_on_heap) {
            // One block serves both: their contents are never needed at the same time.
            if (long_image_on_heap() && the_frame->mipmap_source == mipmap_heap)
                safe_free(the_frame->long_image.address);
            if (the_frame->mipmap.capacity < bytes) {
                void* const old = the_frame->mipmap.address;
                the_frame->long_image = {};
                the_frame->long_image_source = long_image_none;
                the_frame->mipmap = {};
                the_frame->mipmap_source = mipmap_none;
                safe_free(old);
                the_frame->mipmap.address = safe_malloc_aligned(bytes);
                the_frame->mipmap.capacity = bytes;
            }
            the_frame->mipmap_source = mipmap_shares_long_image;
            take_heap_block(the_frame->mipmap.address, the_frame->mipmap.capacity);
        } else {
            if (long_image_on_heap()) safe_free(the_frame->long_image.address);
            the_frame->long_image = {};
            the_frame->long_image_source = long_image_none;
            take_heap_block(safe_malloc_aligned(bytes), bytes);
        }
    }
    the_frame->long_image.width = width;
    the_frame->long_image.height = height;
    return the_frame->long_image.address;
}

// Any source but the heap: a heap block goes, unless the mipmap still uses it.
void drop_heap_long_image() {
    if (!long_image_on_heap()) return;
    if (the_frame->mipmap_source == mipmap_shares_long_image)
        the_frame->mipmap_source = mipmap_heap;
    else
        safe_free(the_frame->long_image.address);
    the_frame->long_image = {};
    the_frame->long_image_source = long_image_none;
}

int32_t* use_host_long_image(void* buffer, int source, int width, int height, size_t bytes) {
    drop_heap_long_image();
    the_frame->long_image = {static_cast<int32_t*>(buffer), width, height, bytes};
    the_frame->long_image_source = source;
    return the_frame->long_image.address;
}

void* heap_mipmap(size_t size) {
    const bool on_heap =
        the_frame->mipmap_source == mipmap_heap || the_frame->mipmap_source == mipmap_shares_long_image;
    if (on_heap && the_frame->mipmap.capacity >= size) return the_frame->mipmap.address;
    if (long_image_on_heap()) {
        if (the_frame->long_image.capacity < size) {
            void* const old = the_frame->long_image.address;
            const bool own_block = the_frame->mipmap_source == mipmap_heap;
            void* const old_mipmap = the_frame->mipmap.address;
            const int width = the_frame->long_image.width, height = the_frame->long_image.height;
            the_frame->long_image = {};
            the_frame->long_image_source = long_image_none;
            the_frame->mipmap = {};
            the_frame->mipmap_source = mipmap_none;
            safe_free(old);
            if (own_block) safe_free(old_mipmap);
            take_heap_block(safe_malloc_aligned(size), size);
            the_frame->long_image.width = width;
            the_frame->long_image.height = height;
        } else if (the_frame->mipmap_source == mipmap_heap) {
            safe_free(the_frame->mipmap.address);
        }
        the_frame->mipmap.address = the_frame->long_image.address;
        the_frame->mipmap.capacity = the_frame->long_image.capacity;
        the_frame->mipmap_source = mipmap_shares_long_image;
    } else {
        if (the_frame->mipmap_source == mipmap_heap) safe_free(the_frame->mipmap.address);
        the_frame->mipmap = {};
        the_frame->mipmap_source = mipmap_none;
        the_frame->mipmap.address = safe_malloc_aligned(size);
        the_frame->mipmap.capacity = size;
        the_frame->mipmap_source = mipmap_heap;
    }
    the_frame->mipmap.owner = Globals_V4;
    return the_frame->mipmap.address;
}

// Where temporaries begin: behind the inputs of the plug-in, also when the effect shown has another number of them.
// Registered ones stand where they were registered; of spare frames any behind the destination will do.
int first_temp_buffer() {
    const GlobalsV4Record* const globals = Globals_V4;
    const int inputs = globals->n_inputs;
    return 1 + (explicit_spark_buffer_allocation_p ? inputs : std::max(globals->number_of_input_images, inputs));
}

// Bytes that buffer index must hold: a whole frame, or a plane.
long bytes_needed(int index) {
    return index <= Globals_V4->n_inputs ? spark_info_ptr->FrameBytes : plane_pixels(spark_info_ptr) * 2;
}

bool large_enough(int index, int id, long size) {
    const long needed = bytes_needed(index);
    if (size >= needed) return true;
    V_error(level_error, "Spark buf %d, ID %d is too small: %ld bytes of %ld.\n", index, id, size, needed);
    return false;
}

bool buffer_dirty_p(int id) {
    SparkMemBufStruct record;
    std::memset(&record, 0, sizeof(record));
    if (!sparkMemGetBuffer(id, &record)) return true;
    const bool clean = (record.BufferState & SPARK_BUF_CLEAN) != 0;
    const bool dirty = (record.BufferState & SPARK_BUF_DIRTY) != 0;
    if (clean == dirty) {
        V_error(level_fatal, "sparkMemGetBuffer(%d): illegal dirty/clean state.\n", id);
        return true;
    }
    return dirty;
}

}  // namespace

bool frame_told_right_p(const SparkInfoStruct* info) {
    if (info->FrameWidth < 1 || info->FrameHeight < 1 || info->FrameWidth > longest_side ||
        info->FrameHeight > longest_side) {
        V_error(level_error, "Bad frame size: %d x %d.", info->FrameWidth, info->FrameHeight);
        return false;
    }
    const long needed = plane_pixels(info) * 3 * (info->FrameDepth == SPARK_DEPTH_8 ? 1 : 2);
    if (info->FrameBytes >= needed) return true;
    V_error(level_error, "A frame of %d x %d needs %ld bytes, not %ld.", info->FrameWidth, info->FrameHeight, needed,
            info->FrameBytes);
    return false;
}

void register_host_buffers() {
    GlobalsV4Record* const globals = Globals_V4;
    const SparkInfoStruct* const info = spark_info_ptr;
    const long pixels = plane_pixels(info);
    explicit_spark_buffer_allocation_p = 1;
    globals->buffer_ids[0] = 1;
    for (int i = 0; i < globals->n_inputs && i + 1 < MAX_BUFFER_IDS; ++i) globals->buffer_ids[i + 1] = i + 2;
    if (sparkMemGetFreeMemory() < globals->required_buffers) {
        globals->not_enough_memory = 1;
        return;
    }
    globals->not_enough_memory = 0;
    for (int i = 0; i < globals->required_buffers; ++i) {
        const int index = 1 + globals->n_inputs + i;
        if (index >= MAX_BUFFER_IDS) {
            V_error(level_error, "Too many buffers required: %d.", globals->required_buffers);
            globals->not_enough_memory = 1;
            return;
        }
        globals->buffer_ids[index] = sparkMemRegisterBufferSize(pixels * 2);
    }
    globals->long_buffer_id = 0;
    if (long_image_buffer_wanted(info)) {
        const long a = globals->render_flags & render_needs_long_image ? pixels * 4 : 0;
        const long b = globals->render_flags & render_needs_mipmap
                           ? static_cast<long>(mipmap_bytes(info->FrameWidth, info->FrameHeight,
                                                            (globals->render_flags & render_mipmap_wide) != 0))
                           : 0;
        const int id = sparkMemRegisterBufferSize(std::max(a, b));
        globals->long_buffer_id = id >= 1 ? id : 0;
    }
}

void* get_spark_buffer(int index) {
    const GlobalsV4Record* const globals = Globals_V4;
    if (explicit_spark_buffer_allocation_p) {
        if (index < 0 || index >= MAX_BUFFER_IDS) {
            V_error(level_error, "Bad state %#x for Spark buf %d, ID %d.\n", 0u, index, 0);
            return nullptr;
        }
        const int id = globals->buffer_ids[index];
        SparkMemBufStruct record;
        std::memset(&record, 0, sizeof(record));
        record.Buffer = reinterpret_cast<void*>(0xdeadbeef);
        if (!sparkMemGetBuffer(id, &record)) {
            V_error(level_fatal, "sparkMemGetBuffer(%d) returned error, can't process.\n", id);
            return nullptr;
        }
        if (!(record.BufferState & SPARK_BUF_ALLOCATED)) {
            V_error(level_error, "Bad state %#x for Spark buf %d, ID %d.\n", static_cast<unsigned>(record.BufferState),
                    index, id);
            return nullptr;
        }
        return large_enough(index, id, record.BufferSize) ? record.Buffer : nullptr;
    }
    const int inputs = globals->n_inputs;
    const int position = index == 0 ? inputs : index <= inputs ? index - 1 : index;
    if (!spark_info_ptr->FrameBuffers || position < 0 || position >= spark_info_ptr->TotalBuffers) return nullptr;
    return spark_info_ptr->FrameBuffers[position];
}

void get_buffer_index_from_spark_info(int temp_index, int* buffer_index, int* planes_per_buffer, long* byte_offset) {
    if (Globals_V4->number_of_input_images < 0) {
        V_error(level_error, "get_temp_short_buffer: Globals->number_of_input_images is not set.");
        fatal_abort(1);
        return;
    }
    int planes = 1;
    if (!explicit_spark_buffer_allocation_p && spark_info_ptr->FrameDepth >= 32)
        planes = spark_info_ptr->FrameDepth / 16;
    *buffer_index = first_temp_buffer() + temp_index / planes;
    *planes_per_buffer = planes;
    *byte_offset = (temp_index % planes) * plane_pixels(spark_info_ptr) * 2;
}

FixPixel* get_temp_short_buffer_from_spark_info(int temp_index) {
    int index = 0, planes = 1;
    long offset = 0;
    get_buffer_index_from_spark_info(temp_index, &index, &planes, &offset);
    if (!explicit_spark_buffer_allocation_p && index >= spark_info_ptr->TotalBuffers) {
        std::printf("TotalBuffers: %d \n", spark_info_ptr->TotalBuffers);
        sparkError("This effect needs too many temp images, up image buffer number.");
        return nullptr;
    }
    auto* const buffer = static_cast<char*>(get_spark_buffer(index));
    return buffer ? reinterpret_cast<FixPixel*>(buffer + offset) : nullptr;
}

int image_buffer_changed_p(int temp_index) {
    if (!explicit_spark_buffer_allocation_p) return 1;  // such hosts promise nothing from one frame to the next
    const int index = first_temp_buffer() + temp_index;
    if (index >= MAX_BUFFER_IDS) return 1;
    return buffer_dirty_p(Globals_V4->buffer_ids[index]) ? 1 : 0;
}

int temp_buffers_dirty_p(const SparkInfoStruct*, const Node* node) {
    const Genotype* const genotype = Globals_V4->effect_genotype;
    const int base = node->in_cache_images && genotype ? genotype->temp_image_number : 0;
    for (int i = 0; i < node->image_count; ++i)
        if (image_buffer_changed_p(base + node->image_index + i)) return 1;
    return 0;
}

int32_t* spark_set_long_image(int width, int height) {
    the_frame->mipmap_holds = false;  // they may share their memory
    const SparkInfoStruct* const info = spark_info_ptr;
    const size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 4;
    if (!info || !explicit_spark_buffer_allocation_p || malloc_long_image_p()) return heap_long_image(width, height);
    const bool fits_frame = bytes <= static_cast<size_t>(info->FrameBytes);
    if (info->FrameDepth >= 32 && the_frame->render_field == 0 && fits_frame &&
        !(Globals_V4->render_flags & render_long_image_every_depth)) {
        void* const buffer = get_spark_buffer(0);
        if (buffer) return use_host_long_image(buffer, long_image_borrowed, width, height, bytes);
    }
    if (!long_image_buffer_wanted(info) || Globals_V4->long_buffer_id == 0)
        return heap_long_image(std::max(width, info->FrameWidth), std::max(height, info->FrameHeight));
    SparkMemBufStruct record;
    std::memset(&record, 0, sizeof(record));
    if (!sparkMemGetBuffer(Globals_V4->long_buffer_id, &record)) {
        V_error(level_warning, "blur: get_long_image: no spark buffer, trying malloc.\n");
        return heap_long_image(width, height);
    }
    if (!(record.BufferState & SPARK_BUF_ALLOCATED)) {
        V_error(level_warning, "blur: get_long_image: Bad state %#x for Spark buf %d.\n  Trying malloc instead.\n",
                static_cast<unsigned>(record.BufferState), Globals_V4->long_buffer_id);
        return heap_long_image(width, height);
    }
    if (static_cast<size_t>(record.BufferSize) < bytes) return heap_long_image(width, height);
    return use_host_long_image(record.Buffer, long_image_registered, width, height,
                               static_cast<size_t>(record.BufferSize));
}

void spark_free_long_image() {
    drop_heap_long_image();
    the_frame->long_image = {};
    the_frame->long_image_source = long_image_none;
}

void* spark_set_mipmap(size_t size) {
    the_frame->mipmap_holds = false;
    size = std::max<size_t>(size, 64);
    if (!explicit_spark_buffer_allocation_p || malloc_long_image_p()) return heap_mipmap(size);
    if (the_frame->mipmap_source == mipmap_heap && the_frame->mipmap.capacity >= size) return the_frame->mipmap.address;
    if (!(Globals_V4->render_flags & render_needs_mipmap) || Globals_V4->long_buffer_id == 0) return heap_mipmap(size);
    SparkMemBufStruct record;
    std::memset(&record, 0, sizeof(record));
    if (!sparkMemGetBuffer(Globals_V4->long_buffer_id, &record)) {
        V_error(level_warning, "spark_set_mipmap: no spark buffer, trying malloc.\n");
        return heap_mipmap(size);
    }
    if (!(record.BufferState & SPARK_BUF_ALLOCATED)) {
        V_error(level_warning, "spark_set_mipmap: Bad state %#x for Spark buf %d.\n  Trying malloc instead.\n",
                static_cast<unsigned>(record.BufferState), Globals_V4->long_buffer_id);
        return heap_mipmap(size);
    }
    if (static_cast<size_t>(record.BufferSize) < size) return heap_mipmap(size);
    if (the_frame->mipmap_source == mipmap_heap) safe_free(the_frame->mipmap.address);
    the_frame->mipmap = {record.Buffer, static_cast<size_t>(record.BufferSize), Globals_V4};
    the_frame->mipmap_source = mipmap_registered;
    return the_frame->mipmap.address;
}

void spark_free_mipmap() {
    the_frame->mipmap_holds = false;
    if (the_frame->mipmap_source == mipmap_heap) safe_free(the_frame->mipmap.address);
    the_frame->mipmap = {};
    the_frame->mipmap_source = mipmap_none;
}

}  // namespace velloran
