// Opens a help page in the user's browser. Host's thread only.
#pragma once

namespace velloran {

// Starts browse-url.sh with the address as its one argument, without a shell: nothing in the address can become a
// command. The script of the configuration directory comes first, then the one on the path. Waits for it; the outcome
// goes to the message line. 1 if the browser was started.
int browse_url(const char* url);

}  // namespace velloran
