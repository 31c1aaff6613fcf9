// What `velloran render` makes of pictures: samples, frames, and what travels through.
#include "tests/render/cli_rig.h"

#include <limits>

using namespace test_cli;
using OIIO::ImageInput;
using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

namespace {

using Names = std::vector<std::string>;

// A significant sample as a 16-bit file shows it: the top bits repeated below.
uint16_t filled(uint16_t value, int bits) {
    const unsigned top = value >> (16 - bits);
    return static_cast<uint16_t>(top << (16 - bits) | top >> (2 * bits - 16));
}

}  // namespace

TEST_F(Cli, PassThroughKeepsEverySignificantBit) {
    plate("in8.png");
    plate("in16.png", 5, TypeDesc::UINT16);
    plate("in8.tif", 6);
    plate("in16.tif", 7, TypeDesc::UINT16);
    plate("in10.dpx", 8, TypeDesc::UINT16);
    picture("grey.png", 31, 9, 1, TypeDesc::UINT16, [](int x, int y, int) { return pattern(x, y, 0); });
    // Inputs, depths and numbers of tasks are mixed so that each pair of them occurs.
    const char* const ins[] = {"in8.png", "in16.png", "in8.tif", "in16.tif", "in10.dpx", "grey.png"};
    const char* const depths[] = {"8", "10", "16"};
    const char* const threads[] = {"1", "2", "5"};
    for (size_t i = 0; i < 6; i++)
        for (size_t d = 0; d < 3; d++) {
            const std::string in = ins[i], depth = depths[d];
            SCOPED_TRACE(in + " depth " + depth + " threads " + threads[(i + d) % 3]);
            const Outcome ran =
                render("pass.text -i " + in + " -o out.png -d " + depth + " -j " + threads[(i + d) % 3]);
            ASSERT_EQ(ran.status, 0) << ran.err;
            const Samples from = samples(in), to = samples("out.png");
            ASSERT_EQ(from.width, to.width);
            ASSERT_EQ(to.channels, 3);
            for (int y = 0; y < to.height; y++)
                for (int x = 0; x < to.width; x++)
                    for (int c = 0; c < 3; c++) {
                        const uint16_t value = from.at(x, y, from.channels == 3 ? c : 0);
                        const uint16_t expected = depth == "8" ? static_cast<uint16_t>((value + 128u) / 257u * 257u)
                                                               : filled(value, depth == "10" ? 10 : 12);
                        ASSERT_EQ(to.at(x, y, c), expected) << x << "," << y << "," << c;
                    }
        }
}

TEST_F(Cli, FloatsAreHeldAndWhiteStaysWhite) {
    const float values[] = {0, 1, -2, 7, 0.5f, std::numeric_limits<float>::quiet_NaN()};
    std::vector<float> row;
    for (const float value : values)
        for (int c = 0; c < 3; c++) row.push_back(value);
    ImageSpec spec(6, 1, 3, TypeDesc::FLOAT);
    auto output = ImageOutput::create("in.exr");
    ASSERT_TRUE(output->open("in.exr", spec) && output->write_image(TypeDesc::FLOAT, row.data()) && output->close());
    ASSERT_EQ(render("pass.text -i in.exr -o out.tif").status, 0);
    const Samples to = samples("out.tif");
    const uint16_t half = filled(32768, 12), expected[] = {0, 65535, 0, 65535, half, 0};
    for (int x = 0; x < 6; x++) EXPECT_EQ(to.at(x, 0, 1), expected[x]) << x;
}

