// The helper of bench/library, in three modes:
//   bench_library fill ENDPOINT BUCKET FOLDERS   fills a bucket with FOLDERS video folders (video.json,
//                                                master.m3u8 and one media object each), in parallel
//   bench_library proxy UPSTREAM                 a counting proxy: prints "endpoint=..." and serves until
//                                                SIGTERM or SIGINT, then prints the counts of what it forwarded
//   bench_library read ENDPOINT BUCKET CACHE_DIR FOLDERS
//                                                reads the library once, with the cache kept in CACHE_DIR, and
//                                                fails unless it found FOLDERS videos, each with its record
// The keys come from VORLEN_ACCESS_KEY_ID and VORLEN_SECRET_ACCESS_KEY.
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "core/base/Dates.hpp"
#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/library/Library.hpp"
#include "core/publish/VideoMetadata.hpp"
#include "core/storage/S3Bucket.hpp"
#include "testing/FaultProxy.hpp"

namespace {

using namespace vorlen;

constexpr int fillConnections = 32;
constexpr std::size_t fillBatch = 3000;

std::string requiredEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || !*value) throw std::runtime_error(fmt::format("{} is not set", name));
    return value;
}

std::shared_ptr<S3Bucket> bucketAt(const std::string& endpoint, const std::string& name, int connections = 8) {
    Endpoints endpoints;
    endpoints.r2Storage = endpoint;
    return std::make_shared<S3Bucket>(
        BucketLocation{"bench", name},
        S3Credentials{requiredEnvironment("VORLEN_ACCESS_KEY_ID"), requiredEnvironment("VORLEN_SECRET_ACCESS_KEY")},
        endpoints, connections);
}

std::string folderName(std::size_t index) { return fmt::format("video-{:05}", index); }

std::string record(std::size_t index) {
    const auto time = parseIso8601("2026-03-01T10:00:00Z").value();
    return VideoMetadata{VideoDetails(fmt::format("Video number {}", index), std::nullopt, std::nullopt,
                                      VideoVisibility::publicVideo),
                         PosterFile{"poster-0a1b2c3d.jpg", {16, 9}},
                         42.5,
                         PixelSize{1280, 720},
                         time,
                         time,
                         AudioTrack{},
                         std::nullopt}
        .encoded();
}

int fill(const std::string& endpoint, const std::string& name, std::size_t folders) {
    const auto bucket = bucketAt(endpoint, name, fillConnections);
    // A fresh cluster makes its pools on the first write, which takes seconds.
    bucket->put("warm-up", RequestBody::bytes("warm-up"), {});
    bucket->remove("warm-up");
    // In batches: a window keeps the stacks of its ended tasks until it ends.
    const auto keys = folders * 3;
    for (std::size_t batch = 0; batch < keys; batch += fillBatch) {
        forEachInWindow(std::min(fillBatch, keys - batch), fillConnections, [&](std::size_t offset) {
            const auto index = batch + offset;
            const auto prefix = folderName(index / 3) + "/";
            switch (index % 3) {
                case 0: bucket->put(prefix + "video.json", RequestBody::bytes(record(index / 3)), {}); break;
                case 1: bucket->put(prefix + "master.m3u8", RequestBody::bytes("#EXTM3U\n"), {}); break;
                default: bucket->put(prefix + "v_720/001.mp4", RequestBody::bytes("media"), {}); break;
            }
        });
    }
    return 0;
}

// A listing is a GET of the bucket itself (path style: one path segment); a fetch is a GET of a key.
bool isListing(const testing::ProxyRequest& request) {
    const auto path = request.target.substr(0, request.target.find('?'));
    const auto slash = path.find('/', 1);
    return slash == std::string::npos || slash + 1 == path.size();
}

int proxy(const std::string& upstream) {
    // Blocked before the proxy starts its threads, so that only sigwait below takes them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    testing::FaultProxy proxy(upstream);
    std::cout << "endpoint=" << proxy.endpoint() << std::endl;
    int signal = 0;
    sigwait(&stopSignals, &signal);

    std::size_t lists = 0, fetches = 0, others = 0;
    for (const auto& request : proxy.requests()) {
        if (request.method != "GET") ++others;
        else if (isListing(request)) ++lists;
        else ++fetches;
    }
    std::cout << fmt::format("list_requests={} get_requests={} other_requests={}", lists, fetches, others) << std::endl;
    return 0;
}

int read(const std::string& endpoint, const std::string& name, const std::string& cacheFolder, std::size_t folders) {
    // The library's summary of its reading (pages, ranges, fetches, seconds) goes to standard error.
    setStandardErrorLevel(spdlog::level::info);
    const auto bucket = bucketAt(endpoint, name);
    const Library library{Destination{bucket, "", "bench"}, bucket->location(), UploadOptions{},
                          LibraryCache::inFolder(cacheFolder)};
    const auto videos = library.read();
    const auto withRecord = std::count_if(videos.begin(), videos.end(), [](const LibraryVideo& video) {
        return video.metadata() != nullptr && video.isComplete;
    });
    if (videos.size() != folders || static_cast<std::size_t>(withRecord) != folders) {
        std::cerr << fmt::format("bench_library: read {} videos, {} of them complete with a record; expected {}\n",
                                 videos.size(), withRecord, folders);
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (args.size() == 4 && args[0] == "fill") return fill(args[1], args[2], std::stoul(args[3]));
        if (args.size() == 2 && args[0] == "proxy") return proxy(args[1]);
        if (args.size() == 5 && args[0] == "read") return read(args[1], args[2], args[3], std::stoul(args[4]));
    } catch (const std::exception& error) {
        std::cerr << "bench_library: " << error.what() << "\n";
        return 1;
    }
    std::cerr << "usage: bench_library fill ENDPOINT BUCKET FOLDERS | proxy UPSTREAM | read ENDPOINT BUCKET CACHE_DIR FOLDERS\n";
    return 2;
}
