// What tests of the language room share: the shipped texts, damaged ones, and the library's own reading of them.
#pragma once

#include "functions/function_table.h"
#include "genotype/definition_text.h"
#include "hosts/language/outline.h"
#include "testing/genotype_reading.h"
#include "texts/if_filter.h"
#include "texts/text_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace test_language {

struct ShippedText {
    std::string name, text;
};

// The texts of effects/ and the examples of the page about the language.
inline const std::vector<ShippedText>& shipped_texts() {
    static const std::vector<ShippedText> all = [] {
        std::vector<ShippedText> found;
        const auto read = [](const std::filesystem::path& path) {
            std::ifstream file(path, std::ios::binary);
            std::ostringstream text;
            text << file.rdbuf();
            return text.str();
        };
        for (const auto& entry : std::filesystem::directory_iterator(EFFECT_TEXTS))
            if (entry.path().extension() == ".text" && !entry.path().filename().string().starts_with("v_"))
                found.push_back({entry.path().filename().string(), read(entry.path())});
        std::istringstream page(read(LANGUAGE_PAGE));
        bool inside = false;
        for (std::string line; std::getline(page, line);) {
            if (line.starts_with("```")) {
                inside = line == "```genotype";
                if (inside) found.push_back({"example " + std::to_string(found.size()), ""});
            } else if (inside) {
                found.back().text += line + "\n";
            }
        }
        return found;
    }();
    return all;
}

inline std::string filtered(std::string text) {
    velloran::remove_comments_and_false_if_statements(text.data(), "test");
    text.resize(std::strlen(text.c_str()));
    return text;
}

// The words that the library reads, one a line.
inline std::string library_words(const std::string& text) {
    const std::string kept = filtered(text);
    velloran::reset_text_reader();
    velloran::open_reading_from_string(kept.c_str());
    std::string all;
    char token[velloran::token_size];
    while (velloran::read_token(token) != velloran::token_end) all += std::string(token) + '\n';
    velloran::reset_text_reader();
    return all;
}

// Blanks, words of the language, quotes, comments and conditionals put in and taken out at random.
inline std::string damaged(std::string text, std::mt19937& random, int times) {
    static const std::vector<std::string> pieces = {" ",
                                                    "\n",
                                                    "\r\n",
                                                    "\t",
                                                    "(",
                                                    ")",
                                                    "[",
                                                    "]",
                                                    "=",
                                                    "\"",
                                                    "//",
                                                    "// a\n",
                                                    "#",
                                                    "#if spark\n",
                                                    "#else\n",
                                                    "#endif\n",
                                                    "#ref A",
                                                    "popup ",
                                                    "widget ",
                                                    "dest",
                                                    "0.5",
                                                    "(blur ",
                                                    "\xc3\xa9",
                                                    "/",
                                                    "-",
                                                    "\xf0\x9f\x98\x80",
                                                    "(def_effect ",
                                                    "\\\"",
                                                    "=\n"};
    for (int i = 0; i < times; i++) {
        const size_t at = random() % (text.size() + 1);
        if (random() % 2)
            text.insert(at, pieces[random() % pieces.size()]);
        else
            text.erase(at, random() % 8);
    }
    return text;
}

}  // namespace test_language
