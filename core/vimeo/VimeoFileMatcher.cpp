#include "core/vimeo/VimeoFileMatcher.hpp"

#include <algorithm>
#include <cmath>
#include <regex>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

bool durationsAgree(std::optional<double> video, std::optional<double> file) {
    return video && file && std::abs(*video - *file) < 1.0;
}

std::string nameOf(const VimeoLocalFile& file) { return file.url.filename().string(); }

std::string lengthText(std::optional<double> seconds) {
    return seconds ? clockText(*seconds) : "of an unknown length";
}

std::set<std::string> normalisedKeys(const std::filesystem::path& file) {
    std::set<std::string> keys;
    for (const auto& name : VimeoFileMatcher::fileKeys(file))
        if (auto key = VimeoFileMatcher::nameKey(name)) keys.insert(std::move(*key));
    return keys;
}

// The match of one video among the files that carry its title's key, before any
// file is found to fit other videos too.
VimeoFileMatch matchAmong(const VimeoVideo& video, const std::string& titleKey,
                          const std::vector<VimeoLocalFile>& candidates) {
    std::vector<VimeoLocalFile> agreeing;
    for (const auto& file : candidates)
        if (durationsAgree(video.duration, file.duration)) agreeing.push_back(file);
    if (agreeing.size() == 1) return vimeoFileMatch::Matched{agreeing.front(), {}};
    if (agreeing.size() > 1) {
        std::vector<VimeoLocalFile> inTitledFolder;
        for (const auto& file : agreeing)
            if (VimeoFileMatcher::nameKey(file.url.parent_path().filename().string()) == titleKey)
                inTitledFolder.push_back(file);
        if (inTitledFolder.size() == 1) return vimeoFileMatch::Matched{inTitledFolder.front(), {}};
        return vimeoFileMatch::Several{agreeing};
    }
    if (candidates.size() == 1 && (!video.duration || !candidates.front().duration))
        return vimeoFileMatch::Matched{candidates.front(), {VimeoFileDifference::duration}};
    return vimeoFileMatch::DurationDiffers{candidates};
}

std::string namesText(const std::vector<VimeoLocalFile>& files) {
    std::vector<std::string> names;
    for (const auto& file : files) names.push_back(nameOf(file));
    return joinedWithAnd(names);
}

}  // namespace

const std::set<std::string>& VimeoFileMatcher::videoExtensions() {
    static const std::set<std::string> extensions{"3gp", "avi", "dv",  "flv", "m2ts", "m4v", "mkv", "mov", "mp4",
                                                  "mpeg", "mpg", "mts", "mxf", "ogv", "ts",   "webm", "wmv"};
    return extensions;
}

std::optional<std::string> VimeoFileMatcher::nameKey(std::string_view text) {
    auto key = lettersAndDigits(foldedForComparison(text));
    if (key.empty()) return std::nullopt;
    return key;
}

std::vector<std::string> VimeoFileMatcher::fileKeys(const std::filesystem::path& file) {
    static const std::regex copyNumber(R"((.+) \(\d+\))");
    static const std::regex vimeoDownload(R"((\S+?)(_v\d+)?( \([^()]*\))?)");
    std::vector<std::string> keys{trimmed(file.stem().string())};
    std::smatch parts;
    std::string name = keys.front();
    if (std::regex_match(name, parts, copyNumber)) {
        name = parts[1].str();
        keys.push_back(name);
    }
    if (std::regex_match(name, parts, vimeoDownload) && parts[1].str() != name) keys.push_back(parts[1].str());
    return keys;
}

std::vector<std::filesystem::path> VimeoFileMatcher::scan(const std::vector<std::filesystem::path>& folders) {
    std::vector<std::filesystem::path> videos;
    for (const auto& folder : folders) {
        std::vector<std::filesystem::path> files;
        try {
            files = walkVisibleFiles(folder);
        } catch (const std::filesystem::filesystem_error& error) {
            throw VorlenError::source(
                fmt::format("Vorlen cannot read the folder \u201c{}\u201d.", error.path1().string()));
        }
        for (auto& file : files) {
            auto extension = asciiLowercased(file.extension().string());
            if (!extension.empty() && videoExtensions().contains(extension.substr(1)))
                videos.push_back(std::move(file));
        }
    }
    std::sort(videos.begin(), videos.end());
    return videos;
}

