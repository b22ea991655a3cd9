/* The library as a host in C sees it: loaded at run time, with the platform's calls bound to this program's own. */
#include <stdarg.h>
#include <stdio.h>

#include "kv1905/kv1905_load.h"
#include "kv1905/kvlog.h"

static char lastLine[512];

/* Takes precedence over the platform library's call without a rebuild of the plug-in. */
int kvMAP_syslog(int facility, int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = snprintf(lastLine, sizeof lastLine, "%d %d ", facility, level);
    vsnprintf(lastLine + length, sizeof lastLine - (size_t)length, format, arguments);
    va_end(arguments);
    return 0;
}

static int send(KvVendMsgDest *dest, uint16_t *msgId) {
    *msgId = (uint16_t)dest->length;
    return 0;
}

int main(int argc, char **argv) {
    Kv1905Plugin plugin = {0};
    const char *fault = kv1905Load(&plugin, argc > 1 ? argv[1] : "");
    if (fault != NULL) return fprintf(stderr, "abi_test: %s\n", fault), 1;
    const uint8_t agent[KV_MAC_LEN] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    const Kv1905BcmCbs table = {.vendMsgSend = send};
    plugin.kvMAP1905_Func_reg(&table, 0);
    memcpy(plugin.KvDevAlMac, "\2\3\4\5\6\7", KV_MAC_LEN);
    const int result = plugin.kvMAP1905_ConfQuery_send(agent, 0);
    printf("%d %d %s", result, dlclose(plugin.library), lastLine);
    return strcmp(lastLine, "1 7 [MSG] Device 02:03:04:05:06:07, register AlMac A0:A1:A2:A3:A4:A5, msgId 0015, "
                            "vendMsgType 0\n") != 0;
}
