// Frame memory of one plug-in: the destination, its inputs, and what it registered.
#pragma once

#include "hosts/common/host.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace spark_host {

// Memory for frames and planes: it begins on a whole cache line, and large blocks lie on large pages where the system
// has them, which spares those who walk down columns most of their address translation. Null if there is none; freed
// with std::free.
void* allocate_frame(size_t bytes);

struct FreeBlock {
    void operator()(void* block) const;
};

struct HostBuffer {
    long size = 0;                            // bytes
    std::unique_ptr<void, FreeBlock> memory;  // allocated when first asked for, aligned to 64 bytes
    int state = SPARK_BUF_REGISTERED;
    bool handed_out = false;  // in the call that runs
};

struct HostBuffers {
    std::vector<HostBuffer> list;  // id - 1: destination, inputs, registered ones
    int n_inputs = 0;
    bool registering = false;      // SparkMemoryTempBuffers runs
    bool clear_dest = false;       // the destination is to be cleared when it is next handed out
    std::vector<void*> addresses;  // FrameBuffers of hosts without registered buffers
    std::vector<HostBuffer> spares;
    long registered_bytes = 0;
};

constexpr int dest_buffer_id = 1;
constexpr int first_input_buffer_id = 2;

// Makes the destination and the inputs for the host's format, and the addresses where the host is of that kind.
// Registered buffers go.
void make_frame_buffers(Host& host, HostBuffers& buffers, int n_inputs);
// Gives everything back.
void release_buffers(Host& host, HostBuffers& buffers);

// 0 outside registration or beyond the host's memory.
int register_buffer(Host& host, HostBuffers& buffers, long bytes);
int get_buffer(Host& host, HostBuffers& buffers, int id, SparkMemBufStruct* answer);

// The destination is all zero when the plug-in next asks for it. Until then it holds the last frame.
// False if there is no memory.
bool renew_dest(Host& host, HostBuffers& buffers);

// Address for the host's own use, null if there is no memory. The content then counts as new.
void* host_writes_buffer(HostBuffers& buffers, int id);
// The plug-in's call ended: what it was handed is now what it wrote.
void note_call_ended(HostBuffers& buffers);
// The host needed the memory: registered buffers come back at another address, with other content, as dirty.
void lose_buffers(HostBuffers& buffers);

}  // namespace spark_host