TEST_F(Cli, FramesCarryTheNumbersOfTheirFiles) {
    fs::create_directory("o");
    for (int frame = 8; frame <= 12; frame++)
        plate("in.00" + std::string(frame < 10 ? "0" : "") + std::to_string(frame) + ".png", frame);
    const struct {
        const char* options;
        Names files;
    } rows[] = {
        {"", {"a.10.png", "a.11.png", "a.12.png", "a.8.png", "a.9.png"}},
        {"-f 9-11x2", {"a.11.png", "a.9.png"}},
        {"-f 12-8", {"a.10.png", "a.11.png", "a.12.png", "a.8.png", "a.9.png"}},
        {"-f 10", {"a.10.png"}},
    };
    for (const auto& row : rows) {
        const Outcome ran = render(std::string("pass.text -i in.%04d.png -o o/a.%d.png ") + row.options);
        ASSERT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(files("o"), row.files) << row.options;
        EXPECT_EQ(ran.out, "");
        for (const std::string& name : row.files) {
            const std::string number = name.substr(2, name.size() - 6);
            const std::string in = "in." + std::string(4 - number.size(), '0') + number + ".png";
            EXPECT_EQ(samples("o/" + name).values, samples(in).values) << name;
        }
        for (const std::string& name : row.files) fs::remove("o/" + name);
    }
}

TEST_F(Cli, GapsAreErrorsOrSkippedHeldOrBlack) {
    fs::create_directory("o");
    for (const int frame : {1, 2, 5}) plate("in." + std::to_string(frame) + ".png", frame);
    Outcome ran = render("pass.text -i in.#.png -o o/a.#.png");
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("in.#.png: missing frames 3-4"), std::string::npos) << ran.err;
    EXPECT_EQ(files("o"), Names());
    ran = render("pass.text -i in.#.png -o o/a.#.png --missing skip");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(files("o"), Names({"a.1.png", "a.2.png", "a.5.png"}));
    ran = render("pass.text -i in.#.png -o o/a.#.png --missing hold -f 1-6");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(samples("o/a.4.png").values, samples("in.2.png").values);
    EXPECT_EQ(samples("o/a.6.png").values, samples("in.5.png").values);
    ran = render("pass.text -i in.#.png -o o/a.#.png --missing black -f 3");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(samples("o/a.3.png").values, std::vector<uint16_t>(37 * 23 * 3, 0));
}

TEST_F(Cli, InputsByOrderAndByName) {
    plate("a.png", 1);
    plate("b.png", 2);
    for (const char* inputs :
         {"-i a.png -i b.png", "-i Back=b.png -i Front=a.png", "-i Back=b.png -i a.png", "-i back=b.png -i a.png"}) {
        const Outcome ran = render(std::string("two.text ") + inputs + " -o out.png");
        ASSERT_EQ(ran.status, 0) << inputs << ran.err;
        EXPECT_EQ(samples("out.png").values, samples("b.png").values) << inputs;
    }
}

TEST_F(Cli, MoviesAreClips) {
    // A GIF of three frames, the only clip in one file that can be made here.
    auto output = ImageOutput::create("m.gif");
    ImageSpec spec(8, 6, 3, TypeDesc::UINT8);
    const std::vector<ImageSpec> specs(3, spec);
    ASSERT_TRUE(output->open("m.gif", 3, specs.data()));
    for (int i = 0; i < 3; i++) {
        const std::vector<uint8_t> grey(8 * 6 * 3, static_cast<uint8_t>(60 + 60 * i));
        if (i > 0) {
            ASSERT_TRUE(output->open("m.gif", spec, ImageOutput::AppendSubimage));
        }
        ASSERT_TRUE(output->write_image(TypeDesc::UINT8, grey.data()));
    }
    ASSERT_TRUE(output->close());
    const Outcome ran = render("pass.text -i m.gif -o f.#.png -f 3-1");
    ASSERT_EQ(ran.status, 0) << ran.err;
    for (int i = 0; i < 3; i++) {
        const uint16_t decoded = samples("m.gif", i).values[0];
        EXPECT_EQ(samples("f." + std::to_string(i + 1) + ".png").values[0], decoded);
        EXPECT_NEAR(decoded / 257, 60 + 60 * i, 4);
    }
}

