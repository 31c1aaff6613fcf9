// velloran-stamps: makes files of stamps (.qmi) for dust, hairs and stains, from pictures or out of nothing.
#include "hosts/stamps/draw_dirt.h"
#include "hosts/stamps/write_qmi.h"

#include <OpenImageIO/imagebuf.h>

#include <CLI/CLI.hpp>

#include <cstdio>

using namespace stamp_maker;

namespace {

// The luma of a picture, through its alpha where it has one.
std::string read_stamp(const std::string& path, StampPicture* stamp) {
    OIIO::ImageBuf file(path);
    if (!file.read(0, 0, true, OIIO::TypeDesc::FLOAT)) return path + ": " + file.geterror();
    const OIIO::ImageSpec& spec = file.spec();
    if (spec.width > most_side || spec.height > most_side) return path + ": too large for a stamp";
    *stamp = StampPicture(spec.width, spec.height);
    std::vector<float> pixel(static_cast<size_t>(spec.nchannels));
    for (int y = 0; y < spec.height; ++y)
        for (int x = 0; x < spec.width; ++x) {
            file.getpixel(spec.x + x, spec.y + y, pixel.data(), spec.nchannels);
            float v = spec.nchannels < 3 ? pixel[0] : 0.2126f * pixel[0] + 0.7152f * pixel[1] + 0.0722f * pixel[2];
            if (spec.alpha_channel > 0) v *= pixel[static_cast<size_t>(spec.alpha_channel)];
            stamp->at(x, y) = v;
        }
    return "";
}

// All stamps on one picture, to be looked at.
std::string write_sheet(const std::string& path, const std::vector<StampPicture>& stamps) {
    constexpr int columns = 8, gap = 6;
    int width = 1, height = 1;
    for (const StampPicture& stamp : stamps) {
        width = std::max(width, stamp.width + gap);
        height = std::max(height, stamp.height + gap);
    }
    const int rows = (static_cast<int>(stamps.size()) + columns - 1) / columns;
    OIIO::ImageBuf sheet(OIIO::ImageSpec(columns * width, rows * height, 1, OIIO::TypeDesc::UINT8));
    for (size_t i = 0; i < stamps.size(); ++i) {
        const int left = static_cast<int>(i) % columns * width, top = static_cast<int>(i) / columns * height;
        for (int y = 0; y < stamps[i].height; ++y)
            for (int x = 0; x < stamps[i].width; ++x) {
                const float v = stamps[i].at(x, y);
                sheet.setpixel(left + x, top + y, &v, 1);
            }
    }
    return sheet.write(path) ? "" : path + ": " + sheet.geterror();
}

int finish(const std::string& trouble) {
    if (trouble.empty()) return 0;
    std::fprintf(stderr, "error: %s\n", trouble.c_str());
    return 2;
}

}  // namespace

int main(int argc, char* argv[]) {
    CLI::App app(
        "Makes files of stamps (.qmi): the shapes that dust, hairs and stains are drawn with.\n"
        "White covers, black does not. A file lies in stamps/dust, stamps/hairs or stamps/film-stains of the "
        "configuration directory.");
    app.require_subcommand(1);
    std::string out, sheet, kind;
    std::vector<std::string> pictures;
    int count = 24, resolution = 100;
    unsigned seed = 1;

    CLI::App* const pack = app.add_subcommand("pack", "A file from pictures, one stamp each.");
    pack->add_option("out", out, "The file (.qmi)")->required();
    pack->add_option("pictures", pictures, "Pictures: their brightness is what covers")->required();
    pack->add_option("--resolution", resolution, "Samples in 100 pixels of a frame 1920 wide")
        ->check(CLI::Range(1, 32767));

    CLI::App* const draw = app.add_subcommand("draw", "A file of stamps drawn from noise and curves.");
    draw->add_option("kind", kind, "What to draw")->required()->check(CLI::IsMember({"film-stains", "dust", "hairs"}));
    draw->add_option("out", out, "The file (.qmi)")->required();
    draw->add_option("--count", count, "How many")->check(CLI::Range(1, most_stamps));
    draw->add_option("--seed", seed, "Another number gives other stamps");
    for (CLI::App* const command : {pack, draw})
        command->add_option("--sheet", sheet, "A picture of all of them, to be looked at");
    CLI11_PARSE(app, argc, argv);

    std::vector<StampPicture> stamps = draw->parsed() ? draw_dirt(kind, count, seed) : std::vector<StampPicture>();
    for (const std::string& picture : pictures) {
        StampPicture stamp;
        if (const std::string trouble = read_stamp(picture, &stamp); !trouble.empty()) return finish(trouble);
        stamp = trimmed(stamp);
        if (stamp.width == 0) return finish(picture + ": is black all over");
        stamp.resolution = resolution;
        stamps.push_back(stamp);
    }
    if (const std::string trouble = write_qmi(out, stamps); !trouble.empty()) return finish(trouble);
    std::printf("%s: %zu stamps\n", out.c_str(), stamps.size());
    return sheet.empty() ? 0 : finish(write_sheet(sheet, stamps));
}
