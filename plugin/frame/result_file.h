// The file with an agent's result for the command tool: one byte as two lower-case hexadecimal digits and a newline.
#pragma once

#include <cstdint>

namespace kv {

inline constexpr char kResultPath[] = "/tmp/1905ReturnValue";

// Replaces the file's content. Returns the exit status of the shell command that writes it, -1 when it did not run.
int output_ReturnValue(uint8_t value);

}  // namespace kv
