#include "hosts/common/plugin.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

using namespace spark_host;

namespace {

const std::string module_path = TEST_PLUGIN;

FrameFormat small_format() { return {7, 5, SPARK_DEPTH_8}; }

// Byte i of frame f.
unsigned char pattern(int frame, size_t i) { return static_cast<unsigned char>(frame * 40 + static_cast<int>(i)); }

ClipPtr pattern_clip(int frames) {
    return generated_clip(frames, [](int frame, const FrameFormat& format, void* dest) {
        for (size_t i = 0; i < static_cast<size_t>(format.bytes()); i++)
            static_cast<unsigned char*>(dest)[i] = pattern(frame, i);
        return true;
    });
}

std::string diary(const Plugin& plugin) {
    return reinterpret_cast<const char* (*)()>(plugin_symbol(plugin, "test_diary"))();
}
void clear_diary(const Plugin& plugin) { reinterpret_cast<void (*)()>(plugin_symbol(plugin, "test_clear_diary"))(); }
void want_buffers(const Plugin& plugin, int n) {
    reinterpret_cast<void (*)(int)>(plugin_symbol(plugin, "test_want_buffers"))(n);
}

std::unique_ptr<Plugin> load(Host& host, const std::string& name = "") {
    std::string error;
    auto plugin = load_plugin(host, module_path, name, &error);
    EXPECT_TRUE(plugin) << error;
    if (plugin) plugin->inputs = {pattern_clip(3)};
    return plugin;
}

void expect_gain(const void* frame, int number, int gain) {
    ASSERT_TRUE(frame);
    const auto* const bytes = static_cast<const unsigned char*>(frame);
    for (size_t i = 0; i < 7 * 5 * 3; i++)
        ASSERT_EQ(bytes[i], static_cast<unsigned char>(pattern(number, i) + gain)) << "byte " << i;
}

long resident_kilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return 0;
}

class PluginTest : public testing::Test {
protected:
    void SetUp() override {
        mine.format = small_format();
        mine.total_frames = 3;
        mine.processors = 2;
    }
    Host mine;
};

}  // namespace

TEST_F(PluginTest, CallsComeInTheDocumentedOrder) {
    const auto plugin = load(mine, "/data/Gain");
    ASSERT_TRUE(start_plugin(*plugin)) << plugin->failure;
    EXPECT_EQ(process_start(*plugin, 1), 2);
    expect_gain(process(*plugin, 1), 1, 1);
    interact(*plugin, {1, 1, 0.5f}, 1);
    stop_plugin(*plugin);
    // Destination and input are new for the frame, and so are the two registered buffers when first seen.
    EXPECT_EQ(diary(*plugin), "clips /data/Gain buffers initialise controls start process1:dddd down uninitialise ");
}

