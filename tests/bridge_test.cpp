// Effects in a program that is no host. Laws over many effects: the same picture whoever asks, in whatever turn.
#include "hosts/bridge/bridge.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <random>
#include <thread>

namespace {

using bridge::Effect;
using bridge::Pixels;
using bridge::Samples;
using bridge::Settings;

constexpr int width = 83, height = 61;  // no multiples of anything
constexpr int bytes_of[] = {1, 2, 2, 4};

Settings small(int depth = 8, int frames = 1) {
    Settings settings;
    settings.width = width, settings.height = height, settings.depth = depth, settings.total_frames = frames;
    return settings;
}

struct Picture {
    std::vector<unsigned char> bytes;
    Pixels pixels;

    explicit Picture(Samples samples = Samples::uint8, int channels = 3, unsigned seed = 1)
        : bytes(static_cast<size_t>(width * height * channels * bytes_of[static_cast<int>(samples)])) {
        pixels = bridge::packed_pixels(bytes.data(), samples, width, height, channels);
        std::mt19937 random(seed);
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
        if (samples != Samples::float32) return;
        for (size_t i = 0; i < bytes.size(); i += 4) {
            const float value = static_cast<float>(random() % 4097) / 4096;
            std::memcpy(&bytes[i], &value, 4);
        }
    }
    Picture(const Picture&) = delete;
};

bridge::ReadInput always(const Picture& picture) {
    return [&picture](int, int) { return picture.pixels; };
}

std::vector<unsigned char> rendered(Effect& effect, const Picture& from, int frame = 1) {
    Picture to;
    effect.render(frame, always(from), to.pixels);
    return to.bytes;
}

template <class Body>
std::string message_of(const Body& body) {
    try {
        body();
    } catch (const bridge::Error& error) {
        return error.what();
    }
    return "";
}

const char* const text_of_two =
    "(def_effect Copy (Source) () dest = Source )\n"
    "(def_effect Add (Source) () amount = 0.25 (min 0 max 1)\n dest = (+ Source amount) )\n";

// Every kind of picture comes out of an effect that does nothing as it went in, as far as its kind allows.
TEST(Bridge, PicturesOfAnyLayout) {
    for (const Samples samples : {Samples::uint8, Samples::uint16, Samples::float16, Samples::float32})
        for (const int channels : {1, 3, 4}) {
            Effect copy(text_of_two, "Copy", "two.text", small(samples == Samples::uint8 ? 8 : 12));
            Picture from(samples, channels), to(samples, channels, 2);
            // Words of 12 bits that are repeated below, and halves of as many steps, come back as they went.
            for (size_t i = 0; bytes_of[static_cast<int>(samples)] == 2 && i < from.bytes.size(); i += 2) {
                uint16_t word;
                std::memcpy(&word, &from.bytes[i], 2);
                word = samples == Samples::uint16 ? static_cast<uint16_t>((word & 0xfff0) | word >> 12)
                                                  : static_cast<uint16_t>(0x3800 | (word & 0x3ff));
                std::memcpy(&from.bytes[i], &word, 2);
            }
            const std::vector<unsigned char> before = from.bytes;
            copy.render(1, always(from), to.pixels);
            EXPECT_EQ(before, from.bytes) << "the input was changed";
            if (samples == Samples::uint8 || samples == Samples::uint16) {
                EXPECT_EQ(from.bytes, to.bytes) << static_cast<int>(samples) << " " << channels;
            } else if (samples == Samples::float32) {
                for (size_t i = 0; i < to.bytes.size(); i += 4) {
                    float in, out;
                    std::memcpy(&in, &from.bytes[i], 4);
                    std::memcpy(&out, &to.bytes[i], 4);
                    ASSERT_NEAR(in, out, 1.0f / 4095) << i << " " << channels;
                    if (channels == 4 && i % 16 == 12) {
                        ASSERT_EQ(in, out) << "alpha";
                    }
                }
            } else {
                for (size_t i = 0; i < to.bytes.size(); i += 2) {
                    uint16_t in, out;
                    std::memcpy(&in, &from.bytes[i], 2);
                    std::memcpy(&out, &to.bytes[i], 2);
                    ASSERT_NEAR(in, out, 1) << i << " " << channels;
                }
            }
            // Upside down, mirrored, with gaps: the same samples.
            const int bytes = bytes_of[static_cast<int>(samples)];
            std::vector<unsigned char> wide(to.bytes.size() * 2, 0xa5);
            Pixels odd = to.pixels;
            odd.across = -2 * channels * bytes, odd.between = bytes, odd.down = -width * channels * 2 * bytes;
            odd.data = wide.data() - (height - 1) * odd.down - (width - 1) * odd.across;
            copy.render(1, always(from), odd);
            const Picture again(samples, channels, 3);
            copy.render(
                1, [&](int, int) { return odd; }, again.pixels);
            if (samples == Samples::uint8 || samples == Samples::uint16) {
                EXPECT_EQ(again.bytes, to.bytes);
            }
            for (int y = 0; y < height; y++)
                for (int x = 0; x < width; x++)
                    ASSERT_EQ(0, std::memcmp(static_cast<unsigned char*>(odd.data) + y * odd.down + x * odd.across,
                                             &to.bytes[static_cast<size_t>((y * width + x) * channels * bytes)],
                                             static_cast<size_t>(channels * bytes)));
        }
}

// A second picture of an effect, values changed and taken back, is that of a fresh one; over all that is shipped.
TEST(Bridge, NoPictureDependsOnTheOneBefore) {
    const Picture from;
    int effects = 0;
    for (const std::string& family : bridge::families())
        for (const auto& described : bridge::describe(family).effects) {
#ifdef VELLORAN_SANITIZED
            if (effects >= 12) return;
#endif
            const std::string name = family + ":" + described.name;
            if (described.retimes) continue;
            Effect effect(name, small(8, 3));
            const auto fresh = rendered(effect, from, 2);
            EXPECT_EQ(fresh, rendered(effect, from, 2)) << name;
            for (const auto& param : described.params)
                if (param.kind == "float" && param.channels == 1)
                    effect.set(param.name, std::to_string(param.min.value_or(0.25f)));
            rendered(effect, from, 1);
            effect.reset();
            EXPECT_EQ(fresh, rendered(effect, from, 2)) << name;
            effects++;
        }
    EXPECT_GT(effects, 100);
}

TEST(Bridge, FaultsAreTold) {
    EXPECT_NE("", message_of([] { Effect("blur:Sotf_Focus", small()); }));
    Settings huge = small();
    huge.width = 1 << 20, huge.height = 1 << 20;
    EXPECT_NE(std::string::npos, message_of([&] { Effect("blur", huge); }).find("1048576x1048576"));
    Effect add(text_of_two, "Add", "two.text", small());
    EXPECT_NE(std::string::npos, message_of([&] { add.set("amuont", "1"); }).find("did you mean 'amount'"));
    EXPECT_NE(std::string::npos, message_of([&] { add.set("amount", "red"); }).find("no number"));
    add.set("amount", "7");
    ASSERT_EQ(1u, add.take_warnings().size());
    const Picture from;
    Picture to;
    Pixels wrong = from.pixels;
    wrong.width--;
    EXPECT_NE(std::string::npos, message_of([&] {
                                     add.render(
                                         1, [&](int, int) { return wrong; }, to.pixels);
                                 }).find("82x61"));
    EXPECT_NE(std::string::npos, message_of([&] { add.render(2, always(from), to.pixels); }).find("frame 2"));
    EXPECT_THROW(add.render(
                     1, [](int, int) -> Pixels { throw std::domain_error("mine"); }, to.pixels),
                 std::domain_error);
    add.render(1, always(from), to.pixels);
    try {
        Effect broken("(def_effect B (Source) ()\n dest = (blurr Source 1) )\n", "", "b.text", small());
        FAIL();
    } catch (const bridge::Error& error) {
        EXPECT_EQ("b.text", error.file);
        EXPECT_EQ(2, error.line);
        EXPECT_GT(error.column, 0);
    }
    EXPECT_GT(bridge::check("(def_effect B (Source) () dest = )", "b.text").failed, 0);
    EXPECT_EQ(0, bridge::check(text_of_two, "two.text").failed);
}

// What reads an input may render: in the same turn, whatever becomes of it.
TEST(Bridge, RendersInsideRenders) {
    const Picture from;
    Effect inner(text_of_two, "Add", "two.text", small()), outer(text_of_two, "Add", "two.text", small());
    Picture between, to;
    const auto read = [&](int, int) {
        inner.render(1, always(from), between.pixels);
        return between.pixels;
    };
    outer.render(1, read, to.pixels);
    EXPECT_EQ(to.bytes, rendered(outer, between));
    EXPECT_THROW(outer.render(
                     1, [&](int, int) { return inner.abort(), read(0, 0); }, to.pixels),
                 bridge::Aborted);
    EXPECT_THROW(outer.render(
                     1, [&](int, int) { return outer.abort(), read(0, 0); }, to.pixels),
                 bridge::Aborted);
    EXPECT_NE("", message_of([&] {
                  outer.render(
                      1, [&](int, int) { return outer.render(1, read, to.pixels), from.pixels; }, to.pixels);
              }));
    EXPECT_EQ(to.bytes.size(), rendered(outer, from).size());
}

TEST(Bridge, SixteenThreads) {
    const char* const names[] = {"blur", "color", "edges", "noise", "glows", "distort", "gradients", "convolve"};
    std::vector<std::vector<unsigned char>> alone(16);
    const auto make = [&](size_t i) {
        const Picture from(Samples::uint8, 3, static_cast<unsigned>(i));
        Effect effect(names[i % std::size(names)], small());
        const auto first = rendered(effect, from);
        EXPECT_EQ(first, rendered(effect, from));
        return first;
    };
    for (size_t i = 0; i < alone.size(); i++) alone[i] = make(i);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < alone.size(); i++)
        threads.emplace_back([&, i] { EXPECT_EQ(alone[i], make(i)) << names[i % std::size(names)]; });
    for (std::thread& thread : threads) thread.join();
}

