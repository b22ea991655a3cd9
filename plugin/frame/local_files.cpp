#include "frame/local_files.h"

#include <algorithm>
#include <cstring>

#include "frame/file.h"
#include "frame/host_table.h"
#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/shell.h"

char g_MainSSID[66] = {};
uint8_t g_MainBSSID[12] = {};

namespace kv {

namespace {

constexpr size_t kSsidSlotLen = 33;
constexpr size_t kChannelTextLen = 16;

constexpr char kIpScratchPath[] = "/tmp/kv1905_IP";
constexpr char kIpCommand[] = "ifconfig br0 | grep -w inet | sed 's/.*inet addr:\\([0-9.]*\\).*/\\1/'";

// Characters that end the key of a line.
constexpr char kKeyEnd[] = "= ;\n";
constexpr char kWordEnd[] = "= ;\r\n";
constexpr char kLineEnd[] = "\r\n";

// Splits the line in place. Returns null if nothing follows the key.
char *valueOf(char *line, const char *valueEnd) {
    char *rest = nullptr;
    if (strtok_r(line, kKeyEnd, &rest) == nullptr) return nullptr;
    return strtok_r(nullptr, valueEnd, &rest);
}

bool contains(const char *line, const char *key) {
    return std::strstr(line, key) != nullptr;
}

bool beginsWith(const char *line, const char *key) {
    return std::strncmp(line, key, std::strlen(key)) == 0;
}

File openOrLog(const char *path) {
    File file = openFile(path, "r");
    if (file == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Can't open the file %s\n", path);
    }
    return file;
}

void setSsid(size_t slot, const char *ssid) {
    char text[kSsidSlotLen];
    setText(text, ssid);
    std::memcpy(g_MainSSID + slot * kSsidSlotLen, text, sizeof text);
}

// Bytes that do not parse keep their value.
void setBssid(size_t slot, const char *text) {
    scanMac(text, g_MainBSSID + slot * KV_MAC_LEN);
}

void setMode(KvDevVendorData *dev, const char *word) {
    const bool ap = std::strcmp(word, "ap") == 0;
    const bool repeater = std::strcmp(word, "repeater") == 0;
    setText(dev->opMode, ap ? "AP" : repeater ? "Repeater" : "Router");
}

// A key of the configuration file. The first row that recognises a line gets its value.
struct ConfigKey {
    const char *key;
    bool (*recognises)(const char *line, const char *key);
    const char *valueEnd;
    void (*store)(KvDevVendorData *dev, const char *value);
};

constexpr ConfigKey kConfigKeys[] = {
    {"ModelName", contains, kWordEnd, [](KvDevVendorData *dev, const char *value) { setText(dev->modelName, value); }},
    {"FirmwareVersion", contains, kWordEnd,
     [](KvDevVendorData *dev, const char *value) { setText(dev->fwVersion, value); }},
    {"24GMainSSID", contains, kLineEnd, [](KvDevVendorData *, const char *value) { setSsid(0, value); }},
    {"5GMainSSID", contains, kLineEnd, [](KvDevVendorData *, const char *value) { setSsid(1, value); }},
    {"24GMainBSSID", contains, kLineEnd, [](KvDevVendorData *, const char *value) { setBssid(0, value); }},
    {"5GMainBSSID", contains, kLineEnd, [](KvDevVendorData *, const char *value) { setBssid(1, value); }},
    {"Mode", beginsWith, kWordEnd, setMode},
};

// Passes every line of the file to the keys, and scans LedEnable lines, which are not split.
void loadConfigLines(std::FILE *file, KvDevVendorData *dev) {
    int ledEnable = 0;  // a line that does not parse repeats the result of the last that did
    ConfigLine line;
    while (readLine(file, line)) {
        const auto row = std::find_if(std::begin(kConfigKeys), std::end(kConfigKeys),
                                      [&](const ConfigKey &key) { return key.recognises(line, key.key); });
        if (row != std::end(kConfigKeys)) {
            if (const char *value = valueOf(line, row->valueEnd)) {
                row->store(dev, value);
            }
        } else if (contains(line, "LedEnable=")) {
            std::sscanf(line, "LedEnable=%d", &ledEnable);
            setText(dev->ledStatus, ledEnable == 1 ? "ON" : "OFF");
        }
    }
}

// A key of the version file and the field it fills.
struct VersionKey {
    const char *key;
    char (KvDevVendorData::*field)[32];
    const char *fallback;  // without a version file
};

// Keys as other components write them, odd spelling included.
constexpr VersionKey kVersionKeys[] = {
    {"AppVersion", &KvDevVendorData::appVersion, "1.0"}, {"L2DeviveCtrl", &KvDevVendorData::l2DevCtrl, "0"},
    {"WiFiAutoCfg", &KvDevVendorData::wifiAutoCfg, "0"}, {"WiFiOnOff", &KvDevVendorData::wifiOnOff, "0"},
    {"FwUpgrade", &KvDevVendorData::fwUpgrade, "0"},     {"LEDOnOff", &KvDevVendorData::ledOnOff, "0"},
};

// Channel of the interface that a "24GMainIfname=wl0" line names.
void readChannelOfLine(char *line, char *channelOut) {
    if (const char *ifname = valueOf(line, kWordEnd)) {
        readWifiChannel(ifname, channelOut);
    }
}

struct PowerKey {
    uint16_t mediaType;  // IEEE 1905.1
    const char *key;
};

constexpr PowerKey kPowerKeys[] = {
    {0x0103, "24GPower"},  // 802.11n, 2.4 GHz
    {0x0105, "5GPower"},   // 802.11ac, 5 GHz
};

constexpr uint32_t kPowerOn = 0;
constexpr uint32_t kPowerOff = 2;
constexpr uint32_t kPowerUnknown = 255;

}  // namespace

int updateDeviceConfig(KvDevVendorData *dev) {
    const File file = openOrLog(kDeviceConfigPath);
    if (file == nullptr) return KV_RET_ERR;
    loadConfigLines(file.get(), dev);
    return KV_RET_OK;
}

int readDevConfFile(KvDevVendorData *dev) {
    char uptime[sizeof dev->uptime];
    std::snprintf(uptime, sizeof uptime, "%ld", static_cast<long>(getSysUptime()));
    setText(dev->fwVersion, "");
    setText(dev->modelName, "");
    setText(dev->buildNum, "7879");
    setText(dev->protoVersion, "3.0");

    const int result = updateDeviceConfig(dev);
    if (result == KV_RET_OK) {
        setText(dev->uptime, uptime);
    }
    return result;
}

int readDevVersionFile(KvDevVendorData *dev) {
    const File file = openOrLog(kVersionPath);
    if (file == nullptr) {
        for (const VersionKey &row : kVersionKeys) {
            setText(dev->*row.field, row.fallback);
        }
        return KV_RET_ERR;
    }
    ConfigLine line;
    while (readLine(file.get(), line)) {
        if (line[0] == '#' || line[0] == '\r') continue;
        const auto row = std::find_if(std::begin(kVersionKeys), std::end(kVersionKeys),
                                      [&](const VersionKey &key) { return contains(line, key.key); });
        if (row == std::end(kVersionKeys)) continue;
        if (const char *value = valueOf(line, kWordEnd)) {
            setText(dev->*row->field, value);
        }
    }
    LOG_PLAIN(KV_LOG_DEBUG,
              "Kovan 1905.1 Version: Version_app %s, L2DeviveCtrl %s, WiFiAutoCfg %s, WiFiOnOff %s, FwUpgrade %s, "
              "LEDOnOff %s\n",
              dev->appVersion, dev->l2DevCtrl, dev->wifiAutoCfg, dev->wifiOnOff, dev->fwUpgrade, dev->ledOnOff);
    return KV_RET_OK;
}

int getDeviceChannel(KvDevVendorData *dev) {
    char channel24G[kChannelTextLen] = "000";
    char channel5G[kChannelTextLen] = "000";
    constexpr char kChannelExtra[kChannelTextLen] = "000";  // no third radio on this device

    if (const File file = openOrLog(kDeviceConfigPath)) {
        ConfigLine line;
        while (readLine(file.get(), line)) {
            if (contains(line, "24GMainIfname")) {
                readChannelOfLine(line, channel24G);
            } else if (contains(line, "5GMainIfname")) {
                readChannelOfLine(line, channel5G);
            }
        }
    }
    const bool changed = std::strcmp(channel24G, dev->channel24G) != 0 || std::strcmp(channel5G, dev->channel5G) != 0 ||
                         std::strcmp(kChannelExtra, dev->channelExtra) != 0;
    setText(dev->channel24G, channel24G);
    setText(dev->channel5G, channel5G);
    setText(dev->channelExtra, kChannelExtra);
    if (changed) {
        LOG_PLAIN(KV_LOG_INFO, "WiFi channel has changed, update the json file\n");
        writeJsonDataModel();
    }
    return KV_RET_OK;
}

int checkWIFIChannelInfo() {
    KvDevVendorData *dev = deviceVendorData(nullptr);
    if (dev == nullptr) {
        LOG_DEVICE(KV_LOG_WARNING, "configuration data is null\n");
        return KV_RET_OK;
    }
    return getDeviceChannel(dev);
}

void readWifiChannel(const char *ifname, char *channelOut) {
    if (ifname == nullptr || channelOut == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "channel query without an interface name or a place for the channel\n");
        return;
    }
    if (!isShellSafe(ifname)) {
        LOG_DEVICE(KV_LOG_ERROR, "interface name %s must not reach a shell, wl is not run\n", ifname);
        return;
    }
    char command[160];  // a name comes from a line of at most 127 characters
    if (std::snprintf(command, sizeof command, "wl -i %s chanspec", ifname) >= static_cast<int>(sizeof command)) {
        LOG_DEVICE(KV_LOG_ERROR, "interface name %s is too long, wl is not run\n", ifname);
        return;
    }
    const Pipe output = openCommand(command);
    if (output == nullptr) return;
    char line[24];
    while (readLine(output.get(), line)) {
        char word[10];  // "36/80", "6l"
        if (std::sscanf(line, "%9s", word) != 1) continue;
        char *rest = nullptr;
        if (const char *channel = strtok_r(word, "ul/", &rest)) {
            // NOLINTNEXTLINE(clang-analyzer-security.insecureAPI.strcpy): at most 9 characters of the caller's 16
            std::strcpy(channelOut, channel);
        }
    }
}

int getDeviceIP(char *ipOut) {
    ConfigLine line = {};
    static_assert(sizeof line == kIpTextLen);
    const bool read = readOutput(kIpCommand, kIpScratchPath, [&](std::FILE *file) {
        if (readLine(file, line)) {
            line[std::strcspn(line, "\n")] = '\0';
        }
    });
    std::memcpy(ipOut, line, sizeof line);
    return read ? KV_RET_OK : KV_RET_ERR;
}

uint32_t getIntfPwrSt(uint32_t mediaType) {
    const File file = openOrLog(kDeviceConfigPath);
    if (file == nullptr) return kPowerUnknown;
    const auto row = std::find_if(std::begin(kPowerKeys), std::end(kPowerKeys),
                                  [&](const PowerKey &key) { return key.mediaType == (mediaType & 0xFFFF); });
    if (row == std::end(kPowerKeys)) return kPowerOn;
    ConfigLine line;
    while (readLine(file.get(), line)) {
        if (!contains(line, row->key)) continue;
        const char *value = valueOf(line, kWordEnd);
        return value != nullptr && std::strcmp(value, "1") != 0 ? kPowerOff : kPowerOn;
    }
    return kPowerOn;
}

}  // namespace kv
