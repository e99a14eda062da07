#include "app/LibraryEntry.hpp"

#include <algorithm>
#include <sstream>

#include "app/Screen.hpp"
#include "core/base/Text.hpp"

namespace vorlen::app {

LibraryEntry LibraryEntry::from(LibraryVideo video, const SiteSummary& site) {
    LibraryEntry entry;
    entry.title = video.folder;
    entry.page = linksFor(site, video.folder).page;
    if (const auto* metadata = video.metadata()) {
        entry.record = Record::valid;
        if (!metadata->details.title().empty()) entry.title = metadata->details.title();
        entry.visibility = metadata->details.visibility();
        entry.duration = metadata->duration;
        entry.created = metadata->created;
    } else if (const auto* unreadable = std::get_if<LibraryVideo::Unreadable>(&video.metadataFile)) {
        entry.record = Record::unreadable;
        entry.problem = unreadable->reason;
    } else {
        entry.visibility = VideoVisibility::publicVideo;
    }
    entry.video = std::move(video);
    return entry;
}

std::string rawValue(LibraryEntry::Record record) {
    switch (record) {
    case LibraryEntry::Record::valid: return "valid";
    case LibraryEntry::Record::missing: return "missing";
    case LibraryEntry::Record::unreadable: return "unreadable";
    }
    return {};
}

std::vector<LibraryEntry> arrangedEntries(std::vector<LibraryEntry> entries, LibraryOrder order, std::string_view search) {
    std::vector<std::string> words;
    std::istringstream terms{foldedForComparison(search)};
    for (std::string word; terms >> word;) words.push_back(word);
    if (!words.empty()) {
        std::erase_if(entries, [&](const LibraryEntry& entry) {
            const auto text = foldedForComparison(entry.title) + " " + entry.folder();
            return !std::all_of(words.begin(), words.end(), [&](const std::string& word) { return text.find(word) != std::string::npos; });
        });
    }
    if (order == LibraryOrder::newest) {
        // Videos without a date (no record) go last; the folder name settles ties.
        std::stable_sort(entries.begin(), entries.end(), [](const LibraryEntry& a, const LibraryEntry& b) {
            if (a.created != b.created) return b.created < a.created;
            return a.folder() < b.folder();
        });
    } else {
        std::vector<std::pair<std::string, std::size_t>> keys;
        for (std::size_t i = 0; i < entries.size(); ++i) keys.emplace_back(foldedForComparison(entries[i].title), i);
        std::stable_sort(keys.begin(), keys.end(), [&](const auto& a, const auto& b) {
            return a.first != b.first ? a.first < b.first : entries[a.second].folder() < entries[b.second].folder();
        });
        std::vector<LibraryEntry> sorted;
        for (const auto& [key, index] : keys) sorted.push_back(std::move(entries[index]));
        entries = std::move(sorted);
    }
    return entries;
}

}  // namespace vorlen::app
