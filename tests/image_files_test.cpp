// Files of stamps and TIFF files: what is in them, what is wrong with them, and what happens when memory or the disk
// gives out.
#include "hosts/stamps/draw_dirt.h"
#include "hosts/stamps/write_qmi.h"
#include "operators/image_files/image_file.h"
#include "operators/image_files/qmi_file.h"
#include "operators/image_files/stamp_jpeg.h"
#include "operators/image_files/tiff_file.h"
#include "support/memory.h"
#include "testing/jpeg_bytes.h"
#include "testing/stamp_files.h"
#include "testing/support_messages.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>

using namespace velloran;
using namespace velloran_tests;

namespace {

struct FreeCollection {
    void operator()(StampCollection* c) const { free_stamp_collection(c); }
};
using CollectionPtr = std::unique_ptr<StampCollection, FreeCollection>;
CollectionPtr collection() { return CollectionPtr(new_stamp_collection()); }

int sample_of(const Stamp& stamp, int level, int x, int y) {
    const StampLevel& l = stamp.levels[level];
    return l.samples[ptrdiff_t{y} * l.pitch + x];
}

// All samples of a level, its border of 0 included.
std::vector<int> level_samples(const Stamp& stamp, int level) {
    std::vector<int> all;
    for (int y = -1; y <= stamp.levels[level].height; ++y)
        for (int x = -1; x <= stamp.levels[level].width; ++x) all.push_back(sample_of(stamp, level, x, y));
    return all;
}

// Levels by the rule itself, over whole pictures.
void expect_levels_halve(const Stamp& stamp) {
    int w = stamp.width, h = stamp.height, level = 0;
    for (; w > 1 && h > 1; ++level) {
        ASSERT_LT(level + 1, stamp.level_count);
        const auto at = [&](int x, int y) { return x < w && y < h ? sample_of(stamp, level, x, y) : 0; };
        const int half_w = (w + 1) / 2, half_h = (h + 1) / 2;
        ASSERT_EQ(stamp.levels[level + 1].width, half_w);
        ASSERT_EQ(stamp.levels[level + 1].height, half_h);
        for (int y = 0; y < half_h; ++y)
            for (int x = 0; x < half_w; ++x) {
                const int upper = (at(2 * x, 2 * y) + at(2 * x + 1, 2 * y)) / 2;
                const int lower = (at(2 * x, 2 * y + 1) + at(2 * x + 1, 2 * y + 1)) / 2;
                ASSERT_EQ(sample_of(stamp, level + 1, x, y), (upper + lower) / 2) << level << " " << x << " " << y;
            }
        w = half_w;
        h = half_h;
    }
    EXPECT_EQ(stamp.level_count, level + 1);
}

class ImageFiles : public SupportTest {
protected:
    std::string bad(const char* what, const std::string& path) const {
        return std::string("8 ") + what + "8 The stamp file is " + path + "\n";
    }
};

}  // namespace

