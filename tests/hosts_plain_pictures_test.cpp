// Plain pictures against the picture library: what one writes the other reads, and damage is never taken for a picture.
#include "hosts/pictures/plain_picture.h"
#include "hosts/pictures/tiff_file.h"

#include <OpenImageIO/imageio.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>

using namespace spark_host;
namespace fs = std::filesystem;
using OIIO::TypeDesc;

namespace {

struct PlainPictures : testing::Test {
    fs::path dir;
    std::mt19937 random{11};

    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "velloran_plain_XXXXXX").string();
        dir = mkdtemp(pattern.data());
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const char* name) const { return (dir / name).string(); }
    std::string file(const char* name, std::span<const unsigned char> bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return path(name);
    }
    Bytes read_file(const std::string& name) const {
        std::ifstream in(name, std::ios::binary);
        const std::string all((std::istreambuf_iterator<char>(in)), {});
        Bytes bytes;
        bytes.assign({reinterpret_cast<const unsigned char*>(all.data()), all.size()});
        return bytes;
    }

    // Rows of every nature, so that every filter is the best one somewhere.
    Bytes samples(int width, int height, int channels, int bytes) {
        const size_t n = static_cast<size_t>(width * channels * bytes);
        Bytes pixels(n * static_cast<size_t>(height), 0);
        for (size_t y = 0; y < static_cast<size_t>(height); y++)
            for (size_t i = 0; i < n; i++) {
                const unsigned smooth = static_cast<unsigned>(y * 3 + i / static_cast<size_t>(channels * bytes) * 2);
                const unsigned above = y > 0 ? pixels[(y - 1) * n + i] : 0;
                pixels[y * n + i] = static_cast<unsigned char>(y % 4 == 0   ? random()
                                                               : y % 4 == 1 ? smooth
                                                               : y % 4 == 2 ? above + random() % 3
                                                                            : (smooth + above) / 2);
            }
        return pixels;
    }

    static std::vector<unsigned char> by_library(const std::string& name, OIIO::ImageSpec& spec) {
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        const auto input = OIIO::ImageInput::open(name, &config);
        if (!input) {
            OIIO::geterror();
            return {};
        }
        spec = input->spec();
        std::vector<unsigned char> pixels(spec.image_bytes(true));
        if (!input->read_image(0, 0, 0, spec.nchannels, TypeDesc::UNKNOWN, pixels.data())) pixels.clear();
        return pixels;
    }
    static bool same(std::span<const unsigned char> a, std::span<const unsigned char> b) {
        return std::equal(a.begin(), a.end(), b.begin(), b.end());
    }
};

TEST_F(PlainPictures, EveryKindGoesBothWays) {
    for (const auto& [width, height] : {std::pair(1, 1), {2, 1}, {1, 3}, {7, 5}, {64, 33}})
        for (int channels = 1; channels <= 4; channels++)
            for (int bytes = 1; bytes <= 2; bytes++)
                for (const Compression compression :
                     {Compression::usual, Compression::none, Compression::fast, Compression::small}) {
                    const std::string what = std::to_string(width) + "x" + std::to_string(height) + "x" +
                                             std::to_string(channels) + " of " + std::to_string(bytes);
                    const Bytes pixels = samples(width, height, channels, bytes);
                    const PlainImage image = {width, height, channels, bytes, pixels.data(), compression};
                    OIIO::ImageSpec spec;
                    const std::string png = file("a.png", encode_png(image, {}));
                    ASSERT_TRUE(same(by_library(png, spec), pixels)) << what;
                    const auto back = std::static_pointer_cast<const PlainPicture>(read_plain(png));
                    ASSERT_TRUE(back && same(back->pixels, pixels)) << what;
                    if (channels < 3) continue;
                    std::string error;
                    const std::string tif = file("a.tif", encode_tiff(image, {}, &error));
                    ASSERT_TRUE(same(by_library(tif, spec), pixels)) << what << error;
                    EXPECT_EQ(spec.alpha_channel, channels == 4 ? 3 : -1);
                }
}

TEST_F(PlainPictures, FilesOfTheLibraryAreRead) {
    for (int channels = 1; channels <= 4; channels++)
        for (const TypeDesc type : {TypeDesc::UINT8, TypeDesc::UINT16}) {
            OIIO::ImageSpec spec(61, 40, channels, type);
            spec.attribute("oiio:UnassociatedAlpha", 1);
            const Bytes pixels = samples(61, 40, channels, static_cast<int>(type.size()));
            const auto output = OIIO::ImageOutput::create("png");
            ASSERT_TRUE(output->open(path("b.png"), spec) && output->write_image(type, pixels.data()) &&
                        output->close());
            const auto back = std::static_pointer_cast<const PlainPicture>(read_plain(path("b.png")));
            ASSERT_TRUE(back && same(back->pixels, pixels)) << channels;
            PictureInfo info;
            ASSERT_TRUE(probe_plain(path("b.png"), info));
            EXPECT_EQ(info.width, 61);
            EXPECT_EQ(info.channels, channels);
            EXPECT_EQ(info.eight_bits, type == TypeDesc::UINT8);
        }
}

