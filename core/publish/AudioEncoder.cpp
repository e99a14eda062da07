#include "core/publish/AudioEncoder.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/ToolRunner.hpp"

namespace vorlen {

namespace {

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start <= text.size()) {
        auto end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(std::move(line));
        start = end + 1;
    }
    return lines;
}

// strtod reads "-inf" and "inf" as infinities, which is what loudnorm means by them.
double numberOrNaN(const std::string& text) {
    char* end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    return end == text.c_str() ? std::nan("") : value;
}

std::optional<std::string> volumeFilter(double gain) {
    if (!std::isfinite(gain) || std::fabs(gain) < 0.005) return std::nullopt;
    return fmt::format("volume={:.2f}dB", gain);
}

std::vector<std::string> baseArguments(const AudioSource& source, const std::string& filters) {
    return {"-hide_banner", "-nostdin", "-y", "-i", source.file.string(), "-map",
            fmt::format("0:{}", source.stream.index), "-af", filters, "-vn", "-sn", "-dn"};
}

}  // namespace

std::optional<LoudnormMeasurement> parseLoudnormMeasurement(const std::string& standardError) {
    auto lines = splitLines(standardError);
    for (std::size_t open = lines.size(); open-- > 0;) {
        if (lines[open] != "{") continue;
        for (std::size_t close = open + 1; close < lines.size(); ++close) {
            if (lines[close] != "}") continue;
            std::string block;
            for (std::size_t i = open; i <= close; ++i) block += lines[i] + "\n";
            try {
                auto json = decodeJson(block);
                return LoudnormMeasurement{json.at("input_i").get<std::string>(), json.at("input_tp").get<std::string>(),
                                           json.at("input_lra").get<std::string>(),
                                           json.at("input_thresh").get<std::string>(),
                                           json.at("target_offset").get<std::string>()};
            } catch (const nlohmann::json::exception&) {
                return std::nullopt;
            }
        }
        return std::nullopt;
    }
    return std::nullopt;
}

bool needsMeasurement(AudioLoudness loudness, const AudioRendition& rendition, std::int64_t sourceChannels) {
    return !(loudness == AudioLoudness::original && rendition.channels >= sourceChannels);
}

std::optional<std::string> loudnessFilter(AudioLoudness loudness, const LoudnormMeasurement& m) {
    double integrated = numberOrNaN(m.inputI);
    double truePeak = numberOrNaN(m.inputTP);
    switch (loudness) {
        case AudioLoudness::broadcast:
            // Silence measures -inf, which loudnorm refuses as a measured value.
            if (std::isinf(integrated) && integrated < 0) return std::nullopt;
            return fmt::format("loudnorm=I=-24:TP=-2:LRA=20:measured_I={}:measured_TP={}:measured_LRA={}:"
                               "measured_thresh={}:offset={}:linear=true",
                               m.inputI, m.inputTP, m.inputLRA, m.inputThresh, m.targetOffset);
        case AudioLoudness::web:
            if (!std::isfinite(integrated) || !std::isfinite(truePeak)) return std::nullopt;
            return volumeFilter(std::min(-2 - truePeak, -14 - integrated));
        case AudioLoudness::original:
            if (!std::isfinite(truePeak)) return std::nullopt;
            return volumeFilter(std::min(-2 - truePeak, 0.0));
    }
    return std::nullopt;
}

EncodedAudio encodeAudio(const Tools& tools, const AudioSource& source, const AudioRendition& rendition,
                         AudioLoudness loudness, const std::filesystem::path& outputDirectory,
                         const std::function<void(double)>& onFraction) {
    auto fractionOf = [&](double seconds) {
        return source.durationSeconds > 0 ? std::clamp(seconds / source.durationSeconds, 0.0, 1.0) : 0.0;
    };
    auto report = [&](double fraction) {
        if (onFraction) onFraction(fraction);
    };
    std::string filters = "aformat=channel_layouts=" + rendition.layout;
    bool measured = needsMeasurement(loudness, rendition, source.stream.channels);
    std::string encodingFilters = filters;
    if (measured) {
        auto args = baseArguments(source, filters + ",loudnorm=I=-24:TP=-2:LRA=20:print_format=json");
        args.insert(args.end(), {"-f", "null", "-"});
        auto output = ToolRunner::runFFmpeg(tools, args, [&](double t) { report(fractionOf(t) * 0.5); });
        auto measurement = parseLoudnormMeasurement(output.standardError);
        if (!measurement)
            throw VorlenError::tool("ffmpeg", fmt::format("loudness analysis for {} audio produced no measurement",
                                                          rendition.name));
        if (auto second = loudnessFilter(loudness, *measurement)) encodingFilters += "," + *second;
    }
    auto file = outputDirectory / ("a_" + rendition.name + ".mp4");
    auto args = baseArguments(source, encodingFilters);
    args.insert(args.end(), {"-c:a", rendition.codec, "-b:a", fmt::format("{}k", rendition.bitrateKbps)});
    args.insert(args.end(), rendition.extraArguments.begin(), rendition.extraArguments.end());
    args.insert(args.end(), {"-ar", "48000", file.string()});
    ToolRunner::runFFmpeg(tools, args, [&](double t) { report(measured ? 0.5 + 0.5 * fractionOf(t) : fractionOf(t)); });
    return {rendition, file};
}

}  // namespace vorlen
