#include "hosts/common/module.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace spark_host {

void* open_module(const char* file_name) {
    std::error_code none;
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* directory : {"../lib", "../lib/velloran"}) {
        const std::filesystem::path path = here / directory / file_name;
        if (!std::filesystem::exists(path, none)) continue;
        // One that is there and cannot be loaded is what is wrong, not that there is none elsewhere.
        return dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
    }
    return dlopen(file_name, RTLD_LAZY | RTLD_LOCAL);
}

}  // namespace spark_host
