#include "hosts/common/numbers.h"
#include "hosts/common/plugin.h"
#include "hosts/common/setup_text.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <limits>

using namespace spark_host;

namespace {

// A plug-in with one control of each kind and no module.
struct Panel {
    SparkFloatStruct radius = {2.5f, 0, 100, 0.1f, "Radius", nullptr};
    SparkColourStruct tint = {0, "Tint", nullptr};
    SparkPopupStruct mode = {1, 3, {"A", "B", "C"}, "Mode", nullptr};
    SparkStringStruct text = {"", "Text", nullptr};
    Plugin plugin;
    Host host;

    Panel() {
        const SparkControl list[] = {{6, SPARK_CONTROL_FLOAT, &radius},
                                     {7, SPARK_CONTROL_COLOUR, &tint},
                                     {8, SPARK_CONTROL_POPUP, &mode},
                                     {9, SPARK_CONTROL_STRING, &text}};
        set_controls(plugin.panel, list, 4);
        plugin.host = &host;
        host.plugin = &plugin;
    }
    Control& control(int number) { return *find_control(plugin.panel, number); }
};

}  // namespace

TEST(Curves, ValuesBetweenAndOutsideKeys) {
    Curve curve;
    EXPECT_EQ(curve_value(curve, 5, 42), 42);
    set_key(curve, 11, 100);
    set_key(curve, 1, 0);
    set_key(curve, 21, 100, Interpolation::constant);
    set_key(curve, 31, 50);
    const struct {
        float frame, value;
    } rows[] = {{-5, 0}, {1, 0}, {3.5f, 25}, {11, 100}, {16, 100}, {30.9f, 100}, {31, 50}, {99, 50}};
    for (const auto& row : rows) EXPECT_FLOAT_EQ(curve_value(curve, row.frame, -1), row.value) << row.frame;
    set_key(curve, 11, 60);
    EXPECT_EQ(curve.keys.size(), 4u) << "a key at the same frame moves";
    EXPECT_FLOAT_EQ(curve_value(curve, 6, -1), 30);
}

TEST(Curves, HermiteIsSmoothAndMeetsItsKeys) {
    Curve curve;
    for (const auto& [frame, value] : {std::pair(0, 0), {10, 10}, {20, 20}, {30, 0}})
        set_key(curve, static_cast<float>(frame), static_cast<float>(value), Interpolation::hermite);
    for (const Key& key : curve.keys) EXPECT_FLOAT_EQ(curve_value(curve, key.frame, -1), key.value);
    // Slopes: 0 at the ends, (20 - 0) / 20 = 1 at 10, (0 - 10) / 20 = -0.5 at 20. Midway a piece is the mean of its
    // ends plus an eighth of its length times the difference of the slopes.
    EXPECT_FLOAT_EQ(curve_value(curve, 5, -1), 5 + 10 * (0 - 1) / 8.0f);
    EXPECT_FLOAT_EQ(curve_value(curve, 15, -1), 15 + 10 * (1 + 0.5f) / 8.0f);
    EXPECT_FLOAT_EQ(curve_value(curve, 25, -1), 10 + 10 * (-0.5f - 0) / 8.0f);
}

TEST(Setups, GiveBackEverythingInAnyLocale) {
    std::setlocale(LC_ALL, "de_DE.UTF-8");
    Panel from;
    from.host.format = {1920, 1080, SPARK_DEPTH_12};
    set_key(from.control(6).curves[0], 1, 0.125f);
    set_key(from.control(6).curves[0], 24.5f, -3e-7f, Interpolation::hermite);
    set_control_value(from.control(7), 0, 255);
    set_control_value(from.control(7), 1, 7);
    set_key(from.control(7).curves[2], 3, 128);
    from.mode.Value = 2;
    const std::string awkward = "End \"of\" a\\b\nKey Value " + std::string(200, 'x');
    std::strcpy(from.text.Value, awkward.c_str());
    const std::string text = setup_text(from.host, from.plugin);
    EXPECT_EQ(text.rfind("frameWidth 1920\nframeHeight 1080\nSPARK_CHANNEL 6\n\tChannel float\n", 0), 0u) << text;

    Panel to;
    ASSERT_TRUE(read_setup_text(text, to.plugin));
    EXPECT_EQ(to.control(6).curves[0].keys.size(), 2u);
    EXPECT_EQ(to.control(6).curves[0].keys[1].frame, 24.5f);
    EXPECT_EQ(to.control(6).curves[0].keys[1].value, -3e-7f);
    EXPECT_EQ(to.control(6).curves[0].keys[1].interpolation, Interpolation::hermite);
    EXPECT_EQ(to.radius.Value, 2.5f);
    EXPECT_EQ(control_value(to.control(7), 0), 255);
    EXPECT_EQ(control_value(to.control(7), 1), 7);
    EXPECT_EQ(to.control(7).curves[2].keys.size(), 1u);
    EXPECT_EQ(to.mode.Value, 2);
    EXPECT_EQ(to.text.Value, awkward);
    EXPECT_EQ(setup_text(from.host, to.plugin), text);
    std::setlocale(LC_ALL, "C");
}

