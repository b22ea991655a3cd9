// Files, for tests that run in a private root (/tmp, /etc/kv1905 and /data are theirs).
#pragma once

#include <ctime>
#include <string>

namespace kvtest {

// Writes a whole executable file. Its modification time is alternately before and after those of all earlier calls.
void writeFile(const std::string &path, const std::string &text);
std::string readFile(const std::string &path);
bool exists(const std::string &path);

}  // namespace kvtest
