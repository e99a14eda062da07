#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/LocalSettings.hpp"
#include "app/SecretStore.hpp"
#include "core/net/Endpoints.hpp"
#include "core/site/SiteViewers.hpp"

namespace vorlen::app {

// Who may watch a private site. A conditional write that meets a viewer changed
// since it was read fails with `conflict`: show SiteViewers::changedAfterRead
// and read the list again.
class ViewerService {
public:
    virtual ~ViewerService() = default;
    virtual std::vector<StoredViewer> list() = 0;
    virtual StoredViewer read(const ViewerID& id) = 0;
    virtual ViewerInvitation add(const std::string& name) = 0;
    virtual ViewerInvitation renewInvite(const StoredViewer& viewer) = 0;
    virtual StoredViewer rename(const StoredViewer& viewer, const std::string& name) = 0;
    virtual void remove(const ViewerID& id) = 0;
    // Whether every page needs a signed-in viewer.
    virtual bool isPrivate() = 0;
    virtual void setPrivate(bool isPrivate) = 0;
};

// The viewers in the site's own bucket.
class CoreViewerService final : public ViewerService {
public:
    explicit CoreViewerService(SiteViewers viewers) : viewers_(std::move(viewers)) {}
    // The site's folder, or its R2 bucket with the credentials that this computer keeps for it.
    static std::shared_ptr<CoreViewerService> open(const LocalSite& site, std::shared_ptr<SecretStore> secrets,
                                                   const Endpoints& endpoints);

    std::vector<StoredViewer> list() override { return viewers_.list(); }
    StoredViewer read(const ViewerID& id) override { return viewers_.read(id); }
    ViewerInvitation add(const std::string& name) override { return viewers_.add(name); }
    ViewerInvitation renewInvite(const StoredViewer& viewer) override { return viewers_.renewInvite(viewer); }
    StoredViewer rename(const StoredViewer& viewer, const std::string& name) override {
        return viewers_.rename(viewer, name);
    }
    void remove(const ViewerID& id) override { viewers_.remove(id); }
    bool isPrivate() override { return viewers_.isPrivate(); }
    void setPrivate(bool isPrivate) override { viewers_.setPrivate(isPrivate); }

private:
    SiteViewers viewers_;
};

}  // namespace vorlen::app
