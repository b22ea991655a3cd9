#include "daemon/event_loop.h"

#include <cstdint>
#include <utility>

#include "support/files.h"

namespace kv1905d {
namespace {

void require(int result, const char *step) {
    if (result < 0) throw support::systemError("event loop", step, -result);
}

}  // namespace

EventLoop::EventLoop() {
    require(uv_loop_init(&loop_), "start");
    loop_.data = this;
}

EventLoop::~EventLoop() {
    const auto close = [](uv_handle_t *handle, void *) {
        if (!uv_is_closing(handle)) uv_close(handle, nullptr);
    };
    uv_walk(&loop_, close, nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
}

void EventLoop::call(uv_loop_t *loop, const Callback &callback) noexcept {
    try {
        callback();
    } catch (const std::exception &error) {
        auto *self = static_cast<EventLoop *>(loop->data);
        ++self->failures_;
        self->errorLog_.log(KV_LOG_ERROR, now(), "event dropped: %s", error.what());
    }
}

void EventLoop::onSignal(int number, Callback callback) {
    Signal &signal = signals_.emplace_back();
    signal.callback = std::move(callback);
    signal.handle.data = &signal;
    require(uv_signal_init(&loop_, &signal.handle), "catch a signal");
    const auto notify = [](uv_signal_t *handle, int) {
        call(handle->loop, static_cast<Signal *>(handle->data)->callback);
    };
    require(uv_signal_start(&signal.handle, notify, number), "catch a signal");
}

EventLoop::Timer &EventLoop::addTimer(Callback callback) {
    Timer &timer = timers_.emplace_back();
    timer.callback_ = std::move(callback);
    timer.handle_.data = &timer;
    uv_timer_init(&loop_, &timer.handle_);
    return timer;
}

void EventLoop::Timer::start(Duration delay, Duration repeat) {
    const auto notify = [](uv_timer_t *handle) { call(handle->loop, static_cast<Timer *>(handle->data)->callback_); };
    uv_update_time(handle_.loop);
    uv_timer_start(&handle_, notify, static_cast<uint64_t>(delay.count()), static_cast<uint64_t>(repeat.count()));
}

EventLoop::Watch &EventLoop::watch(int fd, Callback callback) {
    Watch &watch = watches_.emplace_back();
    watch.callback_ = std::move(callback);
    require(uv_poll_init(&loop_, &watch.handle_, fd), "watch a socket");
    watch.handle_.data = &watch;
    watch.resume();
    return watch;
}

void EventLoop::Watch::resume() {
    if (running_) return;
    const auto notify = [](uv_poll_t *handle, int status, int) {
        auto *watch = static_cast<Watch *>(handle->data);
        if (status < 0) watch->running_ = false;
        call(handle->loop, watch->callback_);
    };
    running_ = uv_poll_start(&handle_, UV_READABLE, notify) == 0;
}

void EventLoop::Watch::pause() {
    uv_poll_stop(&handle_);
    running_ = false;
}

void EventLoop::run() {
    uv_run(&loop_, UV_RUN_DEFAULT);
}

TimePoint EventLoop::now() {
    return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
}

}  // namespace kv1905d
