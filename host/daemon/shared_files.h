// The files in /tmp that the plug-in writes by fixed names, which any local user can use first.
#pragma once

namespace kv1905d {

// Removes links, files of other users and anything but regular files under these names, so that the plug-in neither
// follows them nor waits for a FIFO's reader. What cannot be removed stays.
void removePlantedFiles();

}  // namespace kv1905d
