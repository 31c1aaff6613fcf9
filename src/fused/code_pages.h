// Pages that hold code. They are filled before they are mapped, and mapped to be read and executed alone: no page is
// ever writable and executable.
#pragma once

#include <cstddef>

namespace velloran {

// A copy of the code at an address of its own; null where the system refuses. Code must not depend on its address.
const void* map_code(const void* code, size_t bytes);
void unmap_code(const void* code, size_t bytes);

}  // namespace velloran
