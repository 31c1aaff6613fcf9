#include "hosts/common/buffers.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace spark_host {
namespace {

constexpr size_t cache_line = 64;
constexpr size_t large_page = size_t{2} << 20;
constexpr size_t large_block = 2 * large_page;  // from here on the rest of a page that is wasted does not matter

bool allocate(HostBuffer& buffer) {
    if (buffer.memory) return true;
    buffer.memory.reset(allocate_frame(static_cast<size_t>(std::max(1L, buffer.size))));
    if (!buffer.memory) return false;
    buffer.state = SPARK_BUF_REGISTERED | SPARK_BUF_INUSE | SPARK_BUF_ALLOCATED | SPARK_BUF_DIRTY;
    return true;
}

void set_dirty(HostBuffer& buffer) { buffer.state = (buffer.state & ~SPARK_BUF_CLEAN) | SPARK_BUF_DIRTY; }

}  // namespace

void* allocate_frame(size_t bytes) {
    if (bytes > PTRDIFF_MAX) return nullptr;
    const size_t alignment = bytes >= large_block ? large_page : cache_line;
    void* const block = std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
    if (block && bytes >= large_block) madvise(block, bytes, MADV_HUGEPAGE);  // a wish; nothing depends on it
    return block;
}

void FreeBlock::operator()(void* block) const { std::free(block); }

void make_frame_buffers(Host& host, HostBuffers& buffers, int n_inputs) {
    release_buffers(host, buffers);
    buffers.n_inputs = n_inputs;
    buffers.list.resize(static_cast<size_t>(n_inputs) + 1);
    for (HostBuffer& buffer : buffers.list) buffer.size = host.format.bytes();
    if (registers_buffers_p(host)) return;
    buffers.spares.resize(static_cast<size_t>(std::max(0, host.spare_buffers)));
    for (int i = 0; i < n_inputs; i++)
        buffers.addresses.push_back(host_writes_buffer(buffers, first_input_buffer_id + i));
    buffers.addresses.push_back(host_writes_buffer(buffers, dest_buffer_id));
    for (HostBuffer& spare : buffers.spares) {
        spare.size = host.format.bytes();
        allocate(spare);
        buffers.addresses.push_back(spare.memory.get());
    }
}

void release_buffers(Host& host, HostBuffers& buffers) {
    host.registered_bytes -= buffers.registered_bytes;
    buffers = HostBuffers();
}

int register_buffer(Host& host, HostBuffers& buffers, long bytes) {
    if (!buffers.registering || bytes < 1 || free_buffers(host) < 1) return 0;
    const long frame = std::max(1L, host.format.bytes());
    if (host.registered_bytes + bytes > host.memory_buffers * frame) return 0;
    buffers.list.emplace_back().size = bytes;
    buffers.registered_bytes += bytes;
    host.registered_bytes += bytes;
    return static_cast<int>(buffers.list.size());
}

int get_buffer(Host& host, HostBuffers& buffers, int id, SparkMemBufStruct* answer) {
    if (id < 1 || id > static_cast<int>(buffers.list.size())) return 0;
    HostBuffer& buffer = buffers.list[static_cast<size_t>(id - 1)];
    if (allocate(buffer)) {
        buffer.handed_out = true;
        if (id == dest_buffer_id && buffers.clear_dest) {
            std::memset(buffer.memory.get(), 0, static_cast<size_t>(buffer.size));
            buffers.clear_dest = false;
        }
    } else
        host.memory_ran_out = true;
    answer->BufferId = id;
    answer->BufferState = buffer.state;
    answer->BufferSize = buffer.size;
    answer->Buffer = buffer.memory.get();
    return host.on_get_buffer ? host.on_get_buffer(id, answer) : 1;
}

bool renew_dest(Host& host, HostBuffers& buffers) {
    void* const dest = host_writes_buffer(buffers, dest_buffer_id);
    if (!dest) return false;
    buffers.clear_dest = registers_buffers_p(host);
    // Plug-ins that got the address do not ask for it.
    if (!buffers.clear_dest) std::memset(dest, 0, static_cast<size_t>(buffers.list[dest_buffer_id - 1].size));
    return true;
}

void* host_writes_buffer(HostBuffers& buffers, int id) {
    HostBuffer& buffer = buffers.list[static_cast<size_t>(id - 1)];
    if (!allocate(buffer)) return nullptr;
    set_dirty(buffer);
    return buffer.memory.get();
}

void note_call_ended(HostBuffers& buffers) {
    for (HostBuffer& buffer : buffers.list) {
        if (buffer.handed_out) buffer.state = (buffer.state & ~SPARK_BUF_DIRTY) | SPARK_BUF_CLEAN;
        buffer.handed_out = false;
    }
}

void lose_buffers(HostBuffers& buffers) {
    for (size_t i = static_cast<size_t>(buffers.n_inputs) + 1; i < buffers.list.size(); i++) {
        HostBuffer& buffer = buffers.list[i];
        if (!buffer.memory) continue;
        // The old block stays until the new one is there, so that the address surely changes.
        const auto old = std::move(buffer.memory);
        if (allocate(buffer)) std::memset(buffer.memory.get(), 0x5a, static_cast<size_t>(buffer.size));
    }
}

}  // namespace spark_host
