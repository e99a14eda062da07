#include "core/net/FileDownloader.hpp"

#include <curl/curl.h>

#include <charconv>
#include <fstream>

#include "core/base/VorlenError.hpp"
#include "core/net/TransportError.hpp"

namespace vorlen {

namespace {

std::optional<std::int64_t> announcedLength(const std::optional<std::string>& header) {
    if (!header) return std::nullopt;
    std::int64_t value = 0;
    if (std::from_chars(header->data(), header->data() + header->size(), value).ptr != header->data() + header->size())
        return std::nullopt;
    return value;
}

}  // namespace

FileDownloader::FileDownloader(std::shared_ptr<HttpClient> session, RetryPolicy retryPolicy)
    : session_(std::move(session)), retryPolicy_(retryPolicy) {}

void FileDownloader::download(const std::string& url, const std::filesystem::path& destination,
                              std::optional<std::int64_t> estimatedBytes, const Progress& onProgress) {
    retryPolicy_.run([&](std::int64_t) { downloadOnce(url, destination, estimatedBytes, onProgress); });
}

void FileDownloader::downloadOnce(const std::string& url, const std::filesystem::path& destination,
                                  std::optional<std::int64_t> estimatedBytes, const Progress& onProgress) {
    const std::string host = hostOfURL(url).value_or("");
    auto partial = destination;
    partial += ".part";
    struct RemovePartial {
        std::filesystem::path path;
        ~RemovePartial() {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
    } removePartial{partial};

    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    if (!file) throw std::runtime_error("The download could not be written to “" + destination.filename().string() + "”.");
    std::int64_t received = 0;
    std::optional<std::int64_t> announced;
    HttpRequest request;
    request.url = url;
    std::optional<HttpResponse> response;
    request.onResponseStart = [&](const HttpResponse& start) { announced = announcedLength(start.header("content-length")); };
    request.onResponseData = [&](std::string_view bytes) {
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file) throw std::runtime_error("The download could not be written to “" + destination.filename().string() + "”.");
        received += static_cast<std::int64_t>(bytes.size());
        if (onProgress) onProgress(received, announced.value_or(estimatedBytes.value_or(0)));
    };
    try {
        response = session_->send(request);
    } catch (const TransportError& error) {
        if (error.code() == CURLE_PARTIAL_FILE && announced) throw VorlenError::incompleteDownload(host, received, *announced);
        throw;
    }
    if (response->status < 200 || response->status > 299) throw VorlenError::download(host, response->status);
    announced = announcedLength(response->header("content-length"));
    if (announced && received < *announced) throw VorlenError::incompleteDownload(host, received, *announced);
    file.close();
    if (!file) throw std::runtime_error("The download could not be written to “" + destination.filename().string() + "”.");
    std::filesystem::rename(partial, destination);
}

}  // namespace vorlen
