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

// The first byte and the whole length of a 206 answer's "bytes FIRST-LAST/LENGTH".
std::optional<std::pair<std::int64_t, std::int64_t>> contentRange(const std::optional<std::string>& header) {
    if (!header || !header->starts_with("bytes ")) return std::nullopt;
    const auto dash = header->find('-');
    const auto slash = header->find('/');
    if (dash == std::string::npos || slash == std::string::npos || slash < dash) return std::nullopt;
    const auto first = announcedLength(header->substr(6, dash - 6));
    const auto length = announcedLength(header->substr(slash + 1));
    if (!first || !length) return std::nullopt;
    return std::pair(*first, *length);
}

std::filesystem::path partialOf(const std::filesystem::path& destination) {
    auto partial = destination;
    partial += ".part";
    return partial;
}

struct RemovePartial {
    std::filesystem::path path;
    ~RemovePartial() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
};

}  // namespace

FileDownloader::FileDownloader(std::shared_ptr<HttpClient> session, RetryPolicy retryPolicy)
    : session_(std::move(session)), retryPolicy_(retryPolicy) {}

void FileDownloader::download(const std::string& url, const std::filesystem::path& destination,
                              std::optional<std::int64_t> estimatedBytes, const Progress& onProgress) {
    const RemovePartial removePartial{partialOf(destination)};
    {
        std::error_code ignored;
        std::filesystem::remove(removePartial.path, ignored);  // of another download long ago
    }
    retryPolicy_.run([&](std::int64_t) { attempt(url, destination, estimatedBytes, onProgress); });
}

void FileDownloader::downloadOnce(const std::string& url, const std::filesystem::path& destination,
                                  std::optional<std::int64_t> estimatedBytes, const Progress& onProgress) {
    const RemovePartial removePartial{partialOf(destination)};
    {
        std::error_code ignored;
        std::filesystem::remove(removePartial.path, ignored);
    }
    attempt(url, destination, estimatedBytes, onProgress);
}

void FileDownloader::attempt(const std::string& url, const std::filesystem::path& destination,
                             std::optional<std::int64_t> estimatedBytes, const Progress& onProgress) {
    const std::string host = hostOfURL(url).value_or("");
    const auto partial = partialOf(destination);
    const auto unwritable = [&] {
        return std::runtime_error("The download could not be written to \u201c" + destination.filename().string() +
                                  "\u201d.");
    };
    std::error_code sizeError;
    const auto kept = std::filesystem::exists(partial) ? std::int64_t(std::filesystem::file_size(partial, sizeError)) : 0;
    const std::int64_t resumeFrom = sizeError ? 0 : kept;

    std::ofstream file;
    std::int64_t received = 0;
    std::optional<std::int64_t> announced;
    HttpRequest request;
    request.url = url;
    if (resumeFrom > 0) request.headers.emplace_back("Range", "bytes=" + std::to_string(resumeFrom) + "-");
    std::optional<HttpResponse> response;
    request.onResponseStart = [&](const HttpResponse& start) {
        if (start.status < 200 || start.status > 299) return;
        const auto range = start.status == 206 ? contentRange(start.header("content-range")) : std::nullopt;
        if (range && range->first == resumeFrom) {
            received = resumeFrom;
            announced = range->second;
            file.open(partial, std::ios::binary | std::ios::app);
        } else {
            // The server sends the whole file again.
            announced = announcedLength(start.header("content-length"));
            file.open(partial, std::ios::binary | std::ios::trunc);
        }
        if (!file) throw unwritable();
    };
    request.onResponseData = [&](std::string_view bytes) {
        if (!file.is_open()) return;  // the body of a failure
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file) throw unwritable();
        received += static_cast<std::int64_t>(bytes.size());
        if (onProgress) onProgress(received, announced.value_or(estimatedBytes.value_or(0)));
    };
    try {
        response = session_->send(request);
    } catch (const TransportError& error) {
        if (error.code() == CURLE_PARTIAL_FILE && announced) throw VorlenError::incompleteDownload(host, received, *announced);
        throw;
    }
    if (response->status == 416) std::filesystem::remove(partial, sizeError);  // the kept bytes do not fit the file now
    if (response->status < 200 || response->status > 299) throw VorlenError::download(host, response->status);
    if (announced && received < *announced) throw VorlenError::incompleteDownload(host, received, *announced);
    file.close();
    if (!file) throw unwritable();
    std::filesystem::rename(partial, destination);
}

}  // namespace vorlen
