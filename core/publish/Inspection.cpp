#include "core/publish/Inspection.hpp"

#include <unicode/uchar.h>

#include "core/base/Text.hpp"
#include "core/publish/Naming.hpp"

namespace vorlen {

namespace {

bool isAsciiAlphanumeric(char32_t c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool isSeparator(char32_t c) { return c == '.' || c == '_' || u_isUWhiteSpace(static_cast<UChar32>(c)); }

}  // namespace

std::string suggestedTitle(std::string_view fileName) {
    std::u32string scalars = toUtf32(nfc(fileName));
    auto dot = scalars.rfind(U'.');
    if (dot != std::u32string::npos && dot > 0) {
        std::size_t length = scalars.size() - dot - 1;
        bool extension = length >= 1 && length <= 5;
        for (std::size_t i = dot + 1; extension && i < scalars.size(); ++i) extension = isAsciiAlphanumeric(scalars[i]);
        if (extension) scalars.erase(dot);
    }
    std::u32string title;
    bool pendingSpace = false;
    for (char32_t c : scalars) {
        if (isSeparator(c)) {
            pendingSpace = true;
            continue;
        }
        if (pendingSpace && !title.empty()) title += U' ';
        pendingSpace = false;
        title += c;
    }
    return toUtf8(title);
}

std::uint64_t estimatedBytes(double durationSeconds, const std::vector<Rung>& ladder,
                             const std::vector<AudioRendition>& audio, const VideoEncoder& encoder) {
    std::int64_t kbps = 0;
    for (const auto& rung : ladder) kbps += encoder.targetBitrateKbps(rung);
    for (const auto& rendition : audio) kbps += rendition.bitrateKbps;
    return static_cast<std::uint64_t>(durationSeconds * static_cast<double>(kbps) * 1000 * 0.125);
}

Inspection inspectionFor(const std::filesystem::path& source, const SourceInfo& info, const VideoEncoder& encoder) {
    Inspection inspection;
    inspection.source = source;
    inspection.info = info;
    inspection.ladder = ladder(info.width, info.height);
    if (info.audio) inspection.audio = renditions(info.audio->channels);
    auto fileName = source.filename().string();
    inspection.suggestedName = Naming::folderNameForFile(fileName);
    inspection.suggestedTitle = suggestedTitle(fileName);
    inspection.estimatedBytes = estimatedBytes(info.durationSeconds, inspection.ladder, inspection.audio, encoder);
    return inspection;
}

Inspection inspect(const Tools& tools, const VideoEncoder& encoder, const std::filesystem::path& source) {
    return inspectionFor(source, inspectFile(tools, source), encoder);
}

Inspection inspectAudio(const Tools& tools, const std::filesystem::path& source) {
    Inspection inspection;
    inspection.source = source;
    inspection.info = inspectAudioFile(tools, source);
    if (inspection.info.audio) inspection.audio = renditions(inspection.info.audio->channels);
    return inspection;
}

}  // namespace vorlen
