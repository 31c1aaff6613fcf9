// Frame blocks carry a header that links them into one list, so that whatever a frame left behind after a fatal abort
// can be found. The list's lock is always taken: worker tasks allocate too.
#include "support/memory.h"

#include "support/abort.h"
#include "support/errors.h"

#include <pthread.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace velloran {
namespace {

struct alignas(64) FrameBlock {
    FrameBlock* next;
    FrameBlock* previous;
    unsigned long serial;  // counts up; the list is ordered by it, newest first
};

pthread_mutex_t frame_list_mutex = PTHREAD_MUTEX_INITIALIZER;
FrameBlock frame_list = {&frame_list, &frame_list, 0};
unsigned long last_serial = 0;

struct AbortCleanup {
    void (*function)(void*);
    void* argument;
};
constexpr int max_abort_cleanups = 64;
AbortCleanup abort_cleanups[max_abort_cleanups];
int n_abort_cleanups = 0;

void* system_block(size_t bytes, size_t alignment) {
    if (alignment <= alignof(max_align_t)) return std::malloc(bytes);
    return std::aligned_alloc(alignment, (bytes + alignment - 1) & ~(alignment - 1));
}

void out_of_memory(size_t bytes) {
    V_error(level_error, "Velloran ran out of memory trying to allocate %ld bytes.\nNot enough memory.\n",
            static_cast<long>(bytes));
    fatal_abort(-100);
    std::abort();  // nothing was armed: there is nowhere to go on from
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

void* safe_malloc_aligned(size_t bytes) { return block_or_abort(bytes, 64); }

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
    void* moved = std::realloc(block, bytes);
    if (!moved) out_of_memory(bytes);
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
    auto* block = static_cast<FrameBlock*>(block_or_abort(bytes + sizeof(FrameBlock), 64));
    pthread_mutex_lock(&frame_list_mutex);
    block->serial = ++last_serial;
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
    block->next->previous = block->previous;
    block->previous->next = block->next;
    pthread_mutex_unlock(&frame_list_mutex);
    std::free(block);
}

FrameMark frame_mark() { return {last_serial, n_abort_cleanups}; }

void give_back_since(const FrameMark& mark) {
    while (n_abort_cleanups > mark.cleanups) {
        const AbortCleanup cleanup = abort_cleanups[--n_abort_cleanups];
        cleanup.function(cleanup.argument);
    }
    while (frame_list.next->serial > mark.last_block) frame_free(frame_list.next + 1);
}

void push_abort_cleanup(void (*function)(void*), void* argument) {
    if (n_abort_cleanups == max_abort_cleanups) {
        V_error(level_error, "Too many clean-ups (%d).", max_abort_cleanups);
        fatal_abort(1);
        return;
    }
    abort_cleanups[n_abort_cleanups++] = {function, argument};
}

void pop_abort_cleanup() {
    if (n_abort_cleanups > 0) --n_abort_cleanups;
}

}  // namespace velloran
