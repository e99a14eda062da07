#include "core/vimeo/VimeoAPI.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Dates.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

constexpr const char* accountFields = "uri,name,link,account";
constexpr const char* videoFields =
    "uri,name,description,link,duration,width,height,created_time,status,transcode.status,"
    "privacy.view,privacy.original_view,pictures.sizes,files,download,parent_folder.name,"
    "metadata.connections.texttracks.total,metadata.is_cold_storage";
constexpr const char* pageSize = "100";

std::string checkedVideoID(const std::string& text) {
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        throw VorlenError::config("\u201c" + text + "\u201d is not a Vimeo video ID");
    return text;
}

// The text of a body that is not the JSON Vimeo promised, cut short.
std::string bodyExcerpt(const std::string& body) {
    return trimmed(repairUtf8(std::string_view(body).substr(0, 200)));
}

// The wait that a refused request names: Retry-After, else the moment that
// X-RateLimit-Reset gives, in whole seconds from now and never below zero.
std::optional<std::chrono::duration<double>> retryAfterOf(const HttpResponse& response) {
    const auto now = wallNow();
    if (auto value = response.header("retry-after"))
        if (auto wait = parseRetryAfter(*value, now)) return wait;
    const auto reset = response.header("x-ratelimit-reset");
    const auto moment = reset ? parseVimeoDate(*reset) : std::nullopt;
    if (!moment) return std::nullopt;
    return std::chrono::duration<double>(std::max<std::int64_t>(0, (*moment - now).count()));
}

VimeoError refusal(const std::string& path, const HttpResponse& response) {
    std::optional<std::string> error, developerMessage;
    std::optional<std::int64_t> code;
    try {
        const Json body = decodeJson(response.body);
        error = optionalField<std::string>(body, "error");
        developerMessage = optionalField<std::string>(body, "developer_message");
        code = optionalField<std::int64_t>(body, "error_code");
    } catch (const nlohmann::json::exception&) {
    }
    std::string message = error.value_or(developerMessage.value_or(bodyExcerpt(response.body)));
    if (message.empty()) message = "the response has no body";
    return VimeoError("GET", path, response.status, std::move(message), std::move(developerMessage), code,
                      retryAfterOf(response));
}

// Decodes one answer; any failure of its form is a VimeoError naming the request.
template <class Decode>
auto decoded(const std::string& path, Decode decode) -> decltype(decode()) {
    try {
        return decode();
    } catch (const std::exception& error) {
        throw VimeoError("GET", path, 200, std::string("the response has an unexpected form: ") + error.what());
    }
}

}  // namespace

VimeoAPI::VimeoAPI(std::string token, std::shared_ptr<HttpClient> session, const Endpoints& endpoints,
                   RetryPolicy retryPolicy)
    : token_(std::move(token)),
      session_(std::move(session)),
      baseURL_(endpoints.vimeoAPI),
      retryPolicy_(std::move(retryPolicy)) {}

Json VimeoAPI::get(const std::string& path, const Query& query) const {
    return retryPolicy_.run([&](std::int64_t) { return getOnce(path, query); });
}

Json VimeoAPI::getOnce(const std::string& path, const Query& query) const {
    if (!hostOfURL(baseURL_)) throw VorlenError::config("\u201c" + baseURL_ + "\u201d is not a valid API URL");
    HttpRequest request;
    request.url = baseURL_;
    if (!request.url.ends_with('/')) request.url.push_back('/');
    request.url += path;
    for (std::size_t i = 0; i < query.size(); ++i)
        request.url += (i == 0 ? "?" : "&") + percentEncoded(query[i].first) + "=" + percentEncoded(query[i].second);
    if (!hostOfURL(request.url)) throw VorlenError::config("\u201c" + path + "\u201d is not a valid API path");
    request.headers.emplace_back("Authorization", "bearer " + token_);
    request.headers.emplace_back("Accept", "application/vnd.vimeo.*+json;version=3.4");

    const std::string shownPath = "/" + path;
    const HttpResponse response = session_->send(request);
    if (response.status < 200 || response.status > 299) throw refusal(shownPath, response);
    if (response.body.empty()) throw VimeoError("GET", shownPath, response.status, "the response has no body");
    try {
        return decodeJson(response.body);
    } catch (const nlohmann::json::exception& error) {
        throw VimeoError("GET", shownPath, response.status, std::string("the response is not JSON: ") + error.what());
    }
}

VimeoAccount VimeoAPI::account() const {
    const Json json = get("me", {{"fields", accountFields}});
    return decoded("/me", [&] { return decodeVimeoAccount(json); });
}

std::vector<VimeoVideo> VimeoAPI::videos(const std::optional<std::string>& filter,
                                         const std::function<void(const VimeoReadProgress&)>& onProgress) const {
    const std::string path = "me/videos";
    std::string shownPath = "/" + path;
    if (filter) shownPath += "?filter=" + *filter;
    std::vector<VimeoVideo> videos;
    std::optional<std::int64_t> total;
    for (std::int64_t page = 1;; ++page) {
        if (page > pageLimit) throw VorlenError::config(fmt::format("Vimeo gave more than {} pages of videos", pageLimit));
        Query query{{"fields", std::string("total,paging.next,") + videoFields}, {"sort", "date"}, {"direction", "desc"}};
        if (filter) query.emplace_back("filter", *filter);
        query.emplace_back("page", std::to_string(page));
        query.emplace_back("per_page", pageSize);
        const Json json = get(path, query);
        const bool hasNext = decoded(shownPath, [&] {
            if (page == 1) total = optionalField<std::int64_t>(json, "total");
            for (const auto& item : json.at("data")) videos.push_back(decodeVimeoVideo(item));
            return optionalField<std::string>(optionalField<Json>(json, "paging").value_or(Json()), "next").has_value();
        });
        if (onProgress) onProgress(VimeoReadProgress{static_cast<std::int64_t>(videos.size()), total});
        if (!hasNext) break;
    }
    // A list that shrank while it was read has skipped videos on the pages after the change.
    if (total && static_cast<std::int64_t>(videos.size()) < *total)
        throw VorlenError::config(fmt::format("Vimeo gave only {} of the {} videos of \u201c{}\u201d. Try again in a moment.",
                                              videos.size(), *total, shownPath));
    return videos;
}

VimeoCurrentVideo VimeoAPI::video(const std::string& id) const {
    const std::string path = "videos/" + checkedVideoID(id);
    const Json json = get(path, {{"fields", videoFields}});
    return decoded("/" + path, [&] { return VimeoCurrentVideo{decodeVimeoVideo(json), decodeVimeoDownloads(json)}; });
}

std::vector<VimeoTextTrack> VimeoAPI::textTracks(const std::string& videoID) const {
    const std::string path = "videos/" + checkedVideoID(videoID) + "/texttracks";
    const Json json = get(path, {{"per_page", pageSize}});
    return decoded("/" + path, [&] { return lenientList<VimeoTextTrack>(json.at("data"), decodeVimeoTextTrack); });
}

}  // namespace vorlen
