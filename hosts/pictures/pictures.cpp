#include "hosts/pictures/pictures.h"

#include <dlfcn.h>
#include <sys/mman.h>

#include <filesystem>
#include <system_error>

namespace spark_host {
namespace {

constexpr const char* module_name = "velloran_pictures.so";

// Where the build and the installation put the module, from the program's own directory; then the search path. Lazy:
// most of what the picture libraries can do is never called.
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

// Some of the libraries beneath end the process where they find no memory while they are loaded. That is seen before.
bool room_for_module() {
    constexpr size_t needed = size_t{512} << 20;  // of addresses, with the threads that they start
    void* const room = mmap(nullptr, needed, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) return false;
    munmap(room, needed);
    return true;
}

}  // namespace

const PictureFunctions* picture_functions(std::string* error) {
    static const PictureFunctions* functions = nullptr;
    if (functions) return functions;
    if (!room_for_module()) {
        if (error) *error = "out of memory";
        return nullptr;
    }
    void* const module = open_module();
    const auto entry = module ? reinterpret_cast<PictureModuleEntry>(dlsym(module, picture_module_entry)) : nullptr;
    if (entry) functions = entry();
    if (!functions && error) *error = dlerror();
    return functions;
}

}  // namespace spark_host
