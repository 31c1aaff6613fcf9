#include "support/unload.h"

#include "support/errors.h"

#include <algorithm>

namespace velloran {

namespace {

constexpr int max_functions = 32;
void (*functions[max_functions])();
int n_functions = 0;

}  // namespace

void free_at_unload(void (*function)()) {
    if (std::find(functions, functions + n_functions, function) != functions + n_functions) return;
    if (n_functions == max_functions) {
        V_error(level_error, "Too many things to free at unloading");
        return;
    }
    functions[n_functions++] = function;
}

void run_unload_functions() {
    while (n_functions > 0) functions[--n_functions]();
}

}  // namespace velloran