std::map<std::string, VimeoFileMatch> VimeoFileMatcher::match(const std::vector<VimeoVideo>& videos,
                                                              const std::vector<VimeoLocalFile>& files) {
    std::map<std::string, std::vector<VimeoLocalFile>> filesByKey;
    for (const auto& file : files)
        for (const auto& key : normalisedKeys(file.url)) filesByKey[key].push_back(file);

    std::map<std::string, VimeoFileMatch> matches;
    std::map<std::filesystem::path, std::vector<std::string>> videoIDsByFile;
    for (const auto& video : videos) {
        const auto titleKey = nameKey(video.title);
        const auto candidates = titleKey ? filesByKey.find(*titleKey) : filesByKey.end();
        if (candidates == filesByKey.end()) {
            matches[video.id] = vimeoFileMatch::NoFile{};
            continue;
        }
        auto found = matchAmong(video, *titleKey, candidates->second);
        if (const auto* matched = std::get_if<vimeoFileMatch::Matched>(&found))
            videoIDsByFile[matched->file.url].push_back(video.id);
        matches[video.id] = std::move(found);
    }

    for (const auto& video : videos) {
        const auto* matched = std::get_if<vimeoFileMatch::Matched>(&matches[video.id]);
        if (!matched) continue;
        const auto& sharers = videoIDsByFile[matched->file.url];
        if (sharers.size() < 2) continue;
        std::vector<std::string> others;
        std::copy_if(sharers.begin(), sharers.end(), std::back_inserter(others),
                     [&](const std::string& id) { return id != video.id; });
        matches[video.id] = vimeoFileMatch::Shared{matched->file, std::move(others)};
    }
    return matches;
}

VimeoFileMatch VimeoFileMatcher::chosen(const VimeoVideo& video, const VimeoLocalFile& file) {
    std::set<VimeoFileDifference> differences;
    const auto titleKey = nameKey(video.title);
    if (!titleKey || !normalisedKeys(file.url).contains(*titleKey)) differences.insert(VimeoFileDifference::name);
    if (!durationsAgree(video.duration, file.duration)) differences.insert(VimeoFileDifference::duration);
    return vimeoFileMatch::Matched{file, std::move(differences)};
}

std::optional<VimeoLocalFile> VimeoFileMatcher::settledFile(const VimeoFileMatch& match) {
    if (const auto* matched = std::get_if<vimeoFileMatch::Matched>(&match)) return matched->file;
    return std::nullopt;
}

std::optional<std::string> VimeoFileMatcher::text(const VimeoFileMatch& match, const VimeoVideo& video,
                                                  bool chosenByHand) {
    if (const auto* matched = std::get_if<vimeoFileMatch::Matched>(&match)) {
        if (chosenByHand) {
            std::string words = "You chose this file: " + nameOf(matched->file);
            if (!matched->differences.empty()) words += "\nCheck that this is the file of the video.";
            if (matched->differences.contains(VimeoFileDifference::name))
                words += "\nThe file name is not the same as the title.";
            return words;
        }
        if (matched->differences.contains(VimeoFileDifference::duration) && !matched->file.duration)
            return fmt::format("Vorlen cannot read the duration of \u201c{}\u201d. Choose the file of this video.",
                               nameOf(matched->file));
        return std::nullopt;
    }
    if (const auto* several = std::get_if<vimeoFileMatch::Several>(&match))
        return fmt::format(
            "These files have the title and the duration of the video: {}. Choose the file of this video.",
            namesText(several->files));
    if (const auto* shared = std::get_if<vimeoFileMatch::Shared>(&match))
        return fmt::format(
            "\u201c{}\u201d has the title and the duration of {} videos. Choose the file of each video, or import only "
            "one of them.",
            nameOf(shared->file), shared->otherVideoIDs.size() + 1);
    if (const auto* differs = std::get_if<vimeoFileMatch::DurationDiffers>(&match)) {
        if (differs->files.size() == 1)
            return fmt::format(
                "\u201c{}\u201d has the title, but it is {}, and the video on Vimeo is {}. Choose the file of this video.",
                nameOf(differs->files.front()), lengthText(differs->files.front().duration), lengthText(video.duration));
        return fmt::format(
            "{} files have the title, but none has the duration of the video on Vimeo, {}. Choose the file of this "
            "video.",
            differs->files.size(), lengthText(video.duration));
    }
    return std::nullopt;
}

}  // namespace vorlen
