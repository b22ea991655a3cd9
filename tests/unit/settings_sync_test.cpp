// Password and country: what the controller answers, what an agent applies, and what never reaches a shell.
#include <gtest/gtest.h>

#include <cstring>

#include "features/multiap/password_sync.h"
#include "frame/file.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

constexpr uint16_t kPwdResponse = 69;
constexpr uint16_t kPwdRequest = 70;
constexpr uint16_t kCountryRequest = 76;
constexpr uint16_t kCountryResponse = 77;

const std::string kSecret = "/data/FMUBBW3CBI.dat";
const std::string kWlCalls = "/tmp/wl.calls";

RdmNatIntfSetting account(const std::string &name, const std::string &password) {
    RdmNatIntfSetting record = {};
    std::memcpy(record.userName, name.data(), name.size());
    std::memcpy(record.password, password.data(), password.size());
    return record;
}

RdmWifiRadio radio(const char *ifName, const char *code, const char *beacon) {
    RdmWifiRadio record = {};
    kv::setText(record.ifName, ifName);
    kv::setText(record.countryCode, code);
    kv::setText(record.countryInBeacon, beacon);
    return record;
}

// 6 bytes of AL MAC, length, 256 bytes.
Bytes passwordPayload(const Mac &sender, uint16_t length, const std::string &password) {
    Bytes payload(sender.begin(), sender.end());
    payload.push_back(static_cast<uint8_t>(length >> 8));
    payload.push_back(static_cast<uint8_t>(length));
    append(payload, password);
    payload.resize(264);
    return payload;
}

Bytes countryPayload(uint8_t length, const std::string &country) {
    Bytes payload(kAgent.begin(), kAgent.end());
    payload.push_back(length);
    append(payload, country);
    return payload;
}

Bytes join(Bytes bytes, size_t more) {
    bytes.resize(bytes.size() + more);
    return bytes;
}

class SettingsSync : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        std::remove(kSecret.c_str());
        std::remove(kWlCalls.c_str());
        configService() = ConfigService();
        shellCannotRun() = false;
        fakeCommand("wl", "echo \"$*\" >> " + kWlCalls + "\n");
    }

    void setKey(const std::string &key) {
        RdmSyncKeySource record = {};
        std::memcpy(record.key, key.data(), key.size());
        configService().keys = {record};
    }

    // Encrypts the controller's own password as the device's other components do.
    void setOwnPassword(const std::string &line) {
        writeFile("/tmp/plain", line);
        ASSERT_EQ(
            std::system(("openssl enc -aes-256-cbc -pbkdf2 -a -pass pass:Qm7tR2xLp9Vd4Kw8Zs3Hn6Jb1Y -in /tmp/plain "
                         "-out " +
                         kSecret)
                            .c_str()),
            0);
    }

    void request(uint16_t type) { host_.receive(kAgent, message(kAgent, type, Bytes(6)), 0xBEEF); }

    FakeHost host_;
};

}  // namespace

TEST_F(SettingsSync, RequestsNameTheirSetting) {
    EXPECT_EQ(kvMAP1905_SyncCtrlSettingReq_send(kAgent.data(), 0), KV_RET_OK);
    EXPECT_EQ(kvMAP1905_SyncCtrlSettingReq_send(kAgent.data(), 1), KV_RET_OK);
    ASSERT_EQ(host_.sent.size(), 2u);
    EXPECT_EQ(host_.sent[0].value, fromHex("02 4E A7 00 11 22 33 44 55 00 01 00 46 00 06 66 77 88 99 AA BB"));
    EXPECT_EQ(host_.sent[1].value, message(kLocal, kCountryRequest, Bytes(kAgent.begin(), kAgent.end())));
    EXPECT_EQ(logCount(7, "send vendor msg 0046 to 66:77:88:99:AA:BB\n"), 1u);
    EXPECT_EQ(host_.sent[1].destination, kAgent);
    EXPECT_EQ(kvMAP1905_SyncCtrlSettingReq_send(kAgent.data(), 2), KV_RET_ERR);
    EXPECT_EQ(logCount(7, "unsupport command 2\n"), 1u);
    EXPECT_EQ(kvMAP1905_SyncCtrlSettingReq_send(nullptr, 0), KV_RET_ERR);
    host_.sendResult = 1;
    EXPECT_EQ(kvMAP1905_SyncCtrlSettingReq_send(kAgent.data(), 1), KV_RET_ERR);
    EXPECT_EQ(logCount(4, "fail send vendor msg 004c to 66:77:88:99:AA:BB\n"), 1u);
}

