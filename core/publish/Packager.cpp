#include "core/publish/Packager.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "core/base/Task.hpp"
#include "core/publish/ToolRunner.hpp"

namespace vorlen::Packager {

namespace fs = std::filesystem;

namespace {

// H.264 before HEVC, each in ladder order: players that cannot decode HEVC
// still find their rungs first.
std::vector<EncodedRung> orderedVideos(const PackageInputs& inputs) {
    auto videos = inputs.videos;
    std::stable_partition(videos.begin(), videos.end(),
                          [](const EncodedRung& video) { return video.rung.codec == VideoCodec::h264; });
    return videos;
}

std::string videoName(const EncodedRung& video) { return "v_" + video.rung.id; }
std::string audioName(const EncodedAudio& audio) { return "a_" + audio.rendition.name; }

std::string descriptor(const fs::path& input, const char* kind, const fs::path& output, const std::string& stream) {
    auto directory = (output / stream).string();
    return fmt::format("in={},stream={},init_segment={}/init.mp4,segment_template={}/$Number$.m4s,playlist_name={}.m3u8",
                       input.string(), kind, directory, directory, stream);
}

}  // namespace

std::vector<PackagedStream> streams(const PackageInputs& inputs) {
    std::vector<PackagedStream> result;
    for (const auto& video : orderedVideos(inputs)) result.push_back(PackagedStream{videoName(video)});
    for (const auto& audio : inputs.audios) result.push_back(PackagedStream{audioName(audio)});
    return result;
}

std::vector<std::string> arguments(const PackageInputs& inputs, const fs::path& output, double segmentSeconds) {
    std::vector<std::string> result;
    for (const auto& video : orderedVideos(inputs)) {
        result.push_back(descriptor(video.file, "video", output, videoName(video)));
    }
    for (const auto& audio : inputs.audios) {
        // Surround sits in a group of its own, so a stereo player never picks it by accident.
        const char* group = audio.rendition.channels > 2 ? "audio-surround" : "audio";
        result.push_back(descriptor(audio.file, "audio", output, audioName(audio)) +
                         fmt::format(",hls_group_id={},hls_name={}", group, audio.rendition.name));
    }
    result.insert(result.end(), {"--segment_duration", fmt::format("{}", segmentSeconds),
                                 "--hls_master_playlist_output", (output / "master.m3u8").string(),
                                 "--mpd_output", (output / "manifest.mpd").string(), "--generate_static_live_mpd"});
    return result;
}

std::vector<PackagedStream> package(const PackageInputs& inputs, const Tools& tools, const fs::path& output,
                                    double segmentSeconds) {
    auto packaged = streams(inputs);
    for (const auto& stream : packaged) fs::create_directories(output / stream.directoryName);
    checkCancellation();
    ToolRunner::run("packager", tools.packager, arguments(inputs, output, segmentSeconds));
    return packaged;
}

}  // namespace vorlen::Packager
