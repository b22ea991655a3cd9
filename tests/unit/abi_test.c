/*
 * The library as a host in C sees it: loaded with dlopen, platform calls bound to this program's own, exports exactly
 * those of the public header.
 */
#include <dlfcn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kv1905/kos.h"
#include "kv1905/kvMAP1905.h"
#include "kv1905/kvlog.h"

static char lastLine[512];
static int failures;

/* Take the place of the platform library's calls without a rebuild of the plug-in. */
int kvMAP_syslog(int facility, int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = snprintf(lastLine, sizeof lastLine, "%d %d ", facility, level);
    vsnprintf(lastLine + length, sizeof lastLine - (size_t)length, format, arguments);
    va_end(arguments);
    return 0;
}

static void expect(int condition, const char *what) {
    if (!condition) {
        fprintf(stderr, "abi_test: %s; last line: %s\n", what, lastLine);
        ++failures;
    }
}

static uint8_t sentBytes[64];
static uint32_t sentLength;

static int takeUnicast(KvVendMsgDest *dest, uint16_t *msgId) {
    sentLength = dest->length;
    memcpy(sentBytes, dest->buffer, dest->length < sizeof sentBytes ? dest->length : sizeof sentBytes);
    *msgId = 0x4711;
    return 0;
}

int main(int argc, char **argv) {
    void *plugin = dlopen(argc > 1 ? argv[1] : "libkvMAP1905.so", RTLD_NOW | RTLD_LOCAL);
    if (plugin == NULL) {
        fprintf(stderr, "abi_test: %s\n", dlerror());
        return 1;
    }
    /* ISO C has no cast from void * to function pointers; POSIX promises that the copy works. */
    void (*registerHost)(const Kv1905BcmCbs *, uint8_t);
    int (*sendQuery)(const uint8_t *, uint8_t);
    void (*receive)(const KvRecvVendTlv *, uint32_t, uint32_t);
    *(void **)&registerHost = dlsym(plugin, "kvMAP1905_Func_reg");
    *(void **)&sendQuery = dlsym(plugin, "kvMAP1905_ConfQuery_send");
    *(void **)&receive = dlsym(plugin, "kvMAP1905_VendSpecTlv_handle");
    uint8_t *alMac = dlsym(plugin, "KvDevAlMac");
    if (registerHost == NULL || sendQuery == NULL || receive == NULL || alMac == NULL) {
        fprintf(stderr, "abi_test: %s\n", dlerror());
        return 1;
    }
    memcpy(alMac, "\x02\x03\x04\x05\x06\x07", KV_MAC_LEN);
    const Kv1905BcmCbs table = {.vendMsgSend = takeUnicast};
    registerHost(&table, 0);

    const uint8_t agent[KV_MAC_LEN] = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    const uint8_t query[] = {0x02, 0x4E, 0xA7, 2, 3, 4, 5, 6, 7, 0, 1, 0, 0, 0, 6, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5};
    expect(sendQuery(agent, 0) == KV_RET_OK, "a query is sent");
    expect(sentLength == sizeof query && memcmp(sentBytes, query, sizeof query) == 0, "its bytes");
    expect(strcmp(lastLine,
                  "1 7 [MSG] Device 02:03:04:05:06:07, register AlMac A0:A1:A2:A3:A4:A5, msgId 4711, "
                  "vendMsgType 0\n") == 0,
           "its last line goes to this program's logging call");

    const KvRecvVendTlv tlv = {{0}, query};
    receive(&tlv, 2, 1);
    expect(strstr(lastLine, "failed to parse the vendor specific TLV") != NULL, "a short value is refused");
    expect(dlclose(plugin) == 0, "the library unloads");
    return failures == 0 ? 0 : 1;
}
