// Makes untrusted text safe to print: it can neither start a new line nor control a terminal.
#pragma once

#include <string>
#include <string_view>

namespace support {

// Replaces bytes other than printable ASCII, and those in `special`, by \xNN.
std::string escaped(std::string_view text, std::string_view special = "\\");

}  // namespace support
