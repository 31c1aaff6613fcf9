#include "frame/lut_files.h"

#include "records/run_state.h"
#include "support/memory.h"
#include "testing/support_messages.h"

#include <cmath>
#include <memory>

using namespace velloran;

namespace {

// "lut: 1 n" and n values of f(i).
template <class F>
std::string lut_text(int n, F f) {
    std::string text = "LUT: 1 " + std::to_string(n) + "\n";
    for (int i = 0; i < n; ++i) text += std::to_string(f(i)) + (i % 16 == 15 ? "\n" : " ");
    return text;
}

int nearest(double value) { return static_cast<int>(std::floor(value + 0.5)); }

class LutFiles : public SupportTest {
protected:
    void SetUp() override {
        SupportTest::SetUp();
        reset_luts();
    }
    void TearDown() override {
        reset_luts();
        SupportTest::TearDown();
    }
};

TEST_F(LutFiles, ReadsOrTellsWhy) {
    const std::string long_word(1 << 20, '7');
    const std::string one_line = "lut: 1 5000 " + std::string(5000, '8');
    std::string many = "lut: 3 5000";
    for (int i = 0; i < 5000; ++i) many += " " + std::to_string(i);
    const std::string head = "7 LUT file %s syntax err: ";
    const std::string eof = head + "EOF found while reading lut\n", bad_entry = head + "non-integer or EOF in lut\n";
    const auto bad_number = [&](const char* word) { return head + "non-integer " + word + " after 'lut:' keyword\n"; };
    struct Case {
        std::string text;
        int n, max_value, last;
        std::string messages;
    };
    const Case cases[] = {
        {"lut: 1 3 5 9 7", 3, 9, 7, ""},
        {"# lut: 1 1 4\n 12 words\tLuT: 3\n#x 9\n2 0 #y\r\n -4\r\n", 2, 0, -4, ""},
        {"lut: 1 2 5 6 7 8", 2, 6, 6, ""},
        {many, 5000, 4999, 4999, ""},
        {"lut: 1 0", 0, 0, 0, ""},
        {"", -1, 0, 0, eof},
        {"xlut: 1 1 1", -1, 0, 0, eof},
        {"lut:", -1, 0, 0, eof},
        {"lut: 1", -1, 0, 0, eof},
        {"lut: one 2 3 4", -1, 0, 0, bad_number("one")},
        {"lut: 1 2.5 3 4", -1, 0, 0, bad_number("2.5")},
        {"lut: 1 -2 3 4", -1, 0, 0, bad_number("-2")},
        {"lut: 1 99999999999 3", -1, 0, 0, bad_number("99999999999")},
        {"lut: 1 2147483647 3 4", -1, 0, 0, eof},
        {"lut: 1 3 5 x 7", -1, 0, 0, bad_entry},
        {"lut: 1 3 5 0.5 7", -1, 0, 0, bad_entry},
        {"lut: 1 3 5 " + long_word, -1, 0, 0, bad_entry},
        {"lut: 1 3 5 6 #7", -1, 0, 0, eof},
        {one_line, -1, 0, 0, bad_entry},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text.substr(0, 60));
        const std::string path = write("a.lut", c.text);
        int32_t *table, max_value;
        ASSERT_EQ(read_lut_file(path.c_str(), &table, &max_value), c.n);
        if (c.n > 0) {
            EXPECT_EQ(max_value, c.max_value);
            EXPECT_EQ(table[c.n - 1], c.last);
        } else {
            EXPECT_EQ(table, nullptr);
        }
        safe_free(table);
        std::string expected = c.messages;
        if (const size_t at = expected.find("%s"); at != std::string::npos) expected.replace(at, 2, path);
        EXPECT_EQ(messages(), expected);
    }
    int32_t *table, max_value;
    EXPECT_EQ(read_lut_file("/no/lut", &table, &max_value), 0);
    EXPECT_EQ(messages(), "7 Can't open LUT file /no/lut for reading: No such file or directory (2)\n");
}

TEST_F(LutFiles, ClampedPow) {
    struct Case {
        double x, e, y;
    };
    const Case cases[] = {{0, 2, 0},        {0, 0.01, 0},     {-1, 1, 0},           {1, 7, 1},
                          {0.5, 2, 0.25},   {0.25, 0.5, 0.5}, {0.5, 100, 0.5 / 16}, {0.001, 0.01, 0.016},
                          {0.5, 5, 0.03125}};
    for (const Case& c : cases) EXPECT_DOUBLE_EQ(clamped_pow(c.x, c.e), c.y) << c.x << " " << c.e;
}

