#include "core/library/Catalog.hpp"

#include <algorithm>

#include "core/base/Json.hpp"
#include "core/net/RetryPolicy.hpp"

namespace vorlen {

std::vector<Catalog::Entry> Catalog::entriesFrom(const std::vector<LibraryVideo>& videos) {
    std::vector<Entry> entries;
    for (const auto& video : videos) {
        if (!video.isComplete || video.isUnreadable()) continue;
        Entry entry;
        entry.folder = video.folder;
        entry.title = video.folder;
        if (const auto* metadata = video.metadata()) {
            if (!metadata->details.title().empty()) entry.title = metadata->details.title();
            entry.description = metadata->details.description();
            if (metadata->poster) entry.poster = metadata->poster->name;
            entry.duration = metadata->duration;
            entry.size = metadata->size;
            entry.created = metadata->created;
            entry.updated = metadata->updated;
            entry.visibility = metadata->details.visibility();
        }
        entries.push_back(std::move(entry));
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.folder < b.folder; });
    return entries;
}

std::string Catalog::encoded() const {
    Json videos = Json::array();
    for (const auto& entry : entries) {
        Json object{{"folder", entry.folder}, {"title", entry.title}, {"visibility", rawValue(entry.visibility)}};
        if (entry.description) object["description"] = *entry.description;
        if (entry.poster) object["poster"] = *entry.poster;
        if (entry.duration) object["duration"] = *entry.duration;
        if (entry.size) {
            object["width"] = entry.size->width;
            object["height"] = entry.size->height;
        }
        if (entry.created) object["created"] = formatIso8601(*entry.created);
        if (entry.updated) object["updated"] = formatIso8601(*entry.updated);
        videos.push_back(std::move(object));
    }
    return encodeJson(Json{{"version", version}, {"videos", std::move(videos)}}, true);
}

void rebuildCatalog(const Library& library) {
    const Catalog catalog{Catalog::entriesFrom(library.read())};
    const auto body = catalog.encoded();
    const RetryPolicy retry{library.options.maxRetries, library.options.retryDelay, {}};
    retry.run([&](std::int64_t) {
        return library.destination.bucket->put(Catalog::key, RequestBody::bytes(body), {"application/json", "no-cache", {}});
    });
}

}  // namespace vorlen
