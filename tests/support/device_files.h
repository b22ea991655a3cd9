// The device's own files and commands, for tests that run in a private root (/tmp, /etc/kv1905 and /data are theirs).
#pragma once

#include <ctime>
#include <string>

namespace kvtest {

inline const std::string kConfigFile = "/tmp/.kv1905_conf";
inline const std::string kVersionFile = "/etc/kv1905/kv1905_Version";

// Writes a whole file, with a modification time that no file of this program had before.
void writeFile(const std::string &path, const std::string &text);
void touchFile(const std::string &path, std::time_t modified);
std::string readFile(const std::string &path);
bool exists(const std::string &path);

// The path of a shell script that takes the place of a command, until emptyDevice.
std::string commandPath(const std::string &name);
void fakeCommand(const std::string &name, const std::string &script);

// Removes configuration, version, settings and the stand-ins for commands.
void emptyDevice();

}  // namespace kvtest
