#include "daemon/supervisor.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

namespace kv1905d {
namespace {

TEST(Supervisor, AHungCommandIsKilledAndTheDaemonEndsAtASignalMeanwhile) {
    constexpr int kReturned = 7;  // the daemon's status after its command was killed
    const SupervisorTimes patient{}, strict{Duration(100), Duration(300), Duration(800)};
    struct Row {
        int signal;
        SupervisorTimes times;
        int status;
    };
    for (const Row &row : {Row{0, strict, kReturned}, Row{SIGTERM, patient, 0}, Row{SIGINT, patient, 0}}) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t supervisor = fork();
        if (supervisor == 0) {
            _exit(supervise(
                [](const Heartbeat &heartbeat) {
                    heartbeat.beat();
                    const int status = std::system("sleep 60; true");
                    return WIFSIGNALED(status) ? kReturned : EXIT_FAILURE;
                },
                row.times));
        }
        std::this_thread::sleep_for(Duration(200));
        if (row.signal != 0) kill(supervisor, row.signal);
        int status = 0;
        EXPECT_EQ(waitpid(supervisor, &status, 0), supervisor);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), row.status) << row.signal;
        EXPECT_LT(std::chrono::steady_clock::now() - start, Duration(200 + 1000)) << row.signal;
    }
}

}  // namespace
}  // namespace kv1905d
