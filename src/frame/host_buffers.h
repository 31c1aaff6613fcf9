// Frame memory from the host: the numbering of its buffers, registered temporaries, and the slots of the long image and
// the mipmap with their fall-back to the heap. Host's thread only; addresses are valid during the entry point in hand.
#pragma once

#include "records/node.h"
#include "records/run_state.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// Registers the temporary planes and the long image; the body of V4_SparkMemoryTempBuffers behind the initialisation.
void register_host_buffers();

// True if what the host tells of the frame fits together: a size that can be, and bytes enough for it. Else a message.
bool frame_told_right_p(const SparkInfoStruct* info);

// Address of buffer index: 0 the destination, 1 to n_inputs the inputs, then temporaries. Null after a message,
// also where the buffer is smaller than what is kept in it.
void* get_spark_buffer(int index);

// Plane of temp_index (from 0): FrameWidth * FrameHeight samples.
FixPixel* get_temp_short_buffer_from_spark_info(int temp_index);
void get_buffer_index_from_spark_info(int temp_index, int* buffer_index, int* planes_per_buffer, long* byte_offset);

// 1 if any temporary buffer of the node's images has lost its content since the library wrote it.
int temp_buffers_dirty_p(const SparkInfoStruct* info, const Node* node);
// The same question for one temp index; 1 if its content cannot be relied on.
int image_buffer_changed_p(int temp_index);

// The shared 32-bit accumulator image of at least width * height elements. Never null: falls back to the heap. The
// content is undefined.
int32_t* spark_set_long_image(int width, int height);
void spark_free_long_image();

// The shared mipmap memory of at least size bytes. Never null. Content undefined.
void* spark_set_mipmap(size_t size);
void spark_free_mipmap();

}  // namespace velloran
