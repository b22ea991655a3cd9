// libuv's loop with callbacks that own their state: signals, timers and sockets.
#pragma once

#include <uv.h>

#include <functional>
#include <list>

#include "ieee1905/clock.h"
#include "support/log.h"

namespace kv1905d {

// Every function that can fail throws std::system_error that names the step. An exception ends only its callback: it
// must not pass through libuv.
class EventLoop {
  public:
    using Callback = std::function<void()>;

    // Calls back when a socket can be read.
    class Watch {
      public:
        // Resumes after an error, such as the interface going down, at which libuv stops watching.
        void resume();
        // Must be called before the descriptor refers to another socket.
        void pause();

      private:
        friend class EventLoop;
        uv_poll_t handle_{};
        Callback callback_;
        bool running_ = false;
    };
    class Timer {
      public:
        // Replaces an earlier start. repeat: 0 for once.
        void start(Duration delay, Duration repeat = Duration{});

      private:
        friend class EventLoop;
        uv_timer_t handle_{};
        Callback callback_;
    };

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    // Signals, timers and watches belong to the loop and are closed with it. The socket is the caller's.
    void onSignal(int number, Callback callback);
    Timer &addTimer(Callback callback);
    Watch &watch(int fd, Callback callback);

    void run();  // until stop()
    void stop() { uv_stop(&loop_); }
    uv_loop_t &handle() { return loop_; }
    // Calls the function and counts an exception. `loop` is the handle of an EventLoop.
    static void call(uv_loop_t *loop, const Callback &callback) noexcept;
    uint64_t failures() const { return failures_; }  // callbacks that threw

    static TimePoint now();

  private:
    struct Signal {
        uv_signal_t handle{};
        Callback callback;
    };

    uv_loop_t loop_{};
    uint64_t failures_ = 0;
    support::LogGate errorLog_;
    std::list<Signal> signals_;  // lists, because libuv holds addresses
    std::list<Timer> timers_;
    std::list<Watch> watches_;
};

}  // namespace kv1905d
