// The configuration service stand-in: through the library's calls, by killing its writers, and its command.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <kv1905/kcfg.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

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

namespace {

constexpr char kDirectory[] = "/tmp/kcfg_test", kFile[] = "/tmp/kcfg_test/f";

std::string jsonGet(uint32_t object, KcfgInstanceIndex index) {
    json_object *copy = nullptr;
    if (kcfgFeObjJsonGet(object, &index, &copy) != 0) return "";
    const std::unique_ptr<json_object, int (*)(json_object *)> owner(copy, json_object_put);
    return json_object_to_json_string_ext(copy, JSON_C_TO_STRING_PLAIN);
}

int jsonSet(uint32_t object, KcfgInstanceIndex index, const std::string &text) {
    const std::unique_ptr<json_object, int (*)(json_object *)> value(json_tokener_parse(text.c_str()), json_object_put);
    return kcfgFeObjJsonSetWithoutApply(object, &index, value.get(), nullptr);
}

int setLedsOff() {
    return jsonSet(RDM_OID_LED_CTRL, {}, R"({"enable":0})");
}

// Status and output of a shell's words in the directory of the file f.
std::pair<int, std::string> shell(const std::string &words) {
    FILE *pipe = popen(("exec 2>&1; cd /tmp/kcfg_test; " + words).c_str(), "r");
    std::array<char, 8192> output;
    const size_t size = fread(output.data(), 1, output.size(), pipe);
    return {WEXITSTATUS(pclose(pipe)), {output.data(), size}};
}

void startAfresh() {
    setenv("KV_KCFG_FILE", kFile, 1);
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directory(kDirectory);
}

TEST(Configuration, StructureAndJsonAreOneInstance) {
    startAfresh();
    testing::internal::CaptureStderr();
    KcfgInstanceIndex index = {};
    void *copy = nullptr;
    for (const char *name : {"admin", "user"}) {
        ASSERT_EQ(kcfgFeObjStructGetNextWithoutUpdate(RDM_OID_NAT_INTF_SETTING, &index, &copy), 0);
        EXPECT_STREQ(static_cast<RdmNatIntfSetting *>(copy)->userName, name);
        free(copy);
    }
    EXPECT_NE(kcfgFeObjStructGetNextWithoutUpdate(RDM_OID_NAT_INTF_SETTING, &index, &copy), 0);
    EXPECT_TRUE(copy == nullptr && index.instance[0] == 2 && std::filesystem::is_empty(kDirectory));

    RdmNatIntfSetting account = {};
    strcpy(account.password, "\xff \"/\n\\");  // bytes that are no UTF-8, and those that JSON escapes
    memset(account.userName, 'u', sizeof account.userName - 1);
    EXPECT_EQ(jsonSet(RDM_OID_NAT_INTF_SETTING, index, R"({"userName":"","password":"","more":{"a":[1,2.50]}})"), 0);
    EXPECT_EQ(kcfgFeObjStructSetWithoutApply(RDM_OID_NAT_INTF_SETTING, &index, &account, nullptr), 0);
    EXPECT_EQ(kcfgFeObjStructSet(RDM_OID_NAT_INTF_SETTING, &index, &account, nullptr), 0);
    EXPECT_EQ(shell("stat -c %a f").second, "600\n");
    ASSERT_EQ(kcfgFeObjStructGetWithoutUpdate(RDM_OID_NAT_INTF_SETTING, &index, &copy), 0);
    EXPECT_EQ(memcmp(copy, &account, sizeof account), 0);
    free(copy);
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, index),
              "{\"userName\":\"" + std::string(account.userName) +
                  "\",\"password\":\"\xff \\\"\\/\\n\\\\\",\"more\":{\"a\":[1,2.50]}}");
    EXPECT_EQ(kcfgFeReqSend(KCFG_REQ_PARTIAL_RESET_DEFAULT, nullptr, 0), 0);
    EXPECT_EQ(jsonGet(RDM_OID_NAT_INTF_SETTING, index), R"({"userName":"user","password":"user"})");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Configuration, WhatIsWrongIsRefusedByName) {
    startAfresh();
    const std::tuple<uint32_t, KcfgInstanceIndex, std::string, std::string> kRows[] = {
        // object, index, JSON to set (empty when the index is at fault), what is said
        {1, {}, "", "no configuration object 1"},
        {RDM_OID_NAT_INTF_SETTING, {}, "", "RDM_OID_NAT_INTF_SETTING: want an index"},
        {RDM_OID_NAT_INTF_SETTING, {1, {0}}, "", "RDM_OID_NAT_INTF_SETTING: want an index"},
        {RDM_OID_NAT_INTF_SETTING, {1, {3}}, "", "RDM_OID_NAT_INTF_SETTING: no instance 3, the last is 2"},
        {RDM_OID_WIFI_RADIO, {2, {1, 1}}, "", "RDM_OID_WIFI_RADIO: want an index"},
        {RDM_OID_LED_CTRL, {}, "{}", "RDM_OID_LED_CTRL.1.enable: want a number from 0 to 1"},
        {RDM_OID_LED_CTRL, {}, "[1]", "RDM_OID_LED_CTRL.1: not an object"},
        {RDM_OID_LED_CTRL, {}, R"({"enable":1,"deep":[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]})", "nesting too deep"},
        {RDM_OID_LED_CTRL, {}, R"({"enable":1,"a":")" + std::string(1 << 20, 'x') + "\"}", "File too large"},
        {RDM_OID_SYNC_KEY_SOURCE, {}, R"({"key":"a\u0000b"})", "RDM_OID_SYNC_KEY_SOURCE.1.key: want text of at most"},
    };
    RdmNatIntfSetting room;  // as large as any
    memset(&room, 'x', sizeof room);
    for (auto [object, index, json, said] : kRows) {
        testing::internal::CaptureStderr();
        EXPECT_NE(jsonSet(object, index, json.empty() ? "{}" : json), 0);
        EXPECT_NE(testing::internal::GetCapturedStderr().find(said), std::string::npos) << said;
        void *copy = &index;
        EXPECT_EQ(kcfgFeObjStructGetWithoutUpdate(object, &index, &copy) != 0, json.empty()) << said;
        EXPECT_TRUE(jsonGet(object, index).empty() == json.empty() && (copy == nullptr) == json.empty()) << said;
        free(copy);
        EXPECT_NE(kcfgFeObjStructSet(object, &index, &room, nullptr), 0) << "texts without an end, LEDs beyond 1";
    }
    KcfgInstanceIndex index = {};
    EXPECT_NE(kcfgFeObjStructSet(RDM_OID_FACTORY_RESET, &index, &room, nullptr), 0) << "it has no structure";
    EXPECT_NE(kcfgFeReqSend(9, nullptr, 0), 0);
    EXPECT_EQ(shell("ls").second, "f.lock\n");
}

