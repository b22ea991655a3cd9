// The configuration service stand-in: through the library's calls, by killing its writers, and its command.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <kv1905/kcfg.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

// Counts down over the library's steps of writing; the step that reaches 0 fails, or ends the process before it.
int gStepsLeft = 0;
bool gStepKills = false;
constexpr int kKilled = 9;

bool stepFails() {
    if (gStepsLeft == 0 || --gStepsLeft > 0) return false;
    if (gStepKills) _exit(kKilled);
    errno = ENOSPC;
    return true;
}

}  // namespace

// These take the C library's place.
extern "C" int fsync(int file) {
    return stepFails() ? -1 : static_cast<int>(syscall(SYS_fsync, file));
}
extern "C" int rename(const char *from, const char *to) noexcept {
    return stepFails() ? -1 : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
extern "C" int renameat2(int fromDir, const char *from, int toDir, const char *to, unsigned flags) noexcept {
    return stepFails() ? -1 : static_cast<int>(syscall(SYS_renameat2, fromDir, from, toDir, to, flags));
}

namespace {

struct Release {
    void operator()(void *copy) const { free(copy); }
    void operator()(json_object *copy) const { json_object_put(copy); }
};
using Json = std::unique_ptr<json_object, Release>;

KcfgInstanceIndex at(uint8_t number) {
    return {static_cast<uint8_t>(number != 0), {number}};
}

template <typename Struct>
std::unique_ptr<Struct, Release> get(uint32_t object, uint8_t number) {
    KcfgInstanceIndex index = at(number);
    void *copy = nullptr;
    EXPECT_EQ(kcfgFeObjStructGetWithoutUpdate(object, &index, &copy), 0) << object;
    return std::unique_ptr<Struct, Release>(static_cast<Struct *>(copy));
}

int set(uint32_t object, uint8_t number, void *value, bool apply = true) {
    KcfgInstanceIndex index = at(number);
    return (apply ? kcfgFeObjStructSet : kcfgFeObjStructSetWithoutApply)(object, &index, value, nullptr);
}

std::string jsonGet(uint32_t object, uint8_t number) {
    KcfgInstanceIndex index = at(number);
    json_object *copy = nullptr;
    if (kcfgFeObjJsonGet(object, &index, &copy) != 0) return "";
    return json_object_to_json_string_ext(Json(copy).get(), JSON_C_TO_STRING_PLAIN);
}

int jsonSet(uint32_t object, uint8_t number, const std::string &text) {
    KcfgInstanceIndex index = at(number);
    const Json value(json_tokener_parse(text.c_str()));
    return kcfgFeObjJsonSetWithoutApply(object, &index, value.get(), nullptr);
}

int setLeds(uint8_t enable) {
    RdmLedCtrl leds = {enable};
    return set(RDM_OID_LED_CTRL, 0, &leds);
}
int leds() {
    return get<RdmLedCtrl>(RDM_OID_LED_CTRL, 0)->enable;
}

class Configuration : public testing::Test {
  protected:
    Configuration() {
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        file_ = directory_ + "/kcfg.json";
        setenv("KV_KCFG_FILE", file_.c_str(), 1);
        unsetenv("KV_KCFG_DEFAULTS");
        testing::internal::CaptureStderr();
    }
    ~Configuration() override {
        gStepsLeft = 0;
        testing::internal::GetCapturedStderr();
        std::filesystem::remove_all(directory_);
    }

    static void expectLog(const std::string &text) {
        const std::string all = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        EXPECT_TRUE(text.empty() ? all.empty() : all.find(text) != std::string::npos)
            << "want " << text << " in " << all;
    }

    std::string content(const std::string &ending = "") const {
        std::ifstream file(file_ + ending, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void write(const std::string &text) const { std::ofstream(file_, std::ios::binary | std::ios::trunc) << text; }
    bool exists(const std::string &ending) const { return std::filesystem::exists(file_ + ending); }
    template <typename Body>
    static pid_t inChild(Body body) {
        const pid_t child = fork();
        if (child == 0) _exit(body());
        return child;
    }
    static int statusOf(pid_t child) {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string directory_ = testing::TempDir() + "kcfgXXXXXX";
    std::string file_;
};

TEST_F(Configuration, StructureAndJsonAreOneInstance) {
    const auto account = get<RdmNatIntfSetting>(RDM_OID_NAT_INTF_SETTING, 1);
    EXPECT_STREQ(account->userName, "admin");
    EXPECT_FALSE(exists("")) << "reading creates nothing";

    strcpy(account->password, "\xff \"/\n\\");  // bytes that are no UTF-8, and those that JSON escapes
    const std::string longest(255, 'u');
    strcpy(account->userName, longest.c_str());
    EXPECT_EQ(jsonSet(RDM_OID_NAT_INTF_SETTING, 1, R"({"userName":"","password":"","more":{"a":[1,2.50]}})"), 0);
    EXPECT_EQ(set(RDM_OID_NAT_INTF_SETTING, 1, account.get()), 0);
    EXPECT_EQ(memcmp(get<RdmNatIntfSetting>(RDM_OID_NAT_INTF_SETTING, 1).get(), account.get(), sizeof *account), 0);
    const std::string json = jsonGet(RDM_OID_NAT_INTF_SETTING, 1);
    EXPECT_EQ(json,
              "{\"userName\":\"" + longest + "\",\"password\":\"\xff \\\"\\/\\n\\\\\",\"more\":{\"a\":[1,2.50]}}");
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, 2), R"({"userName":"user","password":"user"})");

    struct stat seen = {};
    EXPECT_EQ(stat(file_.c_str(), &seen), 0);
    EXPECT_EQ(seen.st_mode & 07777, 0600u);
    const auto radio = get<RdmWifiRadio>(RDM_OID_WIFI_RADIO, 2);
    EXPECT_EQ(set(RDM_OID_WIFI_RADIO, 2, radio.get(), false), 0);
    EXPECT_NE(content().find("\"Applied\": 1\n"), std::string::npos) << content();
    expectLog("");
}

TEST_F(Configuration, IterationVisitsEveryInstanceOnce) {
    const struct {
        uint32_t object;
        std::vector<std::string> starts;  // of the structures
    } kRows[] = {{RDM_OID_NAT_INTF_SETTING, {"admin", "user"}},
                 {RDM_OID_WIFI_RADIO, {"wl0", "wl1"}},
                 {RDM_OID_LED_CTRL, {"\x01"}},
                 {RDM_OID_SYNC_KEY_SOURCE, {"kv1905-development-key"}}};
    for (const auto &row : kRows) {
        KcfgInstanceIndex index = {};
        void *copy = nullptr;
        size_t visited = 0;
        while (kcfgFeObjStructGetNextWithoutUpdate(row.object, &index, &copy) == 0 && visited < row.starts.size()) {
            EXPECT_EQ(memcmp(copy, row.starts[visited].data(), row.starts[visited].size()), 0) << row.object;
            free(copy);
            EXPECT_TRUE(index.level == 1 && index.instance[0] == ++visited) << row.object;
        }
        EXPECT_EQ(copy, nullptr);
        EXPECT_EQ(visited, row.starts.size()) << row.object;
    }
    expectLog("");
}

TEST_F(Configuration, WhatIsNotThereIsRefused) {
    const struct {
        uint32_t object;
        KcfgInstanceIndex index;
        std::string said;
    } kRows[] = {
        {1, {}, "no configuration object 1"},
        {RDM_OID_NAT_INTF_SETTING, {}, "RDM_OID_NAT_INTF_SETTING: want an index"},
        {RDM_OID_NAT_INTF_SETTING, {1, {0}}, "RDM_OID_NAT_INTF_SETTING: want an index"},
        {RDM_OID_NAT_INTF_SETTING, {1, {3}}, "RDM_OID_NAT_INTF_SETTING: no instance 3, the last is 2"},
        {RDM_OID_WIFI_RADIO, {2, {1, 1}}, "RDM_OID_WIFI_RADIO: want an index"},
        {RDM_OID_LED_CTRL, {7, {1, 1, 1, 1, 1, 1}}, "RDM_OID_LED_CTRL: want an index"},
        {RDM_OID_LED_CTRL, {1, {2}}, "RDM_OID_LED_CTRL: no instance 2, the last is 1"},
    };
    RdmNatIntfSetting room = {};  // as large as any
    for (const auto &row : kRows) {
        KcfgInstanceIndex index = row.index;
        void *copy = &index;
        EXPECT_NE(kcfgFeObjStructGetWithoutUpdate(row.object, &index, &copy), 0) << row.said;
        EXPECT_EQ(copy, nullptr) << row.said;
        expectLog(row.said);
        auto *json = reinterpret_cast<json_object *>(&index);
        EXPECT_NE(kcfgFeObjJsonGet(row.object, &index, &json), 0) << row.said;
        EXPECT_EQ(json, nullptr) << row.said;
        expectLog(row.said);
        EXPECT_NE(kcfgFeObjStructSet(row.object, &index, &room, nullptr), 0);
        expectLog(row.said);
    }
    KcfgInstanceIndex index = {};
    void *copy = &index;
    EXPECT_NE(kcfgFeObjStructGetWithoutUpdate(RDM_OID_FACTORY_RESET, &index, &copy), 0);
    EXPECT_EQ(copy, nullptr);
    EXPECT_NE(kcfgFeObjStructSet(RDM_OID_LED_CTRL, &index, &room, "options"), 0);
    EXPECT_NE(kcfgFeObjStructSet(RDM_OID_LED_CTRL, &index, nullptr, nullptr), 0);
    EXPECT_NE(kcfgFeObjJsonSetWithoutApply(RDM_OID_LED_CTRL, &index, nullptr, nullptr), 0);
    EXPECT_NE(kcfgFeReqSend(9, nullptr, 0), 0);
    EXPECT_NE(kcfgFeReqSend(KCFG_REQ_RESET_DEFAULT, &room, 1), 0);
    EXPECT_FALSE(exists(""));
}

TEST_F(Configuration, ValuesThatDoNotFitAreRefusedByName) {
    RdmWifiRadio radio = {"wl0", "DE", {'D', 'E', '/', '1', '2'}};
    EXPECT_NE(set(RDM_OID_WIFI_RADIO, 1, &radio), 0);
    expectLog("RDM_OID_WIFI_RADIO.1.countryInBeacon: want text of at most 4 bytes");
    EXPECT_NE(setLeds(2), 0);
    expectLog("RDM_OID_LED_CTRL.1.enable: want a number from 0 to 1");
    const struct {
        uint32_t object;
        std::string json, said;
    } kRows[] = {
        {RDM_OID_LED_CTRL, "{}", "RDM_OID_LED_CTRL.1.enable: want"},
        {RDM_OID_LED_CTRL, R"({"enable":-1})", "RDM_OID_LED_CTRL.1.enable: want"},
        {RDM_OID_LED_CTRL, R"({"enable":4294967296})", "RDM_OID_LED_CTRL.1.enable: want"},
        {RDM_OID_LED_CTRL, R"({"enable":true})", "RDM_OID_LED_CTRL.1.enable: want"},
        {RDM_OID_LED_CTRL, "[1]", "RDM_OID_LED_CTRL.1: not an object"},
        {RDM_OID_LED_CTRL, R"({"enable":1,"deep":[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]})", "nesting too deep"},
        {RDM_OID_LED_CTRL, R"({"enable":1,"long":")" + std::string(1 << 20, 'x') + "\"}", "File too large"},
        {RDM_OID_FACTORY_RESET, R"({"FactoryResetUnpurgedList":4})",
         "FactoryResetUnpurgedList: want a number from 0 to 3"},
        {RDM_OID_SYNC_KEY_SOURCE, R"({"key":")" + std::string(257, 'k') + "\"}", "RDM_OID_SYNC_KEY_SOURCE.1.key: want"},
        {RDM_OID_SYNC_KEY_SOURCE, R"({"key":"a\u0000b"})", "RDM_OID_SYNC_KEY_SOURCE.1.key: want"},
    };
    for (const auto &row : kRows) {
        EXPECT_NE(jsonSet(row.object, 1, row.json), 0) << row.said;
        expectLog(row.said);
    }
    EXPECT_FALSE(exists(""));
    EXPECT_FALSE(exists(".new"));
}

TEST_F(Configuration, ResetsRestoreWhatIsNotSelected) {
    const struct {
        uint32_t object;
        int keptBy;
        std::string changed;
    } kObjects[] = {
        {RDM_OID_NAT_INTF_SETTING, 1, R"({"userName":"admin","password":"new"})"},
        {RDM_OID_WIFI_RADIO, 2, R"({"ifName":"wl0","countryCode":"US","countryInBeacon":"US"})"},
        {RDM_OID_SYNC_KEY_SOURCE, 2, R"({"key":"new"})"},
        {RDM_OID_LED_CTRL, 0, R"({"enable":0})"},
    };
    for (const uint32_t request : {KCFG_REQ_RESET_DEFAULT, KCFG_REQ_PARTIAL_RESET_DEFAULT}) {
        for (int selection = 0; selection <= 3; selection++) {
            for (const auto &row : kObjects)
                EXPECT_EQ(jsonSet(row.object, 1, row.changed), 0);
            const std::string list = "{\"FactoryResetUnpurgedList\":" + std::to_string(selection) + "}";
            EXPECT_EQ(jsonSet(RDM_OID_FACTORY_RESET, 0, list), 0);
            EXPECT_EQ(kcfgFeReqSend(request, nullptr, 0), 0);
            const int keeps = request == KCFG_REQ_PARTIAL_RESET_DEFAULT ? selection : 0;
            for (const auto &row : kObjects)
                EXPECT_EQ(jsonGet(row.object, 1) == row.changed, (row.keptBy & keeps) != 0) << list << row.changed;
            EXPECT_EQ(jsonGet(RDM_OID_FACTORY_RESET, 0), R"({"FactoryResetUnpurgedList":0})");
        }
    }
    write("{");
    EXPECT_EQ(kcfgFeReqSend(KCFG_REQ_RESET_DEFAULT, nullptr, 0), 0);
    EXPECT_EQ(leds(), 1);
    expectLog("");
}

TEST_F(Configuration, DamagedFileIsKeptAndReplaced) {
    const struct {
        std::string text, said;
    } kRows[] = {
        {"", "line 1, column 1: the text ends too early"},
        {"{\n \"RDM_OID_LED_CTRL\": [ {", "line 2, column 25: the text ends too early"},
        {"{\n \"RDM_OID_LED_CTRL\": [ {]", "line 2, column 25: "},
        {"{}\n{}", "line 2, column 1: "},
        {std::string("{}\0\n", 4), "line 1, column 3: unexpected text behind the end"},
        {"[]", "line 1, column 1: not an object"},
        {R"({"RDM_OID_LED_CTRL":{"enable":1}})", "RDM_OID_LED_CTRL: not a list of 1 instances"},
        {R"({"RDM_OID_LED_CTRL":[{"enable":1},{"enable":0}]})", "RDM_OID_LED_CTRL: not a list of 1 instances"},
        {R"({"RDM_OID_LED_CTRL":[]})", "RDM_OID_LED_CTRL: not a list of 1 instances"},
        {R"({"RDM_OID_WIFI_RADIO":null})", "RDM_OID_WIFI_RADIO: not a list of at most 255 instances"},
        {R"({"RDM_OID_WIFI_RADIO":[{},7]})", "RDM_OID_WIFI_RADIO.2: not an object"},
        {"\x7f\x45LF\x02\x01\x01\xff\xfe", "line 1, column 1: "},
        {std::string(10 << 20, ' '), "larger than 1048576 bytes"},
    };
    for (const auto &row : kRows) {
        std::filesystem::remove(file_ + ".damaged-1");
        write(row.text);
        EXPECT_EQ(leds(), 1) << row.said;
        expectLog(file_ + ": damaged: " + row.said);
        EXPECT_TRUE(content(".damaged-1") == row.text) << row.said;
        EXPECT_NE(content().find("\"enable\": 1"), std::string::npos) << row.said;
    }
    for (int i = 2; i <= 11; i++) {
        write(std::to_string(i));
        EXPECT_EQ(leds(), 1);
    }
    expectLog("not kept, there are 9 damaged files already");
    EXPECT_EQ(content(".damaged-9"), "9");
    EXPECT_FALSE(exists(".damaged-10"));
}

TEST_F(Configuration, FieldAtFaultReadsAsItsDefault) {
    write(R"({"RDM_OID_LED_CTRL":[{"enable":3}],"RDM_OID_NAT_INTF_SETTING":[{"userName":"root"},{"password":7},
              {"userName":[],"password":"third"}],"own":{"kept":true}})");
    EXPECT_EQ(leds(), 1);
    expectLog(file_ + ": RDM_OID_LED_CTRL.1.enable: want a number from 0 to 1; using the factory default");
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, 1), R"({"userName":"root","password":"admin"})");
    expectLog("");  // absent is not at fault
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, 2), R"({"password":"user","userName":"user"})");
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, 3), R"({"userName":"","password":"third"})");
    EXPECT_EQ(jsonSet(RDM_OID_SYNC_KEY_SOURCE, 0, R"({"key":"k"})"), 0);
    EXPECT_NE(content().find("\"enable\": 3"), std::string::npos) << "a set changes its own instance alone";
    EXPECT_NE(content().find("\"kept\": true"), std::string::npos);
}

