#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/net/HttpClient.hpp"
#include "core/net/RetryPolicy.hpp"

namespace vorlen {

// Downloads a URL to a file (Vimeo sources), retrying what the transient test
// allows. A retry goes on from the bytes that the attempts before it received,
// with a byte range, when the server serves ranges. A status outside 2xx is
// `download(host, status)`; fewer bytes than the server announced is
// `incompleteDownload(host, received, announced)`, which is transient. The file
// appears only when it is whole.
class FileDownloader {
public:
    // Bytes received so far, and the bytes expected (announced, else estimated; 0 when unknown).
    using Progress = std::function<void(std::int64_t received, std::int64_t expected)>;

    explicit FileDownloader(std::shared_ptr<HttpClient> session, RetryPolicy retryPolicy = {});

    void download(const std::string& url, const std::filesystem::path& destination,
                  std::optional<std::int64_t> estimatedBytes = std::nullopt, const Progress& onProgress = nullptr);
    // One attempt, without retries.
    void downloadOnce(const std::string& url, const std::filesystem::path& destination,
                      std::optional<std::int64_t> estimatedBytes = std::nullopt, const Progress& onProgress = nullptr);

private:
    // Continues the partial file "<destination>.part", and renames it when it is whole.
    void attempt(const std::string& url, const std::filesystem::path& destination,
                 std::optional<std::int64_t> estimatedBytes, const Progress& onProgress);

    std::shared_ptr<HttpClient> session_;
    RetryPolicy retryPolicy_;
};

}  // namespace vorlen