TEST_F(ImageFiles, QmiStampsOrWhyNot) {
    const std::string six = {1, 2, 3, 4, 5, '\xff'};
    const QmiImage plain = {3, 2, six}, other = {1, 1, "\x80"};
    const std::string head = qmi_bytes({}), one = qmi_bytes({plain});
    struct Case {
        const char* name;
        std::string bytes;
        int count;
        const char* message;
    };
    const Case cases[] = {
        {"plain", qmi_bytes({plain, other}), 2, ""},
        {"nothing in it", head, 0, ""},
        {"any version with a good magic", qmi_bytes({plain}, 9), 1, ""},
        {"short header", head.substr(0, 15), 0, "QMI file format error: EOF in header."},
        {"empty", "", 0, "QMI file format error: EOF in header."},
        {"bad magic", "QMIG\x01" + one.substr(5), 0, "QMI file format error: bad magic number."},
        {"bad magic of a later version", "QMIG\x02" + one.substr(5), 0, "QMI file format error: future file format."},
        {"unknown compression is passed over", qmi_bytes({{3, 2, six, 2}, plain}), 1, ""},
        {"half an image header", qmi_bytes({plain}) + "12", 0, "QMI file format error: EOF in image header."},
        {"short data", qmi_bytes({plain, {3, 2, six, 0, 100, 100, 7}}), 1, "QMI file format error: EOF in image data"},
        {"data of gigabytes", qmi_bytes({plain, {3, 2, six, 2, 100, 100, 0xffffffff}}), 1,
         "QMI file format error: EOF in image data"},
        {"no width", qmi_bytes({{0, 2, ""}, plain}), 1, "QMI file format error: bad image size."},
        {"width below 0", qmi_bytes({{-3, 2, six}, plain}), 1, "QMI file format error: bad image size."},
        {"too large", qmi_bytes({{32767, 32767, six}, plain}), 1, "QMI file format error: bad image size."},
        {"too few samples", qmi_bytes({{3, 2, six.substr(1)}, plain}), 1,
         "QMI file format error: the data do not fit the image size."},
        {"too many samples", qmi_bytes({{2, 2, six}, plain}), 1,
         "QMI file format error: the data do not fit the image size."},
        {"runs of too much", qmi_bytes({{3, 2, "##\x02\x07#\x05\x09", 1}, plain}), 1,
         "QMI file format error: the data do not fit the image size."},
        {"runs that end in the escape", qmi_bytes({{3, 2, "#xxxxxx#", 1}, plain}), 1,
         "QMI file format error: the data do not fit the image size."},
        {"no escape at all", qmi_bytes({{3, 2, "", 1}, plain}), 1,
         "QMI file format error: the data do not fit the image size."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = write("a.qmi", c.bytes);
        const CollectionPtr all = collection();
        EXPECT_EQ(load_stamps_from_qmi(path.c_str(), all.get()), c.count);
        EXPECT_EQ(all->count, c.count);
        EXPECT_EQ(messages(), *c.message ? bad((std::string(c.message) + "\n").c_str(), path) : "");
        for (int i = 0; i < all->count; ++i) EXPECT_GT(all->stamps[i].level_count, 0);
    }
}

TEST_F(ImageFiles, QmiSamples) {
    // Runs: the escape stands for itself as a run of one; a run of none is nothing.
    const std::string runs("##\x03\xffyz#\x00q#\x01#", 12);
    const std::string path = write(
        "a.qmi", qmi_bytes({{3, 2, std::string("\x00\x01\x10\x80\xf0\xff", 6), 0, 50, 200}, {3, 2, runs, 1, 0, -5}}));
    const CollectionPtr all = collection();
    ASSERT_EQ(load_stamps_from_qmi(path.c_str(), all.get()), 2);
    const Stamp &a = all->stamps[0], &b = all->stamps[1];
    EXPECT_EQ(level_samples(a, 0),
              (std::vector<int>{0, 0, 0, 0, 0, 0, 0, 16, 257, 0, 0, 2056, 3855, 4095, 0, 0, 0, 0, 0, 0}));
    EXPECT_FLOAT_EQ(a.x_scale, 2);
    EXPECT_FLOAT_EQ(a.y_scale, 0.5f);
    const int ypsilon = 'y' << 4 | 'y' >> 4, z = 'z' << 4 | 'z' >> 4, mark = '#' << 4 | '#' >> 4;
    EXPECT_EQ(level_samples(b, 0),
              (std::vector<int>{0, 0, 0, 0, 0, 0, 4095, 4095, 4095, 0, 0, ypsilon, z, mark, 0, 0, 0, 0, 0, 0}));
    EXPECT_FLOAT_EQ(b.x_scale, 1);  // resolutions that cannot be
    EXPECT_FLOAT_EQ(b.y_scale, 1);
    for (const auto& [w, h] : {std::pair(1, 1), {2, 2}, {3, 3}, {1, 9}, {64, 5}, {37, 23}}) {
        const std::string odd = write("b.qmi", qmi_bytes({{w, h, stamp_samples(w, h)}}));
        const CollectionPtr one = collection();
        ASSERT_EQ(load_stamps_from_qmi(odd.c_str(), one.get()), 1);
        expect_levels_halve(one->stamps[0]);
        const Stamp& mirrored = *mirrored_stamp(&one->stamps[0]);
        for (int level = 0; level < mirrored.level_count; ++level)
            for (int y = -1; y <= mirrored.levels[level].height; ++y)
                for (int x = -1; x <= mirrored.levels[level].width; ++x)
                    ASSERT_EQ(sample_of(mirrored, level, x, y), sample_of(one->stamps[0], level, y, x));
    }
}

TEST_F(ImageFiles, ACollectionHasAnEnd) {
    const QmiImage dot = {1, 1, "x"};
    const std::string full = write("full.qmi", qmi_bytes(std::vector<QmiImage>(350, dot)));
    const std::string more = write("more.qmi", qmi_bytes(std::vector<QmiImage>(351, dot)));
    const CollectionPtr a = collection(), b = collection();
    EXPECT_EQ(load_stamps_from_qmi(full.c_str(), a.get()), 350);
    EXPECT_EQ(messages(), "");
    EXPECT_EQ(load_stamps_from_qmi(more.c_str(), b.get()), 350);
    EXPECT_EQ(messages(), "7 Too many stamps in load_stamps_from_qmi(" + more + "=350) -- ignoring extras\n");
}

TEST_F(ImageFiles, WhatTheMakerOfStampsWritesIsReadBack) {
    std::vector<stamp_maker::StampPicture> made;
    for (const char* const kind : {"film-stains", "dust", "hairs"})
        for (stamp_maker::StampPicture& picture : stamp_maker::draw_dirt(kind, 6, 9))
            made.push_back(std::move(picture));
    // Hard to pack: all values, and runs of the longest count.
    stamp_maker::StampPicture ramp(257, 3), flat(300, 2);
    for (int x = 0; x < 257; ++x)
        for (int y = 0; y < 3; ++y) ramp.at(x, y) = static_cast<float>(x % 256) / 255;
    std::fill(flat.samples.begin(), flat.samples.end(), 1.0f);
    made.push_back(ramp);
    made.push_back(flat);
    const std::string path = dir + "/made.qmi";
    ASSERT_EQ(stamp_maker::write_qmi(path, made), "");
    const CollectionPtr all = collection();
    ASSERT_EQ(load_stamps_from_qmi(path.c_str(), all.get()), static_cast<int>(made.size()));
    for (size_t i = 0; i < made.size(); ++i) {
        const Stamp& stamp = all->stamps[i];
        ASSERT_EQ(stamp.width, made[i].width);
        ASSERT_EQ(stamp.height, made[i].height);
        EXPECT_FLOAT_EQ(stamp.x_scale, 100.0f / static_cast<float>(made[i].resolution));
        for (int y = 0; y < stamp.height; ++y)
            for (int x = 0; x < stamp.width; ++x)
                ASSERT_EQ(sample_of(stamp, 0, x, y),
                          stamp_sample(static_cast<uint8_t>(std::lround(made[i].at(x, y) * 255))))
                    << i << " " << x << " " << y;
    }
    EXPECT_EQ(messages(), "");
    EXPECT_NE(stamp_maker::write_qmi(dir + "/none/made.qmi", made), "");
    EXPECT_NE(stamp_maker::write_qmi(path, {}), "");
    EXPECT_NE(stamp_maker::write_qmi(path, std::vector<stamp_maker::StampPicture>(351, ramp)), "");
    // What comes along.
    const struct {
        const char* kind;
        int count;
    } shipped[] = {{"film-stains", 24}, {"dust", 40}, {"hairs", 24}};
    for (const auto& s : shipped) {
        const CollectionPtr theirs = collection();
        const std::string file = std::string(SHIPPED_STAMPS "/") + s.kind + "/drawn.qmi";
        EXPECT_EQ(load_stamps_from_qmi(file.c_str(), theirs.get()), s.count);
    }
    EXPECT_EQ(messages(), "");
}

TEST_F(ImageFiles, WhatIsNoFileIsNotOpened) {
    const CollectionPtr all = collection();
    const std::string pipe = dir + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(load_stamps_from_qmi(pipe.c_str(), all.get()), stamps_unreadable);
    EXPECT_EQ(load_stamp_from_jpeg(dir.c_str(), false, &all->stamps[0]), stamp_jpeg_unreadable);
    TiffPicture picture;
    EXPECT_FALSE(read_tiff((dir + "/none").c_str(), tiff_rgb, &picture));
    EXPECT_EQ(messages(), "8 Open of " + pipe + " failed: not a plain file\n8 Open of " + dir +
                              " failed: not a plain file\n8 Open of " + dir +
                              "/none failed: No such file or directory\n");
}

namespace {

std::vector<uint8_t> soft_pixels(int width, int height, int channels) {
    std::vector<uint8_t> pixels;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                pixels.push_back(static_cast<uint8_t>(40 + 3 * x + 5 * y + (c == 1 ? 20 : 0)));
    return pixels;
}

}  // namespace

TEST_F(ImageFiles, JpegStamps) {
    struct Case {
        int width, height;
        JpegForm form;
        float scale;
    };
    const Case cases[] = {{13, 9, {1, 0}, 1}, {13, 9, {3, 50}, 2}, {32, 16, {3, 400, true}, 0.25f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.form.density);
        const std::vector<uint8_t> pixels = soft_pixels(c.width, c.height, c.form.channels);
        const std::string path = write("a.jpeg", jpeg_bytes(c.width, c.height, pixels, c.form));
        const CollectionPtr all = collection();
        Stamp &now = all->stamps[0], &later = all->stamps[1];
        ASSERT_EQ(load_stamp_from_jpeg(path.c_str(), false, &now), stamp_jpeg_done);
        ASSERT_EQ(load_stamp_from_jpeg(path.c_str(), true, &later), stamp_jpeg_done);
        EXPECT_EQ(later.level_count, 0);
        EXPECT_EQ(later.width, c.width);
        EXPECT_EQ(later.height, c.height);
        ASSERT_EQ(read_deferred_stamp(&later), stamp_jpeg_done);
        EXPECT_FLOAT_EQ(now.x_scale, c.scale);
        EXPECT_FLOAT_EQ(later.y_scale, c.scale);
        expect_levels_halve(now);
        for (int level = 0; level < now.level_count; ++level)
            EXPECT_EQ(level_samples(now, level), level_samples(later, level));
        for (int y = 0; y < c.height; ++y)
            for (int x = 0; x < c.width; ++x) {
                const int grey = 40 + 3 * x + 5 * y + (c.form.channels == 3 ? 12 : 0);  // 0.587 of 20
                ASSERT_NEAR(sample_of(now, 0, x, y), grey * 16.06, 60) << x << " " << y;
            }
    }
    EXPECT_EQ(messages(), "");
}

TEST_F(ImageFiles, ABadJpegIsToldOnceAndNeverEndsTheProcess) {
    const std::string good = jpeg_bytes(24, 16, soft_pixels(24, 16, 1));
    std::string huge = good;
    const size_t frame = good.find("\xff\xc0");
    huge.replace(frame + 5, 4, "\x7f\xff\x7f\xff");
    for (const std::string& bytes : {std::string(), std::string("no picture"), good.substr(0, 100), huge}) {
        const std::string path = write("a.jpg", bytes);
        const CollectionPtr all = collection();
        EXPECT_EQ(load_stamp_from_jpeg(path.c_str(), false, &all->stamps[0]), stamp_jpeg_refused);
        EXPECT_EQ(all->stamps[0].data, nullptr);
        EXPECT_EQ(messages().rfind("8 load_stamp_from_jpeg: " + path + ": ", 0), 0u);
    }
    // Of a deferred stamp the end may turn out to be missing.
    const std::string path = write("a.jpg", good.substr(0, good.size() - 40));
    const CollectionPtr all = collection();
    ASSERT_EQ(load_stamp_from_jpeg(path.c_str(), true, &all->stamps[0]), stamp_jpeg_done);
    EXPECT_EQ(read_deferred_stamp(&all->stamps[0]), stamp_jpeg_refused);
    EXPECT_NE(messages(), "");
    EXPECT_EQ(read_deferred_stamp(&all->stamps[0]), stamp_jpeg_refused);
    EXPECT_EQ(messages(), "");
    // Another picture in its place.
    write("a.jpg", jpeg_bytes(12, 16, soft_pixels(12, 16, 1)));
    ASSERT_EQ(load_stamp_from_jpeg(path.c_str(), true, &all->stamps[1]), stamp_jpeg_done);
    write("a.jpg", good);
    EXPECT_EQ(read_deferred_stamp(&all->stamps[1]), stamp_jpeg_refused);
    EXPECT_EQ(messages(), "8 load_stamp_from_jpeg: " + path + ": its size has changed\n");
}

namespace {

std::string tiff_bytes(int width, int height, const std::vector<uint8_t>& pixels, const std::string& path) {
    EXPECT_TRUE(write_rgb_tiff_file(path.c_str(), width, height, pixels.data()));
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Entry i of the directory: its tag, type, count and value.
void set_entry(std::string* bytes, int tag, int type, uint32_t count, uint32_t value) {
    for (size_t at = 10; at < 154; at += 12) {
        if (static_cast<uint8_t>((*bytes)[at]) + 256 * (*bytes)[at + 1] != tag) continue;
        (*bytes)[at + 2] = static_cast<char>(type);
        for (size_t i = 0; i < 4; ++i) {
            (*bytes)[at + 4 + i] = static_cast<char>(count >> 8 * i);
            (*bytes)[at + 8 + i] = static_cast<char>(value >> 8 * i);
        }
        return;
    }
    ADD_FAILURE() << "no tag " << tag;
}

}  // namespace

TEST_F(ImageFiles, TiffThereAndBack) {
    const std::string path = dir + "/a.tif";
    const std::vector<uint8_t> pixels = soft_pixels(5, 3, 3);
    const std::string bytes = tiff_bytes(5, 3, pixels, path);
    EXPECT_EQ(messages(), "0 writing tiff file: " + path + " (5 x 3)\n");
    ASSERT_EQ(bytes.size(), 174u + 45);
    EXPECT_EQ(bytes.substr(0, 10), std::string("MM\x2a\0\x08\0\0\0\x0c\0", 10));
    EXPECT_EQ(bytes.substr(154, 12), std::string("\0\0\0\0\x2c\x01\0\0\x01\0\0\0", 12));
    struct Layout {
        TiffLayout layout;
        std::vector<int> second;  // the second pixel: 43, 63, 43
    };
    for (const Layout& l : {Layout{tiff_rgb, {43, 63, 43}}, {tiff_rgba, {43, 63, 43, 255}}, {tiff_grey, {55}}}) {
        TiffPicture picture;
        ASSERT_TRUE(read_tiff(path.c_str(), l.layout, &picture));
        EXPECT_EQ(picture.width, 5);
        EXPECT_EQ(picture.height, 3);
        const uint8_t* const second = picture.pixels + l.layout;
        EXPECT_EQ(std::vector<int>(second, second + l.layout), l.second);
        if (l.layout == tiff_rgb) {
            EXPECT_EQ(std::vector<uint8_t>(picture.pixels, picture.pixels + 45), pixels);
        }
        safe_free(picture.pixels);
    }
    // Greys in strips of two rows, their offsets and counts in tables behind them.
    std::string grey = bytes.substr(0, 174);
    set_entry(&grey, 256, 3, 1, 4);
    set_entry(&grey, 277, 3, 1, 1);
    set_entry(&grey, 278, 3, 1, 2);
    set_entry(&grey, 273, 4, 2, 186);
    set_entry(&grey, 279, 4, 2, 194);
    grey +=
        "cdef"
        "gh"
        "ijklmn";
    grey.replace(174, 12, "ijklabcdefgh");
    for (const int v : {178, 174, 8, 4}) {
        append_16(&grey, v);
        append_16(&grey, 0);
    }
    write("grey.tif", grey);
    TiffPicture picture;
    ASSERT_TRUE(read_tiff((dir + "/grey.tif").c_str(), tiff_rgb, &picture));
    EXPECT_EQ(std::string(picture.pixels, picture.pixels + 36), "aaabbbcccdddeeefffggghhhiiijjjkkklll");
    safe_free(picture.pixels);
    EXPECT_EQ(messages(), "");
}

TEST_F(ImageFiles, ABadTiffGetsItsMessage) {
    const std::string good = tiff_bytes(5, 3, soft_pixels(5, 3, 3), dir + "/a.tif");
    messages();
    const std::string path = dir + "/b.tif";
    const auto with = [&](int tag, int type, uint32_t count, uint32_t value) {
        std::string bytes = good;
        set_entry(&bytes, tag, type, count, value);
        return bytes;
    };
    const std::string not_valid = "open tiff: " + path + " is not a valid tiff file.";
    struct Case {
        std::string bytes, message;
    };
    const Case cases[] = {
        {"II*" + good.substr(3), path + ", reverse byte order not supported."},
        {std::string("MM\0*", 4) + good.substr(4), not_valid},
        {"XX" + good.substr(2), not_valid},
        {good.substr(0, 7), not_valid},
        {good.substr(0, 100), "read tiff info: the file ends within its directory."},
        {with(256, 3, 1, 0), "read tiff info: bad image_width."},
        {with(256, 4, 1, 0x80000000), "read tiff info: bad image_width."},
        {with(257, 3, 1, 0), "read tiff info: bad image_length."},
        {with(278, 3, 1, 0), "read tiff info: bad rows_per_strip"},
        {with(278, 3, 1, 2), "read tiff info: bad strip_number."},
        {with(273, 4, 2, 174), "read tiff info: bad strip_number."},
        {with(259, 3, 1, 5), "read_tiff: compression is not supported."},
        {with(277, 3, 1, 2), "read_tiff: samples_per_sample other than 1 or 3 are not supported."},
        {with(258, 3, 1, 16), "read_tiff: bits_per_sample other than 8 is not supported."},
        {with(273, 3, 1, 174), "read_tiff_pixels: strip_offsets type is not int32."},
        {with(279, 3, 1, 45), "read_tiff_pixels: strip_byte_counts type is not int32."},
        {with(279, 4, 1, 44), "read_tiff_pixels: a strip does not hold its rows."},
        {with(273, 4, 1, 175), "read_tiff_pixels: the file ends within its strips."},
        {with(257, 4, 1, 100000), "read tiff info: bad strip_number."},
        {good.substr(0, good.size() - 1), "read_tiff_pixels: the file ends within its strips."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message);
        write("b.tif", c.bytes);
        TiffPicture picture;
        EXPECT_FALSE(read_tiff(path.c_str(), tiff_rgb, &picture));
        EXPECT_EQ(picture.pixels, nullptr);
        EXPECT_EQ(messages(), "8 " + c.message + "\n");
    }
    tinfo none;
    EXPECT_NE(abort_status([&] { read_tinfo(&none); }), 0);
    uint8_t pixel;
    EXPECT_FALSE(read_tiff_pixels(none, &pixel));
    EXPECT_EQ(messages(), "8 read_tinfo: no file_ptr.\n8 read_tiff_pixels: file_ptr not set.\n");
    EXPECT_FALSE(write_rgb_tiff_file((dir + "/c.tif").c_str(), 0, 3, &pixel));
    EXPECT_FALSE(write_rgb_tiff_file((dir + "/none/c.tif").c_str(), 1, 1, &pixel));
    EXPECT_NE(messages().find("8 write_rgb_tiff_file: bad dims 0 x 3."), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir + "/c.tif"));
}

namespace {

// What is told of a file, or nothing: every reader.
struct Kind {
    const char* name;
    std::string bytes;
    // Answers whether the file was taken for good. Frees what it made.
    bool (*read)(const char* path);
};

bool read_all_stamps(const char* path) {
    const CollectionPtr all = collection();
    const int n = load_stamps_from_qmi(path, all.get());
    EXPECT_EQ(std::max(n, 0), all->count);
    for (int i = 0; i < all->count; ++i) expect_levels_halve(all->stamps[i]);
    return n >= 0;
}
bool read_jpeg_stamp(const char* path) {
    const CollectionPtr all = collection();
    const bool done = load_stamp_from_jpeg(path, false, &all->stamps[0]) == stamp_jpeg_done;
    EXPECT_EQ(done, all->stamps[0].level_count > 0);
    return done;
}
bool read_tiff_picture(const char* path) {
    TiffPicture picture;
    const bool done = read_tiff(path, tiff_rgba, &picture);
    EXPECT_EQ(done, picture.pixels != nullptr);
    safe_free(picture.pixels);
    return done;
}

std::vector<Kind> kinds(const std::string& dir) {
    const std::string runs = "##\x05qyz#\x02w";
    return {{"a.qmi", qmi_bytes({{4, 3, stamp_samples(4, 3)}, {3, 3, runs, 1}, {2, 5, stamp_samples(2, 5)}}),
             read_all_stamps},
            {"a.jpg", jpeg_bytes(10, 9, soft_pixels(10, 9, 1), {1, 72}), read_jpeg_stamp},
            {"b.jpg", jpeg_bytes(17, 9, soft_pixels(17, 9, 3), {3, 0, true}), read_jpeg_stamp},
            {"a.tif", tiff_bytes(4, 3, soft_pixels(4, 3, 3), dir + "/made.tif"), read_tiff_picture}};
}

// A file in memory, whose content changes.
class MemoryFile {
public:
    MemoryFile() : fd_(memfd_create("stamps", 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {}
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    const char* holding(const std::string& bytes) const {
        EXPECT_EQ(ftruncate(fd_, 0), 0);
        EXPECT_EQ(pwrite(fd_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return path_.c_str();
    }

private:
    int fd_;
    std::string path_;
};

std::string mutated(std::string bytes, std::mt19937& rng) {
    const auto below = [&](size_t n) { return static_cast<size_t>(rng() % n); };
    for (size_t changes = 1 + below(3); changes > 0 && !bytes.empty(); --changes) {
        const size_t at = below(bytes.size());
        switch (rng() % 5) {
            case 0:
                bytes.resize(at);
                break;
            case 1:
                bytes.erase(at, 1 + below(4));
                break;
            case 2:
                bytes.insert(at, 1, static_cast<char>(rng()));
                break;
            case 3:
                bytes[at] = static_cast<char>(bytes[at] ^ 1 << rng() % 8);
                break;
            default:
                bytes[at] = static_cast<char>(rng() % 3 ? rng() : 255);
        }
    }
    return bytes;
}

}  // namespace

TEST_F(ImageFiles, MutatedFilesAreTakenOrTold) {
    for (const Kind& kind : kinds(dir)) {
        SCOPED_TRACE(kind.name);
        std::mt19937 rng(5);
        const MemoryFile file;
        int taken = 0, told = 0;
        for (int i = 0; i < 10000; ++i) {
            caught_messages().clear();
            const bool good = kind.read(file.holding(mutated(kind.bytes, rng)));
            taken += good;
            told += !caught_messages().empty();
            ASSERT_TRUE(good || !caught_messages().empty()) << i;
            ASSERT_FALSE(HasFailure()) << i;
        }
        EXPECT_GT(taken, 100);
        EXPECT_GT(told, 100);
    }
}

namespace {

// Blocks until one is refused.
size_t blocks_left;
void* (*block_before)(size_t, size_t);
void* block_or_none(size_t bytes, size_t alignment) {
    return blocks_left-- == 0 ? nullptr : block_before(bytes, alignment);
}

// Reads of a few bytes each, until one fails.
struct Cookie {
    FILE* file;
};
int reads_left;
FILE* failing_stream(const char* path) {
    auto* const cookie = new Cookie{std::fopen(path, "rb")};
    const cookie_io_functions_t functions = {
        [](void* c, char* to, size_t n) -> ssize_t {
            if (reads_left-- <= 0) {
                errno = EIO;
                return -1;
            }
            return static_cast<ssize_t>(std::fread(to, 1, std::min<size_t>(n, 64), static_cast<Cookie*>(c)->file));
        },
        nullptr,
        [](void* c, off64_t* at, int whence) {
            FILE* const file = static_cast<Cookie*>(c)->file;
            if (fseeko(file, *at, whence) != 0) return -1;
            *at = ftello(file);
            return 0;
        },
        [](void* c) {
            std::fclose(static_cast<Cookie*>(c)->file);
            delete static_cast<Cookie*>(c);
            return 0;
        }};
    FILE* const stream = fopencookie(cookie, "rb", functions);
    static char buffer[64];
    setvbuf(stream, buffer, _IOFBF, sizeof buffer);
    return stream;
}

}  // namespace

TEST_F(ImageFiles, EveryReadFailsInTurn) {
    const auto outer = open_image_stream;
    open_image_stream = failing_stream;
    for (const Kind& kind : kinds(dir)) {
        SCOPED_TRACE(kind.name);
        const std::string path = write(kind.name, kind.bytes);
        messages();
        int fail_at = 0;
        for (bool whole = false; !whole && fail_at < 1000; ++fail_at) {
            reads_left = fail_at;
            const bool good = kind.read(path.c_str());
            whole = reads_left >= 0;
            EXPECT_EQ(good, whole) << fail_at;
            const std::string told = messages();
            EXPECT_EQ(told, whole ? "" : "8 Read of " + path + " failed: Input/output error\n") << fail_at;
            if (HasFailure()) break;
        }
        EXPECT_GT(fail_at, 2);
        EXPECT_LT(fail_at, 1000);
    }
    open_image_stream = outer;
}

TEST_F(ImageFiles, EveryAllocationFailsInTurn) {
    for (const Kind& kind : kinds(dir)) {
        SCOPED_TRACE(kind.name);
        const std::string path = write(kind.name, kind.bytes);
        // Not on the stack of the call that a jump leaves.
        static StampCollection* all;
        static TiffPicture picture;
        block_before = allocate_block;
        int failed = 0;
        for (bool whole = false; !whole; ++failed) {
            ASSERT_LT(failed, 100);
            all = new_stamp_collection();
            picture = {};
            blocks_left = static_cast<size_t>(failed);
            allocate_block = block_or_none;
            whole = abort_status([&] {
                        if (kind.name[2] == 'q') load_stamps_from_qmi(path.c_str(), all);
                        if (kind.name[2] == 'j') load_stamp_from_jpeg(path.c_str(), true, &all->stamps[0]);
                        if (kind.name[2] == 'j') read_deferred_stamp(&all->stamps[0]);
                        if (kind.name[2] == 't') read_tiff(path.c_str(), tiff_rgb, &picture);
                        if (kind.name[2] != 't') mirrored_stamp(&all->stamps[0]);
                    }) == 0;
            allocate_block = block_before;
            // What is there is whole.
            for (int i = 0; i < all->count; ++i) expect_levels_halve(all->stamps[i]);
            if (all->stamps[0].path && read_deferred_stamp(&all->stamps[0]) == stamp_jpeg_done)
                expect_levels_halve(all->stamps[0]);
            free_stamp_collection(all);
            safe_free(picture.pixels);
        }
        EXPECT_GT(failed, 2);
        EXPECT_EQ(n_abort_cleanups(), 0);
        messages();
    }
}
