#include "core/publish/PackagedFiles.hpp"

#include <algorithm>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/publish/Chunker.hpp"
#include "core/publish/DASHRewriter.hpp"
#include "core/publish/DASHSubtitles.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/HLSRewriter.hpp"

namespace vorlen {

PackagedFiles assemble(const std::vector<PackagedStream>& streams, const std::filesystem::path& packageDirectory,
                       const std::filesystem::path& publishDirectory, std::uint64_t maxChunkBytes) {
    PackagedFiles files;
    std::vector<StreamLayout> layouts;
    for (const auto& stream : streams) {
        checkCancellation();
        auto layout = Chunker::chunk(stream, packageDirectory, publishDirectory, maxChunkBytes);
        auto playlistName = stream.directoryName + ".m3u8";
        auto playlist = readFile(packageDirectory / playlistName);
        writeFileAtomically(publishDirectory / playlistName, HLSRewriter::rewrite(playlist, layout));
        for (auto& file : layout.files()) files.media.push_back(std::move(file));
        files.manifests.push_back(playlistName);
        layouts.push_back(std::move(layout));
    }
    // The master names the media playlists, which stand beside it unchanged in name.
    writeFileAtomically(publishDirectory / "master.m3u8", readFile(packageDirectory / "master.m3u8"));
    writeFileAtomically(publishDirectory / "manifest.mpd",
                        DASHRewriter::rewrite(readFile(packageDirectory / "manifest.mpd"), layouts));
    files.manifests.push_back("master.m3u8");
    files.manifests.push_back("manifest.mpd");
    return files;
}

void addSubtitles(PackagedFiles& files, const std::filesystem::path& publishDirectory,
                  const std::vector<SubtitleStream>& streams, const std::vector<SubtitleDocument>& documents,
                  double durationSeconds) {
    if (streams.empty()) return;
    auto master = std::find(files.manifests.begin(), files.manifests.end(), "master.m3u8");
    for (std::size_t i = 0; i < streams.size(); ++i) {
        checkCancellation();
        const auto& base = streams[i].baseName;
        writeFileAtomically(publishDirectory / (base + ".vtt"), documents.at(i).webVTT);
        writeFileAtomically(publishDirectory / (base + ".m3u8"), SubtitleStream::mediaPlaylist(base, durationSeconds));
        files.media.push_back(base + ".vtt");
        master = std::next(files.manifests.insert(master, base + ".m3u8"));
    }
    writeFileAtomically(publishDirectory / "master.m3u8",
                        HLSMasterPlaylist::withSubtitles(readFile(publishDirectory / "master.m3u8"), streams));
    writeFileAtomically(publishDirectory / "manifest.mpd",
                        DASHSubtitles::withSubtitles(readFile(publishDirectory / "manifest.mpd"), {}, streams));
}

}  // namespace vorlen
