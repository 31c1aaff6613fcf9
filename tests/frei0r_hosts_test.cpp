// One table of effects and values through the command line, and through the modules in FFmpeg, MLT and GStreamer.
#include "tests/frei0r_rig.h"

#include <cstdlib>

namespace {

using namespace test_frei0r;

struct Row {
    const char* slug;
    const char* effect;
    // Of the host, by index, and of the command line.
    std::vector<std::pair<int, const char*>> values;
    const char* arguments;
};

const std::vector<Row> table = {
    {"velloran_glow", "glows:Glow", {}, ""},
    {"velloran_grade", "color:Grade", {}, ""},
    {"velloran_twirl", "distort:Twirl", {{0, "0.6"}, {1, "0.25"}}, nullptr},
    {"velloran_soft_focus", "blur:Soft_Focus", {{0, "0.5"}}, nullptr},
    {"velloran_posterise", "color:Posterise", {}, ""},
    {"velloran_grain", "film:Grain", {}, ""},
};

// The same values for the command line, by the module's own record of what a number stands for.
std::string arguments_of(const Row& row) {
    if (row.arguments) return row.arguments;
    for (const Known& known : known_modules()) {
        if (known.slug != row.slug) continue;
        Values values(known.listed["params"], known.indices, nullptr);
        std::map<std::string, std::string> words;
        std::vector<std::string> names;
        for (const auto& param : known.listed["params"]) {
            const std::string name = param["name"];
            if (param["default"].size() > 2) continue;
            std::string list;
            for (size_t c = 0; c < param["default"].size(); c++) {
                const std::string channel = param["default"].size() == 1 ? name : name + (c ? "_y" : "_x");
                std::string text;
                for (const Value& value : values.list)
                    if (value.name == channel) text = value.effects;
                for (const auto& [index, given] : row.values)
                    if (known.indices.count(channel) && known.indices.at(channel) == index)
                        text = digits(static_cast<float>(Values::scaled(param, c, std::atof(given))));
                list += (c ? "," : "") + text;
            }
            words[name] += " -p " + name + "=" + list;
        }
        std::string all;
        for (const auto& [name, text] : words) all += text;
        return all;
    }
    return "";
}

bool installed_p(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

class Frei0rHosts : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"FREI0R_PATH", "MLT_FREI0R_PLUGIN_PATH"}) setenv(name, MODULE_DIR, 1);
        setenv("GST_REGISTRY", (pictures.dir / "registry").c_str(), 1);
        output_of("ffmpeg -v error -i " + pictures.input(0) + " " + png("in"));
        output_of("ffmpeg -v error -i " + pictures.input(1) + " " + png("other"));
    }
    std::string png(const std::string& name) const { return (pictures.dir / (name + ".png")).string(); }
    Bytes read(const std::string& name) const {
        return output_of("ffmpeg -v error -i " + png(name) + " -f rawvideo -pix_fmt rgb24 -");
    }
    // A frame of MLT's: the picture, and what is done to it.
    Bytes melt(const std::string& words) const {
        std::ofstream(pictures.dir / "profile")
            << "description=test\nframe_rate_num=25\nframe_rate_den=1\nwidth=112\nheight=57\nprogressive=1\n"
               "sample_aspect_num=1\nsample_aspect_den=1\ndisplay_aspect_num=112\ndisplay_aspect_den=57\ncolorspace="
               "709\n";
        const std::string profile = (pictures.dir / "profile").string();
        output_of("melt -silent -profile " + profile + " " + words + " -consumer avformat:" + png("melt") +
                  " vcodec=png pix_fmt=rgb24 mlt_image_format=rgb f=image2 update=1 real_time=-1 2>/dev/null");
        return read("melt");
    }

    // FFmpeg pads the rows of the odd one, and nobody can make a picture of that.
    const Pictures pictures{112, 57}, odd{101, 57};
};