TEST_F(SettingsSync, TheControllersPasswordIsScrambledWithTheKey) {
    struct Case {
        const char *what;
        std::string line;
        std::string key;
        std::string sent;
    };
    const std::string longest(255, 'p');
    const Case cases[] = {
        {"a key longer than the password", "secret\n", "\1\2\3\4\5\6\7", "tgfvjz"},
        {"a shorter key leaves the tail", "secret\n", "\1\1\1\1", "tfdset"},
        {"wraps around", "zz\n", "\xFF\x90", "y\x0A"},
        {"no key at all", "secret\n", "", "secret"},
        {"without its newline the last character is lost", "secret", "", "secre"},
        {"the first line alone", "one\ntwo\n", "", "one"},
        {"an empty line", "\n", "", ""},
        {"as long as it may be", longest + "\n", "", longest},
        {"longer ones are cut", longest + "pppp\n", "", longest},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        setOwnPassword(c.line);
        setKey(c.key);
        host_.sent.clear();
        request(kPwdRequest);
        ASSERT_EQ(host_.sent.size(), 1u);
        EXPECT_EQ(host_.sent[0].msgIdIn, 0xBEEF);
        EXPECT_EQ(host_.sent[0].destination, kAgent);
        EXPECT_EQ(host_.sent[0].value,
                  message(kLocal, kPwdResponse, passwordPayload(kLocal, static_cast<uint16_t>(c.sent.size()), c.sent)));
        Bytes data(c.sent.begin(), c.sent.end());
        kv::kvDecryptPwd(data.data(), data.size());
        EXPECT_EQ(std::string(data.begin(), data.end()) + "\n", c.line.substr(0, data.size()) + "\n");
    }
    for (const LogLine &line : logLines()) {
        EXPECT_EQ(line.text.find("secret"), std::string::npos) << "a password in the log";
    }
    configService().keys.clear();
    std::remove(kSecret.c_str());
    host_.sent.clear();
    request(kPwdRequest);
    EXPECT_TRUE(host_.sent.empty()) << "without the file there is no answer";
    EXPECT_EQ(logCount(3, "Get admin password failed\n\n"), 1u);
    setOwnPassword("secret\n");
    host_.sendResult = 1;
    request(kPwdRequest);
    EXPECT_EQ(logCount(3, "fail send sync controller password to 66:77:88:99:AA:BB\n"), 1u);
}

TEST_F(SettingsSync, AnAgentStoresThePasswordInItsAdminAccount) {
    const std::string old(255, 'o');
    struct Case {
        const char *what;
        Bytes payload;
        std::string after;
    };
    const Case cases[] = {
        {"unscrambled", passwordPayload(kAgent, 6, "tgfvjz"), "secret"},
        {"empty", passwordPayload(kAgent, 0, ""), ""},
        {"length counts, not what follows", passwordPayload(kAgent, 2, "tgXX"), "se"},
        {"up to its first NUL", passwordPayload(kAgent, 6, std::string("t\2\3") + "xyz"), "s"},
        {"255", passwordPayload(kAgent, 255, std::string(255, 'p')), "onmlkj" + std::string(249, 'p')},
        {"a longer payload is accepted", join(passwordPayload(kAgent, 6, "tgfvjz"), 1), "secret"},
        {"256 is refused", passwordPayload(kAgent, 256, std::string(256, 'p')), old},
        {"65535 is refused", passwordPayload(kAgent, 65535, "x"), old},
        {"a short payload is refused", head(passwordPayload(kAgent, 6, "tgfvjz"), 263), old},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        setKey("\1\2\3\4\5\6");
        configService().accounts = {account("administrator", "other"), account("admin", old),
                                    account("admin", "third")};
        host_.receive(kAgent, message(kAgent, kPwdResponse, c.payload), 1);
        EXPECT_STREQ(configService().accounts[1].password, c.after.c_str());
        EXPECT_STREQ(configService().accounts[0].password, "other");
        EXPECT_STREQ(configService().accounts[2].password, "third");
    }
    EXPECT_EQ(logCount(3, "failed to parse the vendor specific TLV\n"), 3u);
    configService().accounts.resize(1);
    clearLog();
    host_.receive(kAgent, message(kAgent, kPwdResponse, passwordPayload(kAgent, 1, "x")), 1);
    EXPECT_EQ(loggedAtMost(6), "") << "without an admin account nothing is applied and nothing is logged";

    configService().accounts = {account("admin", "kept")};
    configService().failing = "set";
    testing::internal::CaptureStdout();
    host_.receive(kAgent, message(kAgent, kPwdResponse, passwordPayload(kAgent, 1, "x")), 1);
    std::fflush(stdout);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("] : Set RDM_OID_NAT_INTF_SETTING Fail\n"),
              std::string::npos);
    EXPECT_STREQ(configService().accounts[0].password, "kept");
}