TEST_F(Configuration, FilesThatCannotBeUsedAreNamed) {
    const std::string defaults = directory_ + "/defaults.json";
    setenv("KV_KCFG_DEFAULTS", defaults.c_str(), 1);
    for (const char *text : {"", "{", "{}", R"({"RDM_OID_NAT_INTF_SETTING":[{"userName":"a"}]})"}) {
        if (*text != '\0') std::ofstream(defaults) << text;
        EXPECT_NE(setLeds(0), 0);
        expectLog(defaults + ": cannot use the factory defaults: ");
        EXPECT_NE(kcfgFeReqSend(KCFG_REQ_RESET_DEFAULT, nullptr, 0), 0);
        EXPECT_FALSE(exists(""));
    }
    write("damaged");
    EXPECT_NE(setLeds(0), 0);
    EXPECT_EQ(content(), "damaged") << "without defaults to take its place it stays";

    unsetenv("KV_KCFG_DEFAULTS");
    std::filesystem::remove(file_);
    std::filesystem::create_directory(file_);
    EXPECT_NE(setLeds(0), 0);
    expectLog(file_ + ": cannot read the configuration: Is a directory");
    setenv("KV_KCFG_FILE", (directory_ + "/none/kcfg.json").c_str(), 1);
    EXPECT_NE(setLeds(0), 0);
    expectLog(directory_ + "/none/kcfg.json.lock: cannot lock the configuration: No such file");
}