TEST_F(Cli, EffectsWithoutInputs) {
    Outcome ran = render("none.text --size 5x4 --length 3 -o o.%d.tif -d 8");
    ASSERT_EQ(ran.status, 0) << ran.err;
    const Samples made = samples("o.3.tif");
    EXPECT_EQ(made.width, 5);
    EXPECT_EQ(made.height, 4);
    EXPECT_EQ(made.values[0], 65535);
    EXPECT_EQ(made.values[2], 0);
    EXPECT_EQ(render("none.text --size 5y4 -o o.png").status, 2);
}

TEST_F(Cli, ParamsPopupsAndKeys) {
    for (int frame = 11; frame <= 13; frame++)
        picture("in." + std::to_string(frame) + ".png", 4, 3, 3, TypeDesc::UINT8,
                [](int, int, int) { return 200 << 8; });
    // Values go evenly from key to key, so the middle frame has half.
    Outcome ran = render("my.text:Gain -i in.#.png -o o.#.png -p amount=0@11,1@13");
    ASSERT_EQ(ran.status, 0) << ran.err;
    const int expected[] = {0, 100, 200};
    for (int i = 0; i < 3; i++)
        EXPECT_NEAR(samples("o." + std::to_string(11 + i) + ".png").values[0] / 257, expected[i], 1) << i;
    const struct {
        const char* value;
        int sample;
    } rows[] = {{"mode=0", 0},     {"mode=1", 200},     {"mode=off", 0},     {"mode=Fully_On", 200},
                {"tint=0,1,1", 0}, {"tint=1,0,0", 200}, {"amount=0.5", 100}, {"amount=5e-1", 100}};
    for (const auto& row : rows) {
        ran = render(std::string("my.text:Gain -i in.11.png -o p.png -p ") + row.value);
        ASSERT_EQ(ran.status, 0) << row.value << ran.err;
        EXPECT_NEAR(samples("p.png").values[0] / 257, row.sample, 1) << row.value;
    }
}

TEST_F(Cli, StandardControls) {
    plate("in.png");
    Outcome ran = render("pass.text -i in.png -o out.png -c crop=5,20,30,4");
    ASSERT_EQ(ran.status, 0) << ran.err;
    const Samples from = samples("in.png"), crop = samples("out.png");
    for (int y = 0; y < 23; y++)
        for (int x = 0; x < 37; x++) {
            const int up = 22 - y;  // the crop counts rows from the bottom
            const bool inside = x >= 5 && x < 30 && up >= 4 && up < 20;
            ASSERT_EQ(crop.at(x, y, 1), inside ? from.at(x, y, 1) : 0) << x << "," << y;
        }
    // At half the resolution each block of 2x2 shows one sample of the input.
    ran = render("pass.text -i in.png -o out.png -c res_factor=1");
    ASSERT_EQ(ran.status, 0) << ran.err;
    const Samples half = samples("out.png");
    for (int y = 22; y > 0; y -= 2)
        for (int x = 0; x + 1 < 37; x += 2) {
            const uint16_t value = half.at(x, y, 0);
            ASSERT_EQ(half.at(x + 1, y, 0), value);
            ASSERT_EQ(half.at(x, y - 1, 0), value);
            const bool from_block = value == from.at(x, y, 0) || value == from.at(x + 1, y, 0) ||
                                    value == from.at(x, y - 1, 0) || value == from.at(x + 1, y - 1, 0);
            ASSERT_TRUE(from_block) << x << "," << y;
        }
}

