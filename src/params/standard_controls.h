// The standard controls beside every effect's params: redraw, resolution, crop and surround, fields, noise, gamma, LUT,
// help, undo, defaults; and what the crop does to the rasters. Host's thread only.
#pragma once

#include "records/genotype.h"
#include "records/param.h"
#include "records/rinfo.h"
#include "spark/spark.h"

namespace velloran {

// Makes the params and places their copies on the pages. n_param_pages and crop_page must be known.
void create_global_params();
void free_global_params();

// Defaults of all standard controls, the crop covering width by height.
void set_crop_and_button_defaults(int width, int height);
// At the first render: bounds of the crop edges; a crop that still covers the frame known so far covers this one.
void set_crop_bounds(int width, int height);
// Opens the bounds of the crop edges to 0 .. 9999 (9998 for left and bottom), before they are rescaled.
void open_crop_bounds();

void set_input_count_on_buttons();  // length of the surround popup
void set_surround_names();          // its entries, from the names of the inputs

// What follows from the new value of a standard control, however it came; every function that sets values calls it.
void standard_control_changed(const Param* p);

// Factor of each entry of the resolution popup.
int get_popup_res_factor();
int get_on_fields_mode();  // 0 no, 1 first field dominant, 2 second; 0 without the control
int get_lut_index();

// ---- The crop ----

bool crop_enabled_p();
// The crop is on and wraps: the effect takes a crop input ("warp_crop") and "Crop Input" is on.
bool crop_input_p();
// The crop in full-resolution pixels, held to the frame and at least one pixel each way; the whole frame without crop.
RasterRect get_crop_rect(int frame_width, int frame_height);
// Fills render_info for a frame with the crop that the controls give.
void make_render_info(RenderInfo* out, const SparkInfoStruct& info, int step, int phase);
// Narrows temp, filled for the whole frame, to what the crop needs, or sets its wrap dimensions and the record's
// wrapped mark. The update of the effect must have run.
void set_temp_raster_crop(rinfo* temp, const RenderInfo* render, Genotype* genotype);

// Colour outside the crop as fixed point, alpha 4096; all zero and false where the crop is off or shows an input.
bool get_surround_color(int32_t color[4]);
// Paints what lies outside the crop into the host's frame, after a render; the colour is the frame's surround_color.
void fill_crop_surround(void* dest);

// ---- Callbacks ----

// What a moved standard control leads to. copy: which of the param's controls it was. Answers the address of a rendered
// frame, or null.
using StandardCallback = void* (*)(int action, SparkInfoStruct* info, Param* p, int copy);
// The functions that records/standard_controls.inc names.
#define ROW(index, title, key, type, number, pages, variant, value, min, max, step, callback, ...) \
    void* callback(int action, SparkInfoStruct* info, Param* p, int copy);
#include "records/standard_controls.inc"
#undef ROW

void* standard_callback(int action, SparkInfoStruct* info, Param* p, int copy);
// The same by key. which: the copy; of a key with variants the variant. Null where the plug-in has no such control.
void* named_standard_callback(const char* key, int action, SparkInfoStruct* info, int which);

}  // namespace velloran