TEST(Bridge, AbortsFromAnotherThread) {
    Settings large;
    Effect effect("blur", large);
    const Picture from;
    std::vector<unsigned char> bytes(1920 * 1080 * 3);
    const Pixels to = bridge::packed_pixels(bytes.data(), Samples::uint8, 1920, 1080, 3);
    std::atomic<bool> done{false};
    const auto read = [&](int, int) { return to; };
    for (int i = 0; i < 5; i++) {
        done = false;
        std::atomic<bool> begun{false};
        std::thread other([&] {
            while (!begun) std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::milliseconds(i));
            while (!done) effect.abort(), std::this_thread::sleep_for(std::chrono::milliseconds(1));
        });
        try {
            effect.render(
                1, [&](int input, int frame) { return begun = true, read(input, frame); }, to);
        } catch (const bridge::Aborted&) {
        }
        begun = true, done = true;
        other.join();
    }
    EXPECT_NO_THROW({
        try {
            effect.render(1, read, to);
        } catch (const bridge::Aborted&) {  // of the last time, after its frame was whole
            effect.render(1, read, to);
        }
    });
}

long resident_kilobytes() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atol(line.c_str() + 6);
    return 0;
}

TEST(Bridge, LoadsAndUnloadsWithFlatMemory) {
    const Picture from;
#ifdef VELLORAN_SANITIZED
    constexpr int rounds = 20;
#else
    constexpr int rounds = 500;
#endif
    [[maybe_unused]] long after_some = 0;
    for (int i = 0; i < rounds; i++) {
        Effect effect("color", small());
        rendered(effect, from);
        if (i == rounds / 5) after_some = resident_kilobytes();
    }
#ifndef VELLORAN_SANITIZED
    EXPECT_LT(resident_kilobytes() - after_some, 2048);
#endif
}

}  // namespace
