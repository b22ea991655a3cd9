// What the plug-in may cost, as counts: heap blocks for each message, system calls of an idle turn of the main loop.
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>

#include "support/device_files.h"
#include "support/fake_config_service.h"
#include "support/fake_host.h"
#include "support/fake_system.h"
#include "support/sample_messages.h"

using namespace kvtest;

// A message costs its record and its payload; each message that goes out costs its buffer.
TEST(Cost, HeapBlocksOfAMessage) {
    const std::map<uint16_t, size_t> beyond = {
        {VEND_MSG_TYPE_CONF_QUERY, 1},          // the response, too large for a stack
        {VEND_MSG_TYPE_CONF_RESP, 2},           // the agent enters the upgrade list
        {VEND_MSG_TYPE_WIFI_STATE_REQ, 3},      // two views, and one of the local list
        {VEND_MSG_TYPE_WIFI_STATE_RESP, 2},     // the station, and its copy in the table
        {VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, 3},  // a view, the station, and its copy in the table
        {VEND_MSG_TYPE_COMMAND_REQ, 3},         // two words and the request that they stand for
    };
    for (const SampleMessage &sample : kSampleMessages) {
        emptyDevice();
        fakeCommand("reboot", "exit 0\n");
        fakeCommand("ifconfig", "exit 0\n");
        fakeCommand("wl", "exit 0\n");
        configService() = ConfigService();
        FakeHost host;
        host.addDevice(kAgent);
        host.owners[kAgent] = kAgent;
        takeAllocationCount();
        host.receive(kAgent, message(kAgent, sample.type, fromHex(sample.payload)), 7);
        const auto extra = beyond.find(sample.type);
        EXPECT_LE(takeAllocationCount(), 2 + host.sent.size() + (extra == beyond.end() ? 0 : extra->second))
            << kvVendorMessageName(sample.type);
    }
}

TEST(Cost, AnIdleTurnOfTheMainLoopMakesNoSystemCall) {
    FakeHost host;
    setClock(1'000'000);
    data_model_time_stamp = 1'000'000;
    kvMAP1905_MainLoop();  // what is due at first
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Every call but the end of the process kills.
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
        };
        const sock_fprog program = {sizeof filter / sizeof *filter, filter};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
            _exit(2);
        }
        for (int turn = 0; turn < 1000; ++turn) {
            kvMAP1905_MainLoop();
        }
        syscall(SYS_exit_group, 0);  // _exit does more with sanitizers
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 2) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "ended with status " << status;
}
