#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/vimeo/VimeoVideo.hpp"

namespace vorlen {

// A video file on this computer that may be the original of a Vimeo video.
struct VimeoLocalFile {
    std::filesystem::path url;
    std::optional<double> duration;  // seconds; absent when the file cannot be read
    bool operator==(const VimeoLocalFile&) const = default;
};

// How a matched file is unlike its video.
enum class VimeoFileDifference { name, duration };

namespace vimeoFileMatch {
struct Matched {
    VimeoLocalFile file;
    std::set<VimeoFileDifference> differences;
    bool operator==(const Matched&) const = default;
};
struct DurationDiffers {  // files have the title, none the duration
    std::vector<VimeoLocalFile> files;
    bool operator==(const DurationDiffers&) const = default;
};
struct Shared {  // one file fits this and other videos
    VimeoLocalFile file;
    std::vector<std::string> otherVideoIDs;
    bool operator==(const Shared&) const = default;
};
struct Several {  // several files have the title and the duration
    std::vector<VimeoLocalFile> files;
    bool operator==(const Several&) const = default;
};
struct NoFile {
    bool operator==(const NoFile&) const = default;
};
}  // namespace vimeoFileMatch
using VimeoFileMatch = std::variant<vimeoFileMatch::Matched, vimeoFileMatch::DurationDiffers, vimeoFileMatch::Shared,
                                    vimeoFileMatch::Several, vimeoFileMatch::NoFile>;

// Pairs the files of a folder that a person downloaded from Vimeo by hand with the
// videos of the account, by name and duration.
struct VimeoFileMatcher {
    // The lower-case extensions, without the dot, that the scan keeps.
    static const std::set<std::string>& videoExtensions();

    // The key of a title or a file name: folded without case, diacritics and width,
    // then only letters and digits. Absent when nothing is left.
    static std::optional<std::string> nameKey(std::string_view text);
    // The keys of a file: its name without extension, that name without a browser's
    // copy number " (2)", and the token of a Vimeo download name "token_v2 (note)".
    static std::vector<std::string> fileKeys(const std::filesystem::path& file);

    // The video files in these folders and their subfolders, hidden ones skipped,
    // sorted by path. A folder that cannot be read fails with its words.
    static std::vector<std::filesystem::path> scan(const std::vector<std::filesystem::path>& folders);

    // Every video's match by its ID, for all videos and files at once.
    static std::map<std::string, VimeoFileMatch> match(const std::vector<VimeoVideo>& videos,
                                                       const std::vector<VimeoLocalFile>& files);
    // A file that the person chose for this video.
    static VimeoFileMatch chosen(const VimeoVideo& video, const VimeoLocalFile& file);

    // The file that an import uses, when the match settles one.
    static std::optional<VimeoLocalFile> settledFile(const VimeoFileMatch& match);
    // What a person reads of a match; absent for a plain match and for no file.
    static std::optional<std::string> text(const VimeoFileMatch& match, const VimeoVideo& video, bool chosenByHand);
};

}  // namespace vorlen