TEST_F(SettingsSync, TheControllerAnswersWithItsFirstRadiosCountry) {
    struct Case {
        const char *beacon;
        Bytes payload;
    };
    for (const Case &c : {Case{"US", fromHex("00 11 22 33 44 55 02 55 53")}, Case{"", fromHex("00 11 22 33 44 55 00")},
                          Case{"E0/1", fromHex("00 11 22 33 44 55 04 45 30 2F 31")}}) {
        configService().radios = {radio("wl0", "DE", c.beacon), radio("wl1", "DE", "FR")};
        host_.sent.clear();
        request(kCountryRequest);
        ASSERT_EQ(host_.sent.size(), 1u);
        EXPECT_EQ(host_.sent[0].value, message(kLocal, kCountryResponse, c.payload));
        EXPECT_EQ(host_.sent[0].msgIdIn, 0xBEEF);
        EXPECT_EQ(host_.sent[0].destination, kAgent);
    }
    configService().radios.clear();
    request(kCountryRequest);
    EXPECT_EQ(host_.sent.back().value, message(kLocal, kCountryResponse, fromHex("00 11 22 33 44 55 00")));
    host_.sendResult = 1;
    request(kCountryRequest);
    EXPECT_EQ(logCount(3, "fail send sync controller country in bcn to 66:77:88:99:AA:BB\n"), 1u);
}

