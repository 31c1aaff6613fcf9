// Lightning: how bolts join, and what is drawn of them.
#include "operators/lightning/bolt_tree.h"
#include "operators/lightning/bolts.h"
#include "operators/lightning/lightning_functions.h"

#include "testing/filter_node.h"

#include <gtest/gtest.h>

#include <numeric>

using namespace velloran;
using velloran_tests::FilterFrameRig;
using velloran_tests::Plane;
using velloran_tests::plane_of;

namespace {

constexpr int width = 200, height = 120;

using Args = std::vector<FilterFrameRig::Arg>;

// A straight line without branches, but for what a test changes.
struct Zap {
    double width = 4, width_vary = 0, pointiness = 0, start = 0, length = 1, wrinkle = 0, curve = 0, branchiness = 0,
           angle = 0.1, branch_length = 0.5, seed = 3, phase = 0;
    Args look() const {
        return {{width, width_vary},    pointiness,   {start, length}, {wrinkle, curve}, branchiness,
                {angle, branch_length}, {seed, phase}};
    }
};

Plane zap(FilterFrameRig& rig, const Zap& z, double bolts = 1, double vary_end = 0) {
    Args args = {{20, 30}, {180, 90}, vary_end, bolts};
    for (const auto& arg : z.look()) args.push_back(arg);
    return rig.run(image_zap, 1, 0, args)[0];
}

double sum_of(const Plane& plane) { return std::accumulate(plane.begin(), plane.end(), 0.0); }
double difference(const Plane& a, const Plane& b) {
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i) sum += std::abs(a[i] - b[i]);
    return sum;
}

}  // namespace

TEST(BoltTree, TwoJoinOnTheWayToTheTarget) {
    BoltNodeTree nodes[4] = {};
    nodes[0].x = -0.1f;
    nodes[1].x = 0.1f;
    nodes[0].ratio = nodes[1].ratio = 1;
    ASSERT_EQ(build_bolt_tree(nodes, 2, {0, 1}), 3);
    EXPECT_FLOAT_EQ(nodes[2].x, 0);
    EXPECT_FLOAT_EQ(nodes[2].y, 0.2f);  // as far on as they are apart
    EXPECT_EQ(nodes[2].ratio, 2);
    EXPECT_EQ(nodes[0].sibling, &nodes[1]);
    ASSERT_EQ(build_bolt_tree(nodes, 2, {0, 0.05f}), 3);
    EXPECT_FLOAT_EQ(nodes[2].y, 0.05f);  // no farther than the target
    EXPECT_EQ(build_bolt_tree(nodes, 1, {0, 1}), 1);
}

TEST(BoltTree, EveryTipHangsOnOneRoot) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> place(-1, 1);
    for (const int n : {3, 7, 40, 200}) {
        std::vector<BoltNodeTree> nodes(2 * static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            nodes[i].x = place(rng);
            nodes[i].y = place(rng) * 0.1f;
            nodes[i].ratio = 1;
        }
        const int used = build_bolt_tree(nodes.data(), n, {0, 3});
        ASSERT_LE(used, 2 * n);
        float tips = 0;
        for (int i = 0; i < used; ++i) {
            BoltNodeTree& node = nodes[i];
            if (node.child0) {
                EXPECT_EQ(node.ratio, node.child0->ratio + node.child1->ratio);
                EXPECT_EQ(node.child0->parent, &node);
                EXPECT_EQ(node.child1->parent, &node);
            }
            if (node.parent || node.ratio == 0) continue;
            tips += node.ratio;
            set_bolt_node_tree_positions(&node, {0, 3});
            set_bolt_node_tree_start_ratios(&node);
            EXPECT_EQ(node.start_ratio, 1);
        }
        EXPECT_EQ(tips, static_cast<float>(n));
        // They do join, and no joint lies beyond the target.
        EXPECT_GT(used, n + n / 3);
        for (int i = n; i < used; ++i) EXPECT_LE(nodes[i].y, 3.0f);
    }
}

