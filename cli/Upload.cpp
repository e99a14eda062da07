#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <mutex>

#include <fmt/format.h>

#include "app/Interrupts.hpp"
#include "cli/Commands.hpp"
#include "core/base/Files.hpp"
#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/storage/FolderBucket.hpp"
#include "core/storage/S3Bucket.hpp"
#include "core/storage/UploadMeter.hpp"
#include "core/storage/Uploader.hpp"
#include "core/storage/VideoFolderHeaders.hpp"

namespace vorlen::cli {

namespace {

struct UploadArguments {
    std::string folder;
    std::string endpoint;
    std::string bucket;
    std::string prefix;
    std::int64_t concurrency = UploadOptions{}.concurrency;
    std::uint64_t partMiB = UploadOptions{}.partSize / (1024 * 1024);
    std::int64_t megabitsPerSecond = 0;
};

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

// A file:// endpoint names a folder that holds buckets as subfolders; anything
// else is an S3 server.
std::shared_ptr<Bucket> openBucket(const UploadArguments& arguments) {
    if (arguments.endpoint.starts_with("file://"))
        return std::make_shared<FolderBucket>(fs::path(arguments.endpoint.substr(7)) / arguments.bucket);
    S3Credentials credentials{environment("VORLEN_ACCESS_KEY_ID"), environment("VORLEN_SECRET_ACCESS_KEY")};
    if (credentials.accessKeyID.empty() || credentials.secretAccessKey.empty())
        throw VorlenError::config("Set VORLEN_ACCESS_KEY_ID and VORLEN_SECRET_ACCESS_KEY to the bucket's access key.");
    Endpoints endpoints;
    endpoints.r2Storage = arguments.endpoint;
    return std::make_shared<S3Bucket>(BucketLocation{"", arguments.bucket}, credentials, endpoints,
                                      static_cast<int>(arguments.concurrency));
}

std::string mebibytes(double bytes) { return fmt::format("{:.1f} MiB", bytes / 1048576.0); }

int runUpload(const UploadArguments& arguments) {
    fs::path folder(arguments.folder);
    if (!fs::is_directory(folder))
        throw VorlenError::config("\u201c" + arguments.folder + "\u201d is not a folder.");
    std::string prefix = arguments.prefix;
    if (!prefix.empty() && !prefix.ends_with('/')) prefix += '/';

    std::vector<std::string> paths;
    std::uint64_t totalBytes = 0;
    for (auto& file : walkVisibleFiles(folder)) {
        paths.push_back(file.lexically_relative(folder).generic_string());
        totalBytes += fs::file_size(file);
    }

    UploadOptions options;
    options.concurrency = std::max<std::int64_t>(1, arguments.concurrency);
    options.partSize = std::max<std::uint64_t>(1, arguments.partMiB) * 1024 * 1024;
    auto limiter = std::make_shared<RateLimiter>(static_cast<std::uint64_t>(arguments.megabitsPerSecond) * 125000);
    auto journal = std::make_shared<UploadJournal>();
    Uploader uploader{openBucket(arguments), limiter, options, journal};

    // The journal is shown whole on failure; it does not also scroll by.
    setStandardErrorLevel(spdlog::level::off);
    bool interactive = ::isatty(STDERR_FILENO);
    journal->logStart(paths.size(), totalBytes, options, limiter->bytesPerSecond());

    std::mutex progressMutex;
    UploadTicks ticks(totalBytes, *journal);
    std::uint64_t finished = 0;  // bytes of the batches already done
    double lastShown = -1;
    try {
        app::Interrupts::run([&] {
        for (auto& batch : videoFolderBatches(paths)) {
            std::vector<UploadFile> files;
            std::uint64_t batchBytes = 0;
            for (auto& path : batch) {
                files.push_back({folder / path, prefix + path, videoFolderHeaders(path)});
                batchBytes += fs::file_size(folder / path);
            }
            uploader.upload(files, [&](std::uint64_t given) {
                std::lock_guard lock(progressMutex);
                double seconds = journal->secondsSinceStart();
                auto progress = ticks.tick(finished + given, seconds);
                if (!interactive || seconds - lastShown < 0.25) return;
                lastShown = seconds;
                std::string rate = progress.rate ? mebibytes(*progress.rate) + "/s" : "rate not known";
                std::cerr << fmt::format("\r{:5.1f}%  {} of {}, {}   ", progress.fraction * 100,
                                         mebibytes(static_cast<double>(progress.reportedBytes)),
                                         mebibytes(static_cast<double>(totalBytes)), rate)
                          << std::flush;
            });
            finished += batchBytes;
        }
        }, app::Interrupts::bucketCleanupHint);
    } catch (...) {
        journal->logStop(std::current_exception());
        if (interactive) std::cerr << '\n';
        for (auto& line : journal->entries()) std::cerr << line << '\n';
        throw;
    }
    double seconds = journal->secondsSinceStart();
    journal->log(fmt::format("upload ended: {} bytes in {:.1f} s", totalBytes, seconds));
    if (interactive) std::cerr << '\n';
    std::cout << fmt::format("uploaded {} files, {} bytes in {:.1f} s ({}/s)", paths.size(), totalBytes, seconds,
                             mebibytes(seconds > 0 ? static_cast<double>(totalBytes) / seconds : 0))
              << std::endl;
    return 0;
}

}  // namespace

void registerUpload(CommandRegistry& registry) {
    auto arguments = std::make_shared<UploadArguments>();
    auto* command = registry.app.add_subcommand(
        "upload", "Upload a folder to a bucket, master.m3u8 last. The access key comes from VORLEN_ACCESS_KEY_ID "
                  "and VORLEN_SECRET_ACCESS_KEY.");
    command->add_option("folder", arguments->folder, "The folder to upload")->required();
    command->add_option("--endpoint", arguments->endpoint, "The S3 server, such as https://host:port, or file:///path")
        ->required();
    command->add_option("--bucket", arguments->bucket, "The bucket's name")->required();
    command->add_option("--prefix", arguments->prefix, "The key prefix of every file");
    command->add_option("--concurrency", arguments->concurrency, "Requests at a time")->capture_default_str();
    command->add_option("--part-size", arguments->partMiB, "A larger file goes in parts of this many MiB")
        ->capture_default_str();
    command->add_option("--limit", arguments->megabitsPerSecond, "At most this many Mbit/s; 0 for no limit")
        ->capture_default_str();
    registry.add(command, [arguments] { return runUpload(*arguments); });
}

}  // namespace vorlen::cli
