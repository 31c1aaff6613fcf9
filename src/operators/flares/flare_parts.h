// The elements of a flare as they are drawn: prepared once for a drawing, then asked for a row at a time by the tasks.
#pragma once

#include "operators/flares/draw_flare.h"
#include "operators/flares/flare_rows.h"

namespace velloran {

// What all elements of a drawing are made of.
struct FlareScene {
    const FlareCanvas* canvas;
    const FlareSettings* settings;
    float gamma;       // exponent of the file's colours
    double size[2];    // in samples
    float line_angle;  // from pivot to hotspot, radians
};

// A centre, and the rows of the canvas that the element may touch.
struct PartPlace {
    double x, y;  // in samples of the canvas's whole picture
    int first_row, last_row;
};

struct SpotPart {
    PartPlace place;
    bool is_hexagon, is_disc;
    float stretch;   // of the rows' distance from the centre
    float color[3];  // of a disc
    double radius;
    int n_bands;
    FlareBand bands[SPOT_MAX_COLORS + 1];
};

struct RayPart {
    double dx, dy;    // from the centre to the tip, in samples
    double reach;     // half width along the minor axis
    double from, to;  // part of the way that this piece covers
    float color[3], rise[3];
    int first_row, last_row;
};
struct RaysPart {
    PartPlace place;
    int n_rays;
    RayPart* rays;
};

struct PolarPart {
    PartPlace place;
    PolarRow row;        // all but v
    double y_step;       // up of a row, in sizes
    double least, most;  // radii, in sizes
    bool narrow;         // the arc is a wedge of less than half a turn, between these two directions
    double start_x, start_y, end_x, end_y;
};

// False: there is nothing to draw. Host's thread; memory is of the frame.
bool prepare_spot(const FlareScene& scene, const LensFlareSpot& spot, SpotPart* part);
bool prepare_rays(const FlareScene& scene, const LensFlareRays& rays, RaysPart* part);
bool prepare_polar(const FlareScene& scene, LensFlarePolar* polar, PolarPart* part);

// Adds row y of the canvas. Any task.
void draw_spot_row(const FlareCanvas& canvas, const FlareRows& rows, const SpotPart& part, int y);
void draw_ray_row(const FlareCanvas& canvas, const FlareRows& rows, const PartPlace& place, const RayPart& ray, int y);
void draw_polar_row(const FlareCanvas& canvas, const FlareRows& rows, const PolarPart& part, int y);

// For the preparers: the centre, the rows around it, and an element's colour before the file's own.
PartPlace place_part(const FlareScene& scene, const FlareElement& element, double up, double down);
void rays_tint(const FlareScene& scene, const FlareElement& element, float* tint);
void spot_tint(const FlareScene& scene, const FlareElement& element, float* tint);

// The samples from .. to of row y, from the element's centre on, as far as they lie in the canvas. False: none.
bool span_of_row(const FlareCanvas& canvas, const PartPlace& place, int y, double from, double to, FlareSpan* span);

}  // namespace velloran
