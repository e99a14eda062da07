#include "core/storage/VideoFolderHeaders.hpp"

#include <algorithm>
#include <array>

namespace vorlen {

namespace {

constexpr const char* immutable = "public, max-age=31536000, immutable";

std::string fileName(const std::string& path) {
    auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isPoster(const std::string& name) {
    return name == "poster.jpg" || (name.starts_with("poster-") && name.ends_with(".jpg"));
}

}  // namespace

ObjectHeaders videoFolderHeaders(const std::string& relativePath) {
    std::string name = fileName(relativePath);
    if (name.ends_with(".m3u8")) return {"application/vnd.apple.mpegurl", "public, max-age=300", {}};
    if (name.ends_with(".mpd")) return {"application/dash+xml", "public, max-age=300", {}};
    if (name.ends_with(".vtt")) return {"text/vtt; charset=utf-8", immutable, {}};
    if (relativePath == "video.json") return {"application/json", "no-cache", {}};
    if (relativePath == "poster.jpg") return {"image/jpeg", "public, max-age=300, s-maxage=86400", {}};
    if (isPoster(relativePath)) return {"image/jpeg", immutable, {}};
    if (relativePath.starts_with("a_")) return {"audio/mp4", immutable, {}};
    return {"video/mp4", immutable, {}};
}

std::vector<std::vector<std::string>> videoFolderBatches(const std::vector<std::string>& relativePaths) {
    std::array<std::vector<std::string>, 6> batches;
    std::vector<std::string> posters;
    for (auto& path : relativePaths) {
        std::string name = fileName(path);
        if (path == "master.m3u8") batches[5].push_back(path);
        else if (path == "manifest.mpd") batches[4].push_back(path);
        else if (name.ends_with(".m3u8") || name.ends_with(".mpd")) batches[3].push_back(path);
        else if (path == "video.json") batches[2].push_back(path);
        else if (isPoster(path)) batches[1].push_back(path);
        else batches[0].push_back(path);
    }
    // The poster under its content name goes before poster.jpg, which names the same bytes.
    std::stable_partition(batches[1].begin(), batches[1].end(), [](auto& path) { return path != "poster.jpg"; });
    std::vector<std::vector<std::string>> order;
    for (auto& batch : batches)
        if (!batch.empty()) order.push_back(std::move(batch));
    return order;
}

}  // namespace vorlen