TEST_F(SettingsSync, ACountryIsSetOnEveryRadio) {
    struct Case {
        const char *what;
        Bytes payload;
        int failing;
        const char *first;  // what is stored
        const char *second;
        const char *calls;
    };
    const std::string over = " country_abbrev_override ";
    const std::string both = "-i wl0" + over + "US\n-i wl1" + over + "US\n";
    const std::string second = "-i wl1" + over + "US\n";
    const std::string codes = "-i wl0" + over + "E0\n-i wl1" + over + "DE\n";
    const std::string slash = "-i wl0" + over + "E0/1\n-i wl1" + over + "E0/1\n";
    const Case cases[] = {
        {"two characters over four", countryPayload(2, "US"), 0, "US", "US", both.c_str()},
        {"none falls back to the radio's own code", countryPayload(0, ""), 0, "", "", codes.c_str()},
        {"four", countryPayload(4, "E0/1"), 0, "E0/1", "E0/1", slash.c_str()},
        {"a longer payload is accepted", join(countryPayload(2, "US"), 1), 0, "US", "US", both.c_str()},
        {"a radio that cannot be stored is skipped", countryPayload(2, "US"), 1, "OLD4", "US", second.c_str()},
        {"five are refused", countryPayload(5, "USUSU"), 0, "OLD4", "", ""},
        {"a length past the payload", countryPayload(3, "US"), 0, "OLD4", "", ""},
        {"a command", countryPayload(4, "$(a)"), 0, "OLD4", "", ""},
        {"another", countryPayload(3, "`b`"), 0, "OLD4", "", ""},
        {"and another", countryPayload(4, "\";c\""), 0, "OLD4", "", ""},
        {"a NUL inside", countryPayload(3, std::string("U\0S", 3)), 0, "OLD4", "", ""},
        {"what an interface name may hold", countryPayload(2, "U-"), 0, "OLD4", "", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        SetUp();
        configService().radios = {radio("wl0", "E0/13", "OLD4"), radio("wl1", "DE", "")};
        configService().failingInstance = c.failing;
        host_.receive(kAgent, message(kAgent, kCountryResponse, c.payload), 1);
        EXPECT_STREQ(configService().radios[0].countryInBeacon, c.first);
        EXPECT_STREQ(configService().radios[1].countryInBeacon, c.second);
        EXPECT_EQ(readFile(kWlCalls), c.calls);
        EXPECT_EQ(configService().calls.find(" set "), std::string::npos) << "stored without applying";
        EXPECT_EQ(configService().calls.rfind("setQuietly ", 0), *c.calls != '\0' ? 0u : std::string::npos);
    }
    EXPECT_EQ(logCount(3, "holds more than letters, digits and /\n"), 5u);
}

TEST_F(SettingsSync, NothingFromTheConfigurationReachesAShellUnchecked) {
    struct Case {
        const char *ifname;
        const char *code;
        const char *beacon;
    };
    const std::string longName(100, 'i');
    for (const Case &c : {Case{"wl0;touch /tmp/pwned", "DE", "US"}, Case{"$(touch /tmp/pwned)", "DE", "US"},
                          Case{"", "DE", "US"}, Case{"wl0", "$(a)", ""}, Case{"wl0", "DE", "\"`a`"},
                          Case{longName.c_str(), "DE", "US"}, Case{nullptr, "", ""}}) {
        clearLog();
        kvMAP1905_CountryInBcn_update(c.ifname, c.code, c.beacon);
        EXPECT_EQ(logCount(3, ""), 1u);
    }
    EXPECT_FALSE(exists(kWlCalls));
    EXPECT_FALSE(exists("/tmp/pwned"));
    kvMAP1905_CountryInBcn_update("wl0", "ABCDEFGH", "");
    EXPECT_EQ(readFile(kWlCalls), "-i wl0 country_abbrev_override ABCDEF\n") << "at most six characters of a code";
    shellCannotRun() = true;
    clearLog();
    kvMAP1905_CountryInBcn_update("wl0", "DE", "");
    EXPECT_EQ(logLines(), (std::vector<LogLine>{{0, 3, "fail to run system()"}}));
}

TEST_F(SettingsSync, OperatorCommands) {
    const auto handle = [](uint32_t code, std::string buffer) {
        buffer.resize(buffer.size() + 16);
        kvMAP1905_VendSpecCmd_handle(buffer.data(), code);
    };
    handle(202, "3 41420F");
    ASSERT_EQ(host_.sent.size(), 1u);
    EXPECT_EQ(host_.sent[0].slot, Slot::RelayedMulticast);
    EXPECT_FALSE(host_.sent[0].msgIdIn) << "a null pointer";
    EXPECT_EQ(host_.sent[0].value, message(kLocal, kPwdResponse, passwordPayload(kLocal, 3, "AB\x0F")));
    std::string most = "255 ";
    most.append(510, 'F');
    handle(202, most);
    EXPECT_EQ(host_.sent.size(), 2u);
    handle(202, "0 ");
    EXPECT_EQ(host_.sent.size(), 3u);
    for (const std::string &bad : {std::string("256 ") + std::string(512, 'A'), std::string("99999999999999999999 41"),
                                   std::string("341420F"), std::string("3 41420"), std::string("3 41420f"),
                                   std::string("3 41 42"), std::string("-1 41"), std::string(" 41"), std::string()}) {
        handle(202, bad);
    }
    EXPECT_EQ(host_.sent.size(), 3u);
    EXPECT_EQ(logCount(7, "Check kv1905App return value = (16)\n"), 9u);

    handle(203, "");
    EXPECT_EQ(host_.sent.back().value, message(kLocal, kCountryRequest, Bytes(kLocal.begin(), kLocal.end())));
    EXPECT_EQ(host_.sent.back().destination, kLocal);
    handle(205, std::string(6, '\0') + "\4US");
    EXPECT_EQ(host_.sent.back().value, message(kLocal, kCountryResponse, fromHex("00 11 22 33 44 55 02 55 53")));
    handle(205, std::string(6, '\0') + "\1E0/1more");
    EXPECT_EQ(host_.sent.back().value.size(), 15u + 7 + 4) << "at most four characters";
    EXPECT_FALSE(host_.sent.back().msgIdIn);
    host_.sendResult = 1;
    handle(203, "");
    handle(205, std::string(11, '\0'));
    EXPECT_EQ(logCount(7, "Check kv1905App return value = (16)\n"), 11u);
}

TEST_F(SettingsSync, ToolEntries) {
    static uint32_t code;
    static Bytes posted;
    Kv1905BcmCbs table = {};
    table.cmdSend = [](uint32_t c, void *buffer, uint32_t size) {
        code = c;
        posted.assign(static_cast<uint8_t *>(buffer), static_cast<uint8_t *>(buffer) + size);
        return 5;
    };
    kvMAP1905_Func_reg(&table, 1);
    char tool[] = "kv1905App";
    char country[] = "E0/1";
    char tooLong[] = "E0/13";
    char *argv[] = {tool, tool, country, nullptr};
    EXPECT_EQ(kvMAP1905_CountryInBcn_send(nullptr, 3, argv), 5);
    EXPECT_EQ(code, 205u);
    EXPECT_EQ(posted, fromHex("00 00 00 00 00 00 04 45 30 2F 31"));
    EXPECT_EQ(kvMAP1905_sync_country_req_send(nullptr, 3, argv), 5);
    EXPECT_EQ(code, 203u);
    EXPECT_EQ(posted, Bytes(6));
    code = 0;
    argv[2] = tooLong;
    EXPECT_EQ(kvMAP1905_CountryInBcn_send(nullptr, 3, argv), -1);
    EXPECT_EQ(kvMAP1905_CountryInBcn_send(nullptr, 2, argv), -1);
    EXPECT_EQ(kvMAP1905_sync_country_req_send(nullptr, 4, argv), -1);
    EXPECT_EQ(code, 0u);
    EXPECT_EQ(logCount(4, "kv1905App 2: Invalid input number 2\n"), 1u);
    EXPECT_EQ(logCount(4, "kv1905App 2: Invalid input number 4\n"), 1u);
}
