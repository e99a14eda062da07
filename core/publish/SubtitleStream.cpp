#include "core/publish/SubtitleStream.hpp"

#include <fmt/format.h>

#include <cmath>

#include "core/publish/SubtitleLanguage.hpp"

namespace vorlen {

std::string SubtitleStream::freeBaseName(const std::string& language, const std::set<std::string>& taken,
                                         const std::string& randomPart) {
    // Only letters, digits and hyphens reach a key, whatever a language tag held.
    std::string safe;
    for (char c : SubtitleLanguage::code(language)) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        safe.push_back(plain ? c : '-');
    }
    std::string stem = "sub_" + safe + (randomPart.empty() ? "" : "-" + randomPart);
    if (!taken.contains(stem)) return stem;
    for (int number = 2;; ++number) {
        auto candidate = fmt::format("{}-{}", stem, number);
        if (!taken.contains(candidate)) return candidate;
    }
}

std::int64_t SubtitleStream::bandwidthOf(std::uint64_t bytes, double durationSeconds) {
    double bits = double(bytes) * 8;
    return static_cast<std::int64_t>(std::ceil(durationSeconds > 0 ? bits / durationSeconds : bits));
}

std::string SubtitleStream::mediaPlaylist(const std::string& baseName, double durationSeconds) {
    return fmt::format(
        "#EXTM3U\n#EXT-X-VERSION:6\n#EXT-X-TARGETDURATION:{}\n#EXT-X-PLAYLIST-TYPE:VOD\n#EXTINF:{},\n{}.vtt\n"
        "#EXT-X-ENDLIST\n",
        static_cast<std::int64_t>(std::ceil(durationSeconds)), durationSeconds, baseName);
}

std::vector<SubtitleStream> SubtitleStream::make(const std::vector<SubtitleTrack>& tracks,
                                                 const std::vector<SubtitleDocument>& documents,
                                                 double durationSeconds, const std::set<std::string>& taken) {
    std::vector<std::pair<std::string, SubtitleTrack::Kind>> labels;
    for (const auto& track : tracks) labels.emplace_back(track.language, track.kind);
    auto names = SubtitleLanguage::trackNames(labels);
    auto used = taken;
    std::vector<SubtitleStream> streams;
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        SubtitleStream stream;
        stream.baseName = freeBaseName(tracks[i].language, used);
        used.insert(stream.baseName);
        stream.language = SubtitleLanguage::code(tracks[i].language);
        stream.name = names[i];
        stream.kind = tracks[i].kind;
        stream.bandwidth = bandwidthOf(documents.at(i).webVTT.size(), durationSeconds);
        streams.push_back(std::move(stream));
    }
    return streams;
}

}  // namespace vorlen
