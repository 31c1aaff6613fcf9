// What kind of host this is. Host's thread only.
#pragma once

namespace velloran {

// True if the host's interface is of this version or later.
bool host_api_at_least(float version);

// True in the host's Batch, where nobody sits before the picture; false on its desktop.
bool called_in_batch_p();

// The host's program name in lower case, at most 15 characters; empty below API 2.502. buffer holds 16.
void get_program_name(char* buffer);

}  // namespace velloran