TEST_F(Configuration, InterruptedWriterLeavesOldOrNew) {
    constexpr int kSteps = 3;  // fsync, rename, fsync of the directory
    for (const bool damaged : {false, true}) {
        const int last = kSteps + (damaged ? 4 : 0);  // setting aside and replacing the damaged file come first
        for (int step = 1; step <= last; step++) {
            EXPECT_EQ(kcfgFeReqSend(KCFG_REQ_RESET_DEFAULT, nullptr, 0), 0);
            if (damaged) write("{");
            const pid_t child = inChild([step] {
                gStepKills = true;
                gStepsLeft = step;
                return setLeds(0);
            });
            EXPECT_EQ(statusOf(child), kKilled) << "step " << step << " was not reached";
            EXPECT_EQ(leds(), step < last ? 1 : 0) << step;
            EXPECT_EQ(setLeds(0), 0) << "what was left behind does not disturb";
            EXPECT_EQ(leds(), 0);
            std::filesystem::remove(file_ + ".damaged-1");
        }
    }
}

TEST_F(Configuration, FailingDiskChangesNothing) {
    EXPECT_EQ(setLeds(0), 0);
    for (const int step : {1, 2}) {
        gStepsLeft = step;
        EXPECT_NE(setLeds(1), 0);
        expectLog(file_ + ": cannot store the configuration: No space left on device");
        EXPECT_EQ(gStepsLeft, 0);
    }
    const int refused = statusOf(inChild([] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {100, 100};  // bytes of any file
        return setrlimit(RLIMIT_FSIZE, &limit) == 0 && setLeds(1) != 0;
    }));
    EXPECT_EQ(refused, 1);
    EXPECT_EQ(leds(), 0);
    EXPECT_FALSE(exists(".new"));
}

