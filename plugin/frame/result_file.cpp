#include "frame/result_file.h"

#include <sys/wait.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "frame/shell.h"
#include "kv1905/kos.h"

namespace kv {

namespace {

constexpr char kCommand[] = "echo 00 > /tmp/1905ReturnValue";
constexpr size_t kDigits = 5;  // where the value stands in it
static_assert(std::string_view(kCommand).ends_with(kResultPath));

}  // namespace

int output_ReturnValue(uint8_t value) {
    kos_pk("kv1905App : \n");
    kos_pk("ReturnValue = %.2x\n", value);
    constexpr char kHexadecimal[] = "0123456789abcdef";
    char command[sizeof kCommand];
    std::copy(std::begin(kCommand), std::end(kCommand), command);
    command[kDigits] = kHexadecimal[value >> 4];
    command[kDigits + 1] = kHexadecimal[value & 0xF];
    const int status = runCommand(command);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace kv
