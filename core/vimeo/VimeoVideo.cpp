#include "core/vimeo/VimeoVideo.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace vorlen {

namespace {

// A value at a JSON pointer; absent when any step is missing, null or of another type.
template <class T>
std::optional<T> optionalAt(const Json& json, const char* pointer) {
    try {
        const Json::json_pointer path(pointer);
        if (!json.contains(path) || json.at(path).is_null()) return std::nullopt;
        return json.at(path).get<T>();
    } catch (const nlohmann::json::exception&) {
        return std::nullopt;
    }
}

std::optional<SystemTime> dateAt(const Json& json, const char* pointer) {
    auto text = optionalAt<std::string>(json, pointer);
    return text ? parseVimeoDate(std::move(*text)) : std::nullopt;
}

std::optional<PixelSize> sizeOf(const Json& json) {
    auto width = optionalAt<std::int64_t>(json, "/width");
    auto height = optionalAt<std::int64_t>(json, "/height");
    if (!width || !height) return std::nullopt;
    return PixelSize{*width, *height};
}

// The last part of a URI such as "/videos/123", which must start with prefix.
std::string idFromURI(const std::string& uri, const std::string& prefix, const char* kind) {
    if (!uri.starts_with(prefix) || uri.size() == prefix.size())
        throw std::invalid_argument("\u201c" + uri + "\u201d is not the URI of " + kind);
    return uri.substr(uri.find_last_of('/') + 1);
}

VimeoFile decodeFile(const Json& json) {
    if (!json.is_object()) throw nlohmann::json::type_error::create(302, "a file is not an object", &json);
    return VimeoFile{optionalAt<std::string>(json, "/quality"), optionalAt<std::string>(json, "/rendition"),
                     sizeOf(json), optionalAt<std::uint64_t>(json, "/size")};
}

VimeoImage decodeImage(const Json& json) {
    return VimeoImage{json.at("link").get<std::string>(),
                      PixelSize{json.at("width").get<std::int64_t>(), json.at("height").get<std::int64_t>()}};
}

std::int64_t pixelCount(const std::optional<PixelSize>& size) { return size ? size->width * size->height : 0; }

// The source file when Vimeo names one, else the one with the most pixels.
std::optional<VimeoFile> bestFile(std::vector<VimeoFile> files) {
    if (files.empty()) return std::nullopt;
    auto source = std::find_if(files.begin(), files.end(), [](const VimeoFile& file) { return file.quality == "source"; });
    if (source != files.end()) return *source;
    return *std::max_element(files.begin(), files.end(), [](const VimeoFile& a, const VimeoFile& b) {
        return std::pair(pixelCount(a.size), a.byteCount.value_or(0)) <
               std::pair(pixelCount(b.size), b.byteCount.value_or(0));
    });
}

}  // namespace

std::optional<SystemTime> parseVimeoDate(std::string text) {
    if (text.ends_with("+00:00")) text.replace(text.size() - 6, 6, "Z");
    return parseIso8601(text);
}

VimeoPrivacy VimeoPrivacy::fromRawValue(std::string rawValue) {
    using enum Kind;
    static constexpr std::array<std::pair<const char*, Kind>, 7> known{{{"anybody", anybody},
                                                                          {"unlisted", unlisted},
                                                                          {"disable", disable},
                                                                          {"nobody", nobody},
                                                                          {"contacts", contacts},
                                                                          {"users", users},
                                                                          {"password", password}}};
    for (const auto& [text, kind] : known)
        if (rawValue == text) return VimeoPrivacy{kind, std::move(rawValue)};
    return VimeoPrivacy{other, std::move(rawValue)};
}

VimeoAccount decodeVimeoAccount(const Json& json) {
    return VimeoAccount{idFromURI(json.at("uri").get<std::string>(), "/users/", "an account"),
                        json.at("name").get<std::string>(), optionalAt<std::string>(json, "/link"),
                        optionalAt<std::string>(json, "/account")};
}

VimeoVideo decodeVimeoVideo(const Json& json) {
    VimeoVideo video;
    video.id = idFromURI(json.at("uri").get<std::string>(), "/videos/", "a video");
    video.title = json.at("name").get<std::string>();
    video.description = optionalAt<std::string>(json, "/description");
    video.link = optionalAt<std::string>(json, "/link");
    video.duration = optionalAt<double>(json, "/duration");
    video.size = sizeOf(json);
    video.created = dateAt(json, "/created_time");
    video.isInColdStorage = optionalAt<bool>(json, "/metadata/is_cold_storage").value_or(false);
    // A video in cold storage reads as private; what it was before is what the person chose.
    auto view = video.isInColdStorage ? optionalAt<std::string>(json, "/privacy/original_view") : std::nullopt;
    if (!view) view = optionalAt<std::string>(json, "/privacy/view");
    video.privacy = VimeoPrivacy::fromRawValue(view.value_or(""));
    video.isReady = optionalAt<std::string>(json, "/status") == "available" &&
                    optionalAt<std::string>(json, "/transcode/status") == "complete";
    const auto pictures = lenientList<VimeoImage>(optionalAt<Json>(json, "/pictures/sizes").value_or(Json()), decodeImage);
    if (!pictures.empty())
        video.thumbnail = *std::max_element(pictures.begin(), pictures.end(), [](const auto& a, const auto& b) {
            return a.size.width * a.size.height < b.size.width * b.size.height;
        });
    auto files = lenientList<VimeoFile>(optionalAt<Json>(json, "/files").value_or(Json()), decodeFile);
    for (const auto& download : decodeVimeoDownloads(json)) files.push_back(download.file);
    video.file = bestFile(std::move(files));
    video.textTrackCount = optionalAt<std::int64_t>(json, "/metadata/connections/texttracks/total").value_or(0);
    video.folderName = optionalAt<std::string>(json, "/parent_folder/name");
    return video;
}

std::vector<VimeoDownload> decodeVimeoDownloads(const Json& json) {
    return lenientList<VimeoDownload>(optionalAt<Json>(json, "/download").value_or(Json()), [](const Json& element) {
        return VimeoDownload{decodeFile(element), element.at("link").get<std::string>(), dateAt(element, "/expires")};
    });
}

VimeoTextTrack decodeVimeoTextTrack(const Json& json) {
    if (!json.is_object()) throw nlohmann::json::type_error::create(302, "a text track is not an object", &json);
    return VimeoTextTrack{optionalAt<std::string>(json, "/language"), optionalAt<std::string>(json, "/type"),
                          optionalAt<bool>(json, "/active").value_or(false), optionalAt<std::string>(json, "/link")};
}

}  // namespace vorlen
