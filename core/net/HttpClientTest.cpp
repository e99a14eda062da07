#include "core/net/HttpClient.hpp"

#include <gtest/gtest.h>
#include <httplib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <random>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/net/TransportError.hpp"
#include "testing/LoopbackServer.hpp"

namespace vorlen {
namespace {

using testing::LoopbackServer;

// Released by the test; handlers that wait on it end after a bound so a failing
// test cannot hang the suite.
struct Gate {
    std::atomic<bool> entered = false;
    std::atomic<bool> open = false;
    void holdInHandler() {
        entered = true;
        for (int i = 0; i < 300 && !open; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    void waitUntilEntered() const {
        while (!entered) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
};

// Answers every request on a kept connection, except the first POST: that one it
// reads and then drops, as a connection drops after the server acted on a request.
class AnswerDropper {
public:
    AnswerDropper() {
        listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(listener_, 8);
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
        port_ = ntohs(address.sin_port);
        acceptor_ = std::thread([this] {
            for (int client; (client = ::accept(listener_, nullptr, nullptr)) >= 0;) {
                std::lock_guard lock(mutex_);
                clients_.push_back(client);
                threads_.emplace_back([this, client] { serve(client); });
            }
        });
    }
    ~AnswerDropper() {
        ::shutdown(listener_, SHUT_RDWR);
        acceptor_.join();
        for (int client : clients_) ::shutdown(client, SHUT_RDWR);
        for (auto& thread : threads_) thread.join();
        for (int client : clients_) ::close(client);
        ::close(listener_);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }
    int posts() const { return posts_; }

private:
    void serve(int client) {
        std::string buffer;
        char chunk[4096];
        for (;;) {
            std::size_t end;
            while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
                const ssize_t got = ::recv(client, chunk, sizeof chunk, 0);
                if (got <= 0) return;
                buffer.append(chunk, static_cast<std::size_t>(got));
            }
            const bool post = buffer.starts_with("POST ");
            buffer.erase(0, end + 4);  // the requests of this test carry no body
            if (post && posts_++ == 0) {
                ::shutdown(client, SHUT_RDWR);
                return;
            }
            const std::string answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
            ::send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    }

    int listener_ = -1;
    int port_ = 0;
    std::atomic<int> posts_ = 0;
    std::mutex mutex_;
    std::vector<int> clients_;
    std::vector<std::thread> threads_;
    std::thread acceptor_;
};

HttpRequest request(std::string method, std::string url, std::optional<RequestBody> body = std::nullopt) {
    HttpRequest request;
    request.method = std::move(method);
    request.url = std::move(url);
    request.body = std::move(body);
    return request;
}

class HttpClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-http-");
        remover.emplace(dir);
    }
    std::filesystem::path writeRandomFile(std::size_t size) {
        std::string bytes(size, '\0');
        std::mt19937 random(7);
        for (auto& byte : bytes) byte = static_cast<char>(random());
        writeFileAtomically(dir / "data", bytes);
        return dir / "data";
    }

    std::filesystem::path dir;
    std::optional<DirectoryRemover> remover;
};

TEST_F(HttpClientTest, SendsAFileRangeInPiecesAndReportsWhatItHandedOver) {
    LoopbackServer loopback;
    std::string received;
    loopback.server.Put("/upload", [&](const httplib::Request& request, httplib::Response& response) {
        received = request.body;
        response.set_header("ETag", "\"abc\"");
        response.status = 200;
    });
    loopback.start();
    const auto path = writeRandomFile(1'000'017);
    const ByteRange range{100, 700'001};

    std::uint64_t reported = 0;
    std::uint64_t largest = 0;
    std::optional<RequestTransport> transport;
    RequestBody body = RequestBody::file(path, range);
    body.onSend = [&](std::uint64_t bytes) {
        reported += bytes;
        largest = std::max(largest, bytes);
    };
    body.onTransport = [&](const RequestTransport& value) { transport = value; };
    HttpClient client;
    const auto response = client.send(request("PUT", loopback.url("/upload"), body));

    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.header("etag"), "\"abc\"");
    EXPECT_EQ(received, readFile(path).substr(range.offset, range.length));
    EXPECT_EQ(reported, range.length);
    EXPECT_LE(largest, 262144u);
    ASSERT_TRUE(transport);
    EXPECT_EQ(transport->protocolName, "http/1.1");
    EXPECT_EQ(transport->remote, "127.0.0.1:" + std::to_string(loopback.port));
    EXPECT_EQ(transport->bodyBytesSent, static_cast<std::int64_t>(range.length));
    EXPECT_FALSE(transport->isReusedConnection);

    // The same host again: the kept connection carries it, and an error status is an answer.
    loopback.server.Get("/missing", [](const httplib::Request&, httplib::Response& response) { response.status = 404; });
    const auto second = client.send(request("GET", loopback.url("/missing")));
    EXPECT_EQ(second.status, 404);
    EXPECT_TRUE(second.transport.isReusedConnection);
}

TEST_F(HttpClientTest, ARequestThatIsNotIdempotentIsNeverSentAgainByTheTransport) {
    {
        AnswerDropper server;
        HttpClient client;
        ASSERT_EQ(client.send(request("GET", server.url())).status, 200);
        // On the kept connection curl sends it again by itself, and the server acts twice.
        EXPECT_EQ(client.send(request("POST", server.url())).status, 200);
        EXPECT_EQ(server.posts(), 2);
    }
    AnswerDropper server;
    HttpClient client;
    ASSERT_EQ(client.send(request("GET", server.url())).status, 200);
    auto once = request("POST", server.url());
    once.idempotent = false;
    try {
        client.send(once);
        FAIL() << "expected the lost answer as a failure";
    } catch (const TransportError&) {
        EXPECT_TRUE(isTransient(std::current_exception()));
    }
    EXPECT_EQ(server.posts(), 1);
}

TEST_F(HttpClientTest, AFileShorterThanPlannedFailsAndIsNotRetried) {
    LoopbackServer loopback;
    loopback.server.Put("/upload", [](const httplib::Request&, httplib::Response& response) { response.status = 200; });
    loopback.start();
    const auto path = writeRandomFile(1000);
    HttpClient client;
    try {
        client.send(request("PUT", loopback.url("/upload"), RequestBody::file(path, {500, 600})));
        FAIL() << "expected a failure";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "The file is shorter than planned.");
        EXPECT_FALSE(isTransient(std::current_exception()));
    }
}

TEST_F(HttpClientTest, TheLimiterIsAskedBeforeEveryPiece) {
    LoopbackServer loopback;
    loopback.server.Put("/upload", [](const httplib::Request&, httplib::Response& response) { response.status = 200; });
    loopback.start();
    const auto path = writeRandomFile(1'048'576);
    // A driven clock: the limiter's sleeps move time on instead of passing it.
    auto now = std::make_shared<BootClock::time_point>(BootClock::time_point{});
    auto slept = std::make_shared<std::chrono::nanoseconds>(0);
    RateLimiter::Clock clock{[now] { return *now; },
                             [now, slept](std::chrono::nanoseconds duration) {
                                 // At least a microsecond, as a real sleep takes: rounding must not stall time.
                                 duration = std::max(duration, std::chrono::nanoseconds(1000));
                                 *now += duration;
                                 *slept += duration;
                             }};
    RequestBody body = RequestBody::file(path, {0, 1'048'576});
    body.limiter = std::make_shared<RateLimiter>(262144, clock);
    HttpClient client;
    EXPECT_EQ(client.send(request("PUT", loopback.url("/upload"), body)).status, 200);
    // Four pieces of 256 KiB at 256 KiB/s with half a second of burst: 3.5 s of waiting.
    EXPECT_NEAR(std::chrono::duration<double>(*slept).count(), 3.5, 0.15);
}

TEST_F(HttpClientTest, ConnectionsPerHostStayUnderTheCap) {
    LoopbackServer loopback;
    std::atomic<int> inFlight = 0;
    std::atomic<int> most = 0;
    loopback.server.Get("/slow", [&](const httplib::Request&, httplib::Response& response) {
        const int now = ++inFlight;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {}
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        --inFlight;
        response.status = 200;
    });
    loopback.start();
    HttpClientOptions options;
    options.maxConnectionsPerHost = 2;
    HttpClient client(options);
    forEachInWindow(8, 8, [&](std::size_t) {
        EXPECT_EQ(client.send(request("GET", loopback.url("/slow"))).status, 200);
    });
    EXPECT_EQ(most.load(), 2);
}

TEST_F(HttpClientTest, CancellingTheTaskAbortsATransferAtOnce) {
    LoopbackServer loopback;
    Gate gate;
    loopback.server.Get("/held", [&](const httplib::Request&, httplib::Response& response) {
        gate.holdInHandler();
        response.status = 200;
    });
    loopback.start();
    HttpClient client;
    auto task = Task<int>::spawn([&] { return client.send(request("GET", loopback.url("/held"))).status; });
    gate.waitUntilEntered();
    task.cancel();
    EXPECT_THROW(task.value(), Cancelled);
    gate.open = true;
}

TEST_F(HttpClientTest, ATransferWithoutProgressTimesOutAsATransientFailure) {
    LoopbackServer loopback;
    Gate gate;
    loopback.server.Get("/stalled", [&](const httplib::Request&, httplib::Response& response) {
        gate.holdInHandler();
        response.status = 200;
    });
    loopback.start();
    HttpClientOptions options;
    options.maxConnectionsPerHost = 1;
    options.noProgressTimeout = std::chrono::seconds(1);
    HttpClient client(options);
    try {
        client.send(request("GET", loopback.url("/stalled")));
        FAIL() << "expected a time-out";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.domainAndCode(), "curl 28");
        EXPECT_TRUE(isTransient(std::current_exception()));
    }
    gate.open = true;
}

TEST_F(HttpClientTest, ARefusedConnectionIsTransientAndABadAddressIsNot) {
    // A port that was free a moment ago and has nobody listening.
    int port = 0;
    {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
        ::close(fd);
    }
    HttpClient client;
    try {
        client.send(request("GET", "http://127.0.0.1:" + std::to_string(port) + "/"));
        FAIL() << "expected a failure";
    } catch (const TransportError&) {
        EXPECT_TRUE(isTransient(std::current_exception()));
    }
    try {
        client.send(request("GET", "http://bad host/"));
        FAIL() << "expected a failure";
    } catch (const TransportError&) {
        EXPECT_FALSE(isTransient(std::current_exception()));
    }
}

TEST_F(HttpClientTest, AConnectToEntryTakesItsHostElsewhereUnderItsOwnName) {
    LoopbackServer loopback;
    std::string host;
    loopback.server.Get("/", [&](const httplib::Request& request, httplib::Response& response) {
        host = request.get_header_value("Host");
        response.status = 204;
    });
    loopback.start();
    HttpClientOptions options;
    options.connectTo = {"videos.example.test:80:127.0.0.1:" + std::to_string(loopback.port)};
    HttpClient client(options);

    const auto response = client.send(request("GET", "http://videos.example.test/"));
    EXPECT_EQ(response.status, 204);
    EXPECT_EQ(host, "videos.example.test");
    EXPECT_EQ(response.transport.remote, "127.0.0.1:" + std::to_string(loopback.port));
}

TEST_F(HttpClientTest, AnExtraAuthorityThatCannotBeReadFailsTheSessionWithItsPath) {
    try {
        HttpClientOptions options;
        options.extraCertificateAuthority = dir / "missing-ca.pem";
        HttpClient client(options);
        FAIL() << "expected a failure";
    } catch (const std::filesystem::filesystem_error& error) {
        EXPECT_EQ(error.path1(), dir / "missing-ca.pem");
    }
}

}  // namespace
}  // namespace vorlen
