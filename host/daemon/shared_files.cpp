#include "daemon/shared_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "support/log.h"

namespace kv1905d {
namespace {

constexpr const char *kWrittenByThePlugin[] = {"/tmp/1905ReturnValue", "/tmp/kv1905_IP", "/tmp/.kv1905_nvram_tmp",
                                               "/tmp/kv1905_FWupgrade"};

}  // namespace

void removePlantedFiles() {
    for (const char *path : kWrittenByThePlugin) {
        struct stat facts {};
        if (lstat(path, &facts) != 0) continue;
        if (S_ISREG(facts.st_mode) && facts.st_uid == geteuid() && facts.st_nlink == 1) continue;
        if (std::remove(path) == 0)
            KV_HOST_LOG(KV_LOG_WARNING, "%s: of user %u and removed, because it is no file of this device's own", path,
                        facts.st_uid);
    }
}

}  // namespace kv1905d