TEST_F(LutFiles, GammaAlone) {
    set_gamma(1);
    EXPECT_EQ(use_input_lut, 0);
    EXPECT_EQ(use_output_lut, 0);
    for (const float g : {2.2f, 0.45f, 0.01f, 100000.0f, 1.5f}) {
        SCOPED_TRACE(g);
        set_gamma(g);
        EXPECT_EQ(use_input_lut, 1);
        EXPECT_EQ(use_output_lut, 1);
        const auto held = [](double x, double e) {
            return x == 0 ? 0 : std::min(std::max(std::pow(x, e), x / 16), 16 * x);
        };
        for (int i = 0; i < 256; ++i) EXPECT_EQ(input_lut_8[i], nearest(held(i / 255.0, g) * 4095));
        for (int i = 0; i < 4096; ++i) {
            ASSERT_EQ(input_lut_12[i], nearest(held(i / 4095.0, g) * 4095));
            ASSERT_EQ(output_lut_8[i], nearest(held(i / 4095.0, 1.0 / g) * 255));
            ASSERT_EQ(output_lut_16[i], nearest(held(i / 4095.0, 1.0 / g) * 4095));
        }
    }
    for (const float g : {0.0f, -3.0f, std::nanf("")}) {
        set_gamma(g);
        EXPECT_EQ(use_input_lut, 0);
    }
}

// Entries of a file with fewer than 4096 entries are joined by lines; the scale is the maximum rounded up to 2^k - 1.
TEST_F(LutFiles, ShortTablesAreInterpolated) {
    struct Case {
        int n, scale;
        int (*entry)(int);
    };
    const Case cases[] = {
        {256, 255, [](int i) { return i; }},
        {1024, 1023, [](int i) { return i * i / 1023; }},
        {2, 4095, [](int i) { return i * 3000; }},
        {1, 7, [](int) { return 5; }},
        {4095, 65535, [](int i) { return 65535 - i * 16; }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.n);
        const std::string text = lut_text(c.n, c.entry);
        reset_luts();  // the files change under the same names
        set_lut_paths(write("a-in.lut", text).c_str(), write("a-out.lut", text).c_str());
        set_gamma(1);
        ASSERT_EQ(HaveInputLut_p, 1);
        const auto at = [&](double p) {
            const int k = std::min(static_cast<int>(p), c.n - 1), next = std::min(k + 1, c.n - 1);
            return (c.entry(k) + (p - k) * (c.entry(next) - c.entry(k))) / c.scale;
        };
        for (int i = 0; i < 4096; ++i) {
            const double value = at(i * (c.n - 1) / 4095.0);
            ASSERT_NEAR(input_lut_12[i], value * 4095, 0.51) << i;
            ASSERT_NEAR(output_lut_16[i], value * 4095, 0.51) << i;
            ASSERT_NEAR(output_lut_8[i], value * 255, 0.51) << i;
        }
        for (int i = 0; i < 256; ++i) EXPECT_EQ(input_lut_8[i], input_lut_12[i * 273 / 17]) << i;
    }
}

// A full input table is divided in integers, so only an entry at the scale itself is white; a full output table is not.
TEST_F(LutFiles, FullInputTablesAreDividedInIntegers) {
    const auto entry = [](int i) { return std::min(i / 2, 4095); };
    const std::string text = lut_text(8192, entry);
    set_lut_paths(write("a-in.lut", text).c_str(), write("a-out.lut", text).c_str());
    set_gamma(1);
    for (int i = 0; i < 4096; ++i) {
        const int sampled = entry(static_cast<int>(static_cast<int64_t>(i) * 8191 / 4095));
        ASSERT_EQ(input_lut_12[i], sampled / 4095 * 4095) << i;
        ASSERT_EQ(output_lut_16[i], sampled) << i;
        ASSERT_EQ(output_lut_8[i], nearest(sampled * 255 / 4095.0)) << i;
    }
    EXPECT_EQ(input_lut_12[4094], 0);
    EXPECT_EQ(input_lut_12[4095], 4095);
    // With a gamma the output table is interpolated at the bent position.
    set_gamma(2);
    for (int i = 0; i < 4096; i += 13) {
        const double p = std::min(std::sqrt(i / 4095.0), 16 * i / 4095.0) * 8191;
        const int k = static_cast<int>(p);
        const double value = entry(k) + (p - k) * (entry(std::min(k + 1, 8191)) - entry(k));
        ASSERT_NEAR(output_lut_16[i], value, 0.51) << i;
    }
}