TEST_F(PlainPictures, DamageIsSeen) {
    const Bytes pixels = samples(9, 6, 3, 1);
    Bytes around;
    add_png_text(around, "Title", "a picture");
    const Bytes whole = encode_png({9, 6, 3, 1, pixels.data(), Compression::usual}, around);
    ASSERT_TRUE(read_plain(file("whole.png", whole)));
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_FALSE(read_plain(file("cut.png", {whole.data(), size}))) << size;
    for (size_t i = 0; i < whole.size(); i++)
        for (const unsigned char flip : {0x01, 0x80}) {
            Bytes damaged = whole;
            damaged[i] ^= flip;
            EXPECT_FALSE(read_plain(file("damaged.png", damaged))) << i;
        }
    // Sums that are right over what is wrong: sizes that the samples do not fill, filters that do not exist, and
    // samples that claim more than they could hold.
    const auto with_header = [&](uint32_t width, uint32_t height, unsigned char depth, unsigned char kind) {
        unsigned char header[13] = {};
        for (int i = 0; i < 4; i++) {
            header[i] = static_cast<unsigned char>(width >> (24 - 8 * i));
            header[4 + i] = static_cast<unsigned char>(height >> (24 - 8 * i));
        }
        header[8] = depth, header[9] = kind;
        Bytes damaged;
        damaged.append({whole.data(), 8});
        add_png_chunk(damaged, png_type("IHDR"), header, sizeof(header));
        damaged.append({whole.data() + 33, whole.size() - 33});
        return file("header.png", damaged);
    };
    EXPECT_TRUE(read_plain(with_header(9, 6, 8, 2)));
    for (const auto& [width, height] : {std::pair(0u, 6u),
                                        {9u, 0u},
                                        {9u, 5u},
                                        {9u, 7u},
                                        {10u, 6u},
                                        {8u, 6u},
                                        {0x7fffffffu, 0x7fffffffu},
                                        {1u << 20, 1u << 20}})
        EXPECT_FALSE(read_plain(with_header(width, height, 8, 2))) << width << "x" << height;
    for (const unsigned char kind : {0, 1, 3, 4, 5, 6, 7, 255}) EXPECT_FALSE(read_plain(with_header(9, 6, 8, kind)));
    for (const unsigned char depth : {0, 1, 2, 4, 16, 255}) EXPECT_FALSE(read_plain(with_header(9, 6, depth, 2)));
}

// Bytes of any kind behind the signature: read or refused, and nothing else.
TEST_F(PlainPictures, AnyBytesAreSurvived) {
    const Bytes pixels = samples(20, 20, 4, 2);
    const Bytes whole = encode_png({20, 20, 4, 2, pixels.data(), Compression::usual}, {});
    for (int i = 0; i < 2000; i++) {
        Bytes bytes = whole;
        const size_t from = 8 + random() % (bytes.size() - 8);
        const size_t n = random() % 40;
        for (size_t k = from; k < std::min(bytes.size(), from + n); k++)
            bytes[k] = static_cast<unsigned char>(random());
        const std::vector<PngChunk> chunks = png_chunks(bytes.data(), bytes.size(), i % 2 == 0);
        Bytes out;
        decode_png(chunks, 20, 20, 8, true, out);
        decode_png(png_chunks(whole.data(), whole.size(), false), 1 + static_cast<int>(random() % 30),
                   1 + static_cast<int>(random() % 30), 1 + random() % 9, false, out);
    }
}

