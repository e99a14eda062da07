#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/base/Dates.hpp"
#include "core/batch/BulkReferenceIndex.hpp"
#include "core/publish/AudioLoudness.hpp"
#include "core/publish/VideoDetails.hpp"
#include "core/publish/VideoMetadata.hpp"
#include "core/vimeo/VimeoVideo.hpp"

namespace vorlen {

namespace vimeoDecision {
struct Imported {
    std::string folder;
    bool operator==(const Imported&) const = default;
};
struct Available {
    VideoVisibility visibility = VideoVisibility::publicVideo;
    bool operator==(const Available&) const = default;
};
struct NotReady {
    bool operator==(const NotReady&) const = default;
};
}  // namespace vimeoDecision
using VimeoSyncDecision = std::variant<vimeoDecision::Imported, vimeoDecision::Available, vimeoDecision::NotReady>;

// Which videos whose privacy limits viewers the default selection takes.
struct VimeoSelectionRule {
    bool includesPrivateVideos = false;
    bool includesPasswordVideos = false;
};

// Every video of a Vimeo account beside what the site has of it. The reference
// "vimeo:" and the ID is the whole link between the two.
struct VimeoSyncPlan {
    static constexpr const char* limitedViewersNotice =
        "On Vimeo, this setting limits who can watch the video. In the site, anyone with the link can watch it.";

    struct Entry {
        VimeoVideo video;
        VimeoSyncDecision decision;
        std::optional<AudioLoudness> audioLoudness;  // of the imported folder
    };

    VimeoAccount account;
    std::vector<Entry> entries;
    SystemTime readAt;
    AudioLoudness siteAudioLoudness = AudioLoudness::broadcast;

    static std::string referenceOf(const std::string& videoID) { return "vimeo:" + videoID; }
    // In the order of the list; `folders` as a run's start finds them.
    static VimeoSyncPlan make(VimeoAccount account, const std::vector<VimeoVideo>& videos, SystemTime readAt,
                              const std::vector<BulkBucketFolder>& folders, AudioLoudness siteAudioLoudness);

    // The site's visibility for a privacy on Vimeo: public only for "anybody".
    static VideoVisibility defaultVisibility(const VimeoPrivacy& privacy);
    // True for the privacies that keep some people from watching.
    static bool limitsViewers(const VimeoPrivacy& privacy);
    static bool isPasswordPrivacy(const VimeoPrivacy& privacy) { return privacy.kind == VimeoPrivacy::Kind::password; }

    // Selectable: neither imported nor unready, and with a file on Vimeo or here.
    static bool canBeSelected(const Entry& entry, bool hasLocalFile);
    // The default selection: selectable, not imported, and not limiting viewers
    // unless the rule takes that kind of privacy.
    static bool selectedByDefault(const Entry& entry, bool hasLocalFile, const VimeoSelectionRule& rule);
    bool hasDifferentAudioLoudness(const Entry& entry) const;
};

}  // namespace vorlen
