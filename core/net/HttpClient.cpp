#include "core/base/Text.hpp"
#include "core/net/HttpClient.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <condition_variable>
#include <cstdio>
#include <fmt/format.h>
#include <stdexcept>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/net/TransportError.hpp"

namespace vorlen {

namespace {

constexpr std::size_t pieceSize = 262144;

void initialiseCurlOnce() {
    static const bool initialised = [] { return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; }();
    if (!initialised) throw std::runtime_error("libcurl could not start");
}

// curl takes one bundle of authorities in place of its own, so an extra authority
// goes into a copy of the bundle that curl trusts when told nothing.
std::string trustedCertificates(const std::filesystem::path& extraAuthority) {
    if (extraAuthority.empty()) return {};
    std::string bundle;
    CURL* probe = curl_easy_init();
    char* systemBundle = nullptr;
    if (probe && curl_easy_getinfo(probe, CURLINFO_CAINFO, &systemBundle) == CURLE_OK && systemBundle &&
        std::filesystem::is_regular_file(systemBundle))
        bundle = readFile(systemBundle) + "\n";
    curl_easy_cleanup(probe);
    return bundle + readFile(extraAuthority);
}

struct OwnedList {
    curl_slist* list = nullptr;
    void append(const std::string& entry) { list = curl_slist_append(list, entry.c_str()); }
    ~OwnedList() { curl_slist_free_all(list); }
};

// scheme://host:port: connections are pooled per origin.
std::string originOf(const std::string& url) {
    CURLU* handle = curl_url();
    const bool valid = curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK;
    std::string origin;
    if (valid) {
        char* scheme = nullptr;
        char* host = nullptr;
        char* port = nullptr;
        curl_url_get(handle, CURLUPART_SCHEME, &scheme, 0);
        curl_url_get(handle, CURLUPART_HOST, &host, 0);
        curl_url_get(handle, CURLUPART_PORT, &port, CURLU_DEFAULT_PORT);
        origin = fmt::format("{}://{}:{}", scheme ? scheme : "", host ? host : "", port ? port : "");
        curl_free(scheme);
        curl_free(host);
        curl_free(port);
    }
    curl_url_cleanup(handle);
    if (!valid) throw TransportError(CURLE_URL_MALFORMAT, "the address is not a valid URL");
    return origin;
}

// Pulls the body in pieces of at most 256 KiB: the limiter is asked before each
// piece, and onSend hears of bytes as curl takes them.
struct BodyReader {
    const RequestBody& body;
    std::FILE* file = nullptr;
    std::uint64_t position = 0;  // bytes of the body read into pieces so far
    std::string piece;
    std::size_t pieceUsed = 0;
    std::exception_ptr error;

    explicit BodyReader(const RequestBody& body) : body(body) {}
    ~BodyReader() {
        if (file) std::fclose(file);
    }

    void nextPiece() {
        const std::uint64_t remaining = body.size() - position;
        const std::size_t length = static_cast<std::size_t>(std::min<std::uint64_t>(remaining, pieceSize));
        checkCancellation();
        if (auto* data = std::get_if<std::string>(&body.content)) {
            piece.assign(*data, static_cast<std::size_t>(position), length);
        } else {
            const auto& range = std::get<RequestBody::FileRange>(body.content);
            if (!file) {
                file = std::fopen(range.path.c_str(), "rb");
                if (!file) throw std::runtime_error(fmt::format("The file “{}” could not be opened.", range.path.filename().string()));
            }
            if (::fseeko(file, static_cast<off_t>(range.range.offset + position), SEEK_SET) != 0)
                throw std::runtime_error("The file is shorter than planned.");
            piece.resize(length);
            const std::size_t got = std::fread(piece.data(), 1, length, file);
            if (got == 0) throw std::runtime_error("The file is shorter than planned.");
            piece.resize(got);
            if (body.limiter) body.limiter->reserve(got);
        }
        position += piece.size();
        pieceUsed = 0;
    }

    std::size_t read(char* buffer, std::size_t capacity) {
        if (pieceUsed == piece.size()) {
            if (position >= body.size()) return 0;
            nextPiece();
        }
        const std::size_t count = std::min(capacity, piece.size() - pieceUsed);
        std::copy_n(piece.data() + pieceUsed, count, buffer);
        pieceUsed += count;
        if (body.onSend) body.onSend(count);
        return count;
    }

    static std::size_t readCallback(char* buffer, std::size_t size, std::size_t items, void* context) {
        auto* reader = static_cast<BodyReader*>(context);
        try {
            return reader->read(buffer, size * items);
        } catch (...) {
            reader->error = std::current_exception();
            return CURL_READFUNC_ABORT;
        }
    }

    // curl rewinds only to send the whole body again on a fresh connection.
    static int seekCallback(void* context, curl_off_t offset, int origin) {
        auto* reader = static_cast<BodyReader*>(context);
        if (offset != 0 || origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
        reader->position = 0;
        reader->piece.clear();
        reader->pieceUsed = 0;
        return CURL_SEEKFUNC_OK;
    }
};

struct ResponseWriter {
    const HttpRequest& request;
    HttpResponse& response;
    CURL* easy;
    std::exception_ptr error;
    bool started = false;

