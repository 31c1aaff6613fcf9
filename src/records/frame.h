// What belongs to the frame in hand: its rasters, time, inputs, and how far its evaluation is.
#pragma once

#include "records/genotype.h"
#include "records/rinfo.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

struct GlobalsV4Record;

// Time of the frame in hand.
struct TimeGlobals {
    float frame;         // current time in frames, from 0; halves are second fields
    float total_frames;  // clip length
    float seconds;       // frame / frame rate
    float total_seconds;
    float percent;  // 0 to 1 over the clip; 0 for a clip of one frame
};

// Sizes of the frame in hand in samples, after down-sampling.
struct DisplayDims {
    int frame_w, frame_h;      // the working area (temp_raster_info)
    int display_w, display_h;  // the whole frame
    int render_w, render_h;    // the whole frame
    int output_w, output_h;    // the whole frame
};

// What lies outside the crop where the surround is a colour: fixed point with alpha 4096; all zero and off else.
struct SurroundColor {
    int32_t color[4];
    bool on;
};

// Where the long image and the mipmap lie; host_buffers.h gives them out.
enum LongImageSource : int {
    long_image_none = 0,
    long_image_heap = 1,
    long_image_registered = 2,
    long_image_borrowed = 3
};
enum MipmapSource : int { mipmap_none = 0, mipmap_heap = 1, mipmap_shares_long_image = 2, mipmap_registered = 3 };

struct LongImageSlot {
    int32_t* address;
    int width, height;
    size_t capacity;  // bytes
};
struct MipmapSlot {
    void* address;
    size_t capacity;  // bytes
    GlobalsV4Record* owner;
};

// Plain data: a copy is a frame of its own but for the memory in the slots, which has one owner.
struct Frame {
    bool in_hand;  // V4_SparkProcess is making it
    bool failed;   // part of it could not be made, which has been told; it is not given to the host. See fail_frame

    rinfo dest_raster_info, temp_raster_info;  // render_step 0: not set yet
    rinfo source_raster_infos[MAX_INPUTS];
    RenderInfo render_info;                 // render_step 0: not set yet
    const void* source_frames[MAX_INPUTS];  // first byte of each input's frame; null: the input is missing
    int render_field;                       // 0 whole frame; 1 or 2: the field being rendered
    TimeGlobals time_globals;
    DisplayDims display_dims;
    SurroundColor surround_color;
    float pixel_aspect_ratio = 1;  // height units per width unit of the coordinates: y runs to (height / width) * this
    int timewarp_get_frame_min;    // earliest frame that an effect may still ask for; 0: any

    // Evaluation (engine/).
    size_t short_image_size;              // bytes of one plane: twice the samples of temp_raster_info; 0: unset
    int eval_to_dest, eval_to_dest_line;  // the pass in hand writes the host's frame
    void* eval_dest_frame;                // the host's frame
    int32_t* eval_long_image;             // set with spark_set_long_image by the image function; null: none

    // Memory that one operation uses at a time (frame/host_buffers.h).
    LongImageSlot long_image;
    MipmapSlot mipmap;
    int long_image_source, mipmap_source;
    bool mipmap_holds;  // the mipmap memory holds what was last made in it, of values of this evaluation
};

// The frame in hand; between frames, what the last one left. Never null. Written on the host's thread outside forks and
// read by all tasks. Rendering a frame may make the host ask another plug-in of this library for one: that one has a
// record of its own, so that nothing of this one moves.
extern Frame* the_frame;

}  // namespace velloran
