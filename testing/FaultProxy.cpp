#include "testing/FaultProxy.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <memory>
#include <random>
#include <stdexcept>

#include "core/storage/SigV4.hpp"

namespace vorlen::testing {

namespace {

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool readMore(int fd, std::string& buffer, std::size_t most = 65536) {
    char chunk[65536];
    const ssize_t got = ::recv(fd, chunk, std::min(most, sizeof chunk), 0);
    if (got <= 0) return false;
    buffer.append(chunk, static_cast<std::size_t>(got));
    return true;
}

// Closes with a reset rather than an orderly end, as a dropped connection looks.
void resetConnection(int fd) {
    linger option{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &option, sizeof option);
    ::close(fd);
}

struct Head {
    std::string startLine;
    std::vector<std::pair<std::string, std::string>> headers;

    std::optional<std::string> header(const std::string& name) const {
        for (const auto& [key, value] : headers)
            if (lowercased(key) == name) return value;
        return std::nullopt;
    }
};

// Reads up to the blank line; what follows stays in buffer.
std::optional<Head> readHead(int fd, std::string& buffer) {
    std::size_t end;
    while ((end = buffer.find("\r\n\r\n")) == std::string::npos)
        if (!readMore(fd, buffer)) return std::nullopt;
    Head head;
    std::size_t lineStart = 0;
    while (lineStart < end) {
        std::size_t lineEnd = buffer.find("\r\n", lineStart);
        std::string line = buffer.substr(lineStart, lineEnd - lineStart);
        if (head.startLine.empty()) {
            head.startLine = line;
        } else if (auto colon = line.find(':'); colon != std::string::npos) {
            std::size_t valueStart = line.find_first_not_of(' ', colon + 1);
            head.headers.emplace_back(line.substr(0, colon), valueStart == std::string::npos ? "" : line.substr(valueStart));
        }
        lineStart = lineEnd + 2;
    }
    buffer.erase(0, end + 4);
    return head;
}

std::string dechunked(const std::string& body) {
    std::string out;
    std::size_t position = 0;
    while (position < body.size()) {
        const std::size_t lineEnd = body.find("\r\n", position);
        if (lineEnd == std::string::npos) break;
        const std::size_t size = std::stoul(body.substr(position, lineEnd - position), nullptr, 16);
        if (size == 0) break;
        out += body.substr(lineEnd + 2, size);
        position = lineEnd + 2 + size + 2;
    }
    return out;
}

std::string reasonOf(int status) {
    switch (status) {
        case 200: return "OK";
        case 404: return "Not Found";
        case 429: return "Too Many Requests";
        case 500: return "Internal Server Error";
        case 503: return "Service Unavailable";
        default: return "Status";
    }
}

std::string answer(int status, const std::vector<std::pair<std::string, std::string>>& headers, const std::string& body,
                   bool headRequest) {
    std::string text = fmt::format("HTTP/1.1 {} {}\r\n", status, reasonOf(status));
    bool hasLength = false;
    for (const auto& [name, value] : headers) {
        const auto lower = lowercased(name);
        if (lower == "connection" || lower == "transfer-encoding") continue;
        if (lower == "content-length") {
            if (!headRequest) continue;
            hasLength = true;
        }
        text += name + ": " + value + "\r\n";
    }
    if (!headRequest || !hasLength) text += fmt::format("Content-Length: {}\r\n", headRequest ? 0 : body.size());
    text += "\r\n";
    if (!headRequest) text += body;
    return text;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

std::string percentDecoded(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::string between(const std::string& text, const std::string& open, const std::string& close) {
    const auto start = text.find(open);
    if (start == std::string::npos) return {};
    const auto end = text.find(close, start + open.size());
    return text.substr(start + open.size(), end == std::string::npos ? std::string::npos : end - start - open.size());
}

// The Authorization value for a request whose signed headers changed on the way.
std::string signedAgain(const std::string& method, const std::string& target,
                        const std::vector<std::pair<std::string, std::string>>& headers, const S3Credentials& credentials,
                        const std::string& authorization) {
    const std::string credential = between(authorization, "Credential=", ",");
    const std::string signedNames = between(authorization, "SignedHeaders=", ",");
    // Credential=AK/date/region/service/aws4_request
    std::vector<std::string> parts;
    for (std::size_t start = 0;;) {
        const auto slash = credential.find('/', start);
        parts.push_back(credential.substr(start, slash == std::string::npos ? std::string::npos : slash - start));
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    SigV4::Request request;
    request.method = method;
    const auto question = target.find('?');
    request.path = target.substr(0, question);
    if (question != std::string::npos) {
        const std::string query = target.substr(question + 1);
        for (std::size_t start = 0; start <= query.size();) {
            auto amp = query.find('&', start);
            if (amp == std::string::npos) amp = query.size();
            const std::string item = query.substr(start, amp - start);
            const auto equals = item.find('=');
            if (!item.empty())
                request.query.emplace_back(percentDecoded(item.substr(0, equals)),
                                           equals == std::string::npos ? std::string() : percentDecoded(item.substr(equals + 1)));
            start = amp + 1;
        }
    }
    const std::string names = ";" + signedNames + ";";
    for (const auto& [name, value] : headers)
        if (names.find(";" + lowercased(name) + ";") != std::string::npos) request.headers[lowercased(name)] = value;
    request.payloadHash = request.headers["x-amz-content-sha256"];
    const SigV4::Scope scope{parts.size() > 2 ? parts[2] : "auto", parts.size() > 3 ? parts[3] : "s3"};
    return SigV4::authorization(request, credentials, scope);
}

}  // namespace

std::optional<std::string> ProxyRequest::header(const std::string& lowercasedName) const {
    for (const auto& [name, value] : headers)
        if (lowercased(name) == lowercasedName) return value;
    return std::nullopt;
}

Fault Fault::respond(int status, std::string body, std::optional<std::string> retryAfter) {
    Fault fault = of(Kind::respond);
    fault.status = status;
    fault.body = std::move(body);
    if (retryAfter) fault.headers.emplace_back("Retry-After", *retryAfter);
    return fault;
}

FaultProxy::FaultProxy(std::string upstream, std::optional<S3Credentials> credentials)
    : credentials_(std::move(credentials)) {
    const auto hostStart = upstream.find("://") + 3;
    const auto colon = upstream.rfind(':');
    upstreamHost_ = upstream.substr(hostStart, colon - hostStart);
    upstreamPort_ = std::stoi(upstream.substr(colon + 1));

    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int yes = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener_, 64) != 0)
        throw std::runtime_error("the fault proxy could not listen");
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { acceptLoop(); });
}

FaultProxy::~FaultProxy() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    ::close(listener_);
    acceptor_.join();
    std::unique_lock lock(mutex_);
    for (int fd : open_) ::shutdown(fd, SHUT_RDWR);
    servingEnded_.wait(lock, [this] { return serving_ == 0; });
}