TEST_F(Configuration, WritersLoseNothing) {
    constexpr int kRounds = 100;
    const auto count = [](uint8_t instance) {
        for (int round = 1; round <= kRounds; round++) {
            const auto radio = get<RdmWifiRadio>(RDM_OID_WIFI_RADIO, instance);
            snprintf(radio->countryCode, sizeof radio->countryCode, "%d", round);
            if (set(RDM_OID_WIFI_RADIO, instance, radio.get()) != 0) return 1;
        }
        return 0;
    };
    const pid_t writers[] = {inChild([&] { return count(1); }), inChild([&] { return count(2); })};
    for (const pid_t writer : writers)
        EXPECT_EQ(statusOf(writer), 0);
    for (const uint8_t instance : {uint8_t{1}, uint8_t{2}})
        EXPECT_STREQ(get<RdmWifiRadio>(RDM_OID_WIFI_RADIO, instance)->countryCode, "100");
    EXPECT_NE(content().find("\"Applied\": 200\n"), std::string::npos) << content();
}

TEST_F(Configuration, OneOfManyReadersReplacesADamagedFile) {
    for (int round = 0; round < 20; round++) {
        write("{");
        std::array<pid_t, 4> readers;
        for (pid_t &reader : readers)
            reader = inChild([] { return leds(); });
        for (const pid_t reader : readers)
            EXPECT_EQ(statusOf(reader), 1);
        EXPECT_FALSE(exists(".damaged-2"));
        std::filesystem::remove(file_ + ".damaged-1");
    }
}

