// `velloran lsp`: the server over standard input and output.
#pragma once

namespace language {

// Serves until the editor says that it is over, or goes away. Answers the exit status.
int lsp_command();

}  // namespace language
