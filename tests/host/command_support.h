// A daemon's end of the command socket, served on a thread of its own.
#pragma once

#include <thread>

#include "command_socket.h"
#include "host_support.h"

namespace kv1905d {

inline constexpr const char *kTestSocket = "/tmp/command_test.sock";

class ServedSocket {
  public:
    explicit ServedSocket(CommandActions actions) {
        uv_loop_init(&loop_);
        uv_async_init(&loop_, &end_, [](uv_async_t *handle) {
            const auto close = [](uv_handle_t *each, void *) {
                if (!uv_is_closing(each)) uv_close(each, nullptr);
            };
            uv_walk(handle->loop, close, nullptr);
        });
        EXPECT_EQ(server_.start(loop_, std::move(actions)), 0);
        thread_ = std::thread([this] { uv_run(&loop_, UV_RUN_DEFAULT); });
    }
    ~ServedSocket() {
        uv_async_send(&end_);
        thread_.join();
        EXPECT_EQ(uv_loop_close(&loop_), 0);
    }

  private:
    CommandServer server_{kTestSocket};
    uv_loop_t loop_{};
    uv_async_t end_{};
    std::thread thread_;
};

// Device 1 is the daemon's own, device 2 the only other one.
inline CommandActions actionsOfTwo(std::function<void(uint32_t, void *)> run, Effect effect = {1}) {
    CommandActions actions;
    actions.find = [](const MacAddress &alMac) {
        return alMac == mac(1) ? Presence::Local : alMac == mac(2) ? Presence::Known : Presence::Unknown;
    };
    actions.run = [run = std::move(run), effect](uint32_t code, void *buffer) {
        run(code, buffer);
        return effect;
    };
    return actions;
}

// A buffer of that size with the AL MAC in front, as much of it as fits.
inline Bytes bufferFor(const MacAddress &target, size_t size) {
    Bytes buffer(target.bytes.begin(), target.bytes.end());
    buffer.resize(size);
    return buffer;
}

}  // namespace kv1905d
