// Where modules and data lie: beside the program in a build tree, or where an installation put them. For a library that
// holds this file, beside that.
#include "hosts/render/effect.h"
#include "hosts/render/failure.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace render {
namespace fs = std::filesystem;

namespace {

fs::path own_directory() {
    std::error_code error;
    // The loader gives its entry for the program itself no name.
    Dl_info info = {};
    const link_map* loaded = nullptr;
    static const char here = 0;
    if (dladdr1(&here, &info, reinterpret_cast<void**>(const_cast<link_map**>(&loaded)), RTLD_DL_LINKMAP) && loaded &&
        *loaded->l_name) {
        const fs::path library = fs::canonical(loaded->l_name, error);
        if (!error) return library.parent_path();
    }
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    return error ? fs::path(".") : program.parent_path();
}

std::vector<fs::path> plugin_directories() {
    std::vector<fs::path> list;
    const char* const given = std::getenv("VELLORAN_PLUGINS");
    std::istringstream parts(given ? given : "");
    for (std::string part; std::getline(parts, part, ':');)
        if (!part.empty()) list.emplace_back(part);
    for (const char* const place : {"../plugins", "../lib/velloran/plugins", "plugins"})
        list.push_back(own_directory() / place);
    return list;
}

}  // namespace

std::string find_module(const std::string& name) {
    std::error_code error;
    for (const fs::path& directory : plugin_directories()) {
        const fs::path path = directory / (name + ".so");
        if (fs::is_regular_file(path, error)) return fs::weakly_canonical(path, error).string();
    }
    return "";
}

std::string text_module_path() {
    const std::string path = find_module("text");
    if (path.empty()) throw Failure("the plug-in module 'text' is missing from this installation");
    return path;
}

std::vector<std::string> plugin_names() {
    std::vector<std::string> names;
    for (const fs::path& directory : plugin_directories()) {
        std::error_code error;
        for (auto at = fs::directory_iterator(directory, error); !error && at != fs::directory_iterator();
             at.increment(error))
            if (at->path().extension() == ".so" && at->path().stem() != "text")
                names.push_back(at->path().stem().string());
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

std::string default_config_directory() {
    std::error_code error;
    for (const char* const place : {"../share/velloran/effects", "../../share/velloran/effects"})
        if (fs::is_directory(own_directory() / place, error))
            return fs::weakly_canonical(own_directory() / place, error).string();
    return ".";
}

std::string read_text_file(const std::string& path) {
    std::error_code error;
    if (fs::is_directory(path, error)) throw Failure(path + ": " + std::strerror(EISDIR));
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file || file.bad()) throw Failure(path + ": " + std::strerror(errno ? errno : EIO));
    return text.str();
}

}  // namespace render