TEST(Configuration, InterruptedWriterLeavesOldOrNew) {
    for (const std::string before : {"kcfg reset", "printf { >f"}) {
        // fsync, rename, fsync of the directory; before them a damaged file is renamed
        for (int step = 1, last = before == "kcfg reset" ? 3 : 4; step <= last; step++) {
            startAfresh();
            EXPECT_EQ(shell(before).first, 0);
            const pid_t child = fork();
            if (child == 0) {
                gStepKills = true;
                gStepsLeft = step;
                _exit(setLedsOff());
            }
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(WEXITSTATUS(status), kKilled) << "step " << step << " was not reached";
            EXPECT_EQ(shell("kcfg get led_ctrl.1.enable 2>/dev/null").second, step < last ? "1\n" : "0\n") << step;
            EXPECT_EQ(setLedsOff(), 0) << "what was left behind does not disturb";
        }
    }
    startAfresh();
    for (gStepsLeft = 2; gStepsLeft > 0; gStepsLeft--)
        EXPECT_NE(setLedsOff(), 0) << "a disk that fails";
    EXPECT_EQ(shell("ls").second, "f.lock\n");
}

TEST(Configuration, Command) {
    const std::string kAlter =
        "for p in nat_intf_setting.1.password wifi_radio.1.countryCode sync_key_source.1.key; do kcfg set $p x; done; "
        "kcfg set led_ctrl.1.enable 0; kcfg set factory_reset.1.FactoryResetUnpurgedList ";
    const std::string kPartial = "; kcfg reset --partial; ", kShow = "grep -e x -e enable -e List f | tr -d ' \\n'";
    const std::string kLeds = "echo '{\"RDM_OID_LED_CTRL\":", kGet = " >f; kcfg get led_ctrl.1.enable";
    const std::string kSaid = "kcfg: /tmp/kcfg_test/f: ", kDamaged = kSaid + "damaged: ";
    const std::string kWant = "RDM_OID_LED_CTRL.1.enable: want a number from 0 to 1";
    const std::tuple<std::string, int, std::string> kRows[] = {
        // words, status, what the output starts with
        {"kcfg list", 0, "RDM_OID_NAT_INTF_SETTING (68104): 2 instances\nRDM_OID_FACTORY_RESET (75172): 1 instance\n"},
        {"kcfg get 110680.2", 0, "RDM_OID_WIFI_RADIO.2.ifName=wl1\nRDM_OID_WIFI_RADIO.2.countryCode=DE\n"},
        {"kcfg get --json rdm_oid_nat_intf_setting", 0, R"([ { "userName": "admin", "password": "admin" }, {)"},
        {"kcfg get wifi_radio.1.ifName --json", 0, "\"wl0\"\n"},
        {"kcfg set wifi_radio.2.countryInBeacon -- --US && kcfg get wifi_radio.2.countryInBeacon", 0, "--US\n"},
        {"kcfg set nat_intf_setting.1.password \"$(printf 'a\\nb\\033')\"; kcfg get nat_intf_setting.1", 0,
         "RDM_OID_NAT_INTF_SETTING.1.userName=admin\nRDM_OID_NAT_INTF_SETTING.1.password=a\\x0ab\\x1b\n"},
        {"kcfg set led_ctrl.1.enable 2", 2, "kcfg: RDM_OID_LED_CTRL.1.enable: want a number from 0 to 1;"},
        {"kcfg set led_ctrl.1.colour 2", 2, "kcfg: led_ctrl.1.colour: no such field"},
        {"kcfg set led_ctrl.0.enable 1", 2, "kcfg: led_ctrl.0.enable: an instance is a number from 1"},
        {"kcfg reset --json", 2, "kcfg: --json: no such option here"},
        {"kcfg --help >/dev/full", 1, "kcfg: standard output: No space left on device\n"},
        // What resets keep
        {kAlter + "1" + kPartial + kShow, 0, R"("password":"x""FactoryResetUnpurgedList":0"enable":1)"},
        {kAlter + "2" + kPartial + kShow, 0, R"("FactoryResetUnpurgedList":0"enable":1"countryCode":"x","key":"x")"},
        {kAlter + "3" + kPartial + kShow, 0, R"("password":"x""FactoryResetUnpurgedList":0"enable":1"countryC)"},
        {kAlter + "3; kcfg reset; " + kShow, 0, R"("FactoryResetUnpurgedList":0"enable":1)"},
        {"printf { >f; kcfg reset 2>/dev/null; ls; kcfg get led_ctrl", 0, "f\nf.lock\nRDM_OID_LED_CTRL.1.enable=1\n"},
        // Damaged files, and damage in a file
        {"printf ''" + kGet, 0, kDamaged + "line 1: the text ends too early"},
        {"printf '{\n \"RDM_OID_LED_CTRL\": [ {]'" + kGet, 0, kDamaged + "line 2: "},
        {"printf '{}\\0\n'" + kGet, 0, kDamaged + "line 1: unexpected text after the end"},
        {"printf []" + kGet, 0, kDamaged + "line 1: not an object"},
        {kLeds + "{}}'" + kGet, 0, kDamaged + "RDM_OID_LED_CTRL: not a list of 1 instances"},
        {kLeds + "[]}'" + kGet, 0, kDamaged + "RDM_OID_LED_CTRL: not a list of 1 instances"},
        {"printf '{\"RDM_OID_WIFI_RADIO\":[{},7]}'" + kGet, 0, kDamaged + "RDM_OID_WIFI_RADIO.2: not an object"},
        {"printf %1048577s" + kGet, 0, kDamaged + "larger than 1048576 bytes"},
        {"printf {" + kGet + " 2>/dev/null; cat f; kcfg set led_ctrl.1.enable 0 2>/dev/null; cat f.damaged", 0,
         "1\n{{"},
        {kLeds + "[{\"enable\":-1}]}'" + kGet, 0, kSaid + kWant + "; using the factory default\n1\n"},
        {kLeds + "[{\"enable\":4294967297}]}'" + kGet, 0, kSaid + kWant},
        {kLeds + "[{\"enable\":3}],\"own\":{}}' >f; kcfg set wifi_radio.1.ifName x; grep -o -e 3 -e own f", 0,
         "3\nown\n"},
        {R"(echo '{"RDM_OID_NAT_INTF_SETTING":[{"userName":"r"},{},{}]}' >f; kcfg get --json nat_intf_setting)", 0,
         R"([ { "userName": "r", "password": "admin" }, { "userName": "user", "password": "user" }, { "userName": "")"},
        // Files that cannot be used
        {"KV_KCFG_DEFAULTS=/none kcfg reset", 1, "kcfg: /none: cannot use the factory defaults: /none: open: No such"},
        {"echo {} >d; KV_KCFG_DEFAULTS=d kcfg reset", 1, "kcfg: d: cannot use the factory defaults: RDM_OID_NAT_INTF_"},
        {"kcfg reset; sed 's/: 1/: 2/' f >d; KV_KCFG_DEFAULTS=d kcfg reset", 1,
         "kcfg: d: cannot use the factory defaults: " + kWant},
        {"printf { >f; KV_KCFG_DEFAULTS=/none kcfg get led_ctrl 2>/dev/null || cat f", 0, "{"},
        {"KV_KCFG_FILE=/tmp kcfg reset", 1, "kcfg: /tmp: open: Is a directory; KV_KCFG_FILE names"},
        {"KV_KCFG_FILE=/none/k kcfg reset", 1, "kcfg: /none/k.lock: open: No such file"},
        {"trap '' XFSZ; ulimit -f 0; kcfg reset", 1, kSaid + "write: File too large"},
        {"mkfifo f; kcfg list", 1, kSaid + "open: Invalid argument"},
        {"flock f.lock sleep 9 >/dev/null 2>&1 & sleep 0.2; timeout 4 kcfg reset; s=$?; kill %1; exit $s", 1,
         "kcfg: /tmp/kcfg_test/f.lock: wait for another process's lock: "},
        // Many at a time
        {"for w in 1 2; do (for i in $(seq 40); do kcfg set wifi_radio.$w.countryCode $i; done) & done; wait; "
         "grep -o '\"40\"' f",
         0, "\"40\"\n\"40\"\n"},
    };
    for (const auto &[words, expected, start] : kRows) {
        startAfresh();
        const auto [status, output] = shell(words);
        EXPECT_EQ(status, expected) << words;
        EXPECT_TRUE(output.starts_with(start)) << words << "\n" << output;
    }
}

}  // namespace
