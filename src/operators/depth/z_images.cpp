#include "operators/depth/z_images.h"

#include "operators/blur/blur_image.h"
#include "operators/depth/z_rows.h"
#include "support/errors.h"
#include "support/memory.h"
#include "support/user_abort.h"
#include "tasks/fork_rows.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr int depths = fix_scale + 1;

// The first and the last row in which each depth lies, for each task and then for all.
struct RowsOfDepths {
    int32_t first[depths], last[depths];
};

RowsOfDepths* find_rows(const FixPixel* depth, const FilterFrame& frame) {
    const int n = get_n_procs();
    auto* const tables = frame_array<RowsOfDepths>(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        std::fill_n(tables[i].first, depths, frame.height);
        std::fill_n(tables[i].last, depths, -1);
    }
    fork_rows(frame.height, [&](int first, int count) {
        RowsOfDepths& own = tables[get_processor_index()];
        for (int y = first; y < first + count; ++y) {
            const FixPixel* const row = depth + static_cast<ptrdiff_t>(y) * frame.width;
            for (int x = 0; x < frame.width; ++x) {
                const int z = std::clamp<int>(row[x], 0, fix_scale);
                own.first[z] = std::min(own.first[z], y);
                own.last[z] = y;
            }
        }
    });
    for (int i = 1; i < n; ++i)
        for (int z = 0; z < depths; ++z) {
            tables[0].first[z] = std::min(tables[0].first[z], tables[i].first[z]);
            tables[0].last[z] = std::max(tables[0].last[z], tables[i].last[z]);
        }
    return tables;
}

// Everything that a run over the layers needs.
struct ZRun {
    const ZPlanes& planes;
    int n;
    const z_params& params;
    const z_operator& op;
    const FilterFrame& frame;
    z_layers layers;
    bool sharp_front;
};

// body(offset of a row, samples) for all rows of the band, or in larger pieces, forked.
template <class Body>
void for_rows(const FilterFrame& frame, const ZBand& band, const Body& body) {
    fork_rows(band.count, [&](int first, int count) {
        body(static_cast<ptrdiff_t>(band.first + first) * frame.width, count * frame.width);
    });
}

// The rows where the layer's depths lie, and `reach` more; none: count 0.
ZBand band_of(const ZRun& run, const RowsOfDepths& rows, const z_mask& mask, int reach) {
    int first = run.frame.height, last = -1;
    for (int z = mask.first; z <= mask.last; ++z) {
        first = std::min(first, rows.first[z]);
        last = std::max(last, rows.last[z]);
    }
    if (last < 0) return {};
    if (!run.op.any_rows && reach > 0) reach = run.frame.height;
    first = std::max(first - reach, 0);
    last = std::min(last + reach, run.frame.height - 1);
    if (run.frame.fields) {  // a band begins and ends as the frame does
        first &= ~1;
        last = std::min(last | 1, run.frame.height - 1);
    }
    ZBand band = {first, last - first + 1, run.frame};
    band.frame.whole_width = run.frame.widest();
    band.frame.whole_height = run.frame.highest();
    band.frame.height = band.count;
    return band;
}

FixPixel* rows_of(FixPixel* plane, const FilterFrame& frame, const ZBand& band) {
    return plane + static_cast<ptrdiff_t>(band.first) * frame.width;
}

void make_matte(const ZRun& run, const z_mask& mask, const ZBand& band) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    for_rows(run.frame, band, [&](ptrdiff_t at, int n) { rows.mask(p.depth + at, p.matte + at, mask, n); });
}

void cut_slice(const ZRun& run, int channel, const ZBand& band) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    for_rows(run.frame, band,
             [&](ptrdiff_t at, int n) { rows.multiply(p.sources[channel] + at, p.matte + at, p.slice + at, n); });
}

// A sharp slice goes over what is there as it is.
void lay_sharp(const ZRun& run, const ZBand& band) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    for_rows(run.frame, band, [&](ptrdiff_t at, int n) {
        for (int c = 0; c < run.n; ++c)
            rows.over_sharp(p.results[c] + at, p.sources[c] + at, p.matte + at, p.covered + at, n);
        rows.cover(p.covered + at, p.matte + at, n);
    });
}

void lay_spread(const ZRun& run, int index, const ZBand& band) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    const z_layer& layer = run.layers.layers[index];
    const auto spread = [&](FixPixel* plane, int channel) {
        run.op.layer_fun(rows_of(plane, run.frame, band), layer, index, channel, band, run.op.settings);
    };
    for_rows(run.frame, band, [&](ptrdiff_t at, int n) { std::copy_n(p.matte + at, n, p.spread + at); });
    spread(p.spread, -1);
    for (int c = 0; c < run.n && !poll_abort(); ++c) {
        cut_slice(run, c, band);
        spread(p.slice, c);
        for_rows(run.frame, band, [&](ptrdiff_t at, int n) {
            rows.over(p.results[c] + at, p.slice + at, p.spread + at, p.covered + at, n);
        });
    }
    if (poll_abort()) return;
    for_rows(run.frame, band, [&](ptrdiff_t at, int n) { rows.cover(p.covered + at, p.spread + at, n); });
}

void add_spread(const ZRun& run, int index, const ZBand& band) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    for (int c = 0; c < run.n && !poll_abort(); ++c) {
        cut_slice(run, c, band);
        run.op.layer_fun(rows_of(p.slice, run.frame, band), run.layers.layers[index], index, c, band, run.op.settings);
        if (run.sharp_front && run.layers.layers[index].z_centre > run.layers.hi) {
            // It does not shine over what stands in front.
            const z_mask behind = {4096.0f, -4096.0f * (run.layers.hi * 4096.0f - 1.0f), 0.0f, 0.0f, 0, fix_scale};
            for_rows(run.frame, band, [&](ptrdiff_t at, int n) {
                rows.mask(p.depth + at, p.spread + at, behind, n);
                rows.multiply(p.slice + at, p.spread + at, p.slice + at, n);
            });
        }
        for_rows(run.frame, band, [&](ptrdiff_t at, int n) { rows.add(p.results[c] + at, p.slice + at, 1.0f, n); });
    }
}

