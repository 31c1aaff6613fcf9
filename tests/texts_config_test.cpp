#include "texts/config.h"

#include "testing/support_messages.h"

#include <climits>

using namespace velloran;

namespace {

const char* const required_keys[] = {
    "enable_pointer_abort",     "pointer_abort_seconds",   "pointer_read_lock", "use_curves_in_fields",
    "load_save_channel_setups", "force_frames_per_second", "max_cpus",          "use_footage_pixel_aspect_ratio",
    "force_pixel_aspect_ratio"};

class ConfigFile : public SupportTest {
protected:
    void SetUp() override {
        SupportTest::SetUp();
        reset_config();
    }
    void TearDown() override {
        reset_config();
        SupportTest::TearDown();
    }
    // Reads a file of this content, and leaves out the messages about missing keys.
    std::string reading(const std::string& content) const {
        read_config_file(write("v_config.text", content).c_str());
        std::string others;
        std::istringstream all(messages());
        for (std::string line; std::getline(all, line);)
            if (line.find("7 Expected to find ") != 0) others += line + '\n';
        return others;
    }
};

TEST_F(ConfigFile, AllKeysBetweenEverythingElse) {
    EXPECT_EQ(reading("// max_cpus: 9\n"
                      "enable_pointer_abort: 0\n pointer_abort_seconds: 3.5 // max_cpus: 8\n"
                      "(def Glow (in: Front) = dest: [1 2] \"max_cpus 7\" ) : unknown: 5\n"
                      "pointer_read_lock: 0.25 use_curves_in_fields: 7 load_save_channel_setups:\n\n1\n"
                      "force_frames_per_second: 23.976 max_cpus: 3 use_footage_pixel_aspect_ratio: 1\n"
                      "force_pixel_aspect_ratio: 1.0667\ninput_lut: /luts/a-in.lut output_lut: /luts/a-out.lut"),
              "");
    EXPECT_EQ(config.enable_pointer_abort, 0);
    EXPECT_EQ(config.pointer_abort_seconds, 3.5f);
    EXPECT_EQ(config.pointer_read_lock, 0.25f);
    EXPECT_EQ(config.use_curves_in_fields, 1);
    EXPECT_EQ(config.load_save_channel_setups, 1);
    EXPECT_FLOAT_EQ(config.force_frames_per_second, 23.976f);
    EXPECT_EQ(config.max_cpus, 3);
    EXPECT_EQ(config.use_footage_pixel_aspect_ratio, 1);
    EXPECT_FLOAT_EQ(config.force_pixel_aspect_ratio, 1.0667f);
    EXPECT_STREQ(config.input_lut, "/luts/a-in.lut");
    EXPECT_STREQ(config.output_lut, "/luts/a-out.lut");
    reset_config();
    EXPECT_EQ(config.enable_pointer_abort, 1);
    EXPECT_EQ(config.pointer_abort_seconds, 2);
    EXPECT_EQ(config.force_frames_per_second, 0);
    EXPECT_EQ(config.max_cpus, INT_MAX);
    EXPECT_STREQ(config.input_lut, "");
}

// The message of one value, and what the key then stands at.
TEST_F(ConfigFile, ValuesGoodAndBad) {
    struct Case {
        const char* value;
        const char* illegal;  // the key named in the message; null: none
        double (*stored)();
        double expected;
    };
    const auto abort_on = [] { return 1.0 * config.enable_pointer_abort; };
    const auto seconds = [] { return 1.0 * config.pointer_abort_seconds; };
    const auto lock = [] { return 1.0 * config.pointer_read_lock; };
    const auto rate = [] { return 1.0 * config.force_frames_per_second; };
    const auto cpus = [] { return 1.0 * config.max_cpus; };
    const auto aspect = [] { return 1.0 * config.force_pixel_aspect_ratio; };
    const Case cases[] = {
        {"enable_pointer_abort: -2", nullptr, abort_on, 1},
        {"enable_pointer_abort: 00", nullptr, abort_on, 0},
        {"enable_pointer_abort: no", "enable_pointer_abort", abort_on, 1},
        {"pointer_abort_seconds: 1,5", nullptr, seconds, 1},
        {"pointer_abort_seconds: 1.5", nullptr, seconds, 1.5},
        {"pointer_abort_seconds: )", "pointer_abort_seconds", seconds, 2},
        {"pointer_read_lock: -3", nullptr, lock, -1},
        {"pointer_read_lock: nO", nullptr, lock, -1},
        {"pointer_read_lock: nope", "pointer_read_lock", lock, -1},
        {"pointer_read_lock: n", "pointer_read_lock", lock, -1},
        {"force_frames_per_second: 25", nullptr, rate, 25},
        {"force_frames_per_second: 25 force_frames_per_second: 0", nullptr, rate, 0},
        {"force_frames_per_second: 0.001", nullptr, rate, 0},
        {"force_frames_per_second: -1", "force_frames_per_second", rate, 0},
        {"force_frames_per_second: PAL", "force_frames_per_second", rate, 0},
        {"max_cpus: 99999999999", nullptr, cpus, INT_MAX},
        {"max_cpus: 2x", nullptr, cpus, 2},
        {"max_cpus: all", "max_cpus", cpus, INT_MAX},
        {"force_pixel_aspect_ratio: 1.5", nullptr, aspect, 1.5},
        {"force_pixel_aspect_ratio: 0", nullptr, aspect, 0},
        {"force_pixel_aspect_ratio: 2 force_pixel_aspect_ratio: square", "force_pixel_aspect_ratio", aspect, 0},
        {"force_pixel_aspect_ratio: -1", "force_pixel_aspect_ratio", aspect, 0},
    };
    use_decimal_comma(dir);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value);
        reset_config();
        const std::string text = reading(c.value);
        const std::string word = std::string(c.value).substr(std::string(c.value).rfind(' ') + 1);
        const std::string bad =
            c.illegal ? "8 Illegal value in config file for " + std::string(c.illegal) + ": " + word + "\n" : "";
        const size_t at = text.find("8 ");
        EXPECT_EQ(at == std::string::npos ? "" : text.substr(at), bad);
        EXPECT_FLOAT_EQ(c.stored(), c.expected);
    }
    std::setlocale(LC_ALL, "C");
}