TEST_F(Frei0rHosts, Ffmpeg) {
    if (!installed_p("ffmpeg")) GTEST_SKIP() << "no ffmpeg";
    for (const Row& row : table) {
        const Pictures* const from = &pictures;
        std::string values;
        for (size_t i = 0; i < row.values.size(); i++)
            values += (i ? "|" : ":filter_params=") + std::string(row.values[i].second);
        const Bytes made =
            output_of("ffmpeg -v error -i " + from->input(0) + " -vf 'format=rgba,frei0r=filter_name=" + row.slug +
                      values + "' -f rawvideo -pix_fmt rgb24 -");
        EXPECT_EQ(made, from->command_line(row.effect, 1, arguments_of(row), 1)) << row.slug;
    }
    const Bytes padded = output_of("ffmpeg -v error -i " + odd.input(0) +
                                   " -vf 'format=rgba,frei0r=velloran_invert,format=rgba,crop=1:1:0:0' -f rawvideo "
                                   "-pix_fmt rgb24 - 2>/dev/null");
    EXPECT_EQ(padded, Bytes({255, 0, 255}));
    // A source, at its third frame.
    const Row source = {"velloran_clouds", "textures:Clouds", {{0, "0.5"}}, nullptr};
    const Bytes clip = output_of(
        "ffmpeg -v error -f lavfi -i frei0r_src=size=112x57:framerate=25:filter_name=velloran_clouds:filter_params=0.5 "
        "-frames:v 3 "
        "-f rawvideo -pix_fmt rgb24 -");
    const Bytes third = pictures.command_line("textures:Clouds", 0, arguments_of(source), 3);
    ASSERT_EQ(clip.size(), 3 * third.size());
    EXPECT_LE(largest_difference(Bytes(clip.end() - static_cast<std::ptrdiff_t>(third.size()), clip.end()), third), 1);
}

TEST_F(Frei0rHosts, Melt) {
    if (!installed_p("melt")) GTEST_SKIP() << "no melt";
    for (const Row& row : table) {
        std::string values;
        for (const auto& [index, text] : row.values) values += " " + std::to_string(index) + "=" + text;
        EXPECT_EQ(melt("pixbuf:" + png("in") + " out=0 -filter frei0r." + row.slug + values),
                  pictures.command_line(row.effect, 1, arguments_of(row), 1))
            << row.slug;
    }
    const std::string two = " -transition frei0r.velloran_dissolve a_track=0 b_track=1 0=0.25";
    EXPECT_EQ(melt("-track pixbuf:" + png("in") + " out=0 -track pixbuf:" + png("other") + " out=0" + two),
              pictures.command_line("transitions:Dissolve", 2, " -p transition=0.25", 1));
}

TEST_F(Frei0rHosts, Gstreamer) {
    if (!installed_p("gst-launch-1.0") || std::system("gst-inspect-1.0 frei0r >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no gst-launch-1.0 with frei0r";
    const std::map<std::string, std::vector<std::string>> names = [] {
        std::map<std::string, std::vector<std::string>> all;
        for (const Known& known : known_modules()) {
            all[known.slug].resize(known.indices.size());
            for (const auto& [name, index] : known.indices) all[known.slug][static_cast<size_t>(index)] = name;
        }
        return all;
    }();
    for (const Row& row : table) {
        std::string element = row.slug, values;
        std::replace(element.begin(), element.end(), '_', '-');
        for (const auto& [index, text] : row.values) {
            std::string name = names.at(row.slug)[static_cast<size_t>(index)];
            std::replace(name.begin(), name.end(), '_', '-');
            values += " " + name + "=" + text;
        }
        output_of("gst-launch-1.0 -q filesrc location=" + png("in") + " ! pngdec ! videoconvert ! frei0r-filter-" +
                  element + values + " ! videoconvert ! pngenc ! filesink location=" + png("gst") + " >/dev/null 2>&1");
        EXPECT_EQ(read("gst"), pictures.command_line(row.effect, 1, arguments_of(row), 1)) << row.slug;
    }
}

}  // namespace
