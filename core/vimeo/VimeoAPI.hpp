#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/base/Json.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/HttpClient.hpp"
#include "core/net/RetryPolicy.hpp"
#include "core/vimeo/VimeoError.hpp"
#include "core/vimeo/VimeoVideo.hpp"

namespace vorlen {

// Reads a Vimeo account with a personal access token; it only ever sends GET.
// Failures the API reports, and answers that cannot be read, are VimeoError; the
// token goes into the Authorization header only, never into a URL or a text.
// Transient failures, 429 and 5xx are tried again by the retry policy, never
// sooner than Retry-After or X-RateLimit-Reset asks.
class VimeoAPI {
public:
    // More pages than this is a server that never ends: 100,000 videos.
    static constexpr std::int64_t pageLimit = 1000;
    // The filter that lists the videos in cold storage.
    static constexpr const char* coldStorageFilter = "cold_storage";

    VimeoAPI(std::string token, std::shared_ptr<HttpClient> session, const Endpoints& endpoints = {},
             RetryPolicy retryPolicy = {});

    const std::string& baseURL() const { return baseURL_; }

    VimeoAccount account() const;
    // All videos of the account, newest first, page after page while Vimeo names a
    // next one; onProgress hears the count after each page.
    std::vector<VimeoVideo> videos(const std::optional<std::string>& filter = std::nullopt,
                                   const std::function<void(const VimeoReadProgress&)>& onProgress = {}) const;
    // One video with its download links, read again because links expire.
    VimeoCurrentVideo video(const std::string& id) const;
    std::vector<VimeoTextTrack> textTracks(const std::string& videoID) const;

private:
    using Query = std::vector<std::pair<std::string, std::string>>;
    Json get(const std::string& path, const Query& query) const;
    Json getOnce(const std::string& path, const Query& query) const;

    std::string token_;
    std::shared_ptr<HttpClient> session_;
    std::string baseURL_;
    RetryPolicy retryPolicy_;
};

}  // namespace vorlen
