#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/publish/AudioLoudness.hpp"
#include "core/publish/BuiltFolder.hpp"
#include "core/publish/VideoMetadata.hpp"

namespace vorlen {

// New audio for a published video, encoded and packaged on the local disk in the
// segment layout of the audio it replaces. It owns its work directory and removes
// it when the last holder lets go.
class BuiltAudio {
public:
    // The loudness goes into the video's record; absent, the record tells of audio of unknown loudness.
    BuiltAudio(std::filesystem::path directory, std::vector<std::string> files, std::uint64_t byteCount,
               WorkDirectory work, std::optional<AudioLoudness> loudness = std::nullopt);
    ~BuiltAudio();
    BuiltAudio(const BuiltAudio&) = delete;
    BuiltAudio& operator=(const BuiltAudio&) = delete;

    // The files to upload, relative to directory().
    const std::filesystem::path& directory() const { return directory_; }
    const std::vector<std::string>& files() const { return files_; }
    std::uint64_t byteCount() const { return byteCount_; }
    const WorkDirectory& work() const { return work_; }
    std::optional<AudioLoudness> loudness() const { return loudness_; }

private:
    std::filesystem::path directory_;
    std::vector<std::string> files_;
    std::uint64_t byteCount_;
    WorkDirectory work_;
    std::optional<AudioLoudness> loudness_;
};

// The audio that a published video plays: its media playlist's path in the folder.
struct PublishedAudio {
    std::string path;
    bool operator==(const PublishedAudio&) const = default;
};

// An audio replacement that switched; the failures after the switch are notes.
struct AudioReplacement {
    std::optional<double> uploadRate;
    std::optional<VideoMetadata> metadata;
    std::optional<std::string> metadataFailure;
    std::optional<std::string> oldFilesFailure;

    // What did not follow the switch, in words for the person.
    std::vector<std::string> notes() const;
};

}  // namespace vorlen
