// Memory of what lives on between calls, for the classes of this room: exhaustion takes the fatal abort as everywhere.
#pragma once

#include "support/memory.h"

#include <memory>
#include <utility>
#include <vector>

namespace velloran::widgets {

template <class T>
struct KeptAllocator {
    using value_type = T;
    KeptAllocator() = default;
    template <class U>
    KeptAllocator(const KeptAllocator<U>&) {}
    T* allocate(size_t n) { return static_cast<T*>(safe_malloc(n * sizeof(T))); }
    void deallocate(T* block, size_t) { safe_free(block); }
    bool operator==(const KeptAllocator&) const { return true; }
};

template <class T>
using KeptVector = std::vector<T, KeptAllocator<T>>;

template <class T>
using counted_ptr = std::shared_ptr<T>;

template <class T, class... Arguments>
counted_ptr<T> make_counted(Arguments&&... arguments) {
    return std::allocate_shared<T>(KeptAllocator<T>(), std::forward<Arguments>(arguments)...);
}

// A class whose objects live there.
struct Kept {
    static void* operator new(size_t bytes) { return safe_malloc(bytes); }
    static void operator delete(void* block) { safe_free(block); }
};

}  // namespace velloran::widgets
