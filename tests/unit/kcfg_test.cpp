// The configuration service stand-in: through the library's calls, and by killing its writers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kv1905/kcfg.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

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

// Replace the C library's functions.
extern "C" int fsync(int file) {
    return stepFails() ? -1 : static_cast<int>(syscall(SYS_fsync, file));
}
extern "C" int rename(const char *from, const char *to) noexcept {
    return stepFails() ? -1 : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace {

constexpr char kDirectory[] = "/tmp/kcfg_test", kFile[] = "/tmp/kcfg_test/f";

int setLedsOff() {
    KcfgInstanceIndex index = {};
    RdmLedCtrl off = {};
    return kcfgFeObjStructSet(RDM_OID_LED_CTRL, &index, &off, nullptr);
}

// Returns the output of a shell's words in the directory of the file f.
std::string shell(const std::string &words) {
    FILE *pipe = popen(("exec 2>&1; cd /tmp/kcfg_test; " + words).c_str(), "r");
    std::string output(8192, '\0');
    output.resize(fread(output.data(), 1, output.size(), pipe));
    pclose(pipe);
    return output;
}

void resetFiles() {
    setenv("KV_KCFG_FILE", kFile, 1);
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directory(kDirectory);
}

TEST(Configuration, RecordKeepsBytesAndRejectsLongValues) {
    resetFiles();
    KcfgInstanceIndex second = {1, {2}};
    RdmNatIntfSetting account = {};
    strcpy(account.password, "\xff \"/\n\\");  // bytes that are no UTF-8, and those that JSON escapes
    memset(account.userName, 'u', sizeof account.userName - 1);
    EXPECT_EQ(kcfgFeObjStructSet(RDM_OID_NAT_INTF_SETTING, &second, &account, nullptr), 0);
    EXPECT_EQ(shell("stat -c %a f"), "600\n");
    void *copy = nullptr;
    ASSERT_EQ(kcfgFeObjStructGetWithoutUpdate(RDM_OID_NAT_INTF_SETTING, &second, &copy), 0);
    EXPECT_EQ(memcmp(copy, &account, sizeof account), 0);
    free(copy);
    memset(account.password, 'x', sizeof account.password);
    EXPECT_NE(kcfgFeObjStructSet(RDM_OID_NAT_INTF_SETTING, &second, &account, nullptr), 0) << "text without an end";
    KcfgInstanceIndex third = {1, {3}};
    EXPECT_NE(kcfgFeObjStructGetWithoutUpdate(RDM_OID_NAT_INTF_SETTING, &third, &copy), 0);
    EXPECT_NE(kcfgFeObjStructGetWithoutUpdate(1, &second, &copy), 0);
    EXPECT_NE(kcfgFeReqSend(9, nullptr, 0), 0);
    EXPECT_EQ(kcfgFeReqSend(KCFG_REQ_PARTIAL_RESET_DEFAULT, nullptr, 0), 0);
    EXPECT_EQ(shell("kcfg get nat_intf_setting.2.userName"), "user\n");
}

TEST(Configuration, InterruptedWriteLeavesOldOrNewFile) {
    for (const std::string before : {"kcfg reset", "printf { >f"}) {
        // fsync, rename, fsync of the directory; before them a damaged file is renamed
        for (int step = 1, last = before == "kcfg reset" ? 3 : 4; step <= last; step++) {
            resetFiles();
            shell(before);
            const pid_t child = fork();
            if (child == 0) {
                gStepKills = true;
                gStepsLeft = step;
                _exit(setLedsOff());
            }
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(WEXITSTATUS(status), kKilled) << "step " << step << " was not reached";
            EXPECT_EQ(shell("kcfg get led_ctrl.1.enable 2>/dev/null"), step < last ? "1\n" : "0\n") << step;
            EXPECT_EQ(setLedsOff(), 0) << "left-over files do not disturb";
        }
    }
    resetFiles();
    for (gStepsLeft = 2; gStepsLeft > 0; gStepsLeft--)
        EXPECT_NE(setLedsOff(), 0) << "a disk that fails";
    EXPECT_EQ(shell("ls"), "f.lock\n");
}

}  // namespace
