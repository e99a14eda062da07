#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "core/library/LibraryVideo.hpp"
#include "core/publish/AudioLoudness.hpp"

namespace vorlen {

// What the start of a run knows of one folder of the bucket.
struct BulkBucketFolder {
    std::string folder;
    std::optional<std::string> reference;
    bool hasManifest = false;  // a finished video
    std::optional<AudioLoudness> audioLoudness;

    static BulkBucketFolder of(const LibraryVideo& video);
};

// The rule by which an item may replace a published video.
namespace bulkReplacement {
struct Required { std::optional<std::string> folder; };  // the video must exist and is re-imported
struct None {};                                          // never replace
struct IfPublished {};                                   // replace if it exists, else publish
}  // namespace bulkReplacement
using BulkReplacement = std::variant<bulkReplacement::Required, bulkReplacement::None, bulkReplacement::IfPublished>;

namespace bulkDecision {
struct Redo { std::vector<std::string> interruptedFolders; bool operator==(const Redo&) const = default; };
struct Skip { std::string folder; bool operator==(const Skip&) const = default; };
struct Replace { std::string folder; bool operator==(const Replace&) const = default; };
struct Publish { bool operator==(const Publish&) const = default; };
struct NotFound { bool operator==(const NotFound&) const = default; };
struct Wait { bool operator==(const Wait&) const = default; };
}  // namespace bulkDecision
using BulkRowDecision = std::variant<bulkDecision::Redo, bulkDecision::Skip, bulkDecision::Replace,
                                     bulkDecision::Publish, bulkDecision::NotFound, bulkDecision::Wait>;

// Which references the site and the run hold, so that no reference is published
// twice: the bucket's finished and interrupted folders, and the claims of the
// items in work. Not locked by itself; the run's lock guards it.
struct BulkReferenceIndex {
    std::map<std::string, std::string> publishedFolders;                   // reference → folder
    std::map<std::string, std::vector<std::string>> interruptedFolders;   // reference → folders without manifest
    std::map<std::string, std::int64_t> claims;                           // reference → item
    std::map<std::string, std::int64_t> replacementClaims;                // folder → item
    std::set<std::string> replacedFolders;

    // In list order, so that the first finished folder of a reference wins.
    static BulkReferenceIndex make(const std::vector<BulkBucketFolder>& folders);

    // The decision for an item takes its claims at once, so later items see them.
    BulkRowDecision decide(std::int64_t item, const std::optional<std::string>& reference,
                           const BulkReplacement& replacement);
    // An item ended: its claims go, and what it published or replaced is known.
    void finished(std::int64_t item, const std::optional<std::string>& reference,
                  const std::optional<std::string>& publishedFolder, const std::optional<std::string>& replacedFolder);
};

}  // namespace vorlen
