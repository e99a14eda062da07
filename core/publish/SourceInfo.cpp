#include "core/publish/SourceInfo.hpp"

#include <cmath>
#include <cstdlib>
#include <string_view>

#include <fmt/format.h>

#include "core/base/VorlenError.hpp"
#include "core/publish/ToolRunner.hpp"

namespace vorlen {

namespace {

// A number from the whole text, or nothing.
std::optional<double> parseNumber(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::string copy(text);
    char* end = nullptr;
    double value = std::strtod(copy.c_str(), &end);
    if (end != copy.c_str() + copy.size() || !std::isfinite(value)) return std::nullopt;
    return value;
}

// "30000/1001": two numbers above 0 around one "/".
std::optional<double> parseRate(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    auto slash = text->find('/');
    if (slash == std::string::npos || text->find('/', slash + 1) != std::string::npos) return std::nullopt;
    auto numerator = parseNumber(std::string_view(*text).substr(0, slash));
    auto denominator = parseNumber(std::string_view(*text).substr(slash + 1));
    if (!numerator || !denominator || *numerator <= 0 || *denominator <= 0) return std::nullopt;
    return *numerator / *denominator;
}

bool isCoverArt(const Json& stream) {
    auto disposition = stream.find("disposition");
    if (disposition == stream.end() || !disposition->is_object()) return false;
    return fieldOr<std::int64_t>(*disposition, "attached_pic", 0) != 0;
}

const Json* firstVideoStream(const Json& probe) {
    auto streams = probe.find("streams");
    if (streams == probe.end() || !streams->is_array()) return nullptr;
    for (const auto& stream : *streams) {
        if (optionalField<std::string>(stream, "codec_type") == "video" && !isCoverArt(stream)) return &stream;
    }
    return nullptr;
}

double rotationOf(const Json& stream) {
    auto sideData = stream.find("side_data_list");
    if (sideData == stream.end() || !sideData->is_array()) return 0;
    for (const auto& entry : *sideData) {
        if (auto rotation = optionalField<double>(entry, "rotation")) return std::fabs(*rotation);
    }
    return 0;
}

// The container's duration, else the stream's.
double durationOf(const Json& probe, const Json* stream) {
    std::optional<std::string> durationText;
    if (auto format = probe.find("format"); format != probe.end())
        durationText = optionalField<std::string>(*format, "duration");
    if (!durationText && stream) durationText = optionalField<std::string>(*stream, "duration");
    auto duration = durationText ? parseNumber(*durationText) : std::nullopt;
    if (!duration || *duration <= 0) throw VorlenError::source("the file has no known duration");
    return *duration;
}

// The default audio stream, else the first.
std::optional<AudioStream> audioOf(const Json& probe) {
    const Json* chosen = nullptr;
    for (const auto& stream : probe["streams"]) {
        if (optionalField<std::string>(stream, "codec_type") != "audio") continue;
        if (!chosen) chosen = &stream;
        auto disposition = stream.find("disposition");
        if (disposition != stream.end() && fieldOr<std::int64_t>(*disposition, "default", 0) == 1) {
            chosen = &stream;
            break;
        }
    }
    if (!chosen) return std::nullopt;
    auto channels = fieldOr<std::int64_t>(*chosen, "channels", 2);
    return AudioStream{fieldOr<std::int64_t>(*chosen, "index", 0), std::max<std::int64_t>(channels, 1)};
}

}  // namespace

std::string rawValue(HDRTransfer transfer) { return transfer == HDRTransfer::pq ? "pq" : "hlg"; }

SourceInfo sourceInfoFromProbe(const Json& probe) {
    const Json* video = firstVideoStream(probe);
    if (!video) throw VorlenError::source("the file has no video stream");

    SourceInfo info;
    auto width = optionalField<std::int64_t>(*video, "width");
    auto height = optionalField<std::int64_t>(*video, "height");
    if (!width || !height || *width < 1 || *height < 1) throw VorlenError::source("the video stream has no dimensions");
    info.width = *width;
    info.height = *height;
    double rotation = rotationOf(*video);
    if (std::fabs(rotation - 90) < 1 || std::fabs(rotation - 270) < 1) std::swap(info.width, info.height);

    auto fps = parseRate(optionalField<std::string>(*video, "avg_frame_rate"));
    if (!fps) fps = parseRate(optionalField<std::string>(*video, "r_frame_rate"));
    if (!fps) throw VorlenError::source("the video stream has no frame rate");
    info.fps = *fps;

    info.durationSeconds = durationOf(probe, video);

    auto transfer = optionalField<std::string>(*video, "color_transfer");
    if (transfer == "smpte2084") info.hdr = HDRTransfer::pq;
    if (transfer == "arib-std-b67") info.hdr = HDRTransfer::hlg;

    info.audio = audioOf(probe);
    return info;
}

SourceInfo audioInfoFromProbe(const Json& probe) {
    SourceInfo info;
    info.audio = audioOf(probe);
    info.durationSeconds = durationOf(probe, nullptr);
    return info;
}

namespace {

Json probe(const Tools& tools, const std::filesystem::path& file) {
    auto output = ToolRunner::run("ffprobe", tools.ffprobe,
                                  {"-v", "error", "-print_format", "json", "-show_streams", "-show_format", file.string()});
    return decodeJson(output.standardOutput);
}

}  // namespace

SourceInfo inspectFile(const Tools& tools, const std::filesystem::path& file) { return sourceInfoFromProbe(probe(tools, file)); }

SourceInfo inspectAudioFile(const Tools& tools, const std::filesystem::path& file) {
    return audioInfoFromProbe(probe(tools, file));
}

namespace {

// "34000/50000" in units of 1/scale, rounded.
std::optional<long long> scaled(const Json& entry, const char* key, double scale) {
    auto text = optionalField<std::string>(entry, key);
    if (!text) return std::nullopt;
    auto slash = text->find('/');
    auto numerator = parseNumber(std::string_view(*text).substr(0, slash));
    double denominator = 1;
    if (slash != std::string::npos) {
        auto parsed = parseNumber(std::string_view(*text).substr(slash + 1));
        if (!parsed || *parsed == 0) return std::nullopt;
        denominator = *parsed;
    }
    if (!numerator) return std::nullopt;
    return std::llround(*numerator / denominator * scale);
}

void readSideData(const Json& list, HDRMasteringMetadata& metadata) {
    if (!list.is_array()) return;
    for (const auto& entry : list) {
        auto type = optionalField<std::string>(entry, "side_data_type");
        if (type == "Mastering display metadata" && !metadata.masterDisplay) {
            std::optional<long long> values[10];
            const char* keys[] = {"green_x", "green_y", "blue_x", "blue_y", "red_x",
                                  "red_y", "white_point_x", "white_point_y"};
            bool complete = true;
            for (int i = 0; i < 8; ++i) complete = (values[i] = scaled(entry, keys[i], 50000)) && complete;
            complete = (values[8] = scaled(entry, "max_luminance", 10000)) && complete;
            complete = (values[9] = scaled(entry, "min_luminance", 10000)) && complete;
            if (complete)
                metadata.masterDisplay = fmt::format("G({},{})B({},{})R({},{})WP({},{})L({},{})", *values[0], *values[1],
                                                     *values[2], *values[3], *values[4], *values[5], *values[6],
                                                     *values[7], *values[8], *values[9]);
        }
        if (type == "Content light level metadata" && !metadata.maxCll) {
            auto content = optionalField<std::int64_t>(entry, "max_content");
            auto average = optionalField<std::int64_t>(entry, "max_average");
            if (content && average) metadata.maxCll = fmt::format("{},{}", *content, *average);
        }
    }
}

}  // namespace

HDRMasteringMetadata hdrMasteringMetadataFromProbe(const Json& probe) {
    HDRMasteringMetadata metadata;
    for (const char* list : {"streams", "frames"}) {
        for (const auto& item : probe.value(list, Json::array()))
            if (item.contains("side_data_list")) readSideData(item["side_data_list"], metadata);
    }
    return metadata;
}

HDRMasteringMetadata readHDRMasteringMetadata(const Tools& tools, const std::filesystem::path& file) {
    auto output = ToolRunner::run("ffprobe", tools.ffprobe,
                                  {"-v", "error", "-print_format", "json", "-select_streams", "V:0", "-read_intervals",
                                   "%+#1", "-show_streams", "-show_frames", file.string()});
    return hdrMasteringMetadataFromProbe(decodeJson(output.standardOutput));
}

}  // namespace vorlen