TEST_F(Configuration, Command) {
    const struct {
        std::string words;
        int status;
        std::string output;  // what it starts with
    } kRows[] = {
        {"list", 0, "RDM_OID_NAT_INTF_SETTING (68104): 2 instances\nRDM_OID_FACTORY_RESET (75172): 1 instance\n"},
        {"list --json", 0, R"([ { "object": "RDM_OID_NAT_INTF_SETTING", "number": 68104, "instances": 2 }, {)"},
        {"get led_ctrl", 0, "RDM_OID_LED_CTRL.1.enable=1\n"},
        {"get 110680.2", 0, "RDM_OID_WIFI_RADIO.2.ifName=wl1\nRDM_OID_WIFI_RADIO.2.countryCode=DE\n"},
        {"get RDM_OID_WIFI_RADIO.2.ifName", 0, "wl1\n"},
        {"get --json rdm_oid_nat_intf_setting", 0, R"([ { "userName": "admin", "password": "admin" }, {)"},
        {"get wifi_radio.1.ifName --json", 0, "\"wl0\"\n"},
        {"set wifi_radio.2.countryInBeacon -- --US", 0, ""},
        {"get wifi_radio.2.countryInBeacon", 0, "--US\n"},
        {"set nat_intf_setting.1.password \"$(printf 'a\\nb\\033')\"", 0, ""},
        {"get nat_intf_setting.1", 0,
         "RDM_OID_NAT_INTF_SETTING.1.userName=admin\nRDM_OID_NAT_INTF_SETTING.1.password=a\\x0ab\\x1b\n"},
        {"set factory_reset.1.FactoryResetUnpurgedList 2", 0, ""},
        {"reset --partial", 0, ""},
        {"get wifi_radio.2.countryInBeacon", 0, "--US\n"},
        {"get nat_intf_setting.1.password", 0, "admin\n"},
        {"reset", 0, ""},
        {"get wifi_radio.2.countryInBeacon", 0, "DE\n"},
        {"set wifi_radio.3.ifName x", 1, "kcfg: RDM_OID_WIFI_RADIO: no instance 3, the last is 2\n"},
        {"get led_ctrl.1.colour", 1, "kcfg: RDM_OID_LED_CTRL.1: no field colour\n"},
        {"set led_ctrl.1.enable 2", 2, "kcfg: led_ctrl.1.enable: want a number from 0 to 1\n"},
        {"set led_ctrl.1.colour 2", 2, "kcfg: led_ctrl.1.colour: no such field"},
        {"set led_ctrl.0.enable 1", 2, "kcfg: led_ctrl.0.enable: an instance is a number from 1"},
        {"set led_ctrl.1 1", 2, "kcfg: led_ctrl.1: want OBJECT.INSTANCE.FIELD"},
        {"get radio", 2, "kcfg: radio: no such object"},
        {"get", 2, "kcfg: get: an argument is missing"},
        {"reset --json", 2, "kcfg: --json: no such option here"},
        {"erase", 2, "kcfg: erase: no such action"},
        {"--help", 0, "usage: kcfg "},
        {"--help >/dev/full", 1, "kcfg: standard output: No space left on device\n"},
    };
    for (const auto &row : kRows) {
        FILE *pipe = popen(("exec 2>&1; kcfg " + row.words).c_str(), "r");
        std::array<char, 4096> output = {};
        const size_t size = fread(output.data(), 1, output.size(), pipe);
        EXPECT_EQ(WEXITSTATUS(pclose(pipe)), row.status) << row.words;
        const std::string text(output.data(), size);
        EXPECT_TRUE(row.output.empty() ? text.empty() : text.starts_with(row.output)) << row.words << "\n" << text;
    }
}

}  // namespace
