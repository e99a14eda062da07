#pragma once

#include <string>

#include <fmt/format.h>

namespace vorlen::app {

// What the library tells a person after a change, as a title and a message.
namespace LibraryWords {

inline const std::string pagesCatchUp = "The pages show the new videos in a few minutes.";
inline const std::string posterNote =
    "The page of the video shows the new poster. But a site that uses the poster.jpg address of the video can show "
    "the old poster for up to one day. ";

inline std::string oldFolderRemainsTitle(const std::string& title) {
    return fmt::format("\u201c{}\u201d Has a New Link, but Its Old Folder Remains", title);
}
inline std::string oldFolderRemains(const std::string& folder, const std::string& failure) {
    return fmt::format("Vorlen could not delete all of the old folder \u201c{}\u201d. Delete it in the library, so that "
                       "its old link cannot work. ({})",
                       folder, failure);
}
inline std::string oldFilesInCacheTitle(const std::string& title) {
    return fmt::format("The Old Files of \u201c{}\u201d Can Stay in the Cache", title);
}
inline std::string oldFilesInCache(const std::string& failure) {
    return "The old link stops working in a few minutes. But Cloudflare can keep copies of the video files for some "
           "time, and a person who knows their addresses can still download them. " + failure;
}
inline std::string oldPosterInCacheTitle(const std::string& title) {
    return fmt::format("The Old Poster of \u201c{}\u201d Can Stay in the Cache", title);
}
inline std::string posterRefusedTitle(const std::string& title) {
    return fmt::format("Cannot Change the Poster of \u201c{}\u201d", title);
}
inline std::string oldVideoInCacheTitle(const std::string& title) {
    return fmt::format("The Old Video of \u201c{}\u201d Can Stay in the Cache", title);
}
inline std::string oldVideoInCache(const std::string& failure) {
    return "The page shows the new video in a few minutes. But Cloudflare can keep copies of the old files for some "
           "time, and a person who knows their addresses can still download them. " + failure;
}
// After a replacement that switched, what did not follow.
inline std::string replacedWithNotesTitle(const std::string& title) {
    return fmt::format("\u201c{}\u201d Plays the New Video", title);
}
// A re-import of the audio: the warning before it, and after the switch what did not follow.
inline const std::string audioReimportWarning =
    "A person who is watching can see an error. A new load of the page fixes it, in at most 5 minutes.";
inline std::string newAudioWithNotesTitle(const std::string& title) {
    return fmt::format("\u201c{}\u201d Plays the New Audio", title);
}
inline std::string oldAudioInCacheTitle(const std::string& title) {
    return fmt::format("The Old Audio of \u201c{}\u201d Can Stay in the Cache", title);
}
inline std::string oldAudioInCache(const std::string& failure) {
    return "The page plays the new audio in a few minutes. But Cloudflare can keep copies of the old audio files for some "
           "time, and a person who knows their addresses can still download them. " + failure;
}
inline std::string oldSubtitlesStayTitle(const std::string& title) {
    return fmt::format("The Old Subtitles of \u201c{}\u201d Stay in the Bucket", title);
}
inline std::string oldSubtitlesStay(const std::string& failure) {
    return fmt::format("The player no longer uses them. But a person who knows their addresses can still download them. "
                       "A new file for the video removes them. ({})", failure);
}
inline std::string oldSubtitlesInCacheTitle(const std::string& title) {
    return fmt::format("The Old Subtitles of \u201c{}\u201d Can Stay in the Cache", title);
}
inline std::string oldSubtitlesInCache(const std::string& failure) {
    return "The player stops using them in a few minutes. But Cloudflare can keep a copy of each file for some time, "
           "and a person who knows its address can still download it. " + failure;
}
inline std::string deleteRefusedTitle(const std::string& title) { return fmt::format("Cannot Delete \u201c{}\u201d", title); }

}  // namespace LibraryWords

}  // namespace vorlen::app
