#include "hosts/common/frame_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace spark_host;

TEST(FrameLists, Ranges) {
    const struct {
        const char* text;
        std::vector<int> frames;
        const char* shown;  // of the same frames in ascending order, null: not tested
    } rows[] = {
        {"7", {7}, "7"},
        {"1-4", {1, 2, 3, 4}, "1-4"},
        {"1-8x3", {1, 4, 7}, "1-7x3"},
        {"4-1", {4, 3, 2, 1}, nullptr},
        {"8-1x3", {8, 5, 2}, nullptr},
        {"1-3,10,12-13", {1, 2, 3, 10, 12, 13}, "1-3,10,12-13"},
        {"1-3,2-5", {1, 2, 3, 4, 5}, "1-5"},
        {"5,9", {5, 9}, "5,9"},
        {"0007", {7}, "7"},
        {"3-3x5", {3}, "3"},
    };
    for (const auto& row : rows) {
        std::string error;
        const auto frames = parse_frame_list(row.text, &error);
        ASSERT_TRUE(frames) << row.text << ": " << error;
        EXPECT_EQ(*frames, row.frames) << row.text;
        if (row.shown) {
            EXPECT_EQ(frame_list_text(row.frames), row.shown);
        }
    }
}

TEST(FrameLists, WhatIsNoneSaysWhich) {
    const struct {
        const char* text;
        const char* part;
    } rows[] = {{"", "''"},           {"1,,2", "''"},
                {"1-", "'1-'"},       {"a", "'a'"},
                {"1-5x0", "'1-5x0'"}, {"1-5x", "'1-5x'"},
                {"-3", "'-3'"},       {"1 - 5", "'1 - 5'"},
                {"1.5", "'1.5'"},     {"999999999999", "'999999999999'"},
                {"1-2-3", "'1-2-3'"}, {"1-2000000", "more than"},
                {"7,", "''"},         {"1x2", "'1x2'"}};
    for (const auto& row : rows) {
        std::string error;
        EXPECT_FALSE(parse_frame_list(row.text, &error)) << row.text;
        EXPECT_NE(error.find(row.part), std::string::npos) << row.text << ": " << error;
    }
}

TEST(Sequences, PathsOfFrames) {
    const struct {
        const char* path;
        int frame;
        const char* file;
    } rows[] = {
        {"a/b.%04d.png", 7, "a/b.0007.png"},
        {"b.####.exr", 12345, "b.12345.exr"},
        {"b%d.png", 7, "b7.png"},
        {"a%%b.#.png", 3, "a%b.3.png"},
        {"still.png", 9, "still.png"},
        {"x##/y.png", 9, "x##/y.png"},
        {"%02d", 5, "05"},
    };
    for (const auto& row : rows) {
        std::string error;
        const auto sequence = parse_sequence_path(row.path, &error);
        ASSERT_TRUE(sequence) << row.path << ": " << error;
        EXPECT_EQ(path_of_frame(*sequence, row.frame), row.file);
    }
    for (const char* path : {"a.##.%d.png", "100%.png", "a%s.png", "a%4d.png", "%0123456789d.png", "##-##.png"}) {
        std::string error;
        EXPECT_FALSE(parse_sequence_path(path, &error)) << path;
        EXPECT_NE(error.find(path), std::string::npos) << "the message names the path";
    }
}

TEST(Sequences, OnDiskOnlyNamesThatFit) {
    const auto directory = std::filesystem::temp_directory_path() / ("hosts_sequences_" + std::to_string(getpid()));
    std::filesystem::create_directories(directory);
    for (const char* name : {"a.0001.png", "a.0003.png", "a.12345.png", "a.01.png", "a.00004.png", "a.x.png",
                             "a.0002.jpg", "b.0001.png", "a..png", "a.1.png", ".a.0009.png"})
        std::ofstream(directory / name);
    const struct {
        const char* name;
        std::vector<int> frames;
    } rows[] = {{"a.%04d.png", {1, 3, 12345}},
                {"a.%d.png", {1, 12345}},
                {"a.##.png", {1, 12345}},
                {"c.#.png", {}},
                {"a.0001.png", {}}};
    for (const auto& row : rows) {
        std::string error;
        EXPECT_EQ(frames_on_disk(*parse_sequence_path((directory / row.name).string(), &error)), row.frames)
            << row.name;
    }
    std::string error;
    EXPECT_TRUE(frames_on_disk(*parse_sequence_path("/nowhere/a.#.png", &error)).empty());
    std::filesystem::remove_all(directory);
}
