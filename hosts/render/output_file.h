// Files that appear under their name only when they are complete.
#pragma once

#include <string>
#include <vector>

namespace render {

// Writes beside the file and renames. False, nothing left behind and the reason in *error, if that fails. Any thread.
bool write_whole_file(const std::string& path, const std::vector<unsigned char>& bytes, std::string* error);

// Removes what is half written, on the way out. Safe in a signal handler.
void remove_parts();

// From now on an interruption (SIGINT, SIGTERM, SIGHUP) removes what is half written and ends the program with 128 plus
// the signal's number.
void remove_parts_on_interruption();

// Empty if files can be made beside path, else the reason.
std::string unwritable_directory(const std::string& path);

}  // namespace render
