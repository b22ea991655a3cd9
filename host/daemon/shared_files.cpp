#include "daemon/shared_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "support/log.h"

namespace kv1905d {
namespace {

// Written by the plug-in.
struct SharedFile {
    const char *path;
    bool isReported = false;  // logged because it cannot be removed
} sharedFiles[] = {{"/tmp/1905ReturnValue"}, {"/tmp/kv1905_IP"}, {"/tmp/.kv1905_nvram_tmp"}, {"/tmp/kv1905_FWupgrade"}};

}  // namespace

void removePlantedFiles() {
    for (auto &[path, isReported] : sharedFiles) {
        struct stat facts {};
        if (lstat(path, &facts) != 0) continue;
        if (S_ISREG(facts.st_mode) && facts.st_uid == geteuid() && facts.st_nlink == 1) continue;
        if (std::remove(path) == 0) {
            KV_HOST_LOG(KV_LOG_WARNING, "%s: removed, not a file of this process (owner: user %u)", path, facts.st_uid);
        } else if (!std::exchange(isReported, true)) {
            KV_HOST_LOG(KV_LOG_WARNING, "%s: not a file of this process (owner: user %u), cannot be removed: %s", path,
                        facts.st_uid, std::strerror(errno));
        }
    }
}

}  // namespace kv1905d
