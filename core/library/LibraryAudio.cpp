// New audio for a published video: only the audio is encoded again, and the
// picture's objects stay as they are.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <set>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/library/FolderObjects.hpp"
#include "core/library/Library.hpp"
#include "core/publish/DASHRewriter.hpp"
#include "core/publish/HLSMasterPlaylist.hpp"
#include "core/publish/HLSRewriter.hpp"
#include "core/publish/Naming.hpp"
#include "core/publish/PackagedFiles.hpp"
#include "core/publish/Packager.hpp"

namespace vorlen {

using namespace FolderObjects;
namespace fs = std::filesystem;

namespace {

// A new file may be cut a little differently from the published video; another edit differs by more.
constexpr double lengthTolerance = 1.0;
// Neighbouring segments are read together, up to this much at a time.
constexpr std::uint64_t maxReadBytes = 16 * 1024 * 1024;

// "a_stereo" of "r-k3x9a2mq/a_stereo.m3u8".
std::string streamOf(const std::string& playlist) {
    auto name = playlist.substr(playlist.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// The channel terms of the refusal: a set of renditions with surround is 5.1 audio.
std::string layoutWords(const std::set<std::string>& streams) {
    return streams.contains("a_surround") ? "5.1 surround" : "stereo";
}

std::string secondsText(double seconds) { return fmt::format("{:g}", std::round(seconds * 10) / 10); }

// Before any work: a source that does not fit the published video changes nothing.
void checkFits(const ReplacementTarget& target, const Inspection& source) {
    const auto file = source.source.filename().string();
    const auto published = HLSMasterPlaylist::audio(target.manifests.master.data);
    if (published.empty() || std::holds_alternative<NoAudioTrack>(target.metadata.audio.value_or(AudioTrack{})))
        throw VorlenError::source(fmt::format(
            "The video in the site has no audio, so Vorlen cannot give it new audio. To add the audio of \u201c{}\u201d, use "
            "\u201cRe-import Video and Audio\u201d.",
            file));
    if (!source.info.audio || source.audio.empty())
        throw VorlenError::source(
            fmt::format("\u201c{}\u201d has no audio, so Vorlen did not change the audio of the video.", file));
    std::set<std::string> had, has;
    for (const auto& media : published) had.insert(streamOf(media.uri));
    for (const auto& rendition : source.audio) has.insert("a_" + rendition.name);
    if (had != has)
        throw VorlenError::source(fmt::format(
            "\u201c{}\u201d has {} audio, and the video in the site has {} audio. To change the audio renditions, use "
            "\u201cRe-import Video and Audio\u201d.",
            file, layoutWords(has), layoutWords(had)));
    const auto length = target.metadata.duration;
    if (length && std::abs(source.info.durationSeconds - *length) > lengthTolerance)
        throw VorlenError::source(fmt::format(
            "\u201c{}\u201d is {} seconds long, and the video in the site is {} seconds long. A file of a different length "
            "can be a different edit, and its audio would not match the picture. Choose the file of this video, or use "
            "\u201cRe-import Video and Audio\u201d.",
            file, secondsText(source.info.durationSeconds), secondsText(*length)));
}

}  // namespace

std::optional<PublishedAudio> Library::publishedAudio(const ReplacementTarget& target) {
    const auto audio = HLSMasterPlaylist::audio(target.manifests.master.data);
    const auto best = std::max_element(audio.begin(), audio.end(),
                                       [](const auto& a, const auto& b) { return a.channels < b.channels; });
    if (best == audio.end()) return std::nullopt;
    return PublishedAudio{best->uri};
}

fs::path Library::savePublishedAudio(const ReplacementTarget& target, const fs::path& directory) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    const auto& video = target.manifests.video;
    const auto audio = publishedAudio(target);
    if (!audio) throw VorlenError::source("The video in the site has no audio, so Vorlen cannot re-import its audio.");
    const auto playlistKey = video.prefix + audio->path;
    const auto playlist = retry.run([&](std::int64_t) { return bucket.object(playlistKey); });
    if (!playlist) throw VorlenError::integrity(playlistKey, "the audio playlist is missing");
    const auto layout = HLSRewriter::layoutOf(*playlist);

    // The pieces in playing order, neighbours in one file read together.
    std::vector<ChunkRange> reads{layout.initSegment};
    for (const auto& segment : layout.segments) {
        auto& last = reads.back();
        if (segment.file == last.file && segment.range.offset == last.range.offset + last.range.length &&
            last.range.length + segment.range.length <= maxReadBytes)
            last.range.length += segment.range.length;
        else
            reads.push_back(segment);
    }
    const auto path = directory / (streamOf(audio->path) + ".mp4");
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const auto& read : reads) {
        checkCancellation();
        const auto key = video.prefix + folderOf(audio->path) + read.file;
        const auto bytes = retry.run([&](std::int64_t) { return bucket.objectRange(key, read.range); });
        if (!bytes) throw VorlenError::integrity(key, "a chunk of the audio is missing");
        out.write(bytes->data(), static_cast<std::streamsize>(bytes->size()));
    }
    out.close();
    if (!out) throw VorlenError::config(fmt::format("cannot write {}", path.string()));
    return path;
}

std::shared_ptr<BuiltAudio> Library::buildAudio(const ReplacementTarget& target, const Inspection& source,
                                                AudioLoudness loudness, const Publisher& publisher,
                                                const ProgressHandler& onProgress) const {
    checkFits(target, source);
    auto report = [&](PublishProgress::Stage stage, double fraction) {
        if (!onProgress) return;
        PublishProgress progress;
        progress.stage = stage;
        progress.stageFraction = fraction;
        onProgress(progress);
    };

    checkCancellation();
    WorkDirectory work{workDirectoryPath(publisher.workRoot, "audio-" + target.manifests.video.folder)};
    DirectoryRemover remover(work.url);
    const auto encodeDirectory = work.url / "intermediate" / "encode";
    const auto packageDirectory = work.url / "intermediate" / "package";
    const auto publishDirectory = work.url / "publish";
    for (const auto& directory : {encodeDirectory, packageDirectory, publishDirectory}) fs::create_directories(directory);

    report(PublishProgress::Stage::encoding, 0);
    const AudioSource audioSource{source.source, *source.info.audio, source.info.durationSeconds};
    const auto count = static_cast<double>(source.audio.size());
    std::vector<EncodedAudio> audios;
    for (const auto& rendition : source.audio) {
        checkCancellation();
        const auto done = static_cast<double>(audios.size());
        audios.push_back(encodeAudio(publisher.tools, audioSource, rendition, loudness, encodeDirectory,
                                     [&](double fraction) { report(PublishProgress::Stage::encoding, (done + fraction) / count); }));
    }

    checkCancellation();
    report(PublishProgress::Stage::packaging, 0);
    // The packager cuts the audio into the segments of a publish, so the new streams
    // take the names and the segment grid of the published ones.
    const auto streams = Packager::package({{}, audios}, publisher.tools, packageDirectory, Publisher::segmentSeconds);
    checkCancellation();
    const auto packaged = assemble(streams, packageDirectory, publishDirectory, publisher.maxChunkBytes);
    std::vector<std::string> files = packaged.media;
    std::uint64_t bytes = 0;
    for (const auto& manifest : packaged.manifests)
        if (manifest != switchFile && manifest != dashFile) files.push_back(manifest);
    for (const auto& file : files) bytes += fs::file_size(publishDirectory / file);
    fs::remove_all(work.url / "intermediate");
    report(PublishProgress::Stage::packaging, 1);
    checkCancellation();
    remover.release();
    return std::make_shared<BuiltAudio>(publishDirectory, std::move(files), bytes, std::move(work), loudness);
}

AudioReplacement Library::replaceAudio(const ReplacementTarget& target, BuiltAudio& built, const Publisher& publisher,
                                       UploadJournal& journal, const ProgressHandler& onProgress) const {
    auto& bucket = *destination.bucket;
    const RetryPolicy retry{options.maxRetries, options.retryDelay};
    const auto& current = target.manifests;
    const auto& video = current.video;
    const std::string mediaFolder = "r-" + Naming::randomPart() + "/";

    ReplacementManifests next{HLSMasterPlaylist::withAudioFolder(current.master.data, mediaFolder), std::nullopt};
    for (const auto& media : HLSMasterPlaylist::audio(next.master)) {
        const auto& files = built.files();
        if (std::find(files.begin(), files.end(), media.uri.substr(mediaFolder.size())) == files.end())
            throw VorlenError::manifest(fmt::format("the new audio has no stream for {}", media.uri.substr(mediaFolder.size())));
    }
    if (current.mpd)
        next.mpd = DASHRewriter::withAudio(current.mpd->data,
                                           DASHRewriter::withMediaPrefix(readFile(built.directory() / dashFile), mediaFolder));

    AudioReplacement result;
    result.uploadRate = uploadAndSwap(current, next, ManifestChange::audio, built.directory(), built.files(),
                                      video.prefix + mediaFolder, built.byteCount(), publisher, journal, onProgress);

    // The new audio plays: what follows may fail without undoing it.
    Task<void>::detached([&] {
        try {
            // The record as it is now: details changed during the encoding stay.
            const auto now = this->video(video.folder);
            auto record = newRecord(now, detailsOf(now));
            record.audio = AudioTrack{built.loudness()};
            record.unknownAudioLoudness = std::nullopt;
            writeRecord(bucket, video.prefix, record, retry, overRecordOf(now));
            result.metadata = record;
        } catch (const std::exception& error) {
            result.metadataFailure = error.what();
        }
        try {
            std::set<std::string> old;
            for (const auto& media : HLSMasterPlaylist::audio(current.master.data)) {
                old.insert(media.uri);
                const auto playlist = retry.run([&](std::int64_t) { return bucket.object(video.prefix + media.uri); });
                if (!playlist) continue;
                const auto layout = HLSRewriter::layoutOf(*playlist);
                old.insert(folderOf(media.uri) + layout.initSegment.file);
                for (const auto& segment : layout.segments) old.insert(folderOf(media.uri) + segment.file);
            }
            deleteStages(bucket, video.prefix, deletionStages({old.begin(), old.end()}), retry);
        } catch (const std::exception& error) {
            result.oldFilesFailure = error.what();
        }
    }).value();
    return result;
}

}  // namespace vorlen
