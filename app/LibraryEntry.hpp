#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/LocalSettings.hpp"
#include "core/library/LibraryVideo.hpp"

namespace vorlen::app {

// How the library lists its videos.
enum class LibraryOrder { newest, title };

// One video of the library as the screens and the command line show it.
struct LibraryEntry {
    enum class Record { valid, missing, unreadable };

    LibraryVideo video;
    // The record's title; the folder's name when it has none.
    std::string title;
    Record record = Record::missing;
    // What the record says, or what a folder without one counts as; unknown for an unreadable record.
    std::optional<VideoVisibility> visibility;
    std::optional<double> duration;
    std::optional<SystemTime> created;
    // Why the record cannot be read.
    std::optional<std::string> problem;
    std::string page;

    const std::string& folder() const { return video.folder; }
    static LibraryEntry from(LibraryVideo video, const SiteSummary& site);
};

// "valid", "missing", "unreadable"
std::string rawValue(LibraryEntry::Record record);

// The entries in the order asked for, keeping those whose title or folder holds
// every word of the search (without regard to case).
std::vector<LibraryEntry> arrangedEntries(std::vector<LibraryEntry> entries, LibraryOrder order, std::string_view search = {});

}  // namespace vorlen::app
