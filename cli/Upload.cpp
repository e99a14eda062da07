#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include <fmt/format.h>

#include "app/FolderUpload.hpp"
#include "app/Interrupts.hpp"
#include "cli/Commands.hpp"
#include "core/base/Log.hpp"

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

std::string mebibytes(double bytes) { return fmt::format("{:.1f} MiB", bytes / 1048576.0); }

int runUpload(const UploadArguments& arguments) {
    app::FolderUpload upload;
    upload.folder = arguments.folder;
    upload.endpoint = arguments.endpoint;
    upload.bucket = arguments.bucket;
    upload.prefix = arguments.prefix;
    upload.credentials = {environment("VORLEN_ACCESS_KEY_ID"), environment("VORLEN_SECRET_ACCESS_KEY")};
    upload.options.concurrency = std::max<std::int64_t>(1, arguments.concurrency);
    upload.options.partSize = std::max<std::uint64_t>(1, arguments.partMiB) * 1024 * 1024;
    upload.bytesPerSecond = static_cast<std::uint64_t>(std::max<std::int64_t>(0, arguments.megabitsPerSecond)) * 125000;

    // The journal is shown whole on failure; it does not also scroll by.
    setStandardErrorLevel(spdlog::level::off);
    const bool interactive = ::isatty(STDERR_FILENO);
    double lastShown = -1;
    UploadJournal journal;
    app::FolderUpload::Result result;
    try {
        app::Interrupts::run(
            [&] {
                result = upload.run(journal, [&](const UploadProgress& progress) {
                    double seconds = journal.secondsSinceStart();
                    if (!interactive || seconds - lastShown < 0.25) return;
                    lastShown = seconds;
                    std::string rate = progress.rate ? mebibytes(*progress.rate) + "/s" : "rate not known";
                    std::cerr << fmt::format("\r{:5.1f}%  {} of {}, {}   ", progress.fraction * 100,
                                             mebibytes(static_cast<double>(progress.reportedBytes)),
                                             mebibytes(static_cast<double>(progress.totalBytes)), rate)
                              << std::flush;
                });
            },
            app::Interrupts::bucketCleanupHint);
    } catch (...) {
        if (interactive) std::cerr << '\n';
        for (auto& line : journal.entries()) std::cerr << line << '\n';
        throw;
    }
    if (interactive) std::cerr << '\n';
    std::cout << fmt::format("uploaded {} files, {} bytes in {:.1f} s ({}/s)", result.files, result.bytes, result.seconds,
                             mebibytes(result.seconds > 0 ? static_cast<double>(result.bytes) / result.seconds : 0))
              << std::endl;
    return 0;
}

}  // namespace

void registerUpload(CommandRegistry& registry) {
    auto arguments = std::make_shared<UploadArguments>();
    auto* command = registry.app.add_subcommand(
        "upload", "Upload a folder to a bucket, master.m3u8 last. The access key comes from VORLEN_ACCESS_KEY_ID "
                  "and VORLEN_SECRET_ACCESS_KEY.");
    command->footer(app::Interrupts::bucketCleanupHelp);
    command->add_option("folder", arguments->folder, "The folder to upload")->required();
    command->add_option("--endpoint", arguments->endpoint, "The S3 server, such as https://host:port, or file:///path")
        ->required();
    command->add_option("--bucket", arguments->bucket, "The bucket's name")->required();
    command->add_option("--prefix", arguments->prefix, "The key prefix of every file");
    command->add_option("--concurrency", arguments->concurrency, "Requests at a time")->capture_default_str();
    command->add_option("--part-size", arguments->partMiB, "A larger file goes in parts of this many MiB")
        ->capture_default_str();
    command->add_option("--limit", arguments->megabitsPerSecond, "At most this many Mbit/s; 0 for no limit")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    registry.add(command, [arguments] { return runUpload(*arguments); });
}

}  // namespace vorlen::cli
