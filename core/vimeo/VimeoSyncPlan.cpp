#include "core/vimeo/VimeoSyncPlan.hpp"

#include <map>

#include "core/base/Text.hpp"

namespace vorlen {

VimeoSyncPlan VimeoSyncPlan::make(VimeoAccount account, const std::vector<VimeoVideo>& videos, SystemTime readAt,
                                  const std::vector<BulkBucketFolder>& folders, AudioLoudness siteAudioLoudness) {
    const auto index = BulkReferenceIndex::make(folders);
    std::map<std::string, std::optional<AudioLoudness>> loudnessOf;
    for (const auto& folder : folders) loudnessOf.emplace(folder.folder, folder.audioLoudness);

    VimeoSyncPlan plan{std::move(account), {}, readAt, siteAudioLoudness};
    plan.entries.reserve(videos.size());
    for (const auto& video : videos) {
        Entry entry{video, vimeoDecision::NotReady{}, std::nullopt};
        if (const auto found = index.publishedFolders.find(trimmed(referenceOf(video.id)));
            found != index.publishedFolders.end()) {
            entry.decision = vimeoDecision::Imported{found->second};
            entry.audioLoudness = loudnessOf[found->second];
        } else if (video.isReady) {
            entry.decision = vimeoDecision::Available{defaultVisibility(video.privacy)};
        }
        plan.entries.push_back(std::move(entry));
    }
    return plan;
}

VideoVisibility VimeoSyncPlan::defaultVisibility(const VimeoPrivacy& privacy) {
    return privacy.kind == VimeoPrivacy::Kind::anybody ? VideoVisibility::publicVideo : VideoVisibility::unlisted;
}

bool VimeoSyncPlan::limitsViewers(const VimeoPrivacy& privacy) {
    switch (privacy.kind) {
        case VimeoPrivacy::Kind::anybody:
        case VimeoPrivacy::Kind::unlisted:
        case VimeoPrivacy::Kind::disable:  // hidden from Vimeo's own pages, yet anyone may watch where it is embedded
            return false;
        case VimeoPrivacy::Kind::nobody:
        case VimeoPrivacy::Kind::contacts:
        case VimeoPrivacy::Kind::users:
        case VimeoPrivacy::Kind::password:
        case VimeoPrivacy::Kind::other:  // a setting that this version does not know may well limit viewers
            return true;
    }
    return true;
}

bool VimeoSyncPlan::canBeSelected(const Entry& entry, bool hasLocalFile) {
    return std::holds_alternative<vimeoDecision::Available>(entry.decision) &&
           (hasLocalFile || entry.video.file.has_value());
}

bool VimeoSyncPlan::selectedByDefault(const Entry& entry, bool hasLocalFile, const VimeoSelectionRule& rule) {
    if (!canBeSelected(entry, hasLocalFile)) return false;
    if (!limitsViewers(entry.video.privacy)) return true;
    return isPasswordPrivacy(entry.video.privacy) ? rule.includesPasswordVideos : rule.includesPrivateVideos;
}

bool VimeoSyncPlan::hasDifferentAudioLoudness(const Entry& entry) const {
    return std::holds_alternative<vimeoDecision::Imported>(entry.decision) && entry.audioLoudness &&
           *entry.audioLoudness != siteAudioLoudness;
}

}  // namespace vorlen
