// Standard output carries what was asked for and nothing else: what plug-ins print there goes to standard error.
#pragma once

#include <cstdio>
#include <string>

namespace render {

// Takes standard output over. To be called first.
void open_console();
// What was asked for.
void print(const std::string& text);
// Flushes; false if standard output could not take everything (a full disk, a closed pipe).
bool close_console();

// A line on standard error, behind "velloran: " with warn and fail. Any thread.
void note(const std::string& text);
void warn(const std::string& text);
void fail(const std::string& text);

// What plug-ins print on standard output goes nowhere from now on.
void drop_plugin_output();
// quiet: notes and what plug-ins print are dropped, failures stay.
void set_quiet(bool quiet);
bool quiet_p();

// A line that the next one replaces, on a terminal.
void show_progress_line(const std::string& text);
void end_progress_line();

}  // namespace render
