// Movies in and out of `velloran render`. The movies are made by the program itself and, for what it does not write, by
// the command line of the encoder's own project.
#include "tests/render/cli_rig.h"

#include <cmath>
#include <map>

using namespace test_cli;
using OIIO::TypeDesc;
using Names = std::vector<std::string>;

namespace {

std::string number(int n) { return std::to_string(n); }

}  // namespace

class Movies : public Cli {
protected:
    // Frames that differ from each other everywhere, smooth enough for lossy encoders.
    static void frames(int count, int width = 48, int height = 32, TypeDesc type = TypeDesc::UINT8) {
        for (int frame = 1; frame <= count; frame++)
            picture("in." + number(frame) + ".png", width, height, 3, type,
                    [&](int x, int y, int c) { return 8000 + frame * 2200 + x * 300 + y * 200 + c * 6000; });
    }
    static Outcome to_movie(const std::string& name, const std::string& options = "") {
        return render("pass.text -i in.#.png -o " + name + " --fps 25 " + options);
    }
    // Every picture "prefixN.png" as it is, by number.
    std::map<int, std::vector<uint16_t>> made(const std::string& directory) const {
        std::map<int, std::vector<uint16_t>> all;
        for (const std::string& name : files(directory))
            all[std::atoi(name.c_str())] = samples(directory + "/" + name).values;
        return all;
    }
};

TEST_F(Movies, WhatIsWrittenWithoutLossComesBackBitByBit) {
    for (const TypeDesc type : {TypeDesc::UINT8, TypeDesc::UINT16}) {
        frames(6, 37, 23, type);
        ASSERT_EQ(to_movie("m.mkv").status, 0);
        fs::remove_all("o");
        fs::create_directory("o");
        const Outcome ran = render("pass.text -i m.mkv -o o/#.png");
        ASSERT_EQ(ran.status, 0) << ran.err;
        ASSERT_EQ(files("o").size(), 6u);
        for (int frame = 1; frame <= 6; frame++) {
            const auto& in = samples("in." + number(frame) + ".png").values;
            const auto& out = samples("o/" + number(frame) + ".png").values;
            ASSERT_EQ(in.size(), out.size());
            for (size_t i = 0; i < in.size(); i++)
                ASSERT_EQ(out[i], type == TypeDesc::UINT8 ? in[i] : (in[i] & 0xfff0) | in[i] >> 12)
                    << frame << " " << i;
        }
    }
}

// Each encoder keeps the colours near what they were: a wrong matrix or range would move them by far more.
TEST_F(Movies, EncodersAndMatricesKeepColours) {
    frames(3);
    const auto near = [&](const std::string& movie, double most) {
        fs::remove_all("o");
        fs::create_directory("o");
        const Outcome ran = render("pass.text -i " + movie + " -o o/#.png");
        EXPECT_EQ(ran.status, 0) << ran.err;
        ASSERT_EQ(files("o").size(), 3u) << movie;
        for (int frame = 1; frame <= 3; frame++) {
            const auto in = samples("in." + number(frame) + ".png").values,
                       out = samples("o/" + number(frame) + ".png").values;
            double sum = 0;
            for (size_t i = 0; i < in.size(); i++) sum += std::abs(int{in[i]} - int{out[i]}) / 65535.0;
            EXPECT_LT(sum / static_cast<double>(in.size()), most) << movie << " frame " << frame;
        }
    };
    for (const char* name : {"m.mov", "m.mp4", "m.mkv"}) {
        const Outcome ran = to_movie(name);
        ASSERT_EQ(ran.status, 0) << name << ran.err;
        near(name, 0.008);
    }
    // The same picture under every matrix and range: what the file says is what is undone.
    for (const char* matrix : {"bt709", "smpte170m", "bt2020nc"})
        for (const char* range : {"tv", "pc"}) {
            const Outcome ran =
                run({"sh", "-c",
                     std::string("ffmpeg -v error -y -framerate 25 -i in.%d.png -vf scale=out_color_matrix=") +
                         (std::string(matrix) == "smpte170m" ? "bt601"
                          : std::string(matrix) == "bt709"   ? "bt709"
                                                             : "bt2020") +
                         ":out_range=" + range + ",format=yuv444p10 -colorspace " + matrix + " -color_range " + range +
                         " -c:v ffv1 c.mkv"});
            ASSERT_EQ(ran.status, 0) << ran.err;
            near("c.mkv", 0.003);
        }
}

