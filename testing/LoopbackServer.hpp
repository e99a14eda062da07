#pragma once

#include <httplib.h>

#include <chrono>
#include <string>
#include <thread>

namespace vorlen::testing {

// A loopback HTTP server on a free port, run on its own thread while the test lives.
class LoopbackServer {
public:
    httplib::Server server;
    int port = 0;

    void start() {
        port = server.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server.listen_after_bind(); });
        while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port) + path; }
    ~LoopbackServer() {
        server.stop();
        if (thread_.joinable()) thread_.join();
    }

private:
    std::thread thread_;
};

}  // namespace vorlen::testing