TEST_F(PluginTest, EveryKindOfHost) {
    const struct {
        const char* name;
        float api;
        bool explicit_buffers;
        const char* calls;
    } rows[] = {
        {"current", 4.039f, true, "clips /g buffers initialise controls process0:dddd "},
        {"first with registered buffers", 2.502f, true, "clips /g buffers initialise controls process0:dddd "},
        {"below registered buffers", 2.5f, true, "clips /g initialise controls process0: "},
        {"without registered buffers", 4.039f, false, "clips /g initialise controls process0: "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        mine.api_version = row.api;
        mine.explicit_buffers = row.explicit_buffers;
        const auto plugin = load(mine, "/g");
        ASSERT_TRUE(start_plugin(*plugin));
        expect_gain(process(*plugin, 0), 0, 1);
        EXPECT_EQ(diary(*plugin), row.calls);
    }
}

TEST_F(PluginTest, MemoryLimitHoldsOverAllPlugins) {
    mine.memory_buffers = 3;
    const auto first = load(mine), second = load(mine);
    ASSERT_TRUE(start_plugin(*first));
    EXPECT_EQ(free_buffers(mine), 1);
    EXPECT_FALSE(start_plugin(*second));
    EXPECT_EQ(free_buffers(mine), 1) << "what a failed start registered comes back";
    want_buffers(*second, 1);
    EXPECT_TRUE(start_plugin(*second));
    EXPECT_EQ(free_buffers(mine), 0);
    stop_plugin(*first);
    stop_plugin(*second);
    EXPECT_EQ(free_buffers(mine), 3);
    EXPECT_EQ(diary(*second).find("LATE"), std::string::npos) << "registration is over when the plug-in initialises";
}

TEST_F(PluginTest, BuffersAreCleanUntilTheHostTakesThem) {
    const auto plugin = load(mine);
    ASSERT_TRUE(start_plugin(*plugin));
    process(*plugin, 0);
    clear_diary(*plugin);
    process(*plugin, 0);  // same frame: the input stands, the destination is cleared
    process(*plugin, 1);
    lose_buffers(plugin->buffers);
    process(*plugin, 1);
    EXPECT_EQ(diary(*plugin), "process0:dccc process1:ddcc process1:dcdd ");
}

TEST_F(PluginTest, InstancesOfOneModuleHaveTheirOwnStatics) {
    const auto first = load(mine), second = load(mine), third = load(mine);
    ASSERT_TRUE(start_plugin(*first));
    ASSERT_TRUE(start_plugin(*second));
    set_control_value(*find_control(second->panel, 6), 0, 9);
    expect_gain(process(*first, 0), 0, 1);
    expect_gain(process(*second, 0), 0, 9);
    EXPECT_EQ(diary(*third), "");
}

TEST_F(PluginTest, AClipMayBeAnotherPluginsOutput) {
    const auto inner = load(mine), outer = load(mine);
    ASSERT_TRUE(start_plugin(*inner));
    ASSERT_TRUE(start_plugin(*outer));
    outer->inputs = {generated_clip(3, [&](int frame, const FrameFormat& format, void* dest) {
        const void* const made = process(*inner, frame);
        if (made) std::memcpy(dest, made, static_cast<size_t>(format.bytes()));
        return made != nullptr;
    })};
    expect_gain(process(*outer, 2), 2, 2);
    EXPECT_EQ(mine.plugin, nullptr);
}

TEST_F(PluginTest, ThousandLoadsLeaveNothing) {
    [[maybe_unused]] long after_first = 0;
    for (int i = 0; i < 1000; i++) {
        const auto plugin = load(mine), twin = load(mine);
        ASSERT_TRUE(start_plugin(*plugin) && start_plugin(*twin));
        ASSERT_TRUE(process(*plugin, 0) && process(*twin, 0));
        if (i == 100) after_first = resident_kilobytes();
    }
#ifndef VELLORAN_SANITIZED
    EXPECT_LT(resident_kilobytes() - after_first, 2000);
#endif  // the sanitizers keep freed memory, and find leaks by themselves
}

TEST_F(PluginTest, WhatCannotBeUsedSaysWhy) {
    std::string error;
    EXPECT_FALSE(load_plugin(mine, "/nowhere/x.so", "", &error));
    EXPECT_NE(error.find("/nowhere/x.so"), std::string::npos);
    EXPECT_FALSE(load_plugin(mine, "libm.so.6", "", &error));
    mine.format.depth = SPARK_DEPTH_10;
    const auto plugin = load(mine);
    EXPECT_FALSE(start_plugin(*plugin));
    EXPECT_NE(plugin->failure.find("26"), std::string::npos) << plugin->failure;
    mine.format = small_format();
    ASSERT_TRUE(start_plugin(*plugin));
    plugin->inputs = {sequence_clip({})};
    EXPECT_FALSE(process(*plugin, 0));
    EXPECT_EQ(plugin->failure, "input 1 has no frame 1");
    mine.format.width++;
    EXPECT_FALSE(process(*plugin, 0));
}

TEST_F(PluginTest, MisbehavingAnswersReachThePlugin) {
    const auto plugin = load(mine);
    ASSERT_TRUE(start_plugin(*plugin));
    mine.on_get_buffer = [](int id, SparkMemBufStruct* buffer) {
        if (id == 1) buffer->BufferState = SPARK_BUF_REGISTERED;
        return 1;
    };
    EXPECT_FALSE(process(*plugin, 0));
}

TEST_F(PluginTest, ControlsShowOnTheirPages) {
    const auto plugin = load(mine);
    ASSERT_TRUE(start_plugin(*plugin));
    const auto pages = control_pages(plugin->panel);
    ASSERT_EQ(pages.size(), 3u);
    EXPECT_EQ(pages[0].columns[0][0].name, "Gain: ") << "a name given before the controls were known";
    EXPECT_EQ(pages[0].columns[1][0].number, 13);
    EXPECT_EQ(pages[0].columns[1][1].number, 14);
    EXPECT_EQ(pages[1].columns[0][0].value, "Copy");
    EXPECT_EQ(pages[2].columns[0][0].number, 64);
    mine.frame = 1;
    EXPECT_TRUE(use_control(*plugin, 6, SPARK_ACTION_RELEASE));
    EXPECT_NE(diary(*plugin).find("callback1 "), std::string::npos);
    EXPECT_FALSE(use_control(*plugin, 7, SPARK_ACTION_RELEASE));
}

TEST_F(PluginTest, CurvesDriveControlsFrameByFrame) {
    const auto plugin = load(mine);
    ASSERT_TRUE(start_plugin(*plugin));
    Control& gain = *find_control(plugin->panel, 6);
    set_key(gain.curves[0], 1, 0);
    set_key(gain.curves[0], 3, 20);
    for (const auto& [frame, value] : {std::pair(0, 0), {1, 10}, {2, 20}})
        expect_gain(process(*plugin, frame), frame, value);
}
