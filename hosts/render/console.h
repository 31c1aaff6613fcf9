// Standard output carries what was asked for and nothing else: what plug-ins print there goes to standard error.
// Standard error carries lines for people, or nothing but JSON objects, one a line.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <functional>
#include <string>
#include <string_view>

namespace render {

// Takes standard output over. To be called first.
void open_console();
// What was asked for.
void print(std::string_view text);
// Flushes; false if standard output could not take everything (a full disk, a closed pipe).
bool close_console();

// A line on standard error, behind "velloran: " with warn and fail. Any thread.
void note(const std::string& text);
void warn(const std::string& text);
void fail(const std::string& text);

// For programs with a window: notes, warnings (level 1) and failures (level 2) go to the function instead, without a
// prefix. It may be called by any thread.
void set_console_listener(std::function<void(int level, const std::string& text)> listener);

// What plug-ins print on standard output goes nowhere from now on.
void drop_plugin_output();
// quiet: notes and what plug-ins print are dropped, failures stay.
void set_quiet(bool quiet);
bool quiet_p();

// From now on standard error is JSON: notes, warnings and errors become events, and so does every line that a library
// writes there by itself.
void set_json();
bool json_p();
// An event as it stands; without set_json nothing. The event "end" is the last one: later ones are dropped.
void json_event(const nlohmann::ordered_json& event);
// Makes sure that there is an end.
void json_end(int status, const std::string& error);
// The same in a signal handler.
void json_end_in_handler(int status);

// A line that the next one replaces, on a terminal.
void show_progress_line(const std::string& text);
void end_progress_line();

}  // namespace render
