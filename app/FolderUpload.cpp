#include "app/FolderUpload.hpp"

#include <fmt/format.h>

#include <mutex>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"
#include "core/storage/S3Bucket.hpp"
#include "core/storage/Uploader.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen::app {

namespace {

std::shared_ptr<Bucket> openBucket(const FolderUpload& upload) {
    if (upload.endpoint.starts_with("file://"))
        return std::make_shared<FolderBucket>(std::filesystem::path(upload.endpoint.substr(7)) / upload.bucket);
    if (upload.credentials.accessKeyID.empty() || upload.credentials.secretAccessKey.empty())
        throw VorlenError::config("Set VORLEN_ACCESS_KEY_ID and VORLEN_SECRET_ACCESS_KEY to the bucket's access key.");
    Endpoints endpoints;
    endpoints.r2Storage = upload.endpoint;
    return std::make_shared<S3Bucket>(BucketLocation{"", upload.bucket}, upload.credentials, endpoints,
                                      static_cast<int>(upload.options.concurrency));
}

}  // namespace

FolderUpload::Result FolderUpload::run(UploadJournal& journal, const std::function<void(const UploadProgress&)>& onProgress) const {
    if (!std::filesystem::is_directory(folder))
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a folder.", folder.string()));
    std::string keyPrefix = prefix;
    if (!keyPrefix.empty() && !keyPrefix.ends_with('/')) keyPrefix += '/';

    std::vector<std::string> paths;
    std::uint64_t totalBytes = 0;
    for (auto& file : walkVisibleFiles(folder)) {
        paths.push_back(file.lexically_relative(folder).generic_string());
        totalBytes += std::filesystem::file_size(file);
    }
    auto limiter = std::make_shared<RateLimiter>(bytesPerSecond);
    Uploader uploader{openBucket(*this), limiter, options, std::shared_ptr<UploadJournal>(&journal, [](UploadJournal*) {})};
    journal.logStart(paths.size(), totalBytes, options, limiter->bytesPerSecond());

    std::mutex progressMutex;
    UploadTicks ticks(totalBytes, journal);
    try {
        uploader.uploadFolder(folder, paths, keyPrefix, videoFolderHeaders, [&](std::uint64_t given) {
            std::lock_guard lock(progressMutex);
            auto progress = ticks.tick(given, journal.secondsSinceStart());
            if (onProgress) onProgress(progress);
        });
    } catch (...) {
        journal.logStop(std::current_exception());
        throw;
    }
    double seconds = journal.secondsSinceStart();
    journal.log(fmt::format("upload ended: {} bytes in {:.1f} s", totalBytes, seconds));
    return Result{paths.size(), totalBytes, seconds};
}

}  // namespace vorlen::app