// The flag of the input decides about the output's table too.
TEST_F(LutFiles, OneOfAPair) {
    const std::string text = lut_text(256, [](int i) { return 255 - i; });
    const std::string in = write("a-in.lut", text), out = write("a-out.lut", text);
    struct Case {
        const char *name, *in, *out;
        float gamma;
        int use_in, use_out;
        int out_at_0;  // of output_lut_16 where in use
        const char* messages;
    };
    const std::string missing = dir + "/none",
                      told = "7 Can't open LUT file " + missing + " for reading: No such file or directory (2)\n";
    const Case cases[] = {
        {"both", in.c_str(), out.c_str(), 1, 1, 1, 4095, ""},
        {"output only", nullptr, out.c_str(), 1, 0, 1, 0, ""},
        {"input only", in.c_str(), "", 1, 1, 0, 0, ""},
        {"input only, gamma", in.c_str(), "", 2, 1, 1, 0, ""},
        {"input missing", missing.c_str(), out.c_str(), 1, 0, 1, 0, told.c_str()},
        {"output missing", in.c_str(), missing.c_str(), 2, 1, 1, 0, told.c_str()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        set_lut_paths(c.in, c.out);
        set_gamma(c.gamma);
        EXPECT_EQ(use_input_lut, c.use_in);
        EXPECT_EQ(use_output_lut, c.use_out);
        EXPECT_EQ(c.use_in ? input_lut_12[0] : 4095, 4095);
        EXPECT_EQ(c.use_out ? output_lut_16[0] : 0, c.out_at_0);
        EXPECT_EQ(messages(), c.messages);
    }
}

TEST_F(LutFiles, NegativeEntriesAreBlack) {
    const std::string text = "lut: 1 2 -500 500";
    set_lut_paths(write("a-in.lut", text).c_str(), write("a-out.lut", text).c_str());
    set_gamma(1);
    EXPECT_EQ(input_lut_12[100], 0);
    EXPECT_EQ(output_lut_8[100], 0);
    EXPECT_EQ(output_lut_8[4095], nearest(500 * 255 / 511.0));
}

struct Listing {
    std::unique_ptr<GlobalsV4Record> record = std::make_unique<GlobalsV4Record>();
    char* entries[MAX_LUTS] = {};
    explicit Listing(const char* input = nullptr, const char* output = nullptr) {
        list_luts(record.get(), input, output, entries);
    }
    ~Listing() {
        for (int i = 0; i < MAX_LUTS; ++i)
            for (char* text : {entries[i], record->lut_in_paths[i], record->lut_out_paths[i]}) safe_free(text);
    }
    std::string labels() const {
        std::string all;
        for (int i = 0; i < record->n_luts; ++i) all += std::string(entries[i]) + '|';
        return all;
    }
};

TEST_F(LutFiles, ListsPairsInOrder) {
    EXPECT_EQ(Listing().labels(), "LUT: Linear|");
    for (const char* name : {"video_gamma-in.lut", "video_gamma-out.lut", "Zlog-in.lut", "Zlog-out.lut", "a b-in.lut",
                             "a b-out.lut", "alone-in.lut", "end-out.lut", "other.lut", "notes.txt"})
        write(std::string("luts/") + name, "");
    const Listing listing("/in", "");
    EXPECT_EQ(listing.labels(), "LUT: Linear|LUT: Zlog|LUT: A B|LUT: Video Gamma|");
    EXPECT_STREQ(listing.record->lut_in_paths[0], "/in");
    EXPECT_EQ(listing.record->lut_out_paths[0], nullptr);
    EXPECT_EQ(listing.record->lut_in_paths[3], dir + "/luts/video_gamma-in.lut");
    EXPECT_EQ(listing.record->lut_out_paths[3], dir + "/luts/video_gamma-out.lut");
    const std::string luts = dir + "/luts/";
    EXPECT_EQ(messages(), "7 LUT file " + luts + "alone-in.lut has no matching output LUT. Ignoring\n7 LUT file " +
                              luts + "end-out.lut has no matching input LUT. Ignoring\n7 Ignoring LUT file " + luts +
                              "other.lut. LUTs should be named lutname-in.lut or lut-name-out.lut\n");
}

TEST_F(LutFiles, DirectoryNamesAreNoPatterns) {
    const std::string odd = dir + "/[a]*?\\b";
    spark_set_config_dir(odd.c_str());
    write("[a]*?\\b/luts/x-in.lut", "");
    write("[a]*?\\b/luts/x-out.lut", "");
    const Listing listing;
    EXPECT_EQ(listing.labels(), "LUT: Linear|LUT: X|");
    EXPECT_EQ(listing.record->lut_in_paths[1], odd + "/luts/x-in.lut");
}

TEST_F(LutFiles, ListEndsAt32) {
    for (int i = 10; i < 60; ++i)
        for (const char* end : {"-in.lut", "-out.lut"}) write("luts/l" + std::to_string(i) + end, "");
    const Listing listing;
    EXPECT_EQ(listing.record->n_luts, 32);
    EXPECT_STREQ(listing.entries[31], "LUT: L40");
    EXPECT_EQ(messages(), "");
}

}  // namespace