TEST_F(Movies, AnyFrameInAnyOrderIsTheSameFrame) {
    frames(24);
    // Pictures that lean on earlier and later ones, with keys every eighth, some of them open at their start.
    ASSERT_EQ(run({"sh", "-c",
                   "ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v libx264 -g 8 -bf 3 -x264-params "
                   "open-gop=1:keyint=8:scenecut=0 -pix_fmt yuv420p b.mp4 && "
                   "ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v mpeg2video -g 8 -bf 2 -q:v 2 b.mkv && "
                   "ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v libx264 -g 8 -bf 3 -pix_fmt yuv420p b.ts"})
                  .status,
              0);
    for (const std::string movie : {"b.mp4", "b.mkv", "b.ts"}) {
        fs::remove_all("all");
        fs::remove_all("o");
        fs::create_directory("all");
        fs::create_directory("o");
        Outcome ran = render("pass.text -i " + movie + " -o all/#.png");
        ASSERT_EQ(ran.status, 0) << movie << ran.err;
        const auto all = made("all");
        ASSERT_EQ(all.size(), 24u) << movie;
        // Each frame is nearest to the picture that it was made from.
        for (const auto& [frame, values] : all) {
            const auto in = samples("in." + number(frame) + ".png").values;
            double sum = 0;
            for (size_t i = 0; i < in.size(); i++) sum += int{values[i]} - int{in[i]};
            EXPECT_LT(std::abs(sum / static_cast<double>(in.size())), 1000) << movie << " " << frame;
        }
        ran = render("pass.text -i " + movie + " -o o/#.png -f 24-17,3,9,8,2,16,1,13-10,15");
        ASSERT_EQ(ran.status, 0) << movie << ran.err;
        for (const auto& [frame, values] : made("o")) EXPECT_EQ(values, all.at(frame)) << movie << " " << frame;
    }
}

// Cut anywhere, a movie never gives a wrong frame, never ends in silence, and never ends the process.
TEST_F(Movies, CutAnywhereEveryFrameIsRightOrFails) {
    frames(12);
    ASSERT_EQ(to_movie("m.mov").status, 0);
    ASSERT_EQ(to_movie("m.mkv").status, 0);
    ASSERT_EQ(
        run({"sh", "-c",
             "ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v libx264 -g 6 -bf 3 -pix_fmt yuv420p "
             "-movflags +faststart m.mp4 && ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v libx264 -g 6 -bf 3 "
             "-pix_fmt yuv420p b.mkv && ffmpeg -v error -y -framerate 25 -i in.%d.png -c:v mpeg4 -g 6 -bf 2 m.avi"})
            .status,
        0);
    for (const std::string movie : {"m.mp4", "m.mov", "m.mkv", "b.mkv", "m.avi"}) {
        SCOPED_TRACE(movie);
        const std::string whole = read_file(movie), cut = "cut" + movie.substr(1);
        fs::remove_all("all");
        fs::create_directory("all");
        ASSERT_EQ(render("pass.text -i " + movie + " -o all/#.png").status, 0);
        const auto all = made("all");
        ASSERT_EQ(all.size(), 12u);
        bool some = false;
        for (size_t i = 1; i <= 12; i++) {
            const size_t bytes = i < 12 ? whole.size() * i / 12 : whole.size() - 1;
            write(cut, whole.substr(0, bytes));
            fs::remove_all("o");
            fs::create_directory("o");
            const Outcome ran = render("pass.text -i " + cut + " -o o/#.png");
            EXPECT_TRUE(ran.status == 1 || ran.status == 2)
                << bytes << " of " << whole.size() << ": " << ran.status << ran.err;
            const auto left = made("o");
            for (const auto& [frame, values] : left) {
                ASSERT_TRUE(all.count(frame));
                EXPECT_EQ(values, all.at(frame)) << bytes << " bytes, frame " << frame;
            }
            EXPECT_TRUE(ran.status != 1 || ran.err.find(cut + ": frame ") != std::string::npos) << ran.err;
            some |= !left.empty() && left.size() < 12;
        }
        // Where the table of frames stands in front, what is there can be had.
        EXPECT_TRUE(some || movie == "m.mov");
    }
}

TEST_F(Movies, DamagedBytesNeverEndTheProcess) {
    frames(8);
    ASSERT_EQ(to_movie("m.mkv").status, 0);
    ASSERT_EQ(to_movie("m.mp4").status, 0);
    unsigned random = 12345;
    for (const std::string movie : {"m.mkv", "m.mp4"}) {
        const std::string whole = read_file(movie);
        fs::remove_all("all");
        fs::create_directory("all");
        ASSERT_EQ(render("pass.text -i " + movie + " -o all/#.png").status, 0);
        const auto all = made("all");
        for (int round = 0; round < 15; round++) {
            std::string bytes = whole;
            for (int i = 0; i < 12; i++) {
                random = random * 1664525 + 1013904223;
                bytes[(random >> 4) % bytes.size()] = static_cast<char>(random >> 24);
            }
            write("bad" + movie.substr(1), bytes);
            fs::remove_all("o");
            fs::create_directory("o");
            const Outcome ran = render("pass.text -i bad" + movie.substr(1) + " -o o/#.png");
            // What asks for a frame larger than all memory ends as that does.
            EXPECT_TRUE((ran.status >= 0 && ran.status <= 2) || ran.status == 33)
                << round << ": " << ran.status << ran.err;
            // Slices without loss carry sums, so each frame is right or fails.
            if (movie != "m.mkv") continue;
            for (const auto& [frame, values] : made("o")) {
                ASSERT_TRUE(all.count(frame)) << round;
                EXPECT_EQ(values, all.at(frame)) << round << " frame " << frame;
            }
        }
    }
}