TEST_F(Cli, ExrKeepsLayersChannelsWindowsAndData) {
    // Colours and depth in a data window smaller than the display window; beside it a layer of its own type.
    std::vector<ImageSpec> specs(2);
    specs[0] = ImageSpec(10, 8, 5, TypeDesc::HALF);
    specs[0].channelnames = {"R", "G", "B", "A", "Z"};
    specs[0].channelformats = {TypeDesc::HALF, TypeDesc::HALF, TypeDesc::HALF, TypeDesc::HALF, TypeDesc::FLOAT};
    specs[0].alpha_channel = 3;
    specs[0].z_channel = 4;
    specs[0].x = 3, specs[0].y = 2;
    specs[0].full_width = 20, specs[0].full_height = 15;
    specs[0].attribute("oiio:subimagename", "main");
    specs[0].attribute("PixelAspectRatio", 2.0f);
    specs[0].attribute("studio:shot", "someone");
    const unsigned timecode[2] = {0x01020304, 0};
    specs[0].attribute("smpte:TimeCode", OIIO::TypeTimeCode, timecode);
    specs[1] = ImageSpec(6, 5, 1, TypeDesc::UINT);
    specs[1].channelnames = {"ids.id"};
    specs[1].attribute("PixelAspectRatio", 2.0f);  // all layers of a file share it, and the time code
    specs[1].attribute("smpte:TimeCode", OIIO::TypeTimeCode, timecode);
    specs[1].full_width = 20, specs[1].full_height = 15;
    specs[1].attribute("oiio:subimagename", "ids");
    const auto value = [](int x, int y, int c) {
        return c == 4 ? 1000.125f * static_cast<float>(x + 1) : static_cast<float>((x + y * 10 + c) % 32) / 32;
    };
    std::vector<float> colours;
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 10; x++)
            for (int c = 0; c < 5; c++) colours.push_back(value(x, y, c));
    std::vector<unsigned> ids;
    for (unsigned i = 0; i < 30; i++) ids.push_back(0xfffffff0u + i);
    auto output = ImageOutput::create("in.exr");
    ASSERT_TRUE(output->open("in.exr", 2, specs.data()) && output->write_image(TypeDesc::FLOAT, colours.data()));
    ASSERT_TRUE(output->open("in.exr", specs[1], ImageOutput::AppendSubimage) &&
                output->write_image(TypeDesc::UINT, ids.data()) && output->close());

    const Outcome ran = render("my.text:Gain -i in.exr -o out.exr -p amount=0.5");
    ASSERT_EQ(ran.status, 0) << ran.err;
    auto input = ImageInput::open("out.exr");
    ASSERT_TRUE(input);
    const ImageSpec spec = input->spec();
    EXPECT_EQ(spec.channelnames, specs[0].channelnames);
    EXPECT_EQ(std::vector({spec.x, spec.y, spec.width, spec.height, spec.full_x, spec.full_y, spec.full_width,
                           spec.full_height}),
              std::vector({3, 2, 10, 8, 0, 0, 20, 15}));
    EXPECT_EQ(spec.channelformat(0), TypeDesc::HALF);
    EXPECT_EQ(spec.channelformat(4), TypeDesc::FLOAT);
    EXPECT_EQ(spec.get_float_attribute("PixelAspectRatio"), 2);
    EXPECT_EQ(spec.get_string_attribute("studio:shot"), "someone");
    EXPECT_EQ(spec.get_string_attribute("oiio:subimagename"), "main");
    unsigned kept[2] = {0, 0};
    EXPECT_TRUE(spec.getattribute("smpte:TimeCode", OIIO::TypeTimeCode, kept));
    EXPECT_EQ(kept[0], timecode[0]);
    std::vector<float> made(colours.size());
    ASSERT_TRUE(input->read_image(0, 0, 0, 5, TypeDesc::FLOAT, made.data()));
    for (int y = 0; y < 8; y++)
        for (int x = 0; x < 10; x++)
            for (int c = 0; c < 5; c++) {
                const float expected = value(x, y, c) * (c < 3 ? 0.5f : 1);
                ASSERT_NEAR(made[static_cast<size_t>((y * 10 + x) * 5 + c)], expected, c < 3 ? 1.0f / 2048 : 0)
                    << x << "," << y << "," << c;
            }
    ASSERT_TRUE(input->seek_subimage(1, 0)) << "the second layer is there";
    EXPECT_EQ(input->spec(1).get_string_attribute("oiio:subimagename"), "ids");
    std::vector<unsigned> ids_made(30);
    ASSERT_TRUE(input->read_image(1, 0, 0, 1, TypeDesc::UINT, ids_made.data()));
    EXPECT_EQ(ids_made, ids);
}

