#include "hosts/offscreen/offscreen.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>

namespace spark_host {
namespace {

constexpr const char* module_name = "velloran_offscreen.so";

// Where the build and the installation put the module, from the program's own directory; then the search path.
void* open_module() {
    std::error_code none;
    const std::filesystem::path here = std::filesystem::read_symlink("/proc/self/exe", none).parent_path();
    for (const char* directory : {"../lib", "../lib/velloran"}) {
        const std::filesystem::path path = here / directory / module_name;
        if (!std::filesystem::exists(path, none)) continue;
        if (void* const module = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL)) return module;
    }
    return dlopen(module_name, RTLD_LAZY | RTLD_LOCAL);
}

}  // namespace

const OffscreenFunctions* offscreen_functions(std::string* error) {
    static const OffscreenFunctions* functions = nullptr;
    if (functions) return functions;
    void* const module = open_module();
    const auto entry = module ? reinterpret_cast<OffscreenModuleEntry>(dlsym(module, offscreen_module_entry)) : nullptr;
    if (entry) functions = entry();
    if (!functions && error) *error = dlerror();
    return functions;
}

}  // namespace spark_host