TEST(Zap, IsALineOfItsWidth) {
    FilterFrameRig rig(width, height);
    for (const double bolt_width : {4.0, 0.5}) {
        Zap z;
        z.width = bolt_width;
        z.pointiness = 0.5;
        const Plane out = zap(rig, z);
        // Places count from the corner, samples from their middle; a width of 1 is a hundredth of half the frame.
        const double ax = 19.5, ay = 29.5, dx = 160, dy = 60, wide = bolt_width / 2;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double t = std::clamp(((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
                const double reach = wide * (1 - 0.5 * t), d = std::hypot(x - ax - dx * t, y - ay - dy * t);
                const double cover = std::clamp(std::max(reach, 0.5) + 0.5 - d, 0.0, 1.0) * std::min(2 * reach, 1.0);
                ASSERT_NEAR(out[y * width + x], cover * 4096, 25) << x << ' ' << y;
            }
    }
    EXPECT_EQ(sum_of(zap(rig, Zap(), 0)), 0);
}

TEST(Zap, ShowsThePartAskedFor) {
    FilterFrameRig rig(width, height);
    Zap z;
    const double whole = sum_of(zap(rig, z));
    z.length = 0.5;
    const Plane half = zap(rig, z);
    EXPECT_NEAR(sum_of(half) / whole, 0.5, 0.03);
    EXPECT_EQ(half[89 * width + 179], 0);
    z.start = 0.5;
    EXPECT_GT(zap(rig, z)[89 * width + 179], 0);
    z.start = 1.5;
    EXPECT_EQ(sum_of(zap(rig, z)), 0);
}

// It writhes and does not jump: the picture changes as much as the phase does.
TEST(Zap, MovesSmoothlyWithThePhase) {
    FilterFrameRig rig(width, height);
    Zap z;
    z.wrinkle = 0.8;
    z.curve = 0.3;
    z.branchiness = 0.6;
    double nearest = 1e30;
    for (double phase = 0; phase < 3; phase += 0.25) {
        z.phase = phase;
        const Plane here = zap(rig, z, 2, 0.1);
        z.phase = phase + 0.004;
        const double step = difference(here, zap(rig, z, 2, 0.1));
        z.phase = phase + 1.5;
        const double far = difference(here, zap(rig, z, 2, 0.1));
        EXPECT_LT(step, 0.25 * far) << phase;
        EXPECT_GT(step, 0) << phase;
        nearest = std::min(nearest, far);
    }
    z.phase = 0;
    const Plane one = zap(rig, z, 2, 0.1);
    z.seed = 4;
    EXPECT_GT(difference(one, zap(rig, z, 2, 0.1)), 0.5 * nearest);
}

TEST(Zap, BranchesAddLight) {
    FilterFrameRig rig(width, height);
    Zap z;
    z.wrinkle = 0.5;
    double last = sum_of(zap(rig, z));
    for (const double branchiness : {0.1, 0.3, 1.0}) {
        z.branchiness = branchiness;
        const double light = sum_of(zap(rig, z));
        EXPECT_GT(light, last * 1.02);
        last = light;
    }
    z.branch_length = 0;
    EXPECT_LT(sum_of(zap(rig, z)), last);
}

namespace {

// A disc as the object.
Plane disc(double x, double y, double radius) {
    return plane_of(width, height, [=](int i, int j) { return std::hypot(i - x, j - y) < radius ? 4096 : 0; });
}

}  // namespace

TEST(ZapTo, ReachesTheObjectFromItsCentre) {
    FilterFrameRig rig(width, height);
    Zap z;
    z.width = 2;
    Args args = {std::vector<Plane>{disc(150, 60, 20)}, {30, 60}, 0.0, {1, 8}};
    Args look = z.look();
    look[3] = 0.3;  // the wrinkles alone
    args.insert(args.end(), look.begin(), look.end());
    args.push_back({0.5, 0});
    const Plane out = rig.run(image_zap_to, 1, 0, args)[0];
    double at_edge = 0, at_centre = 0, beyond = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double d = std::hypot(x - 150, y - 60);
            if (d > 17 && d < 22) at_edge += out[y * width + x];
            if (std::hypot(x - 29.5, y - 59.5) < 2) at_centre += out[y * width + x];
            if (x < 20) beyond += out[y * width + x];
        }
    EXPECT_GT(at_edge, 8 * 2000);
    EXPECT_GT(at_centre, 4096);
    EXPECT_EQ(beyond, 0);
    args.back() = {0.5, 0.5};  // the object itself, half as bright
    EXPECT_GE(rig.run(image_zap_to, 1, 0, args)[0][60 * width + 150], 2048);
    args[0] = std::vector<Plane>{Plane(width * height)};
    EXPECT_EQ(sum_of(rig.run(image_zap_to, 1, 0, args)[0]), 0);  // nothing to go to
}

TEST(ZapFrom, LeavesTheEdge) {
    FilterFrameRig rig(width, height);
    Zap z;
    z.width = 2;
    z.wrinkle = 0.2;
    const std::vector<Plane> object = {disc(100, 60, 25)};
    Args args = {object, {0.3, 0.2}, 0.0, 12.0};
    const Args look = z.look();
    args.insert(args.end(), look.begin(), look.end());
    args.push_back({0.5, 0});
    const Plane out = rig.run(image_zap_from, 1, 0, args)[0];
    double inside = 0, around = 0, far = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double d = std::hypot(x - 100, y - 60);
            (d < 18 ? inside : d < 70 ? around : far) += out[y * width + x];
        }
    EXPECT_GT(around, 12 * 10 * 4096 * 0.7);
    EXPECT_LT(inside, 0.1 * around);
    EXPECT_EQ(far, 0);

    // Where the mask is black there is nothing.
    args.insert(args.begin() + 1, FilterFrameRig::Arg(std::vector<Plane>{
                                      plane_of(width, height, [](int x, int) { return x < 100 ? 4096 : 0; })}));
    args[2] = {0.3, 0.2, 0.0};
    args.erase(args.begin() + 3);
    const Plane masked = rig.run(image_zap_from_mask, 1, 1, args)[0];
    double left = 0, right = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) (x < 100 ? left : right) += masked[y * width + x];
    EXPECT_GT(left, 12 * 5 * 4096 * 0.7);
    EXPECT_EQ(right, 0);
}
