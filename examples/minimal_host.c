/*
 * The smallest host there can be: one device, no network. It registers its callbacks, starts the local device in the
 * order that kvMAP1905.h prescribes, passes it one received TLV and prints what the plug-in sends.
 *
 *     cc minimal_host.c $(pkg-config --cflags kv1905) -o minimal_host
 *     ./minimal_host "$(pkg-config --variable=plugin kv1905)"
 */
#include <stdio.h>
#include <string.h>

#include "kv1905/kv1905_load.h"

static Kv1905Plugin plugin;
static KvDevVendorData local; /* a real host has one in every device record of its topology database */

static uintptr_t dataGet(uint32_t code, void *argument, uintptr_t argument2) {
    (void)argument2;
    if (code == DM_QUERY_DEVICE) return memcmp(argument, plugin.KvDevAlMac, KV_MAC_LEN) == 0 ? KV_RET_OK : KV_RET_ERR;
    if (code == DM_QUERY_ALMAC_BY_IFMAC) return KV_RET_ERR;
    return code == DM_QUERY_DEV_VENDOR_DATA && argument == NULL ? (uintptr_t)&local : 0;
}

static int jsonWrite(uint32_t unused) {
    return (void)unused, KV_RET_OK;
}

/* A real host puts the buffer into a TLV of a message 0x0004; unicast, multicast and relayed differ in how that goes. */
static int sendValue(KvVendMsgDest *dest, uint16_t *msgId) {
    printf("message %04x:", msgId == NULL ? 0u : (unsigned)*msgId);
    for (uint32_t i = 0; i < dest->length; ++i)
        printf(" %02x", dest->buffer[i]);
    printf("\n");
    return KV_RET_OK; /* "sent" */
}

int main(int argc, char **argv) {
    static const uint8_t ownAlMac[KV_MAC_LEN] = {0x02, 0x00, 0x5e, 0x00, 0x02, 0x00};
    const Kv1905BcmCbs table = {dataGet, jsonWrite, sendValue, sendValue, sendValue, NULL, NULL};

    const char *fault = kv1905Load(&plugin, argc > 1 ? argv[1] : "libkvMAP1905.so");
    if (fault != NULL) return fprintf(stderr, "minimal_host: %s\n", fault), 1;
    plugin.kvMAP1905_Func_reg(&table, 0);
    plugin.kvMAP1905_ApCfg_reg(NULL);
    memcpy(plugin.KvDevAlMac, ownAlMac, KV_MAC_LEN);
    plugin.kvMAP1905_DeviceDm_init(&local);
    KvIntfVendorData ethernet = {0};
    plugin.kvMAP1905_DevIntfDm_init(&ethernet, 0x0001); /* IEEE 802.3ab, gigabit */
    plugin.kvMAP1905_param_update();

    /* A controller requests our configuration: OUI, its AL MAC, marker, type 0, 6 bytes of payload: our AL MAC. */
    const uint8_t value[] = {0x02, 0x4e, 0xa7, 0x02, 0x00, 0x5e, 0x00, 0x01, 0x00, 0x00, 0x01,
                             0x00, 0x00, 0x00, 0x06, 0x02, 0x00, 0x5e, 0x00, 0x02, 0x00};
    const KvRecvVendTlv tlv = {{0x02, 0x00, 0x5e, 0x00, 0x01, 0x00}, value};
    plugin.kvMAP1905_VendSpecTlv_handle(&tlv, sizeof value, 0x4711);
    plugin.kvMAP1905_MainLoop(); /* a real host: about once a second */
    return 0;
}