TEST_F(ConfigFile, Trouble) {
    struct Case {
        const char *name, *content, *messages;
    };
    const std::string long_value = "input_lut: " + std::string(300, 'p') + " max_cpus: 4";
    const std::string long_message =
        "8 read_token: token of 300 characters is longer than 127: " + std::string(40, 'p') +
        "...\n8 Illegal value in config file for input_lut: \n";
    const Case cases[] = {
        {"twice", "max_cpus: 2 max_cpus: 4", "7 Already saw max_cpus in config file\n"},
        {"bad, then good", "max_cpus: x max_cpus: 4", "8 Illegal value in config file for max_cpus: x\n"},
        {"end", "max_cpus: 4 input_lut:", "8 EOF while reading value for input_lut\n"},
        {"too long", long_value.c_str(), long_message.c_str()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        reset_config();
        EXPECT_EQ(reading(c.content), c.messages);
        EXPECT_EQ(config.max_cpus, 4);
    }
    read_config_file(write("v_config.text", "max_cpus: x").c_str());
    std::string expected = "8 Illegal value in config file for max_cpus: x\n";
    for (const char* key : required_keys)
        expected += "7 Expected to find " + std::string(key) + " in config file, but didn't.\n";
    EXPECT_EQ(messages(), expected);
    read_config_file("/no/such/file");
    EXPECT_EQ(messages(), "8 Failed opening config file: /no/such/file: No such file or directory\n");
    EXPECT_EQ(reading(""), "");
    EXPECT_EQ(reading("\xff\xfe max_cpus\xe9: 1\n" + std::string(1 << 20, 'm') + ": 2 max_cpus: 1"),
              "8 read_token: token of 1048577 characters is longer than 127: " + std::string(40, 'm') + "...\n");
    EXPECT_EQ(config.max_cpus, 1);
}

TEST_F(ConfigFile, ReadOnceFromItsDirectory) {
    write("v_config.text", "max_cpus: 5");
    read_config_once();
    EXPECT_EQ(config.max_cpus, 5);
    EXPECT_EQ(config_paths.glares, dir + "/v_glares.text");
    write("v_config.text", "max_cpus: 6");
    read_config_once();
    EXPECT_EQ(config.max_cpus, 5);
}

// A text that is being read meanwhile goes on where it was.
TEST_F(ConfigFile, LeavesTheReaderAsItWas) {
    std::string text = "one two";
    open_reading_from_string(text.data());
    char token[token_size];
    read_token(token);
    unread_token(token);
    reading("max_cpus: 5");
    EXPECT_EQ(config.max_cpus, 5);
    for (const char* expected : {"one", "two"}) {
        EXPECT_EQ(read_token(token), 0);
        EXPECT_STREQ(token, expected);
    }
    reset_text_reader();
}

}  // namespace
