#include "core/publish/Publisher.hpp"

#include <chrono>
#include <cmath>
#include <cstdlib>

#include <fmt/format.h>

#include "core/base/Clock.hpp"
#include "core/base/Files.hpp"
#include "core/base/Random.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/AudioEncoder.hpp"
#include "core/publish/EncodeMeter.hpp"
#include "core/publish/PackagedFiles.hpp"
#include "core/publish/PosterHeuristicScorer.hpp"
#include "core/publish/PosterOutcome.hpp"
#include "core/publish/Packager.hpp"
#include "core/publish/VideoCommand.hpp"

namespace vorlen {

namespace fs = std::filesystem;

fs::path defaultWorkRoot() {
    const char* tmp = std::getenv("TMPDIR");
    return fs::path(tmp && *tmp ? tmp : "/tmp") / "vorlen";
}

fs::path workDirectoryPath(const fs::path& workRoot, const std::string& name) {
    auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch());
    return workRoot / fmt::format("{}-{}-{}", name, milliseconds.count(), randomString(8, "0123456789ABCDEF"));
}

Inspection Publisher::inspect(const fs::path& source) const { return vorlen::inspect(tools, *encoder, source); }

namespace {

// The tallest rung of those that pass the filter; the first of equal heights.
const EncodedRung* tallest(const std::vector<EncodedRung>& rungs, bool h264Only) {
    const EncodedRung* best = nullptr;
    for (const auto& rung : rungs) {
        if (h264Only && rung.rung.codec != VideoCodec::h264) continue;
        if (!best || rung.rung.height > best->rung.height) best = &rung;
    }
    return best;
}

std::uint64_t sizeOfFiles(const fs::path& folder, const std::vector<std::string>& files) {
    std::uint64_t total = 0;
    for (const auto& file : files) total += fs::file_size(folder / file);
    return total;
}

}  // namespace

