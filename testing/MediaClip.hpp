#pragma once

#include <filesystem>
#include <string>

namespace vorlen::testing {

// A folder of small clips that tests make with ffmpeg's lavfi sources; removed
// with the object.
class ClipFolder {
public:
    ClipFolder();
    ~ClipFolder();
    ClipFolder(const ClipFolder&) = delete;
    ClipFolder& operator=(const ClipFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

    // Runs "ffmpeg -v error -y <arguments> <folder>/<name>" and returns the file,
    // or throws with ffmpeg's exit status. Arguments are shell words.
    std::filesystem::path make(const std::string& name, const std::string& arguments) const;

private:
    std::filesystem::path path_;
};

// A lavfi test picture and a tone, as ffmpeg input arguments.
std::string lavfiVideo(int width, int height, double seconds, const std::string& rate = "25");
std::string lavfiTone(double seconds, int channels = 2);
std::string lavfiSilence(double seconds);

// Moves an MP4's user data (where a cover picture lives) ahead of its tracks,
// so that ffprobe lists the cover as the first stream, as some taggers leave it.
void moveUserDataFirst(const std::filesystem::path& file);

}  // namespace vorlen::testing
