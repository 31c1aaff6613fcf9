// The rasters of a frame: filling the records of rinfo.h, addresses in them, their debug texts. Host's thread, before
// any fork; the pure functions any task.
#pragma once

#include "records/rinfo.h"
#include "spark/spark.h"

#include <cstddef>
#include <cstdint>

namespace velloran {

// Fills a raster from the host's description of its frames: the whole frame in samples of step pixels. An unknown depth
// code reports and leaves pixel type, depth, layout and bytes zero.
void fill_host_raster(rinfo* raster, const SparkInfoStruct& info, int step, int phase);

// Fills the raster of the working planes. area, in pixels, is what they have to cover (what is rendered and what the
// effect needs around it), see narrow_raster; null: the whole frame.
void fill_temp_raster(rinfo* raster, const SparkInfoStruct& info, int step, int phase, const RasterRect* area);

// Narrows a raster of the whole frame to an area, in pixels: it is held to the frame, at least a pixel each way, and
// its left and lower edge move out to the grid of the raster's step.
void narrow_raster(rinfo* raster, const RasterRect& area);

// Fills the rectangles of a frame. crop, in pixels, is the area to render; null: the whole frame.
void fill_render_info(RenderInfo* render, const SparkInfoStruct& info, int step, int phase, const RasterRect* crop);

// The samples of step pixels that a rectangle of pixels takes: x, y truncated, w, h rounded up.
RasterRect downsampled_rect(const RasterRect& pixels, int step);

// Bytes from row to row of stored samples.
int32_t byte_row_pitch(const rinfo& raster);

// Byte offset of a pixel. The clamps use the stored size, so at a step above 1 it addresses a stored sample.
int32_t pixel_offset(const rinfo& raster, int px, int py);

// Sets the wrap area: the rectangle x, y, w, h (pixels) on the grid of step, moved inside the raster. The arguments
// stand in this order: x, w, y, h.
void raster_set_wrap_dims(rinfo* raster, double x, double w, double y, double h, int step);

// Change what the pixels of a raster hold: layout and pixel type become the first ones that hold it with elements of as
// many bytes; nothing happens where there are none. Colour is not added to luminance, nor luminance to colour.
void raster_add_alpha(rinfo* raster);
void raster_add_luminance(rinfo* raster);
void raster_add_colour(rinfo* raster);
void raster_remove_alpha(rinfo* raster);

// Debug texts, at most size bytes with the closing 0.
void rinfo_text(char* out, size_t size, const char* label, const rinfo* raster);
void render_info_text(char* out, size_t size, const char* label, const RenderInfo* render);

}  // namespace velloran