std::shared_ptr<BuiltFolder> Publisher::build(const Inspection& inspection, const VideoDetails& details,
                                              AudioLoudness audioLoudness, std::optional<SystemTime> created,
                                              const ProgressHandler& onProgress, const PosterReview& review,
                                              const std::vector<SubtitleTrack>& subtitles) const {
    auto report = [&](const PublishProgress& progress) {
        if (onProgress) onProgress(progress);
    };
    auto reportStage = [&](PublishProgress::Stage stage, double fraction) {
        PublishProgress progress;
        progress.stage = stage;
        progress.stageFraction = fraction;
        progress.uploadTotalBytes = inspection.estimatedBytes;
        report(progress);
    };

    checkCancellation();
    std::vector<SubtitleDocument> documents;
    for (const auto& track : subtitles) documents.push_back(SubtitleDocument::read(track.file));
    auto subtitleStreams = SubtitleStream::make(subtitles, documents, inspection.info.durationSeconds);

    checkCancellation();
    WorkDirectory work{workDirectoryPath(workRoot, inspection.suggestedName)};
    DirectoryRemover remover(work.url);
    auto encodeDirectory = work.url / "intermediate" / "encode";
    auto packageDirectory = work.url / "intermediate" / "package";
    auto publishDirectory = work.url / "publish";
    fs::create_directories(encodeDirectory);
    fs::create_directories(packageDirectory);
    fs::create_directories(publishDirectory);

    checkCancellation();
    const auto& info = inspection.info;
    if (needsToneMapping(info, inspection.ladder)) checkToneMapping(tools);
    HDRMasteringMetadata mastering;
    bool keepsHDR = false;
    for (const auto& rung : inspection.ladder) keepsHDR = keepsHDR || (info.hdr && rung.codec == VideoCodec::hevc);
    if (keepsHDR) mastering = readHDRMasteringMetadata(tools, inspection.source);

    // Encoding: one command for every rung beside the audio renditions in turn.
    checkCancellation();
    auto command =
        VideoCommand::make(inspection.source, info, inspection.ladder, *encoder, segmentSeconds, encodeDirectory, mastering);
    EncodeMeter meter(inspection.audio.size());
    std::vector<EncodedRung> videos;
    std::vector<EncodedAudio> audios;
    reportStage(PublishProgress::Stage::encoding, 0);
    {
        auto began = BootClock::now();
        auto ticker = Task<void>::spawn([&] {
            EncodingProgressReporter reporter(info.durationSeconds, inspection.estimatedBytes, expectedUploadRate);
            for (;;) {
                sleepFor(std::chrono::milliseconds(250));
                report(reporter.report(meter.state(), secondsBetween(began, BootClock::now())));
            }
        });
        TaskGroup<void> group;
        group.spawn([&] {
            videos = encodeVideo(tools, command, [&](double seconds) { meter.setVideoSeconds(seconds); });
        });
        if (!inspection.audio.empty()) {
            group.spawn([&] {
                AudioSource source{inspection.source, *info.audio, info.durationSeconds};
                for (std::size_t i = 0; i < inspection.audio.size(); ++i) {
                    checkCancellation();
                    audios.push_back(encodeAudio(tools, source, inspection.audio[i], audioLoudness, encodeDirectory,
                                                 [&meter, i](double fraction) { meter.setAudioFraction(i, fraction); }));
                }
            });
        }
        group.waitAll();
    }

    checkCancellation();
    if (!tallest(videos, true)) throw VorlenError::source("the ladder has no H.264 rendition for the poster");
    const EncodedRung& posterRung = *tallest(videos, true);
    const EncodedRung& top = *tallest(videos, false);

    // Packaging, and beside it the picture size of the top rendition and the poster.
    reportStage(PublishProgress::Stage::packaging, 0);
    PackagedFiles packaged;
    PixelSize size;
    PosterOutcome posterOutcome;
    {
        TaskGroup<void> group;
        group.spawn([&] {
            auto streams = Packager::package({videos, audios}, tools, packageDirectory, segmentSeconds);
            checkCancellation();
            packaged = assemble(streams, packageDirectory, publishDirectory, maxChunkBytes);
            addSubtitles(packaged, publishDirectory, subtitleStreams, documents, info.durationSeconds);
        });
        group.spawn([&] {
            auto picture = inspectFile(tools, top.file);
            size = {picture.width, picture.height};
        });
        group.spawn([&] {
            auto scorer = posterScorer ? posterScorer : std::make_shared<PosterHeuristicScorer>();
            posterOutcome = PosterOutcome::select(tools, posterRung.file, info.durationSeconds, scorer);
        });
        group.waitAll();
    }
    reportStage(PublishProgress::Stage::packaging, 1.0);

    std::optional<Poster> poster = posterOutcome.poster;
    if (review) {
        checkCancellation();
        PublishProgress progress;
        progress.stage = PublishProgress::Stage::reviewingPoster;
        progress.uploadTotalBytes =
            sizeOfFiles(publishDirectory, packaged.media) + sizeOfFiles(publishDirectory, packaged.manifests);
        if (expectedUploadRate && *expectedUploadRate > 0)
            progress.stageETA = double(progress.uploadTotalBytes) / *expectedUploadRate;
        report(progress);
        poster = review(posterOutcome.proposal(posterRung.file, info.durationSeconds, top.rung.height));
        checkCancellation();
    }

    checkCancellation();
    auto now = wallNow();
    VideoMetadata metadata{
        .details = details,
        .poster = poster ? std::optional<PosterFile>(PosterFile{poster->name, poster->size()}) : std::nullopt,
        .duration = std::round(info.durationSeconds * 1000) / 1000,
        .size = size,
        .created = created.value_or(now),
        .updated = now,
        .audio = inspection.audio.empty() ? VideoAudio(NoAudioTrack{}) : VideoAudio(AudioTrack{audioLoudness}),
        .unknownAudioLoudness = std::nullopt,
    };
    if (poster) writePosterFiles(publishDirectory, *poster);
    writeFileAtomically(publishDirectory / "video.json", metadata.encoded());

    fs::remove_all(work.url / "intermediate");
    checkCancellation();
    Built built{packaged.media, poster, posterOutcome.selectionError, metadata, packaged.manifests};
    std::uint64_t bytes = sizeOfFiles(publishDirectory, built.media) + (poster ? 2 * poster->jpeg.size() : 0) +
                          fs::file_size(publishDirectory / "video.json") +
                          sizeOfFiles(publishDirectory, built.manifests);
    remover.release();
    return std::make_shared<BuiltFolder>(std::move(built), publishDirectory, bytes, std::move(work));
}

}  // namespace vorlen