    static std::size_t headerCallback(char* data, std::size_t size, std::size_t items, void* context) {
        auto* writer = static_cast<ResponseWriter*>(context);
        std::string_view line(data, size * items);
        if (line.starts_with("HTTP/")) {
            writer->response.headers.clear();  // a new response (after an interim 1xx)
        } else if (auto colon = line.find(':'); colon != std::string_view::npos) {
            writer->response.headers.emplace_back(asciiLowercased(std::string(line.substr(0, colon))),
                                                  trimmedAsciiWhitespace(line.substr(colon + 1)));
        }
        return size * items;
    }

    static std::size_t writeCallback(char* data, std::size_t size, std::size_t items, void* context) {
        auto* writer = static_cast<ResponseWriter*>(context);
        try {
            if (!writer->started) {
                writer->started = true;
                long status = 0;
                curl_easy_getinfo(writer->easy, CURLINFO_RESPONSE_CODE, &status);
                writer->response.status = static_cast<int>(status);
                if (writer->request.onResponseStart) writer->request.onResponseStart(writer->response);
            }
            if (writer->request.onResponseData) {
                writer->request.onResponseData(std::string_view(data, size * items));
            } else {
                writer->response.body.append(data, size * items);
            }
            return size * items;
        } catch (...) {
            writer->error = std::current_exception();
            return 0;
        }
    }
};

RequestTransport transportOf(CURL* easy) {
    RequestTransport transport;
    long version = 0;
    if (curl_easy_getinfo(easy, CURLINFO_HTTP_VERSION, &version) == CURLE_OK) {
        switch (version) {
            case CURL_HTTP_VERSION_1_0: transport.protocolName = "http/1.0"; break;
            case CURL_HTTP_VERSION_1_1: transport.protocolName = "http/1.1"; break;
            case CURL_HTTP_VERSION_2_0: transport.protocolName = "h2"; break;
            case CURL_HTTP_VERSION_3: transport.protocolName = "h3"; break;
            default: break;
        }
    }
    long connects = 0;
    curl_easy_getinfo(easy, CURLINFO_NUM_CONNECTS, &connects);
    transport.isReusedConnection = connects == 0 && transport.protocolName.has_value();
    char* ip = nullptr;
    long port = 0;
    if (curl_easy_getinfo(easy, CURLINFO_PRIMARY_IP, &ip) == CURLE_OK && ip && *ip) {
        curl_easy_getinfo(easy, CURLINFO_PRIMARY_PORT, &port);
        transport.remote = fmt::format("{}:{}", ip, port);
    }
    curl_off_t sent = 0;
    curl_easy_getinfo(easy, CURLINFO_SIZE_UPLOAD_T, &sent);
    transport.bodyBytesSent = sent;
    return transport;
}

}  // namespace

std::optional<std::string> hostOfURL(const std::string& url) {
    CURLU* handle = curl_url();
    std::optional<std::string> result;
    if (curl_url_set(handle, CURLUPART_URL, url.c_str(), 0) == CURLUE_OK) {
        char* host = nullptr;
        char* port = nullptr;
        if (curl_url_get(handle, CURLUPART_HOST, &host, 0) == CURLUE_OK && host && *host) {
            result = host;
            if (curl_url_get(handle, CURLUPART_PORT, &port, 0) == CURLUE_OK && port) *result += std::string(":") + port;
        }
        curl_free(host);
        curl_free(port);
    }
    curl_url_cleanup(handle);
    return result;
}

std::optional<std::string> resolvedURL(const std::string& base, const std::string& reference) {
    CURLU* handle = curl_url();
    std::optional<std::string> result;
    if (curl_url_set(handle, CURLUPART_URL, base.c_str(), 0) == CURLUE_OK &&
        curl_url_set(handle, CURLUPART_URL, reference.c_str(), CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK) {
        char* url = nullptr;
        if (curl_url_get(handle, CURLUPART_URL, &url, 0) == CURLUE_OK && url) result = url;
        curl_free(url);
    }
    curl_url_cleanup(handle);
    return result;
}

std::optional<std::string> HttpResponse::header(std::string_view lowercasedName) const {
    for (const auto& [name, value] : headers)
        if (name == lowercasedName) return value;
    return std::nullopt;
}

// One connection's worth of curl state: the multi handle keeps the connection
// between requests, and lets a cancellation wake the transfer at once.
struct HttpClient::Slot {
    CURL* easy = curl_easy_init();
    CURLM* multi = curl_multi_init();
    Slot() {
        if (!easy || !multi) throw std::runtime_error("libcurl could not make a handle");
        curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, 1L);
    }
    ~Slot() {
        curl_multi_cleanup(multi);
        curl_easy_cleanup(easy);
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;
};

struct HttpClient::HostPool {
    std::mutex mutex;
    std::condition_variable released;
    std::vector<std::unique_ptr<Slot>> slots;
    std::vector<Slot*> idle;
};

HttpClient::HttpClient(HttpClientOptions options) : options_(std::move(options)) {
    options_.maxConnectionsPerHost = std::max(1, options_.maxConnectionsPerHost);
    initialiseCurlOnce();
    trustedCertificates_ = trustedCertificates(options_.extraCertificateAuthority);
}

HttpClient::~HttpClient() = default;

HttpClient::Slot* HttpClient::acquire(const std::string& origin) {
    HostPool* pool = nullptr;
    {
        std::lock_guard lock(mutex_);
        auto& entry = pools_[origin];
        if (!entry) entry = std::make_unique<HostPool>();
        pool = entry.get();
    }
    std::unique_lock lock(pool->mutex);
    for (;;) {
        if (!pool->idle.empty()) {
            Slot* slot = pool->idle.back();
            pool->idle.pop_back();
            return slot;
        }
        if (static_cast<int>(pool->slots.size()) < options_.maxConnectionsPerHost) {
            pool->slots.push_back(std::make_unique<Slot>());
            return pool->slots.back().get();
        }
        // Short waits so that a cancelled task stops waiting for a connection promptly.
        pool->released.wait_for(lock, std::chrono::milliseconds(20));
        if (isCancelled()) throw Cancelled();
    }
}

void HttpClient::release(const std::string& origin, Slot* slot) {
    HostPool* pool = nullptr;
    {
        std::lock_guard lock(mutex_);
        pool = pools_.at(origin).get();
    }
    std::lock_guard lock(pool->mutex);
    pool->idle.push_back(slot);
    pool->released.notify_one();
}

HttpResponse HttpClient::send(const HttpRequest& request) {
    checkCancellation();
    const std::string origin = originOf(request.url);
    Slot* slot = acquire(origin);
    struct Release {
        HttpClient& client;
        const std::string& origin;
        Slot* slot;
        ~Release() { client.release(origin, slot); }
    } releaseSlot{*this, origin, slot};

    CURL* easy = slot->easy;
    curl_easy_reset(easy);
    char errorText[CURL_ERROR_SIZE] = {0};
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    // Object keys may hold "/../" or "//": the path goes out exactly as signed.
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(options_.noProgressTimeout.count()));
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options_.noProgressTimeout.count()));
    if (!request.idempotent) curl_easy_setopt(easy, CURLOPT_FRESH_CONNECT, 1L);

