#include "app/ViewersModel.hpp"

#include <algorithm>

#include "app/ViewerWords.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::app {

std::string ViewerRow::accessText(const std::string& dateText) const {
    switch (access) {
        case Access::invite: return "Invite expires " + dateText;
        case Access::expiredInvite: return "Invite expired " + dateText;
        case Access::passkey: return "Passkey since " + dateText;
        case Access::newer: return ViewerWords::newerViewer;
        case Access::unreadable: return problem.value_or("");
    }
    return "";
}

std::shared_ptr<ViewersModel> ViewersModel::make(std::shared_ptr<ViewerService> service, MainQueue& mainQueue, Clock now) {
    return std::shared_ptr<ViewersModel>(new ViewersModel(std::move(service), mainQueue, std::move(now)));
}

void ViewersModel::changed() {
    for (const auto& observer : observers_) observer();
}

const ViewerRow* ViewersModel::row(const ViewerID& id) const {
    const auto found = std::find_if(rows_.begin(), rows_.end(), [&](const auto& row) { return row.id == id; });
    return found == rows_.end() ? nullptr : &*found;
}

void ViewersModel::forgetInvitation() {
    invitation_.reset();
    changed();
}

void ViewersModel::run(std::function<Ending(ViewerService&)> work) {
    if (work_.isRunning()) return;
    problem_.reset();
    work_.run(
        weak_from_this(), [work = std::move(work), service = service_] { return work(*service); },
        [](ViewersModel& self, const std::string& words) {
            self.problem_ = words;
            self.changed();
        });
    changed();
}

void ViewersModel::showList(std::vector<StoredViewer> viewers) {
    const auto now = now_();
    viewers_ = std::move(viewers);
    rows_.clear();
    for (const auto& stored : viewers_) {
        ViewerRow row{stored.id, {}, ViewerRow::Access::unreadable, std::nullopt, stored.problem};
        if (stored.isNewer) row.access = ViewerRow::Access::newer;
        if (stored.viewer) {
            row.name = stored.viewer->name;
            if (const auto* invite = std::get_if<ViewerInvite>(&stored.viewer->access)) {
                row.access = invite->expires <= now ? ViewerRow::Access::expiredInvite : ViewerRow::Access::invite;
                row.date = invite->expires;
            } else {
                row.access = ViewerRow::Access::passkey;
                row.date = std::get<ViewerPasskey>(stored.viewer->access).created;
            }
        }
        rows_.push_back(std::move(row));
    }
    isLoaded_ = true;
    changed();
}

void ViewersModel::load() {
    run([](ViewerService& service) {
        return [viewers = service.list(), isPrivate = service.isPrivate()](ViewersModel& self) {
            self.isPrivate_ = isPrivate;
            self.showList(viewers);
        };
    });
}

void ViewersModel::setPrivate(bool isPrivate) {
    run([isPrivate](ViewerService& service) {
        service.setPrivate(isPrivate);
        return [isPrivate](ViewersModel& self) {
            self.isPrivate_ = isPrivate;
            self.changed();
        };
    });
}

void ViewersModel::add(const std::string& name) {
    run([name](ViewerService& service) {
        auto invitation = service.add(name);
        return [invitation = std::move(invitation), viewers = service.list()](ViewersModel& self) {
            self.invitation_ = invitation;
            self.showList(viewers);
        };
    });
}

void ViewersModel::change(const ViewerID& id,
                          std::function<std::optional<ViewerInvitation>(ViewerService&, const StoredViewer&)> work) {
    const auto stored = std::find_if(viewers_.begin(), viewers_.end(), [&](const auto& each) { return each.id == id; });
    if (stored == viewers_.end()) return;
    if (!stored->viewer) {
        problem_ = stored->isNewer ? ViewerWords::newerViewer : stored->problem.value_or("");
        return changed();
    }
    run([stored = *stored, work = std::move(work)](ViewerService& service) -> Ending {
        std::optional<ViewerInvitation> invitation;
        std::optional<std::string> problem;
        try {
            invitation = work(service, stored);
        } catch (const VorlenError& error) {
            if (!error.is<failure::Conflict>()) throw;
            problem = SiteViewers::changedAfterRead;
        }
        return [invitation = std::move(invitation), problem = std::move(problem), viewers = service.list()](ViewersModel& self) {
            self.problem_ = problem;
            if (invitation) self.invitation_ = invitation;
            self.showList(viewers);
        };
    });
}

void ViewersModel::rename(const ViewerID& id, const std::string& name) {
    change(id, [name](ViewerService& service, const StoredViewer& stored) -> std::optional<ViewerInvitation> {
        service.rename(stored, name);
        return std::nullopt;
    });
}

void ViewersModel::renewInvite(const ViewerID& id) {
    change(id, [](ViewerService& service, const StoredViewer& stored) -> std::optional<ViewerInvitation> {
        return service.renewInvite(stored);
    });
}

void ViewersModel::remove(const ViewerID& id) {
    run([id](ViewerService& service) {
        service.remove(id);
        return [viewers = service.list()](ViewersModel& self) { self.showList(viewers); };
    });
}

}  // namespace vorlen::app
