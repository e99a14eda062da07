#include "core/batch/BulkReferenceIndex.hpp"

#include "core/base/Text.hpp"

namespace vorlen {

namespace {

std::optional<std::string> trimmedReference(const std::optional<std::string>& reference) {
    if (!reference) return std::nullopt;
    auto text = trimmed(*reference);
    if (text.empty()) return std::nullopt;
    return text;
}

template <class Map>
bool heldByOther(const Map& claims, const std::string& key, std::int64_t item) {
    const auto found = claims.find(key);
    return found != claims.end() && found->second != item;
}

}  // namespace

BulkBucketFolder BulkBucketFolder::of(const LibraryVideo& video) {
    BulkBucketFolder folder{video.folder, std::nullopt, video.isComplete, std::nullopt};
    if (const auto* metadata = video.metadata()) {
        folder.reference = metadata->details.reference();
        if (const auto* track = metadata->audio ? std::get_if<AudioTrack>(&*metadata->audio) : nullptr)
            folder.audioLoudness = track->loudness;
    }
    return folder;
}

BulkReferenceIndex BulkReferenceIndex::make(const std::vector<BulkBucketFolder>& folders) {
    BulkReferenceIndex index;
    for (const auto& folder : folders) {
        const auto reference = trimmedReference(folder.reference);
        if (!reference) continue;
        if (!folder.hasManifest)
            index.interruptedFolders[*reference].push_back(folder.folder);
        else
            index.publishedFolders.emplace(*reference, folder.folder);
    }
    return index;
}

BulkRowDecision BulkReferenceIndex::decide(std::int64_t item, const std::optional<std::string>& givenReference,
                                           const BulkReplacement& replacement) {
    const auto reference = trimmedReference(givenReference);
    // The video of this folder exists and may be replaced by this item.
    auto replaceIn = [&](const std::string& folder) -> BulkRowDecision {
        if (replacedFolders.contains(folder)) return bulkDecision::Skip{folder};
        if (heldByOther(replacementClaims, folder, item) || (reference && heldByOther(claims, *reference, item)))
            return bulkDecision::Wait{};
        replacementClaims[folder] = item;
        if (reference) claims[*reference] = item;
        return bulkDecision::Replace{folder};
    };
    const auto published = reference ? publishedFolders.find(*reference) : publishedFolders.end();

    if (const auto* required = std::get_if<bulkReplacement::Required>(&replacement)) {
        if (required->folder) return replaceIn(*required->folder);
        if (!reference) return bulkDecision::NotFound{};
        if (published != publishedFolders.end()) return replaceIn(published->second);
        const auto claim = claims.find(*reference);
        if (claim != claims.end() && claim->second != item) return bulkDecision::Wait{};
        return bulkDecision::NotFound{};
    }
    if (!reference) return bulkDecision::Publish{};
    if (published != publishedFolders.end()) {
        if (std::holds_alternative<bulkReplacement::IfPublished>(replacement)) return replaceIn(published->second);
        return bulkDecision::Skip{published->second};
    }
    if (heldByOther(claims, *reference, item)) return bulkDecision::Wait{};
    claims[*reference] = item;
    const auto interrupted = interruptedFolders.find(*reference);
    if (interrupted == interruptedFolders.end()) return bulkDecision::Publish{};
    auto folders = std::move(interrupted->second);
    interruptedFolders.erase(interrupted);
    return bulkDecision::Redo{std::move(folders)};
}

void BulkReferenceIndex::finished(std::int64_t item, const std::optional<std::string>& givenReference,
                                  const std::optional<std::string>& publishedFolder,
                                  const std::optional<std::string>& replacedFolder) {
    std::erase_if(replacementClaims, [&](const auto& claim) { return claim.second == item; });
    if (replacedFolder) replacedFolders.insert(*replacedFolder);
    const auto reference = trimmedReference(givenReference);
    if (!reference) return;
    if (publishedFolder) publishedFolders.emplace(*reference, *publishedFolder);
    const auto claim = claims.find(*reference);
    if (claim != claims.end() && claim->second == item) claims.erase(claim);
}

}  // namespace vorlen
