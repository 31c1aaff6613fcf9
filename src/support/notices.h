// Lines on standard output that tell of what is being loaded.
#pragma once

namespace velloran {

// True until a host says otherwise. Host's thread only.
bool notices_p();
void set_notices(bool on);

}  // namespace velloran