    HttpResponse response;
    ResponseWriter writer{request, response, easy, nullptr};
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &ResponseWriter::headerCallback);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &writer);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &ResponseWriter::writeCallback);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &writer);

    std::optional<BodyReader> reader;
    if (request.method == "HEAD") {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (request.method == "GET" && !request.body) {
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    } else if (request.body || request.method == "PUT" || request.method == "POST") {
        static const RequestBody emptyBody = RequestBody::bytes("");
        reader.emplace(request.body ? *request.body : emptyBody);
        curl_easy_setopt(easy, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(easy, CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(pieceSize));
        curl_easy_setopt(easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(reader->body.size()));
        curl_easy_setopt(easy, CURLOPT_READFUNCTION, &BodyReader::readCallback);
        curl_easy_setopt(easy, CURLOPT_READDATA, &*reader);
        curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &BodyReader::seekCallback);
        curl_easy_setopt(easy, CURLOPT_SEEKDATA, &*reader);
        if (request.method != "PUT") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    } else {
        curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }

    OwnedList headers;
    for (const auto& [name, value] : request.headers) headers.append(fmt::format("{}: {}", name, value));
    // No 100-continue round trip, and no header that nobody signed.
    headers.append("Expect:");
    headers.append("Accept:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.list);
    OwnedList connectTo;
    for (const auto& entry : options_.connectTo) connectTo.append(entry);
    curl_easy_setopt(easy, CURLOPT_CONNECT_TO, connectTo.list);
    curl_blob certificates{trustedCertificates_.data(), trustedCertificates_.size(), CURL_BLOB_NOCOPY};
    if (!trustedCertificates_.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &certificates);

    std::atomic<bool> cancelled = false;
    CURLM* multi = slot->multi;
    curl_multi_add_handle(multi, easy);
    CURLcode result = CURLE_OK;
    {
        CancellationHandler onCancel([&] {
            cancelled = true;
            curl_multi_wakeup(multi);
        });
        int running = 1;
        while (!cancelled) {
            if (curl_multi_perform(multi, &running) != CURLM_OK || running == 0) break;
            curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
        int left = 0;
        while (CURLMsg* message = curl_multi_info_read(multi, &left))
            if (message->msg == CURLMSG_DONE) result = message->data.result;
    }
    curl_multi_remove_handle(multi, easy);

    response.transport = transportOf(easy);
    if (request.body && request.body->onTransport) request.body->onTransport(response.transport);
    if (cancelled) throw Cancelled();
    if (reader && reader->error) std::rethrow_exception(reader->error);
    if (writer.error) std::rethrow_exception(writer.error);
    if (result != CURLE_OK) throw TransportError(result, errorText[0] ? errorText : curl_easy_strerror(result));
    long status = 0;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    if (status == 0) throw TransportError::badServerResponse();
    response.status = static_cast<int>(status);
    return response;
}

}  // namespace vorlen
