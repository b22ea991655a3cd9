#include "frame/result_file.h"

#include <sys/wait.h>

#include "frame/shell.h"
#include "kv1905/kos.h"

namespace kv {

int output_ReturnValue(uint8_t value) {
    kos_pk("kv1905App : \n");
    kos_pk("ReturnValue = %.2x\n", value);
    char command[64];
    kos_snprintf(command, sizeof command, "echo %.2x > %s", value, kResultPath);
    const int status = runCommand(command);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kv
