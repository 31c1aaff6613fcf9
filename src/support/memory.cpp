// Frame blocks carry a header that links them into one list, so that whatever a frame left behind after a fatal abort
// can be found. The list's lock is always taken: worker tasks allocate too.
#include "support/memory.h"

#include "support/abort.h"
#include "support/errors.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace velloran {
namespace {

struct alignas(64) FrameBlock {
    FrameBlock* next;
    FrameBlock* previous;
    int depth;
    size_t bytes;
};

pthread_mutex_t frame_list_mutex = PTHREAD_MUTEX_INITIALIZER;
FrameBlock frame_list = {&frame_list, &frame_list, 0, 0};
size_t bytes_now = 0, bytes_peak = 0;  // of the blocks in the list
int current_depth = 0;

struct AbortCleanup {
    void (*function)(void*);
    void* argument;
};
constexpr int max_abort_cleanups = 64;
AbortCleanup abort_cleanups[max_abort_cleanups];
int cleanup_count = 0;

void* system_block(size_t bytes, size_t alignment) {
    if (alignment <= alignof(max_align_t)) return std::malloc(bytes);
    return std::aligned_alloc(alignment, (bytes + alignment - 1) & ~(alignment - 1));
}

// Planes and transforms are walked across their rows, each on a page of its own.
constexpr size_t large_block = size_t{4} << 20, large_page = size_t{2} << 20;

void out_of_memory(size_t bytes) {
    V_error(level_error, "Velloran ran out of memory trying to allocate %ld bytes.\nNot enough memory.\n",
            static_cast<long>(bytes));
    fatal_abort(-100);
}

void* block_or_abort(size_t bytes, size_t alignment) {
    if (bytes == 0) return nullptr;
    void* block = bytes > SIZE_MAX / 4 ? nullptr : allocate_block(bytes, alignment);
    if (!block) out_of_memory(bytes);
    return block;
}

}  // namespace

void* (*allocate_block)(size_t bytes, size_t alignment) = system_block;

void* safe_malloc(size_t bytes) { return block_or_abort(bytes, alignof(max_align_t)); }

void* safe_malloc_aligned(size_t bytes) {
    if (bytes < large_block) return block_or_abort(bytes, 64);
    void* const block = block_or_abort(bytes, large_page);
    madvise(block, bytes, MADV_HUGEPAGE);  // a wish; nothing depends on it
    return block;
}

void* safe_calloc(size_t bytes) {
    void* block = safe_malloc(bytes);
    if (block) std::memset(block, 0, bytes);
    return block;
}

void* safe_realloc(void* block, size_t bytes) {
    if (bytes == 0) {
        safe_free(block);
        return nullptr;
    }
    if (allocate_block == system_block) {
        void* moved = bytes > SIZE_MAX / 4 ? nullptr : std::realloc(block, bytes);
        if (!moved) out_of_memory(bytes);
        return moved;
    }
    void* moved = safe_malloc(bytes);
    if (block) {
        const size_t had = malloc_usable_size(block);
        std::memcpy(moved, block, had < bytes ? had : bytes);
        std::free(block);
    }
    return moved;
}

void safe_free(void* block) { std::free(block); }

char* safe_strdup(const char* text) {
    if (!text) return nullptr;
    const size_t bytes = std::strlen(text) + 1;
    return static_cast<char*>(std::memcpy(safe_malloc(bytes), text, bytes));
}

void* frame_malloc(size_t bytes) {
    if (bytes == 0) return nullptr;
    if (bytes > SIZE_MAX / 4) out_of_memory(bytes);
    auto* block = static_cast<FrameBlock*>(block_or_abort(bytes + sizeof(FrameBlock), 64));
    block->depth = current_depth;
    block->bytes = bytes;
    pthread_mutex_lock(&frame_list_mutex);
    bytes_now += bytes;
    bytes_peak = bytes_now > bytes_peak ? bytes_now : bytes_peak;
    block->next = frame_list.next;
    block->previous = &frame_list;
    frame_list.next->previous = block;
    frame_list.next = block;
    pthread_mutex_unlock(&frame_list_mutex);
    return block + 1;
}

void frame_free(void* memory) {
    if (!memory) return;
    FrameBlock* block = static_cast<FrameBlock*>(memory) - 1;
    pthread_mutex_lock(&frame_list_mutex);
    bytes_now -= block->bytes;
    block->next->previous = block->previous;
    block->previous->next = block->next;
    pthread_mutex_unlock(&frame_list_mutex);
    std::free(block);
}

size_t frame_bytes_now() {
    pthread_mutex_lock(&frame_list_mutex);
    const size_t bytes = bytes_now;
    pthread_mutex_unlock(&frame_list_mutex);
    return bytes;
}

size_t frame_bytes_peak() {
    pthread_mutex_lock(&frame_list_mutex);
    const size_t bytes = bytes_peak;
    pthread_mutex_unlock(&frame_list_mutex);
    return bytes;
}

void restart_frame_peak() {
    pthread_mutex_lock(&frame_list_mutex);
    bytes_peak = bytes_now;
    pthread_mutex_unlock(&frame_list_mutex);
}

int frame_depth() { return current_depth; }

void set_frame_depth(int depth) { current_depth = depth; }

void free_frame_memory(int depth) {
    FrameBlock* freed = nullptr;
    pthread_mutex_lock(&frame_list_mutex);
    for (FrameBlock *block = frame_list.next, *next; block != &frame_list; block = next) {
        next = block->next;
        if (depth > 0 && block->depth <= depth) continue;
        bytes_now -= block->bytes;
        next->previous = block->previous;
        block->previous->next = next;
        block->next = freed;
        freed = block;
    }
    pthread_mutex_unlock(&frame_list_mutex);
    while (freed) {
        FrameBlock* const next = freed->next;
        std::free(freed);
        freed = next;
    }
}

void push_abort_cleanup(void (*function)(void*), void* argument) {
    if (cleanup_count == max_abort_cleanups) {
        V_error(level_error, "Too many clean-ups (%d).", max_abort_cleanups);
        fatal_abort(1);
        return;
    }
    abort_cleanups[cleanup_count++] = {function, argument};
}

void pop_abort_cleanup() {
    if (cleanup_count > 0) --cleanup_count;
}

int n_abort_cleanups() { return cleanup_count; }

void run_abort_cleanups(int keep) {
    while (cleanup_count > keep) {
        const AbortCleanup cleanup = abort_cleanups[--cleanup_count];
        run_abortable(cleanup.function, cleanup.argument);
    }
}

}  // namespace velloran
