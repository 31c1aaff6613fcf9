// The host's own setup of a plug-in: controls and curves as text.
//
//     frameWidth 720
//     frameHeight 486
//     SPARK_CHANNEL 6
//     <tab>Channel float
//     <tab>Constant 4
//     <tab>Key
//     <tab><tab>Frame 1
//     <tab><tab>Value 0
//     <tab><tab>Interpolation linear
//     <tab>End
//     End
//
// One channel for each control, three with a trailing index for a colour ("SPARK_CHANNEL 9 0"). Strings stand as "Text"
// lines in quotes. Readers take a line by the words in it; what they do not know they skip. Numbers are the same in
// every locale.
#pragma once

#include "hosts/common/host.h"

#include <string>

namespace spark_host {

struct Plugin;

std::string setup_text(const Host& host, const Plugin& plugin);
// Sets controls and curves; channels of controls that do not exist are skipped. False, and nothing changed, if the text
// is not a setup.
bool read_setup_text(const std::string& text, Plugin& plugin);

bool save_setup(const Host& host, const Plugin& plugin, const std::string& path);
bool load_setup(Plugin& plugin, const std::string& path);

}  // namespace spark_host
