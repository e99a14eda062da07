#include "core/library/AudioReplacement.hpp"

#include "core/base/Log.hpp"

namespace vorlen {

BuiltAudio::BuiltAudio(std::filesystem::path directory, std::vector<std::string> files, std::uint64_t byteCount,
                       WorkDirectory work, std::optional<AudioLoudness> loudness)
    : directory_(std::move(directory)), files_(std::move(files)), byteCount_(byteCount), work_(std::move(work)),
      loudness_(loudness) {}

BuiltAudio::~BuiltAudio() {
    std::error_code error;
    std::filesystem::remove_all(work_.url, error);
    if (error) log().warn("cannot remove {}: {}", work_.url.string(), error.message());
}

}  // namespace vorlen