std::string FaultProxy::endpoint() const { return fmt::format("http://127.0.0.1:{}", port_); }

void FaultProxy::setPolicy(Policy policy) {
    std::lock_guard lock(mutex_);
    policy_ = std::move(policy);
}

std::vector<ProxyRequest> FaultProxy::requests() const {
    std::lock_guard lock(mutex_);
    return seen_;
}

void FaultProxy::acceptLoop() {
    while (!stopping_) {
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0) {
            if (stopping_) return;
            continue;
        }
        std::lock_guard lock(mutex_);
        open_.insert(client);
        ++serving_;
        std::thread([this, client] {
            serve(client);
            std::lock_guard ended(mutex_);
            --serving_;
            servingEnded_.notify_all();
        }).detach();
    }
}

Fault FaultProxy::choose(const ProxyRequest& request) {
    Policy policy;
    {
        std::lock_guard lock(mutex_);
        ProxyRequest logged = request;
        logged.body.clear();
        seen_.push_back(std::move(logged));
        policy = policy_;
    }
    Fault fault = policy ? policy(request) : Fault::none();
    if (fault.kind != Fault::Kind::none) ++faults_;
    return fault;
}

void FaultProxy::serve(int client) {
    std::string buffer;
    bool open = true;
    while (open && !stopping_) {
        auto head = readHead(client, buffer);
        if (!head) break;
        ProxyRequest request;
        const auto firstSpace = head->startLine.find(' ');
        const auto secondSpace = head->startLine.find(' ', firstSpace + 1);
        request.method = head->startLine.substr(0, firstSpace);
        request.target = head->startLine.substr(firstSpace + 1, secondSpace - firstSpace - 1);
        request.headers = head->headers;
        const std::size_t length = std::stoull(head->header("content-length").value_or("0"));
        const Fault fault = choose(request);

        if (fault.kind == Fault::Kind::resetMidBody) {
            while (buffer.size() < length / 2 && readMore(client, buffer, length / 2 - buffer.size())) {}
            break;
        }
        while (buffer.size() < length) {
            if (fault.kind == Fault::Kind::slowBody) std::this_thread::sleep_for(fault.pause);
            if (!readMore(client, buffer, fault.kind == Fault::Kind::slowBody ? 65536 : length - buffer.size())) {
                open = false;
                break;
            }
        }
        if (!open) break;
        request.body = buffer.substr(0, length);
        buffer.erase(0, length);
        const bool headRequest = request.method == "HEAD";

        if (fault.kind == Fault::Kind::respond) {
            open = writeAll(client, answer(fault.status, fault.headers, fault.body, headRequest));
            continue;
        }
        if (fault.kind == Fault::Kind::stall) std::this_thread::sleep_for(fault.pause);

        // Forward on a fresh connection that the server closes after its answer.
        auto headers = head->headers;
        bool changed = false;
        for (auto& [name, value] : headers) {
            if (lowercased(name) == "if-match" && value.size() >= 2 && value.front() == '"' && value.back() == '"') {
                value = value.substr(1, value.size() - 2);
                changed = true;
            }
        }
        if (changed && credentials_) {
            for (auto& [name, value] : headers)
                if (lowercased(name) == "authorization")
                    value = signedAgain(request.method, request.target, headers, *credentials_, value);
        }
        std::string forwarded = head->startLine + "\r\n";
        for (const auto& [name, value] : headers)
            if (lowercased(name) != "connection") forwarded += name + ": " + value + "\r\n";
        forwarded += "Connection: close\r\n\r\n" + request.body;
        const int upstream = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(upstreamPort_));
        ::inet_pton(AF_INET, upstreamHost_.c_str(), &address.sin_addr);
        std::string reply;
        if (::connect(upstream, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
            writeAll(upstream, forwarded)) {
            while (readMore(upstream, reply)) {}
        }
        ::close(upstream);
        if (fault.kind == Fault::Kind::loseAnswer) break;

        // The answer is already whole in memory; readHead only parses it here.
        auto parsed = readHead(-1, reply);
        if (!parsed) break;
        int status = std::stoi(parsed->startLine.substr(parsed->startLine.find(' ') + 1, 3));
        std::string body = lowercased(parsed->header("transfer-encoding").value_or("")) == "chunked"
                               ? dechunked(reply)
                               : reply;
        auto replyHeaders = parsed->headers;
        if (request.method == "POST" && request.target.find("uploadId=") != std::string::npos && status == 500) {
            status = 404;
            replyHeaders = {{"Content-Type", "application/xml"}};
            body = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Error><Code>NoSuchUpload</Code></Error>";
        }
        open = writeAll(client, answer(status, replyHeaders, body, headRequest));
    }
    {
        std::lock_guard lock(mutex_);
        open_.erase(client);
    }
    resetConnection(client);
}

FaultProxy::Policy FaultProxy::randomFaults(double share, unsigned seed) {
    struct Dice {
        std::mutex mutex;
        std::mt19937 engine;
    };
    auto dice = std::make_shared<Dice>();
    dice->engine.seed(seed);
    return [dice, share](const ProxyRequest&) {
        std::lock_guard lock(dice->mutex);
        if (std::uniform_real_distribution<double>(0, 1)(dice->engine) >= share) return Fault::none();
        switch (std::uniform_int_distribution<int>(0, 6)(dice->engine)) {
            case 0: return Fault::respond(429, "<Error><Code>SlowDown</Code></Error>", "1");
            case 1: return Fault::respond(500, "<Error><Code>InternalError</Code></Error>");
            case 2: return Fault::respond(503, "<Error><Code>ServiceUnavailable</Code></Error>", "0");
            case 3: return Fault::respond(503, "<Error><Code>ServiceUnavailable</Code></Error>");
            case 4: return Fault::resetMidBody();
            case 5: return Fault::loseAnswer();
            default: return Fault::slowBody(std::chrono::milliseconds(5));
        }
    };
}

}  // namespace vorlen::testing
