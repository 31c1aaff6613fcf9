#include "hosts/pictures/pictures.h"

#include <dlfcn.h>

namespace spark_host {

const PictureFunctions* picture_functions(std::string* error) {
    static const PictureFunctions* functions = nullptr;
    if (functions) return functions;
    // Found through the program's own search path. Lazy: most of what the picture libraries can do is never called.
    void* const module = dlopen("velloran_pictures.so", RTLD_LAZY | RTLD_LOCAL);
    const auto entry = module ? reinterpret_cast<PictureModuleEntry>(dlsym(module, picture_module_entry)) : nullptr;
    if (entry) functions = entry();
    if (!functions && error) *error = dlerror();
    return functions;
}

}  // namespace spark_host
