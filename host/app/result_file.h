// The file with an agent's result, written by the daemon's plug-in. All commands of this machine share it. It does not
// name its sender: a result received after its tool ended counts for the next command.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ieee1905/clock.h"
#include "support/files.h"

namespace kv1905d {

inline constexpr const char *kResultFile = "/tmp/1905ReturnValue";

// The byte in a complete file: two hexadecimal digits and a newline. The writer's shell creates it empty first.
std::optional<uint8_t> parseResult(std::string_view text);

class ResultFile {
  public:
    // Waits until no other tool expects an answer, at most `timeout`, and removes what an earlier command left.
    // Throws Failure.
    ResultFile(const std::string &path, Duration timeout);

    // Return the result, await() after at most `timeout`.
    std::optional<uint8_t> read() const;
    std::optional<uint8_t> await(Duration timeout) const;
    // Returns the last of several results.
    std::optional<uint8_t> awaitLast(Duration timeout) const;

  private:
    std::string path_;
    support::FileLock lock_;
};

}  // namespace kv1905d
