#include "support/notices.h"

namespace velloran {
namespace {
bool notices = true;
}

bool notices_p() { return notices; }
void set_notices(bool on) { notices = on; }

}  // namespace velloran
