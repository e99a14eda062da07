#include "core/publish/VideoMetadata.hpp"

#include <fmt/format.h>

#include <cmath>

#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

[[noreturn]] void fail(const std::string& text) { throw VorlenError::metadata(text); }

const Json* member(const Json& object, const char* key) {
    auto found = object.find(key);
    if (found == object.end() || found->is_null()) return nullptr;
    return &*found;
}

std::string requiredString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) fail(fmt::format("video.json has no “{}”", key));
    if (!value->is_string()) fail(fmt::format("video.json has a “{}” that is not a text", key));
    return value->get<std::string>();
}

std::optional<std::string> optionalString(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_string()) fail(fmt::format("video.json has a “{}” that is not a text", key));
    return value->get<std::string>();
}

std::optional<std::int64_t> optionalInteger(const Json& object, const char* key) {
    const Json* value = member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_number_integer()) fail(fmt::format("video.json has a “{}” that is not a whole number", key));
    return value->get<std::int64_t>();
}

SystemTime requiredDate(const Json& object, const char* key) {
    std::string text = requiredString(object, key);
    auto time = parseIso8601(text);
    if (!time) fail(fmt::format("“{}” is not an ISO 8601 date", text));
    return *time;
}

PosterFile readPoster(const Json& value) {
    if (!value.is_object()) fail("video.json has a “poster” that is not an object");
    auto name = requiredString(value, "name");
    auto width = optionalInteger(value, "width");
    auto height = optionalInteger(value, "height");
    if (!width || !height) fail("video.json has a “poster” without its width and height");
    if (!isPlainFileName(name)) fail(fmt::format("“{}” is not a plain file name", name));
    return PosterFile{name, PixelSize{*width, *height}};
}

std::int64_t readVersion(const Json& object) {
    const Json* value = member(object, "version");
    if (!value) fail("video.json has no “version”");
    if (!value->is_number_integer()) fail("video.json has a “version” that is not a whole number");
    auto found = value->get<std::int64_t>();
    if (found < 1) fail(fmt::format("video.json has version {}, which is not valid.", found));
    if (found > VideoMetadata::version) fail(newerVersionMessage("video.json", found, VideoMetadata::version));
    return found;
}

}  // namespace

bool isPlainFileName(std::string_view name) {
    if (name.empty() || name.front() == '.') return false;
    for (char c : name) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                  c == '.' || c == '_';
        if (!ok) return false;
    }
    return true;
}

std::string VideoMetadata::encoded() const {
    Json object = Json::object();
    object["version"] = version;
    object["title"] = details.title();
    if (details.reference()) object["reference"] = *details.reference();
    if (details.description()) object["description"] = *details.description();
    object["visibility"] = rawValue(details.visibility());
    if (poster) {
        object["poster"] = {{"name", poster->name}, {"width", poster->size.width}, {"height", poster->size.height}};
    }
    if (duration) object["duration"] = *duration;
    if (size) {
        object["width"] = size->width;
        object["height"] = size->height;
    }
    object["created"] = formatIso8601(created);
    object["updated"] = formatIso8601(updated);
    if (audio) {
        if (auto* track = std::get_if<AudioTrack>(&*audio)) {
            object["has_audio"] = true;
            if (track->loudness) {
                object["audio_loudness"] = rawValue(*track->loudness);
            } else if (unknownAudioLoudness) {
                object["audio_loudness"] = *unknownAudioLoudness;
            }
        } else {
            object["has_audio"] = false;
        }
    }
    return encodeJson(object, true);
}

VideoMetadata VideoMetadata::decoded(std::string_view data) {
    Json object;
    try {
        object = decodeJson(data);
    } catch (const Json::exception& error) {
        fail(fmt::format("video.json is not valid JSON: {}", error.what()));
    }
    if (!object.is_object()) fail("video.json is not a JSON object");
    readVersion(object);

    auto title = requiredString(object, "title");
    auto reference = optionalString(object, "reference");
    auto description = optionalString(object, "description");
    auto visibility = VideoVisibility::publicVideo;
    if (auto text = optionalString(object, "visibility")) {
        auto known = videoVisibilityFromRawValue(*text);
        if (!known) fail(fmt::format("“{}” is not a visibility", *text));
        visibility = *known;
    }
    std::optional<std::string_view> referenceView, descriptionView;
    if (reference) referenceView = *reference;
    if (description) descriptionView = *description;

    VideoMetadata metadata{VideoDetails(title, referenceView, descriptionView, visibility),
                           std::nullopt, std::nullopt, std::nullopt,
                           requiredDate(object, "created"), requiredDate(object, "updated"),
                           std::nullopt, std::nullopt};
    if (const Json* poster = member(object, "poster")) metadata.poster = readPoster(*poster);
    if (const Json* duration = member(object, "duration")) {
        if (!duration->is_number() || !std::isfinite(duration->get<double>())) {
            fail("video.json has a “duration” that is not a number");
        }
        metadata.duration = duration->get<double>();
    }
    auto width = optionalInteger(object, "width");
    auto height = optionalInteger(object, "height");
    if (width && height) metadata.size = PixelSize{*width, *height};

    if (const Json* hasAudio = member(object, "has_audio")) {
        if (!hasAudio->is_boolean()) fail("video.json has a “has_audio” that is not true or false");
        if (hasAudio->get<bool>()) {
            AudioTrack track;
            if (auto loudness = optionalString(object, "audio_loudness")) {
                track.loudness = audioLoudnessFromRawValue(*loudness);
                if (!track.loudness) metadata.unknownAudioLoudness = *loudness;
            }
            metadata.audio = track;
        } else {
            metadata.audio = NoAudioTrack{};
        }
    }
    return metadata;
}

}  // namespace vorlen
