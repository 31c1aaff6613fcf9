// Thresholds, highlights and powers of whole planes, sample by sample.
#include "operators/tone/gamma_table.h"
#include "operators/tone/highlights.h"
#include "operators/tone/thresholds.h"
#include "operators/tone/tone_rows.h"
#include "testing/filter_node.h"
#include "testing/row_targets.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::random_plane;

TEST(Thresholds, OfThreePlanesAreWholeNumbers) {
    const FilterFrameRig rig(64, 64, 3);
    const int n = 64 * 64;
    const struct {
        const char* what;
        int32_t thresholds[3];
        int32_t gain;
        int low, high;
    } rows[] = {{"usual", {1000, 900, 0}, 4096, -500, 4500},
                {"gain", {1000, 1000, 1000}, 100000, -500, 4500},
                {"negative", {100, 100, 100}, -4096, -500, 4500},
                {"wide range", {5000, -3000, 12}, 65536, -32767, 32767},
                {"the largest of the fast way", {0, 0, 0x7fffffff}, 262152, -32767, 32767},
                {"beyond", {1, 1, 1}, 0x7fffffff, -32767, 32767},
                {"far below", {INT32_MIN, -2000000, 5}, 7, -32767, 32767},
                {"far below and steep", {INT32_MIN, INT32_MIN, INT32_MIN}, INT32_MIN, -32767, 32767}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Plane in[3] = {random_plane(64, 64, row.low, row.high, 1), random_plane(64, 64, row.low, row.high, 2),
                             random_plane(64, 64, row.low, row.high, 3)};
        Plane out[3] = {in[0], in[1], in[2]};
        FixPixel* planes[] = {out[0].data(), out[1].data(), out[2].data()};
        threshold_images_3(planes, row.thresholds, row.gain, n);
        for (int i = 0; i < n; ++i) {
            long double e = 0, s = 0;
            for (int c = 0; c < 3; ++c) {
                const int64_t t = std::max(row.thresholds[c], -(1 << 30));
                e += static_cast<long double>(std::max<int64_t>(in[c][i] - t, 0));
                s += std::max<int>(in[c][i], 0);
            }
            const long double k = s > 0 ? std::trunc(e * row.gain / s) : 0;
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(out[c][i], std::clamp(std::floor(in[c][i] * k / 4096), -32767.0L, 32767.0L)) << i;
        }
    }
}

TEST(ToneRows, EveryTargetMatchesPlain) {
    const int n = 77;
    const Plane in = random_plane(3 * (n + 3), 1, -32767, 32767);
    const auto results = [&] {
        const ToneRows& rows = tone_rows();
        std::vector<Plane> out;
        for (const int length : {1, 2, 15, 16, 33, n})
            for (const int shift : {0, 1, 3}) {
                Plane p = in;
                rows.boost(&p[shift], {1 / 12345.0f, 0.3f, 0.7f, 9000, 2.5f, 32766}, length);
                out.push_back(p);
                p = in;
                rows.threshold(&p[shift], -900, 7777, length);
                rows.threshold(&p[n + shift], 900, 0x7fffffff, length);
                out.push_back(p);
                p = in;
                FixPixel* const planes[] = {&p[shift], &p[n + 3 + shift], &p[2 * (n + 3) + shift]};
                const int32_t thresholds[] = {-1200, 3, 20000};
                rows.threshold_3(planes, thresholds, 70000, length);
                out.push_back(p);
            }
        return out;
    };
    const std::vector<Plane> want = velloran_tests::on_plain_target(results);
    velloran_tests::for_each_row_target([&](int64_t) { EXPECT_EQ(results(), want); });
}

TEST(GammaTable, RaisesEverySample) {
    const FilterFrameRig rig(64, 64, 3);
    Plane all;
    for (int v = -32767; v <= 32767; ++v) all.push_back(static_cast<FixPixel>(v));
    const int n = static_cast<int>(all.size());
    const struct {
        float gamma, top, in_scale, gain;
    } rows[] = {{1 / 2.2f, 8, 1, 1},  {1 / 2.2f, 8, 1, 0.5f}, {2.2f, 1, 0.125f, 1},
                {2.2f, 1, 0.125f, 3}, {2.2f, 1, 1, 3},        {1, 1, 1, -2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.gamma << " " << row.top << " " << row.in_scale << " " << row.gain);
        Plane out = all;
        set_gamma_table(row.gamma, row.top);
        apply_gamma_table(out.data(), row.in_scale, row.gain, n);
        for (int i = 0; i < n; ++i) {
            // Entries are whole samples (one may round the other way), 1/4096 apart; straight lines join them.
            const double at = std::clamp(all[i] * double{row.in_scale}, 0.0, 4096.0);
            const auto entry = [&](double k) {
                const double raised = std::pow(k / 4096, 1 / double{row.gamma});
                const double curve = row.gamma < 1 ? std::max(raised, k / 4096 / 16) : std::min(raised, k / 4096 * 16);
                return std::min(std::round(curve * row.top * 4096), 32767.0);
            };
            const double k = std::floor(at), next = std::min(k + 1, 4096.0);
            const double want = (entry(k) + (entry(next) - entry(k)) * (at - k)) * row.gain;
            ASSERT_NEAR(out[i], std::clamp(want, -32767.0, 32767.0), 0.51 + std::fabs(row.gain)) << all[i];
        }
    }
}
