// Files, for tests that run in a private root (/tmp, /etc/kv1905 and /data are theirs).
#pragma once

#include <ctime>
#include <string>

namespace kvtest {

// Writes a whole executable file, with a modification time that no file of this program had before.
void writeFile(const std::string &path, const std::string &text);
void touchFile(const std::string &path, std::time_t modified);
std::string readFile(const std::string &path);
bool exists(const std::string &path);

}  // namespace kvtest