TEST_F(Cli, TiffKeepsItsPages) {
    const std::vector<ImageSpec> specs = {ImageSpec(6, 5, 3, TypeDesc::UINT8), ImageSpec(4, 3, 1, TypeDesc::UINT16)};
    const std::vector<uint16_t> first(6 * 5 * 3, 20 * 257), second(4 * 3, 12345);
    auto output = ImageOutput::create("in.tif");
    ASSERT_TRUE(output->open("in.tif", specs[0]) && output->write_image(TypeDesc::UINT16, first.data()));
    ASSERT_TRUE(output->open("in.tif", specs[1], ImageOutput::AppendSubimage) &&
                output->write_image(TypeDesc::UINT16, second.data()) && output->close());
    const Outcome ran = render("pass.text -i in.tif -o out.tif");
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(samples("out.tif", 0).values, first);
    EXPECT_EQ(samples("out.tif", 1).values, second);
}

TEST_F(Cli, OverscanKeepsWhatLiesOutside) {
    ImageSpec spec(12, 10, 3, TypeDesc::HALF);
    spec.x = -2, spec.y = -1;
    spec.full_x = 0, spec.full_y = 0, spec.full_width = 8, spec.full_height = 8;
    const std::vector<float> white(12 * 10 * 3, 1);
    auto output = ImageOutput::create("in.exr");
    ASSERT_TRUE(output->open("in.exr", spec) && output->write_image(TypeDesc::FLOAT, white.data()) && output->close());
    const Outcome ran = render("my.text:Gain -i in.exr -o out.exr -p amount=0");
    ASSERT_EQ(ran.status, 0) << ran.err;
    auto input = ImageInput::open("out.exr");
    ASSERT_TRUE(input);
    std::vector<float> made(white.size());
    ASSERT_TRUE(input->read_image(0, 0, 0, 3, TypeDesc::FLOAT, made.data()));
    for (int y = 0; y < 10; y++)
        for (int x = 0; x < 12; x++)
            ASSERT_EQ(made[static_cast<size_t>((y * 12 + x) * 3)], x >= 2 && x < 10 && y >= 1 && y < 9 ? 0 : 1)
                << x << "," << y;
    // A format without windows shows the display window.
    ASSERT_EQ(render("pass.text -i in.exr -o out.png").status, 0);
    EXPECT_EQ(samples("out.png").width, 8);
    EXPECT_EQ(samples("out.png").values, std::vector<uint16_t>(8 * 8 * 3, 65535));
}

TEST_F(Cli, AlphaTravelsWhereAFileHoldsIt) {
    picture("in.png", 9, 7, 4, TypeDesc::UINT16, [](int x, int y, int c) { return pattern(x, y, c); });
    for (const char* out : {"out.png", "out.tif", "out.exr", "out.dpx"}) {
        const Outcome ran = render(std::string("pass.text -i in.png -o ") + out);
        ASSERT_EQ(ran.status, 0) << out << ran.err;
        const Samples from = samples("in.png"), to = samples(out);
        ASSERT_EQ(to.channels, 4) << out;
        for (int y = 0; y < 7; y++)
            for (int x = 0; x < 9; x++) {
                ASSERT_EQ(to.at(x, y, 3), from.at(x, y, 3)) << out;
                ASSERT_EQ(to.at(x, y, 0), filled(from.at(x, y, 0), 12)) << out;
            }
    }
    const Outcome ran = render("pass.text -i in.png -o out.jpg");
    EXPECT_EQ(ran.status, 0);
    EXPECT_NE(ran.err.find("alpha"), std::string::npos) << "a loss is told";
    EXPECT_EQ(samples("out.jpg").channels, 3);
}
