#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/MainQueue.hpp"
#include "app/ModelWork.hpp"
#include "app/ViewerService.hpp"
#include "core/base/Clock.hpp"

namespace vorlen::app {

// One viewer as the list shows it.
struct ViewerRow {
    enum class Access { invite, expiredInvite, passkey, newer, unreadable };

    ViewerID id;
    std::string name;  // empty for a file that this version cannot read
    Access access = Access::invite;
    std::optional<SystemTime> date;        // when the invite expires, or since when the passkey signs in
    std::optional<std::string> problem;  // why a file cannot be read
    bool isChangeable() const { return access != Access::newer && access != Access::unreadable; }

    // "Invite expires 15 Jan 2026", "Passkey since 15 Jan 2026": the date in the screen's own words.
    std::string accessText(const std::string& dateText) const;
};

// The viewers of one site as their window shows them: the list read in the
// background, and each change made on a task and followed by a fresh list. A
// change that meets a viewer changed since the list was read (the person made a
// passkey, say) tells so and reads the list again.
class ViewersModel : public std::enable_shared_from_this<ViewersModel> {
public:
    using Clock = std::function<SystemTime()>;

    static std::shared_ptr<ViewersModel> make(std::shared_ptr<ViewerService> service, MainQueue& mainQueue,
                                              Clock now = wallNow);

    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    bool isLoaded() const { return isLoaded_; }
    bool isWorking() const { return work_.isRunning(); }
    const std::vector<ViewerRow>& rows() const { return rows_; }
    const ViewerRow* row(const ViewerID& id) const;
    // The words of the last failure, until the next change starts.
    const std::optional<std::string>& problem() const { return problem_; }
    // The link of an invite just made, shown once: forgetInvitation drops it.
    const std::optional<ViewerInvitation>& invitation() const { return invitation_; }
    void forgetInvitation();
    // Whether every page of the site needs a signed-in viewer, as last read.
    bool isPrivate() const { return isPrivate_; }

    void load();
    void setPrivate(bool isPrivate);
    void add(const std::string& name);
    void rename(const ViewerID& id, const std::string& name);
    // A new link: the old one and any passkey stop working.
    void renewInvite(const ViewerID& id);
    // Goes even if the file changed since the list was read (after ViewerWords' question).
    void remove(const ViewerID& id);

private:
    ViewersModel(std::shared_ptr<ViewerService> service, MainQueue& mainQueue, Clock now)
        : service_(std::move(service)), now_(std::move(now)), work_(mainQueue) {}
    using Ending = ModelWork<ViewersModel>::Ending;
    void changed();
    void run(std::function<Ending(ViewerService&)> work);
    // A change of one viewer, which must be one that this version can change.
    void change(const ViewerID& id, std::function<std::optional<ViewerInvitation>(ViewerService&, const StoredViewer&)> work);
    void showList(std::vector<StoredViewer> viewers);

    std::shared_ptr<ViewerService> service_;
    Clock now_;
    std::vector<std::function<void()>> observers_;
    ModelWork<ViewersModel> work_;

    bool isLoaded_ = false;
    bool isPrivate_ = false;
    std::vector<StoredViewer> viewers_;
    std::vector<ViewerRow> rows_;
    std::optional<std::string> problem_;
    std::optional<ViewerInvitation> invitation_;
};

}  // namespace vorlen::app