TEST_F(PlainPictures, WhatIsSaidAboutAPictureTravels) {
    const Bytes pixels = samples(8, 4, 4, 1);
    Bytes around;
    const unsigned char primaries[32] = {0, 0, 0x7a, 0x26, 0, 0, 0x80, 0x84, 0, 0, 0xfa, 0, 0, 0, 0x80, 0xe8};
    add_png_chunk(around, png_type("cHRM"), primaries, sizeof(primaries));
    add_png_chunk(around, png_type("sRGB"), "\1", 1);
    add_png_chunk(around, png_type("sBIT"), "\5\5\5\5", 4);
    add_png_chunk(around, png_type("pHYs"), "\0\0\x0b\x12\0\0\x0b\x12\1", 9);
    add_png_text(around, recipe_attribute, "old");
    Bytes described = around;
    add_png_chunk(described, png_type("acTL"), "\0\0\0\2\0\0\0\0", 8);  // says that there are more pictures
    add_png_text(described, "Author", "somebody");
    const auto plain = read_plain(file("plain.png", encode_png({8, 4, 4, 1, pixels.data()}, around)));
    const auto texts = read_plain(file("texts.png", encode_png({8, 4, 4, 1, pixels.data()}, described)));
    ASSERT_TRUE(plain && texts);

    std::vector<unsigned char> frame(8 * 4 * 3 * 2, 0x55);
    WriteRequest request;
    request.from = texts.get();
    request.format = {8, 4, SPARK_DEPTH_8};
    request.frame = frame.data();
    request.recipe = "new";
    const auto chunk_names = [&](const Bytes& bytes) {
        std::vector<std::string> names;
        for (const PngChunk& chunk : png_chunks(bytes.data(), bytes.size(), false))
            names.push_back({static_cast<char>(chunk.type >> 24), static_cast<char>(chunk.type >> 16),
                             static_cast<char>(chunk.type >> 8), static_cast<char>(chunk.type)});
        return names;
    };
    WriteResult result;
    std::string error;
    ASSERT_TRUE(plain_output_p("o.png", request) && write_plain("o.png", request, result, &error));
    EXPECT_EQ(chunk_names(result.file),
              (std::vector<std::string>{"IHDR", "cHRM", "sRGB", "pHYs", "tEXt", "sBIT", "tEXt", "IDAT", "IEND"}));
    const auto back = std::static_pointer_cast<const PlainPicture>(read_plain(file("o.png", result.file)));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->recipe, "new");
    for (size_t i = 0; i < 32; i++) {
        EXPECT_EQ(back->pixels[i * 4 + 3], pixels[i * 4 + 3]);  // alpha is that of the picture
        EXPECT_EQ(back->pixels[i * 4], 0x55);
    }
    // Deeper samples: what was said about the depth is true no more.
    request.format.depth = SPARK_DEPTH_12;
    ASSERT_TRUE(write_plain("o.png", request, result, &error));
    EXPECT_EQ(chunk_names(result.file).size(), 8u);

    EXPECT_FALSE(plain_output_p("o.tif", request));  // texts need somebody who knows where they go
    EXPECT_FALSE(plain_output_p("o.exr", request));
    request.from = plain.get();
    ASSERT_TRUE(plain_output_p("o.TIFF", request) && write_plain("o.TIFF", request, result, &error));
    OIIO::ImageSpec spec;
    ASSERT_FALSE(by_library(file("o.tif", result.file), spec).empty());
    EXPECT_EQ(spec.get_int_attribute("Exif:ColorSpace"), 1);
    EXPECT_NEAR(spec.get_float_attribute("XResolution"), 28.34f, 0.01f);
    EXPECT_EQ(spec.get_string_attribute("ResolutionUnit"), "cm");
}

// Portable maps of every kind and white, with comments, against the rule for each sample; then cut and damaged at every
// byte.
TEST_F(PlainPictures, PortableMapsAreReadToTheLastBit) {
    const auto map_of = [&](int kind, int white, const std::vector<int>& values) {
        std::string text = "P" + std::to_string(kind) + "\n# one\n5 #two\n 3\r\n" + std::to_string(white) + "\n";
        for (const int value : values) {
            if (kind < 4) {
                text += std::to_string(value) + (random() % 8 ? " " : "\n# three 4 5\n");
            } else {
                if (white > 255) text += static_cast<char>(value >> 8);
                text += static_cast<char>(value);
            }
        }
        Bytes bytes;
        bytes.assign({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
        return bytes;
    };
    for (const int kind : {2, 3, 5, 6})
        for (const int white : {1, 15, 254, 255, 256, 1023, 4095, 32767, 32768, 65534, 65535}) {
            const std::string what = "P" + std::to_string(kind) + " of " + std::to_string(white);
            std::vector<int> values(static_cast<size_t>(kind % 3 ? 15 : 45));
            for (int& value : values) value = static_cast<int>(random() % static_cast<unsigned>(white + 1));
            values[0] = 0, values[1] = white, values[2] = white / 2 + 1;
            const Bytes whole = map_of(kind, white, values);
            const auto back = std::static_pointer_cast<const PlainPicture>(read_plain(file("a.ppm", whole)));
            PictureInfo info;
            ASSERT_TRUE(back && probe_plain(path("a.ppm"), info)) << what;
            EXPECT_EQ(info.width, 5);
            EXPECT_EQ(info.height, 3);
            EXPECT_EQ(info.channels, kind % 3 ? 1 : 3);
            EXPECT_EQ(info.eight_bits, white < 256);
            for (size_t i = 0; i < values.size(); i++) {
                const double exact = values[i] * (white < 256 ? 255.0 : 65535.0) / white;
                const int got =
                    white < 256 ? back->pixels[i] : reinterpret_cast<const uint16_t*>(back->pixels.data())[i];
                EXPECT_NEAR(got, exact, 0.5) << what << ", sample " << i << " is " << values[i];
            }
            // The last number in words may lose its blank, and digits: another number, but one that is there.
            for (size_t size = 0; kind > 4 && size < whole.size(); size++)
                EXPECT_FALSE(read_plain(file("cut.ppm", {whole.data(), size}))) << what << size;
            for (size_t i = 0; i < whole.size(); i++) {
                Bytes damaged = whole;
                damaged[i] = static_cast<unsigned char>(random());
                read_plain(file("damaged.ppm", damaged));
            }
            values[3] = white + 1;
            if (white != 255 && white != 65535) {
                EXPECT_FALSE(read_plain(file("a.ppm", map_of(kind, white, values)))) << what;
            }
        }
}

}  // namespace