TEST(Setups, EditedTextsAreRead) {
    const struct {
        const char* name;
        const char* text;
        bool read;
        size_t keys;
        Interpolation second;
    } rows[] = {
        {"a line added behind a value wins",
         "frameWidth 8\nSPARK_CHANNEL 6\n\tChannel float\n\tKey\n\t\tFrame 1\n\t\tValue 0\n"
         "\t\tInterpolation linear\n\t\tInterpolation hermite\n\tEnd\nEnd\n",
         true, 1, Interpolation::linear},
        {"an interpolation of the whole channel",
         "SPARK_CHANNEL 6\n\tChannel float\n        Interpolation constant\n"
         "\tInterpolation linear\n\tKey\n\t\tFrame 1\n\t\tValue 0\n\tEnd\nEnd\n",
         true, 1, Interpolation::constant},
        {"unknown controls and words",
         "frameWidth 8\nSPARK_CHANNEL 70\n\tKey\n\t\tFrame 1\n\t\tValue 1\n\tEnd\nEnd\nWhatever\n"
         "SPARK_CHANNEL 6\n\tMood blue\n\tKey\n\t\tFrame 2\n\t\tValue 1\n\tEnd\nEnd\n",
         true, 1, Interpolation::linear},
        {"an unfinished key", "frameWidth 8\nSPARK_CHANNEL 6\n\tKey\n\t\tFrame 2\n", true, 0, Interpolation::linear},
        {"no setup at all", "hello\n", false, 0, Interpolation::linear},
        {"nothing", "", false, 0, Interpolation::linear},
        {"numbers that are none", "SPARK_CHANNEL x\nSPARK_CHANNEL -4\nSPARK_CHANNEL 6 9\nKey\nEnd\nframeWidth\n", true,
         0, Interpolation::linear},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Panel panel;
        EXPECT_EQ(read_setup_text(row.text, panel.plugin), row.read);
        const auto& keys = panel.control(6).curves[0].keys;
        ASSERT_EQ(keys.size(), row.keys);
        if (row.keys) {
            EXPECT_EQ(keys[0].interpolation, row.second);
        }
    }
}

TEST(Setups, OldHostsHaveOneInterpolationAChannel) {
    Panel panel;
    panel.host.api_version = 2.4f;
    set_key(panel.control(6).curves[0], 1, 0);
    const std::string text = setup_text(panel.host, panel.plugin);
    EXPECT_NE(text.find("\tInterpolation linear\n\tKey\n\t\tFrame 1\n\t\tValue 0\n\tEnd\n"), std::string::npos) << text;
}

TEST(HostFunctionsForCurves, CountFramesFromOneAndKnowTheirPanel) {
    Panel panel;
    use_host(&panel.host);
    EXPECT_EQ(sparkGetCurveValue(1, 6, 1), 2.5f) << "without keys the control's value";
    EXPECT_EQ(sparkSetCurveKey(1, 6, 1, 10), 1);
    EXPECT_EQ(sparkSetCurveKey(1, 6, 3, 20), 1);
    EXPECT_EQ(sparkGetCurveValue(1, 6, 2), 15);
    EXPECT_EQ(sparkGetCurveValuef(1, 6, 1.5f), 12.5f);
    EXPECT_EQ(sparkSetCurveKey(2, 6, 1, 10), 0);
    EXPECT_EQ(sparkSetCurveKey(1, 9, 1, 10), 0);
    EXPECT_EQ(sparkSetCurveKey(1, 50, 1, 10), 0);
    EXPECT_EQ(sparkSetControlName(1, 5, "x"), 0);
    EXPECT_EQ(sparkSetControlName(1, 93, "x"), 0);
    EXPECT_EQ(sparkSaveSetup("/nowhere/at/all"), 0);
    EXPECT_EQ(sparkLoadSetup("/nowhere/at/all"), 0);
    use_host(nullptr);
}

TEST(Numbers, WholeFiniteAndWithoutLocale) {
    const struct {
        const char* text;
        bool read;
        float value;
    } rows[] = {{"1.5", true, 1.5f}, {"+2", true, 2},   {"-3e2", true, -300}, {".5", true, 0.5f},
                {"1,5", false, 0},   {"", false, 0},    {"+", false, 0},      {"++1", false, 0},
                {"1x", false, 0},    {"nan", false, 0}, {"inf", false, 0},    {"1e99", false, 0}};
    for (const auto& row : rows) {
        float value = 0;
        EXPECT_EQ(read_number(row.text, value), row.read) << row.text;
        EXPECT_EQ(value, row.value) << row.text;
    }
    for (const float value : {0.1f, 1e-9f, 16777216.0f, -2.5f, std::numeric_limits<float>::max()}) {
        float back = 0;
        EXPECT_TRUE(read_number(number_text(value), back));
        EXPECT_EQ(back, value);
    }
}
