// What the tests of the support room share: catching messages, and a directory of one's own.
#pragma once

#include "support/abort.h"
#include "support/errors.h"
#include "support/files.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// Takes up a locale that writes 1.5 as 1,5; one is made in directory if the system has none. False if that fails.
inline bool use_decimal_comma(const std::string& directory) {
    const auto taken = [] { return std::setlocale(LC_ALL, "de_DE.UTF-8") && *std::localeconv()->decimal_point == ','; };
    if (taken()) return true;
    setenv("LOCPATH", directory.c_str(), 1);
    const std::string make = "localedef -i de_DE -f UTF-8 '" + directory + "/de_DE.UTF-8' 2>/dev/null";
    return std::system(make.c_str()) >= 0 && taken();
}

inline std::vector<std::pair<int, std::string>>& caught_messages() {
    static std::vector<std::pair<int, std::string>> messages;
    return messages;
}

// While it lives: messages are caught and not printed, and the configuration directory is a fresh one.
class SupportTest : public testing::Test {
protected:
    std::string dir;

    void SetUp() override {
        std::string pattern = (std::filesystem::temp_directory_path() / "velloran_support_XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir = pattern;
        velloran::spark_set_config_dir(dir.c_str());
        caught_messages().clear();
        velloran::set_error_printer([](int level, const char* text) { caught_messages().emplace_back(level, text); });
        velloran::set_log_printer([](const char* text) { caught_messages().emplace_back(0, text); });
    }
    void TearDown() override {
        velloran::set_error_printer(nullptr);
        velloran::set_log_printer(nullptr);
        std::filesystem::remove_all(dir);
    }

    std::string write(const std::string& name, const std::string& content) const {
        const std::filesystem::path path = std::filesystem::path(dir) / name;
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }
    std::string read(const std::string& name) const {
        std::ifstream file(std::filesystem::path(dir) / name, std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }
    // The messages so far, one a line as "LEVEL TEXT" with line feeds left out; then forgets them.
    static std::string messages() {
        std::string all;
        for (const auto& [level, text] : caught_messages()) {
            all += std::to_string(level) + ' ';
            for (char c : text)
                if (c != '\n') all += c;
            all += '\n';
        }
        caught_messages().clear();
        return all;
    }
};

// Status of the fatal abort that ends body, or 0 if it returns.
template <class Body>
int abort_status(Body body) {
    velloran::AbortTarget outer;
    velloran::arm_abort(outer);
    if (const int status = setjmp(velloran::_V_jmpbuf)) {
        velloran::disarm_abort(outer);
        return status;
    }
    body();
    velloran::disarm_abort(outer);
    return 0;
}
