// The device's own files and tools, for tests that run in a private root (/tmp, /etc/kv1905 and /data are theirs).
#pragma once

#include <string>

namespace kvtest {

inline const std::string kConfigFile = "/tmp/.kv1905_conf";
inline const std::string kVersionFile = "/etc/kv1905/kv1905_Version";

// Writes a file whole, or leaves it, and gives it a modification time that it never had in this test.
void writeFile(const std::string &path, const std::string &text);
void touchFile(const std::string &path);
std::string readFile(const std::string &path);
bool exists(const std::string &path);

// Puts a shell script in front of the real command of that name, until removeCommands.
std::string commandPath(const std::string &name);
void fakeCommand(const std::string &name, const std::string &script);

// An empty device: no configuration file, no version file, no settings, no stand-ins for commands.
void emptyDevice();

}  // namespace kvtest
