#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "app/LocalSettings.hpp"
#include "app/MainQueue.hpp"
#include "app/SecretStore.hpp"
#include "app/SetupService.hpp"
#include "app/SetupTokenStore.hpp"
#include "app/SiteCollaborators.hpp"
#include "app/SiteWorkspace.hpp"
#include "core/cloudflare/SetupCode.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/RateLimiter.hpp"

namespace vorlen::app {

// The words of the site list's failures.
namespace SiteListError {
// "This computer already has the site “<name>”." for a site added twice.
std::string alreadyOnThisMac(const std::string& name);
}

// A site set up elsewhere, as a person gives it, field by field.
struct R2SiteForm {
    std::string accountID;
    std::string bucket;
    std::string mediaHost;
    std::string pageHost;
    std::string path;      // the folder of the videos in the bucket, may be empty
    std::string pagePath;  // the path of the pages on their host, may be empty
    std::optional<std::string> s3Endpoint;  // another S3 service in place of R2
};

// What a person chose for a site to set up, new or one this computer has.
struct SetupChoice {
    std::string accountID;
    std::string bucket;
    std::optional<R2LocationHint> locationHint;
    SiteHostname mediaHost;
    SiteHostname pageHost;
    std::string path;
    std::optional<SiteTemplate> siteTemplate;
    // The name of this computer's R2 API Token.
    std::string computerName;
    // A token the person made in the dashboard, in place of one the run makes.
    std::optional<APIToken> pastedToken;
    // Make a new token for this computer and revoke the one it has.
    bool replacesToken = false;
};

// A setup about to run: the site it sets up and the run's request.
struct SetupPlan {
    SiteID site;
    bool isNewSite = false;
    SiteSetupRequest request;
};

// The process's one model: this computer's settings, written through on every
// change, and one workspace for each site.
class AppModel {
public:
    struct Services {
        std::shared_ptr<SecretStore> secrets;
        // Makes the publish service of a site, whose uploads the site's limiter paces.
        std::function<std::shared_ptr<PublishService>(const LocalSite&, std::shared_ptr<RateLimiter>)> publishService;
        std::string appVersion = VORLEN_VERSION;
        // Where Cloudflare and R2 are; tests point them at local stand-ins.
        Endpoints endpoints{};
        // The setup run and its questions to Cloudflare.
        std::shared_ptr<SetupService> setup{};
        // Makes the library and catalogue services of a site.
        std::function<LibraryServices(const LocalSite&)> libraryServices{};
        // Makes the bulk upload service of a site, whose uploads the site's limiter paces.
        std::function<std::shared_ptr<BulkService>(const LocalSite&, std::shared_ptr<RateLimiter>)> bulkService{};
        // Tells whether a batch run holds a site, for every site.
        std::shared_ptr<BatchRunService> batchRuns{};
        // Makes the Vimeo import service of a site, whose uploads the site's limiter paces.
        std::function<std::shared_ptr<VimeoService>(const LocalSite&, std::shared_ptr<RateLimiter>)> vimeoService{};
        // Make the page settings and the viewers services of a site; each may fail as the secret store does.
        std::function<std::shared_ptr<PageSettingsService>(const LocalSite&, const LocalSettings&)> pageSettingsService{};
        std::function<std::shared_ptr<ViewerService>(const LocalSite&)> viewerService{};
    };

    AppModel(LocalSettingsStore store, Services services, MainQueue& mainQueue, WorkspaceTiming timing = WorkspaceTiming());

    const LocalSettings& settings() const { return settings_; }
    void changeSettings(const std::function<void(LocalSettings&)>& change);

    // A site whose bucket is a folder on this computer. Its settings file is
    // written when the folder has none, with the bundled Worker's name and version.
    SiteID addLocalSite(const std::string& name, const std::filesystem::path& folder);
    // The hostnames and paths are checked as a site's settings file checks them.
    SiteID addR2Site(const R2SiteForm& form, const R2Credentials& credentials);
    // A site that a collaborator's setup code opens: its token is verified and the
    // site's settings are read from its bucket before anything is kept.
    SiteID joinSite(const SetupCode& code);
    // The second half of joining, for a front end that read the site on a task of its own.
    SiteID addJoinedSite(const JoinedSite& joined) { return addSite(joined.site, joined.credentials); }
    // The sealed setup token of a site on this computer, opened with a passphrase that prompt asks for.
    SetupTokenStore setupTokens(const SiteID& id, PassphrasePrompt prompt) const;
    const Endpoints& endpoints() const { return services_.endpoints; }

    // Setting up a site: planSetup on the main thread marks the site as one whose
    // setup has not ended (a new site joins the list now, so that a token made by
    // the run has a home); the run goes on any task with the plan's
    // dailyTokenSaver; finishSetup on the main thread takes the settings that the
    // run wrote, and ends the mark once every step is in place.
    SetupPlan planSetup(const SetupChoice& choice);
    // The plan of a check, or of a run again, of a site that this computer has.
    SetupPlan planCheck(const SiteID& id, const APIToken& token, const std::string& computerName) const;
    // Keeps a new R2 API Token in the site's credential store; callable from any thread.
    SiteSetup::NewTokenCallback dailyTokenSaver(const SiteID& id) const;
    void finishSetup(const SetupPlan& plan, const SetupReport& report);
    SetupService& setupService() const;
    // While a run goes on, a quit asks first.
    void setSetupRunning(bool running) { isSetupRunning_ = running; }
    // Forgets the site on this computer: its secrets and its cached library.
    void removeSite(const SiteID& id);
    // The sites whose library windows are open, reopened at the next start.
    const std::vector<SiteID>& openLibraries() const { return settings_.lastOpenLibraries; }
    void setLibraryOpen(const SiteID& id, bool isOpen);
    // Saved, and applied at once to the uploads of the site, a running one too.
    void setUploadLimit(const SiteID& id, UploadLimit limit);

    // The site of this id; a failure that says there is none.
    const LocalSite& site(const SiteID& id) const;
    // The site to use when none is named: the default one, else the only one.
    std::optional<SiteID> currentSite() const;
    // With no site at all, the local site "local" under the data folder.
    SiteID ensureSite();

    std::shared_ptr<SiteWorkspace> workspace(const SiteID& id);

    // Where this computer keeps its secrets, in a sentence, when it is not the
    // desktop's own store; the store's words when it fails.
    std::optional<std::string> secretStoreNotice() const;

    // The quit guard: only a running setup asks the person before a quit.
    bool isSetupRunning() const { return isSetupRunning_; }
    // A quit stops every job; a stopped publish deletes what it uploaded, so the
    // process ends only once no job runs any more.
    void quit();
    bool isQuitting() const { return isQuitting_; }
    bool isJobRunning() const;

private:
    void refuseSiteOnThisComputer(const std::string& accountID, const std::string& bucket) const;
    SiteID addSite(const SiteSummary& site, const R2Credentials& credentials);
    void save();
    SiteID uniqueID(const std::string& name) const;

    LocalSettingsStore store_;
    Services services_;
    MainQueue& mainQueue_;
    WorkspaceTiming timing_;
    LocalSettings settings_;
    std::map<SiteID, std::shared_ptr<SiteWorkspace>> workspaces_;
    // One limiter for each site, as long as its workspace lives.
    std::map<SiteID, std::shared_ptr<RateLimiter>> limiters_;
    bool isQuitting_ = false;
    std::atomic<bool> isSetupRunning_ = false;
};

// Where the page Worker bundle that this program carries lies, and its version.
std::filesystem::path bundledWorkerDirectory();
SemanticVersion bundledWorkerVersion();

}  // namespace vorlen::app
