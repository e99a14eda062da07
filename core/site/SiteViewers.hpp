#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/site/Viewer.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// A viewer file as it was read, with the ETag that later changes are conditioned on.
struct StoredViewer {
    ViewerID id;
    std::string etag;
    std::optional<Viewer> viewer;         // absent when the file cannot be read by this version
    std::optional<std::string> problem;  // why, when it is absent
    bool isNewer = false;                 // a later version of Vorlen wrote it
};

// A viewer with the one-time link that carries the invite's secret; the link is
// shown once and kept nowhere.
struct ViewerInvitation {
    StoredViewer viewer;
    std::string link;
};

// The viewers of a private site, one small JSON file each under
// "_vorlen/viewers/". The page Worker writes the same files when a person
// redeems an invite, so every change here is conditioned on the file's ETag,
// except deletion: a viewer goes even if the file changed.
class SiteViewers {
public:
    static constexpr std::int64_t inviteLifetimeSeconds = 604800;  // seven days
    static constexpr const char* newerVersion =
        "This viewer is from a newer version of Vorlen. Update the app to change it.";
    static constexpr const char* changedAfterRead =
        "The viewer changed after Vorlen read the list, for example because the person made a passkey. Vorlen reads "
        "the list again.";

    // pageOrigin: "https://" and the page hostname, where "/_invite/" links lead.
    SiteViewers(std::shared_ptr<Bucket> bucket, std::string pageOrigin)
        : bucket_(std::move(bucket)), pageOrigin_(std::move(pageOrigin)) {}

    static std::string keyOf(const ViewerID& id);

    // Every viewer, sorted by name (then ID); an unreadable file is listed with its problem.
    std::vector<StoredViewer> list() const;
    StoredViewer read(const ViewerID& id) const;
    ViewerInvitation add(const std::string& name) const;
    // A new secret: the old link stops working. A viewer with a passkey gets an invite in its place.
    ViewerInvitation renewInvite(const StoredViewer& stored) const;
    // The same name after trimming changes nothing and writes nothing.
    StoredViewer rename(const StoredViewer& stored, const std::string& name) const;
    void remove(const ViewerID& id) const;

    // Whether every page of the site needs a signed-in viewer: the site's settings say so.
    bool isPrivate() const;
    void setPrivate(bool isPrivate) const;

private:
    StoredViewer readFile(const ViewerID& id, const TaggedObject& object) const;
    const Viewer& changeable(const StoredViewer& stored) const;
    StoredViewer write(const ViewerID& id, const Viewer& viewer, const WriteCondition& condition) const;
    std::pair<ViewerInvite, std::string> newInvite() const;

    std::shared_ptr<Bucket> bucket_;
    std::string pageOrigin_;
};

}  // namespace vorlen
