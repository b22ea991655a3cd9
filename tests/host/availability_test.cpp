// Conditions that must not stop the daemon.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <new>
#include <thread>
#include <tuple>

#include "command/client.h"
#include "daemon/command_server.h"
#include "daemon/event_loop.h"
#include "daemon/shared_files.h"
#include "daemon/supervisor.h"
#include "support/line_output.h"

namespace kv1905d {
namespace {

TEST(Supervisor, KillsHungCommandAndEndsOnSignal) {
    constexpr int kReturned = 7;  // the daemon's status after its command was killed
    const SupervisorTimes patient{}, strict{Duration(100), Duration(300), Duration(800)};
    const std::tuple<int, SupervisorTimes, int> rows[] = {
        {0, strict, kReturned}, {SIGTERM, patient, 0}, {SIGINT, patient, 0}};
    for (const auto &[signal, times, expected] : rows) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t supervisor = fork();
        if (supervisor == 0) {
            _exit(supervise(
                [](const Heartbeat &heartbeat) {
                    heartbeat.beat();
                    const int status = std::system("sleep 60; true");
                    return WIFSIGNALED(status) ? kReturned : EXIT_FAILURE;
                },
                times));
        }
        std::this_thread::sleep_for(Duration(200));
        if (signal != 0) kill(supervisor, signal);
        int status = 0;
        EXPECT_EQ(waitpid(supervisor, &status, 0), supervisor);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), expected) << signal;
        EXPECT_LT(std::chrono::steady_clock::now() - start, Duration(200 + 1000)) << signal;
    }
}

TEST(SharedFiles, RemovesLinksAndOtherUsersFiles) {
    const struct {
        const char *command;
        bool stays;
    } rows[] = {{"echo 00 >$f", true},
                {"echo 00 >$f && chown 65534 $f", false},
                {"ln -s /etc/passwd $f", false},
                {"echo 00 >/tmp/other && ln /tmp/other $f", false},
                {"mkfifo $f", false}};
    for (const auto &[command, stays] : rows) {
        const std::string prepare = "f=/tmp/1905ReturnValue; rm -f $f; ";
        ASSERT_EQ(std::system((prepare + command).c_str()), 0);
        removePlantedFiles();
        EXPECT_EQ(access("/tmp/1905ReturnValue", F_OK) == 0, stays) << command;
    }
}

TEST(EventLoop, SurvivesCallbackException) {
    EventLoop loop;
    int calls = 0;
    loop.addTimer([&] {
            if (++calls == 3) loop.stop();
            throw std::bad_alloc();
        })
        .start(Duration(0), Duration(1));
    loop.run();
    EXPECT_EQ(loop.failures(), 3u);
}

TEST(CommandServer, RefusesAClientWhenNoDescriptorIsLeft) {
    CommandServer server("/tmp/availability.sock");
    EventLoop loop;
    server.start(loop, {});
    const support::FileDescriptor client = connectToDaemon("/tmp/availability.sock", std::nullopt);
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{static_cast<rlim_t>(client.get()) + 1, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    loop.addTimer([&] { loop.stop(); }).start(Duration(100));
    loop.run();
    setrlimit(RLIMIT_NOFILE, &before);
    char byte;
    EXPECT_EQ(recv(client.get(), &byte, 1, MSG_DONTWAIT), 0) << "its connection is closed";
}

TEST(LineOutput, CountsLinesDroppedAtAFullPipe) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const support::FileDescriptor reader(ends[0]), writer(ends[1]);
    std::string text(1 << 20, '\0');
    while (write(writer.get(), text.data(), 4096) > 0) {
    }
    fcntl(writer.get(), F_SETFL, 0);  // would block
    support::LineOutput output(writer.get());
    output.write("lost");
    output.write("lost, too");
    EXPECT_GT(read(reader.get(), text.data(), text.size()), 0);
    output.write("next");
    const ssize_t size = read(reader.get(), text.data(), text.size());
    EXPECT_EQ(text.substr(0, static_cast<size_t>(size)), "2 lines dropped: their reader was too slow\nnext\n");
}

}  // namespace
}  // namespace kv1905d