TEST_F(Movies, UnevenTimesAreToldAndFramesCounted) {
    frames(6);
    std::string list;
    for (int frame = 1; frame <= 6; frame++)
        list += "file in." + number(frame) + ".png\nduration " + (frame % 2 ? "0.04" : "0.12") + "\n";
    write("list.txt", list);
    ASSERT_EQ(
        run({"sh", "-c", "ffmpeg -v error -y -f concat -safe 0 -i list.txt -vsync vfr -c:v ffv1 -pix_fmt bgr0 u.mkv"})
            .status,
        0);
    fs::create_directory("o");
    const Outcome ran = render("pass.text -i u.mkv -o o/#.png");
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_NE(ran.err.find("u.mkv: its frames are not shown for equally long"), std::string::npos) << ran.err;
    for (const auto& [frame, values] : made("o"))
        EXPECT_EQ(values, samples("in." + number(frame) + ".png").values) << frame;
}

TEST_F(Movies, AMovieIsThereWholeOrNotAtAll) {
    frames(6);
    write("in.4.png", "broken");
    Outcome ran = to_movie("m.mov");
    EXPECT_EQ(ran.status, 1) << ran.err;
    EXPECT_NE(ran.err.find("failed 1, given up 3, not tried 2 of 6"), std::string::npos) << ran.err;
    EXPECT_FALSE(fs::exists("m.mov"));
    EXPECT_EQ(to_movie("m.mov", "--missing hold -f 1-3").status, 0);
    EXPECT_TRUE(fs::exists("m.mov"));
    // An older movie stays as it is.
    const std::string before = read_file("m.mov");
    EXPECT_EQ(to_movie("m.mov").status, 1);
    EXPECT_EQ(read_file("m.mov"), before);
    // Skipped as one, by its recipe.
    frames(6);
    ASSERT_EQ(to_movie("s.mkv", "--skip-existing").status, 0);
    ran = to_movie("s.mkv", "--skip-existing");
    EXPECT_NE(ran.err.find("already there 6 of 6"), std::string::npos) << ran.err;
    ran = to_movie("s.mkv", "--skip-existing -f 1-5");
    EXPECT_NE(ran.err.find("wrote 5 of 5"), std::string::npos) << ran.err;
    // A limit on the size of files stands for the full disk.
    frames(6, 300, 200, TypeDesc::UINT16);
    ran = run({"sh", "-c",
               std::string("ulimit -f 8; trap '' XFSZ; exec ") + VELLORAN_PROGRAM +
                   " render --config cfg pass.text -i in.#.png -o full.mkv"});
    EXPECT_EQ(ran.status, 1) << ran.err;
    EXPECT_NE(ran.err.find("full.mkv: File too large"), std::string::npos) << ran.err;
    EXPECT_FALSE(fs::exists("full.mkv"));
}

// Film that another program made television of comes back frame by frame, from a real clip with all that moves in it.
TEST_F(Movies, ATelecinedClipComesBackFrameByFrame) {
    fs::create_directory("film");
    // The clip moves from its ninth frame on; sixteen are four times the pattern.
    ASSERT_EQ(run({"sh", "-c",
                   "ffmpeg -v error -i " SAMPLE_CLIP
                   " -vf 'select=gte(n\\,8),setpts=N/FRAME_RATE/TB' -frames:v 16 -pix_fmt bgr0 -c:v ffv1 "
                   "film.mkv && ffmpeg -v error -i film.mkv film/%d.png"})
                  .status,
              0);
    const auto film = made("film");
    ASSERT_EQ(film.size(), 16u);
    for (const std::string first : {"top", "bottom"}) {
        SCOPED_TRACE(first);
        ASSERT_EQ(run({"sh", "-c",
                       "ffmpeg -v error -y -i film.mkv -vf telecine=first_field=" + first +
                           ":pattern=23 -pix_fmt bgr0 -c:v ffv1 tv.mkv"})
                      .status,
                  0);
        fs::remove_all("o");
        fs::create_directory("o");
        const Outcome ran = render("DeinterlaceAuto -i tv.mkv -o o/#.png -p find_pattern=1");
        ASSERT_EQ(ran.status, 0) << ran.err;
        EXPECT_NE(ran.err.find("20 frames become 16"), std::string::npos) << ran.err;
        const auto back = made("o");
        ASSERT_EQ(back.size(), film.size());
        for (const auto& [frame, values] : back) EXPECT_TRUE(values == film.at(frame)) << frame;
    }
}
