#include "hosts/render/recipe.h"

#include "hosts/common/numbers.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace render {
namespace {

constexpr uint64_t prime = 1099511628211u;
constexpr uint64_t start = 14695981039346656037u;

uint64_t hash_on(uint64_t mark, const void* bytes, size_t size) {
    const auto* const at = static_cast<const unsigned char*>(bytes);
    for (size_t i = 0; i < size; i++) mark = (mark ^ at[i]) * prime;
    return mark;
}

std::string hex(uint64_t number) {
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(number));
    return text;
}

}  // namespace

void Recipe::add(const std::string& text) {
    // The length first, so that no two lists of texts run together to the same.
    const uint64_t length = text.size();
    mark = hash_on(hash_on(mark, &length, sizeof(length)), text.data(), text.size());
}

void Recipe::add(double number) { add(spark_host::number_text(number, 6)); }

void Recipe::add_file(const std::string& path) {
    struct stat status = {};
    add(path);
    if (stat(path.c_str(), &status) != 0) return add("missing");
    add(std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) + " " +
        std::to_string(status.st_mtim.tv_nsec));
}

void Recipe::add_directory(const std::string& path) {
    std::vector<std::string> files;
    std::error_code error;
    for (auto at = std::filesystem::directory_iterator(path, error);
         !error && at != std::filesystem::directory_iterator(); at.increment(error)) {
        // The library's own log is written at every run.
        const std::string name = at->path().filename().string();
        if (at->is_regular_file(error) && name.find("log") == std::string::npos) files.push_back(at->path().string());
    }
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) add_file(file);
}

std::string Recipe::text() const { return "1:" + hex(mark); }

uint64_t hash_bytes(const void* bytes, size_t size) { return hash_on(start, bytes, size); }

std::string recipe_path(const std::string& picture) { return picture + ".recipe"; }

std::string recipe_beside(const std::string& picture) {
    std::ifstream file(recipe_path(picture));
    std::string recipe, content;
    if (!(file >> recipe >> content)) return "";
    std::ifstream bytes(picture, std::ios::binary);
    std::ostringstream all;
    all << bytes.rdbuf();
    const std::string data = all.str();
    return content == hex(hash_bytes(data.data(), data.size())) ? recipe : "";
}

std::vector<unsigned char> recipe_file(const std::string& recipe, std::span<const unsigned char> picture) {
    const std::string text = recipe + " " + hex(hash_bytes(picture.data(), picture.size())) + "\n";
    return std::vector<unsigned char>(text.begin(), text.end());
}

}  // namespace render
