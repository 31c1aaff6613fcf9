// A host that runs forks on so many tasks, and the library inside a call of it: what code below the entry points needs
// in order to fork. For tests and benches.
#pragma once

#include "hosts/common/buffers.h"
#include "hosts/common/host.h"
#include "records/run_state.h"
#include "support/errors.h"
#include "tasks/tasks.h"

#include <cstdlib>
#include <new>
#include <vector>

namespace velloran_tests {

// Vectors in memory as a host's buffers have it.
template <class T>
struct HostAllocator {
    using value_type = T;
    HostAllocator() = default;
    template <class U>
    HostAllocator(const HostAllocator<U>&) {}
    T* allocate(size_t n) {
        void* const block = spark_host::allocate_frame(n * sizeof(T));
        if (!block) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* block, size_t) { std::free(block); }
    friend bool operator==(const HostAllocator&, const HostAllocator&) { return true; }
};
template <class T>
using HostVector = std::vector<T, HostAllocator<T>>;

class HostOfTasks {
public:
    explicit HostOfTasks(int tasks, int width = 720, int height = 486, int depth = SPARK_DEPTH_8) {
        host.processors = tasks;
        host.format.width = width;
        host.format.height = height;
        host.format.depth = depth;
        outer_ = spark_host::use_host(&host);
        info = spark_host::current_info(host);
        velloran::spark_info_ptr = &info;
        // The first use reads the configuration; that there is none here is no news.
        const velloran::ErrorPrinter printer = velloran::set_error_printer([](int, const char*) {});
        velloran::init_mp();
        velloran::set_error_printer(printer);
        velloran::set_cpu_count(tasks, 1);
    }
    ~HostOfTasks() {
        velloran::set_cpu_count(1, 1);
        velloran::spark_info_ptr = nullptr;
        spark_host::use_host(outer_);
    }
    HostOfTasks(const HostOfTasks&) = delete;
    HostOfTasks& operator=(const HostOfTasks&) = delete;

    spark_host::Host host;
    SparkInfoStruct info;

private:
    spark_host::Host* outer_;
};

}  // namespace velloran_tests