// The largest amount of a layer in front of the focus; 0: none is spread.
float largest_near_amount(const ZRun& run) {
    float largest = 0.0f;
    for (int i = 0; i < run.layers.n; ++i) {
        const z_layer& layer = run.layers.layers[i];
        if (layer.z_centre < run.layers.lo && layer.has_matte) largest = std::max(largest, layer.amount);
    }
    return run.sharp_front ? 0.0f : largest;
}

// What lies behind the near layers is all there is where any of it is seen, and softly continued to where none is.
void make_ground(const ZRun& run, float amount) {
    const ZPlanes& p = run.planes;
    const ZRows& rows = z_rows();
    const int reach = std::max(run.op.reach_fun(amount, run.op.settings), 1);
    const int32_t radius = std::min(reach, INT32_MAX / 2 >> fix_bits) << fix_bits;
    const BlurSettings blur = {.x_radius = radius, .y_radius = radius};
    const size_t bytes = run.frame.bytes();
    const ZBand all = {0, run.frame.height, run.frame};
    for_rows(run.frame, all, [&](ptrdiff_t at, int n) {
        FixPixel* sums[4];
        const FixPixel* pictures[4];
        for (int c = 0; c < run.n; ++c) {
            sums[c] = p.results[c] + at;
            pictures[c] = p.sources[c] + at;
        }
        rows.settle(sums, pictures, run.n, p.covered + at, n);
    });
    mp_memcpy(p.ground_weight, p.covered, bytes);
    blur_image(p.ground_weight, p.ground_weight, blur, run.frame);
    for (int c = 0; c < run.n && !poll_abort(); ++c) {
        mp_memcpy(p.grounds[c], p.results[c], bytes);
        blur_image(p.grounds[c], p.grounds[c], blur, run.frame);
    }
}

void process_layers(const ZRun& run, const RowsOfDepths& rows) {
    const float near_amount = run.op.adds ? 0.0f : largest_near_amount(run);
    bool ground = false;
    for (int i = 0; i < run.layers.n && !poll_abort(); ++i) {
        const z_layer& layer = run.layers.layers[i];
        const bool near = layer.z_centre < run.layers.lo;
        if (near && run.sharp_front && !run.op.adds) break;  // it belongs to what is in focus
        if (near && near_amount > 0.0f && !ground) {
            make_ground(run, near_amount);
            ground = true;
        }
        const bool sharp = run.op.skip_layer_fun(layer, run.op.settings);
        if (layer.skip || (run.op.adds && sharp)) continue;
        const z_mask mask = mask_of_z_layer(run.layers, i, run.sharp_front && !run.op.adds);
        const int reach = sharp ? 0 : run.op.reach_fun(layer.amount, run.op.settings);
        const ZBand band = band_of(run, rows, mask, reach);
        if (band.count == 0) continue;
        make_matte(run, mask, band);
        if (run.op.adds)
            add_spread(run, i, band);
        else if (sharp)
            lay_sharp(run, band);
        else
            lay_spread(run, i, band);
    }
    if (run.op.adds || poll_abort()) return;
    const ZPlanes& p = run.planes;
    const ZRows& functions = z_rows();
    for_rows(run.frame, {0, run.frame.height, run.frame}, [&](ptrdiff_t at, int n) {
        for (int c = 0; c < run.n; ++c)
            functions.resolve(p.results[c] + at, p.covered + at, p.sources[c] + at,
                              ground ? p.grounds[c] + at : nullptr, ground ? p.ground_weight + at : nullptr, n);
    });
}

}  // namespace

bool default_skip_layer(const z_layer& layer, const void*) { return layer.amount == 0.0f; }

ZPlanes z_planes(FixPixel* const* images, int n, bool adds) {
    ZPlanes p = {};
    FixPixel* const* next = images;
    for (int c = 0; c < n; ++c) p.results[c] = *next++;
    for (int c = 0; c < n; ++c) p.sources[c] = *next++;
    for (int c = 0; c < n && !adds; ++c) p.grounds[c] = *next++;
    p.depth = *next++;
    p.matte = *next++;
    p.spread = *next++;
    p.slice = *next++;
    if (adds) return p;
    p.covered = *next++;
    p.ground_weight = *next++;
    return p;
}

void z_process_images(const ZPlanes& planes, int n, const z_params& params, const z_operator& op,
                      const FilterFrame& frame) {
    if (params.mode != z_by_mattes && params.mode != z_sharp_front)
        V_error(level_warning, "bad mode %d\n", params.mode);
    const bool front = params.mode == z_sharp_front;
    const ZRun run = {
        planes,
        n,
        params,
        op,
        frame,
        make_z_layers(params.n_layers, front, params.focal, params.depth_of_field, params.blur_near, params.blur_far),
        front};
    const size_t bytes = frame.bytes();
    for (int c = 0; c < n; ++c) {
        if (op.adds)
            mp_memcpy(planes.results[c], planes.sources[c], bytes);
        else
            mp_memset(planes.results[c], 0, bytes);
    }
    if (!op.adds) mp_memset(planes.covered, 0, bytes);
    RowsOfDepths* const rows = find_rows(planes.depth, frame);
    process_layers(run, rows[0]);
    frame_free(rows);
}

}  // namespace velloran
