#include "hosts/offscreen/offscreen.h"

#include "hosts/common/module.h"

#include <dlfcn.h>

namespace spark_host {
namespace {

constexpr const char* module_name = "velloran_offscreen.so";

}  // namespace

const OffscreenFunctions* offscreen_functions(std::string* error) {
    static const OffscreenFunctions* functions = nullptr;
    if (functions) return functions;
    void* const module = open_module(module_name);
    const auto entry = module ? reinterpret_cast<OffscreenModuleEntry>(dlsym(module, offscreen_module_entry)) : nullptr;
    if (entry) functions = entry();
    if (!functions && error) {
        const char* const reason = dlerror();
        *error = reason ? reason : std::string(module_name) + " offers nothing";
    }
    return functions;
}

}  // namespace spark_host
