// Heap wrappers. Two kinds of memory: what lives on between calls (safe_malloc) and what a call needs for itself
// (frame_malloc), which cannot leak through a fatal abort.
#pragma once

#include <cstddef>

namespace velloran {

// Blocks that live on. Size 0 gives null. Exhaustion reports at level 8 and takes the fatal abort. Any task may call.
void* safe_malloc(size_t bytes);
void* safe_calloc(size_t bytes);  // zeroed
void* safe_realloc(void* block, size_t bytes);
void safe_free(void* block);          // null is ignored
char* safe_strdup(const char* text);  // null gives null

// Blocks of the call in hand, aligned to 64 bytes. Freed with frame_free; what is left after a fatal abort is freed
// when the abort has landed. Any task may call. Exhaustion as safe_malloc.
void* frame_malloc(size_t bytes);
void frame_free(void* block);
// Calls nest, and each block knows the depth of its own. The depth is 0 outside calls; host's thread only.
int frame_depth();
void set_frame_depth(int depth);
void free_frame_memory(int depth = 0);  // what deeper calls than depth left

// Bytes in frame blocks now, and the most since restart_frame_peak.
size_t frame_bytes_now();
size_t frame_bytes_peak();
void restart_frame_peak();

// A clean-up to run if a fatal abort passes before it is popped (a half-made record, an open file). Host's thread only,
// strictly nested. The argument must not be on the stack, which is gone by then. A clean-up that aborts ends there; the
// others still run.
void push_abort_cleanup(void (*function)(void*), void* argument);
void pop_abort_cleanup();
int n_abort_cleanups();
void run_abort_cleanups(int keep = 0);  // newest first, until keep are left

// Checks of the heap for debugging; nothing in this build.
inline void check_malloc_ptr(const void*) {}
inline void check_all_mem_freed() {}

// Blocks for planes and tables that live on, 64-byte aligned; from 4 MB on they ask for large pages. Freed with
// safe_free.
void* safe_malloc_aligned(size_t bytes);

// Where blocks come from; tests make allocations fail through it. Takes a size and an alignment (a power of two).
extern void* (*allocate_block)(size_t bytes, size_t alignment);

template <class T>
T* safe_new_zeroed(size_t count = 1) {
    return static_cast<T*>(safe_calloc(count * sizeof(T)));
}
template <class T>
T* frame_array(size_t count) {
    return static_cast<T*>(frame_malloc(count * sizeof(T)));
}

}  // namespace velloran
