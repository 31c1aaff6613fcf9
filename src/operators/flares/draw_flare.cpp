#include "operators/flares/draw_flare.h"

#include "frame/filter_radius.h"
#include "operators/flares/flare_parts.h"
#include "records/frame.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>
#include <cmath>

namespace velloran {

namespace {

// All that is to be drawn, in the order of drawing.
struct FlareJob {
    const FlareCanvas* canvas;
    bool clamp;
    int n_spots, n_bursts, n_polars;
    SpotPart* spots;
    RaysPart* bursts;
    PolarPart* polars;
    int first_row, last_row;
};

void note_rows(const PartPlace& place, FlareJob* job) {
    job->first_row = std::min(job->first_row, place.first_row);
    job->last_row = std::max(job->last_row, place.last_row);
}

void prepare(const LensFlare& flare, const FlareScene& scene, FlareJob* job) {
    job->spots = frame_array<SpotPart>(LENS_FLARE_MAX_SPOTS);
    job->bursts = frame_array<RaysPart>(LENS_FLARE_MAX_RAYS);
    job->polars = frame_array<PolarPart>(LENS_FLARE_MAX_POLARS);
    job->first_row = scene.canvas->height;
    job->last_row = -1;
    for (int i = 0; i < flare.spot_count; ++i) {
        SpotPart& part = job->spots[job->n_spots];
        if (!prepare_spot(scene, *flare.spots[i], &part)) continue;
        note_rows(part.place, job);
        ++job->n_spots;
    }
    for (int i = 0; i < flare.ray_count; ++i) {
        RaysPart& part = job->bursts[job->n_bursts];
        part.rays = nullptr;
        if (!prepare_rays(scene, *flare.rays[i], &part)) {
            frame_free(part.rays);
            continue;
        }
        note_rows(part.place, job);
        ++job->n_bursts;
    }
    for (int i = 0; i < flare.polar_count; ++i) {
        PolarPart& part = job->polars[job->n_polars];
        if (!prepare_polar(scene, flare.polars[i], &part)) continue;
        note_rows(part.place, job);
        ++job->n_polars;
    }
}

void free_job(FlareJob* job) {
    for (int i = 0; i < job->n_bursts; ++i) frame_free(job->bursts[i].rays);
    frame_free(job->spots);
    frame_free(job->bursts);
    frame_free(job->polars);
}

// body(y) for the rows of first .. last that lie in a part's own.
template <class Body>
void each_row(int first, int last, int part_first, int part_last, const Body& body) {
    for (int y = std::max(first, part_first); y <= std::min(last, part_last); ++y) body(y);
}

// Rows first to last, which stay in the caches while one element after the other is added. False: the user aborted.
bool draw_block(const FlareJob& job, const FlareRows& rows, int first, int last) {
    const FlareCanvas& canvas = *job.canvas;
    for (int i = 0; i < job.n_spots; ++i) {
        if (poll_abort()) return false;
        const SpotPart& part = job.spots[i];
        each_row(first, last, part.place.first_row, part.place.last_row,
                 [&](int y) { draw_spot_row(canvas, rows, part, y); });
    }
    for (int i = 0; i < job.n_bursts; ++i) {
        if (poll_abort()) return false;
        const RaysPart& part = job.bursts[i];
        if (part.place.last_row < first || part.place.first_row > last) continue;
        for (int r = 0; r < part.n_rays; ++r) {
            if ((r & 1023) == 1023 && poll_abort()) return false;
            each_row(first, last, part.rays[r].first_row, part.rays[r].last_row,
                     [&](int y) { draw_ray_row(canvas, rows, part.place, part.rays[r], y); });
        }
    }
    for (int i = 0; i < job.n_polars; ++i) {
        if (poll_abort()) return false;
        const PolarPart& part = job.polars[i];
        each_row(first, last, part.place.first_row, part.place.last_row,
                 [&](int y) { draw_polar_row(canvas, rows, part, y); });
    }
    if (job.clamp)
        for (FixPixel* const plane : canvas.planes)
            rows.hold(plane + ptrdiff_t{first} * canvas.width, fix_scale, (last - first + 1) * canvas.width);
    return true;
}

void draw_job(const FlareJob& job) {
    constexpr int block_bytes = 1 << 18;
    const FlareCanvas& canvas = *job.canvas;
    const int n_rows = job.last_row - job.first_row + 1;
    const int block = std::max(block_bytes / (3 * static_cast<int>(sizeof(FixPixel)) * canvas.width), 1);
    const FlareRows& rows = flare_rows();
    fork_rows_if_big_image(canvas.width, n_rows, [&](int first, int n) {
        for (int done = 0; done < n; done += block) {
            const int row = job.first_row + first + done;
            if (!draw_block(job, rows, row, row + std::min(block, n - done) - 1)) return;
        }
    });
}

bool usable(double v) { return std::isfinite(v) && std::abs(v) < 1e8; }

bool all_dark(const FlareSettings& s) {
    for (int c = 0; c < 3; ++c)
        if (s.hotspot_color[c] > 0 || s.rays_color[c] > 0 || s.other_color[c] > 0) return false;
    return true;
}

}  // namespace

FlareCanvas frame_canvas(FixPixel* const* planes) {
    const rinfo& raster = the_frame->temp_raster_info;
    const int step = std::max(raster.render_step, 1);
    return {{planes[0], planes[1], planes[2]},
            raster.width,
            raster.height,
            raster.x / step,
            raster.y / step,
            static_cast<float>(filter_frame_width()),
            the_frame->pixel_aspect_ratio > 0 ? the_frame->pixel_aspect_ratio : 1.0f};
}

double sample_of_pixel(double pixel) { return pixel / std::max(the_frame->temp_raster_info.render_step, 1) - 0.5; }

void tint_flare(FlareSettings* settings, const float* tint) {
    for (int c = 0; c < 3; ++c) {
        settings->hotspot_color[c] *= tint[c];
        settings->rays_color[c] *= tint[c];
        settings->other_color[c] *= tint[c];
    }
}

void draw_lens_flare_noclear(const FlareCanvas& canvas, const LensFlare& flare, const FlareSettings& settings) {
    const double unit = static_cast<double>(canvas.whole_width) / 2;
    FlareScene scene = {&canvas, &settings, 1.0f / std::max(settings.gamma, 0.0001f), {}, 0};
    for (int k = 0; k < 2; ++k) scene.size[k] = static_cast<double>(settings.size[k]) * unit;
    if (all_dark(settings) || !(scene.size[0] > 0) || !(scene.size[1] > 0)) return;
    if (!usable(settings.hotspot[0]) || !usable(settings.hotspot[1]) || !usable(settings.pivot[0]) ||
        !usable(settings.pivot[1]))
        return;
    scene.line_angle =
        static_cast<float>(std::atan2((settings.hotspot[1] - settings.pivot[1]) * static_cast<double>(canvas.aspect),
                                      settings.hotspot[0] - settings.pivot[0]));
    FlareJob job = {};
    job.canvas = &canvas;
    job.clamp = settings.clamp;
    prepare(flare, scene, &job);
    if (job.last_row >= job.first_row) draw_job(job);
    free_job(&job);
}

double flare_reach(const LensFlare& flare, const FlareSettings& settings, float whole_width) {
    double reach = 0;
    const auto take = [&](float radius, double scale) {
        reach = std::max(reach, std::abs(static_cast<double>(radius)) * scale);
    };
    const double length = static_cast<double>(settings.scale_rays_length);
    for (int i = 0; i < flare.spot_count; ++i)
        for (int k = 0; k < flare.spots[i]->number; ++k) take(flare.spots[i]->radii[k], 1);
    for (int i = 0; i < flare.ray_count; ++i)
        for (const float radius : flare.rays[i]->radius_range) take(radius, length);
    for (int i = 0; i < flare.polar_count; ++i) {
        const LensFlarePolar& p = *flare.polars[i];
        const double factor = std::max(static_cast<double>(std::max(p.r_wave_max, p.r_wave_min)) - 1 +
                                           static_cast<double>(std::max(p.r_noise_max, p.r_noise_min)),
                                       0.0) *
                              (1 + std::abs(static_cast<double>(p.shift_edge)));
        const double scale = static_cast<double>(p.rays_p ? settings.scale_rays_length : settings.scale_other_width);
        for (int k = 0; k < p.number; ++k) take(p.radii[k], factor * scale);
    }
    return reach * static_cast<double>(settings.size[0] * whole_width) / 2;
}

}  // namespace velloran
