#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/storage/S3Credentials.hpp"

namespace vorlen::testing {

// What the proxy saw of one request.
struct ProxyRequest {
    std::string method;
    std::string target;  // path and query as sent
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;    // empty when a fault cut it short

    std::optional<std::string> header(const std::string& lowercasedName) const;
};

// What the proxy does with one request.
struct Fault {
    enum class Kind { none, respond, resetMidBody, loseAnswer, slowBody, stall };
    Kind kind = Kind::none;
    int status = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::chrono::milliseconds pause{0};

    static Fault none() { return {}; }
    // Answers by itself, without asking the server.
    static Fault respond(int status, std::string body = {}, std::optional<std::string> retryAfter = std::nullopt);
    // Reads half of the request body, then resets the connection.
    static Fault resetMidBody() { return of(Kind::resetMidBody); }
    // Lets the server commit the request, then resets the connection instead of answering.
    static Fault loseAnswer() { return of(Kind::loseAnswer); }
    // Reads the request body in 64 KiB pieces with this pause between them.
    static Fault slowBody(std::chrono::milliseconds pause) { return of(Kind::slowBody, pause); }
    // Says nothing for this long, then answers.
    static Fault stall(std::chrono::milliseconds pause) { return of(Kind::stall, pause); }
    // A tenth of the draws fail as networks fail: a 503 SlowDown, a reset mid-body, or a lost answer.
    static Fault tenthOfTheTime(std::uint32_t draw) {
        switch (draw % 30) {
            case 0: return respond(503, "<Error><Code>SlowDown</Code></Error>");
            case 1: return resetMidBody();
            case 2: return loseAnswer();
            default: return none();
        }
    }

private:
    static Fault of(Kind kind, std::chrono::milliseconds pause = {}) {
        Fault fault;
        fault.kind = kind;
        fault.pause = pause;
        return fault;
    }
};

// An HTTP/1.1 proxy of our own on loopback, between a client and an S3 server:
// it injects faults that a policy chooses per request, and it smooths two quirks
// of the test server (RADOS Gateway) so that it behaves as R2 does: quotes around
// an if-match ETag are removed (and the request signed again), and a 500 for a
// multipart completion becomes 404 NoSuchUpload.
class FaultProxy {
public:
    using Policy = std::function<Fault(const ProxyRequest&)>;

    // upstream: http://127.0.0.1:PORT. With the server's credentials the proxy signs
    // again the requests whose headers it changed.
    explicit FaultProxy(std::string upstream, std::optional<S3Credentials> credentials = std::nullopt);
    ~FaultProxy();
    FaultProxy(const FaultProxy&) = delete;
    FaultProxy& operator=(const FaultProxy&) = delete;

    std::string endpoint() const;
    void setPolicy(Policy policy);
    // Every request seen so far, in arrival order (bodies left out).
    std::vector<ProxyRequest> requests() const;
    std::size_t faultsInjected() const { return faults_; }

    // A policy that fails about `share` of requests, in every way above, from a seeded sequence.
    static Policy randomFaults(double share, unsigned seed);

private:
    void acceptLoop();
    void serve(int client);
    Fault choose(const ProxyRequest& request);

    std::optional<S3Credentials> credentials_;
    std::string upstreamHost_;
    int upstreamPort_ = 0;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_ = false;
    std::atomic<std::size_t> faults_ = 0;
    mutable std::mutex mutex_;
    Policy policy_;
    std::vector<ProxyRequest> seen_;
    std::set<int> open_;
    // Connections are served on detached threads that count themselves out, so that a long test
    // does not keep one ended thread per connection.
    std::size_t serving_ = 0;
    std::condition_variable servingEnded_;
    std::thread acceptor_;
};

}  // namespace vorlen::testing
