#include "app/AppModel.hpp"

#include <fmt/format.h>

#include "app/CredentialStore.hpp"
#include "core/base/Files.hpp"
#include "core/base/Log.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::app {

namespace SiteListError {
std::string alreadyOnThisMac(const std::string& name) {
    return fmt::format("This computer already has the site \u201c{}\u201d.", name);
}
}  // namespace SiteListError

std::filesystem::path bundledWorkerDirectory() {
    std::error_code ignored;
    auto binary = std::filesystem::read_symlink("/proc/self/exe", ignored);
    return binary.parent_path().parent_path() / "share" / "vorlen" / "worker";
}

SemanticVersion bundledWorkerVersion() {
    auto manifest = decodeJson(readFile(bundledWorkerDirectory() / "manifest.json"));
    return SemanticVersion::parse(manifest.at("version").get<std::string>());
}

namespace {

DeployedWorker bundledWorker(const std::string& bucket) { return DeployedWorker{"vorlen-" + bucket, bundledWorkerVersion()}; }

}  // namespace

AppModel::AppModel(LocalSettingsStore store, Services services, MainQueue& mainQueue, WorkspaceTiming timing)
    : store_(std::move(store)), services_(std::move(services)), mainQueue_(mainQueue), timing_(timing), settings_(store_.load()) {
    if (settings_.migrateEarlierSite()) save();
}

void AppModel::save() { store_.save(settings_); }

void AppModel::changeSettings(const std::function<void(LocalSettings&)>& change) {
    change(settings_);
    save();
}

SiteID AppModel::uniqueID(const std::string& name) const {
    std::string base;
    for (char c : name) base += std::isalnum(static_cast<unsigned char>(c)) ? char(std::tolower(static_cast<unsigned char>(c))) : '-';
    if (base.empty()) base = "site";
    std::string candidate = base;
    for (int n = 2; settings_.site(SiteID{candidate}); ++n) candidate = base + "-" + std::to_string(n);
    return SiteID{candidate};
}

SiteID AppModel::addLocalSite(const std::string& name, const std::filesystem::path& folder) {
    std::filesystem::path root = std::filesystem::absolute(folder);
    for (const auto& site : settings_.sites)
        if (site.settings.localFolder == root) throw VorlenError::config(SiteListError::alreadyOnThisMac(name));
    std::filesystem::create_directories(root);
    FolderBucket bucket(root);
    auto core = SiteSettings::read(bucket);
    if (!core) {
        SiteSettings made;
        made.mediaHost = Hostname::parse("media.localhost");
        made.pageHost = Hostname::parse("localhost");
        made.siteTemplate = SiteTemplate::automatic;
        made.worker = bundledWorker(name);
        made.write(bucket);
        core = made;
    }
    SiteSummary summary = SiteSummary::from(*core, "local", name);
    summary.localFolder = root;
    SiteID id = uniqueID(name);
    settings_.sites.push_back(LocalSite{id, summary, VideoVisibility::publicVideo, std::nullopt, settings_.defaultUploadLimit});
    save();
    log().info("Added the local site {} in {}.", id.value, root.string());
    return id;
}

SiteID AppModel::addR2Site(const R2SiteForm& form, const R2Credentials& credentials) {
    SiteSummary site;
    site.accountID = form.accountID;
    site.bucket = form.bucket;
    site.mediaHost = Hostname::parse(form.mediaHost);
    site.pageHost = Hostname::parse(form.pageHost);
    site.folderPath = SiteFolder::normalisedPath(form.path);
    site.pagePath = SiteFolder::normalisedPath(form.pagePath);
    site.s3Endpoint = form.s3Endpoint;
    return addSite(site, credentials);
}

SiteID AppModel::joinSite(const SetupCode& code) {
    refuseSiteOnThisComputer(code.accountID, code.bucket);
    return addJoinedSite(readJoinedSite(code, services_.endpoints));
}

SetupTokenStore AppModel::setupTokens(const SiteID& id, PassphrasePrompt prompt) const {
    site(id);
    return SetupTokenStore(services_.secrets, SiteStorage(id).setupTokenItem, std::move(prompt));
}

void AppModel::refuseSiteOnThisComputer(const std::string& accountID, const std::string& bucket) const {
    for (const auto& existing : settings_.sites)
        if (existing.settings.accountID == accountID && existing.settings.bucket == bucket)
            throw VorlenError::config(SiteListError::alreadyOnThisMac(bucket));
}

SiteID AppModel::addSite(const SiteSummary& site, const R2Credentials& credentials) {
    refuseSiteOnThisComputer(site.accountID, site.bucket);
    SiteID id = uniqueID(site.bucket);
    CredentialStore(services_.secrets, SiteStorage(id).credentialsItem).save(credentials);
    settings_.sites.push_back(LocalSite{id, site, VideoVisibility::publicVideo, std::nullopt, settings_.defaultUploadLimit});
    save();
    return id;
}

SetupService& AppModel::setupService() const {
    if (!services_.setup) throw VorlenError::config("This program has no setup service.");
    return *services_.setup;
}

namespace {

// This computer's token as the site's credential store keeps it.
std::optional<DailyToken> storedDailyToken(const std::optional<R2Credentials>& credentials) {
    if (!credentials) return std::nullopt;
    DailyToken token{S3Credentials{credentials->accessKeyID, credentials->secretAccessKey}, std::nullopt};
    if (credentials->token) token.value = APIToken{*credentials->token};
    return token;
}

}  // namespace

SetupPlan AppModel::planSetup(const SetupChoice& choice) {
    SetupPlan plan;
    SiteSetupRequest& request = plan.request;
    request.accountID = choice.accountID;
    request.bucket = choice.bucket;
    request.locationHint = choice.locationHint;
    request.mediaHost = choice.mediaHost;
    request.pageHost = choice.pageHost;
    request.path = choice.path;
    request.siteTemplate = choice.siteTemplate;
    request.dailyToken = {DailyTokenSource::Create{choice.computerName}};
    request.validate();
    request.workerBundle = setupService().workerBundle();

    const LocalSite* existing = nullptr;
    for (const auto& site : settings_.sites)
        if (site.settings.accountID == choice.accountID && site.settings.bucket == choice.bucket) existing = &site;
    if (existing) {
        plan.site = existing->id;
    } else {
        plan.site = uniqueID(choice.bucket);
        plan.isNewSite = true;
        SiteSummary summary;
        summary.accountID = choice.accountID;
        summary.bucket = choice.bucket;
        summary.folderPath = SiteFolder::normalisedPath(choice.path);
        summary.mediaHost = choice.mediaHost.hostname;
        summary.pageHost = choice.pageHost.hostname;
        summary.mediaZoneID = choice.mediaHost.zone.id;
        settings_.sites.push_back(
            LocalSite{plan.site, summary, VideoVisibility::publicVideo, std::nullopt, settings_.defaultUploadLimit});
    }
    settings_.unfinishedSetup = plan.site;
    save();

    const auto stored = storedDailyToken(CredentialStore(services_.secrets, SiteStorage(plan.site).credentialsItem).read());
    if (choice.pastedToken) request.dailyToken = {DailyTokenSource::Pasted{*choice.pastedToken}};
    else if (stored && choice.replacesToken) request.dailyToken = {DailyTokenSource::Replace{*stored, choice.computerName}};
    else if (stored) request.dailyToken = {DailyTokenSource::Stored{*stored}};
    return plan;
}

SetupPlan AppModel::planCheck(const SiteID& id, const APIToken& token, const std::string& computerName) const {
    const LocalSite& local = site(id);
    const SiteSummary& summary = local.settings;
    if (summary.isLocal() || summary.s3Endpoint)
        throw VorlenError::config(fmt::format("The site “{}” is not in a Cloudflare account.", id.value));
    SetupPlan plan{id, false, {}};
    SiteSetupRequest& request = plan.request;
    request.accountID = summary.accountID;
    request.bucket = summary.bucket;
    request.mediaHost = setupService().siteHostname(token, summary.accountID, summary.mediaHost.name);
    request.pageHost = setupService().siteHostname(token, summary.accountID, summary.pageHost.name);
    request.path = summary.folderPath;
    request.workerBundle = setupService().workerBundle();
    const auto stored = storedDailyToken(CredentialStore(services_.secrets, SiteStorage(id).credentialsItem).read());
    if (stored) request.dailyToken = {DailyTokenSource::Stored{*stored}};
    else request.dailyToken = {DailyTokenSource::Create{computerName}};
    return plan;
}

SiteSetup::NewTokenCallback AppModel::dailyTokenSaver(const SiteID& id) const {
    return [store = CredentialStore(services_.secrets, SiteStorage(id).credentialsItem)](const DailyToken& token) mutable {
        R2Credentials credentials{token.tokenID(), token.credentials.accessKeyID, token.credentials.secretAccessKey,
                                  std::nullopt};
        if (token.value) credentials.token = token.value->value;
        store.save(credentials);
    };
}

void AppModel::finishSetup(const SetupPlan& plan, const SetupReport& report) {
    const bool complete = std::all_of(report.steps.begin(), report.steps.end(), [](const SetupStepReport& step) {
        return step.status.is<SetupStatus::Done>() || step.status.is<SetupStatus::AlreadyInPlace>();
    });
    if (!complete || !report.siteSettings) return;
    for (auto& site : settings_.sites)
        if (site.id == plan.site)
            site.settings = SiteSummary::from(*report.siteSettings, plan.request.accountID, plan.request.bucket);
    if (settings_.unfinishedSetup == plan.site) settings_.unfinishedSetup.reset();
    save();
    log().info("Set up the site {}.", plan.site.value);
}

void AppModel::removeSite(const SiteID& id) {
    if (auto found = workspaces_.find(id); found != workspaces_.end() && found->second->screen().isActive())
        throw VorlenError::config(SettingsError::busy);
    if (const auto library = workspace(id)->services().library.library) library->clearCache();
    workspaces_.erase(id);
    limiters_.erase(id);
    SiteStorage storage(id);
    services_.secrets->remove(storage.credentialsItem);
    services_.secrets->remove(storage.setupTokenItem);
    services_.secrets->remove(storage.vimeoTokenItem);
    std::erase_if(settings_.sites, [&](const LocalSite& site) { return site.id == id; });
    settings_.vimeoSelections.erase(storage.vimeoSelectionsKey);
    if (settings_.defaultSite == id) settings_.defaultSite.reset();
    std::erase(settings_.lastOpenLibraries, id);
    save();
}

void AppModel::setLibraryOpen(const SiteID& id, bool isOpen) {
    changeSettings([&](LocalSettings& settings) {
        std::erase(settings.lastOpenLibraries, id);
        if (isOpen) settings.lastOpenLibraries.push_back(id);
    });
}

const LocalSite& AppModel::site(const SiteID& id) const {
    if (const LocalSite* found = settings_.site(id)) return *found;
    throw VorlenError::config(fmt::format("There is no site \u201c{}\u201d on this computer.", id.value));
}

std::optional<SiteID> AppModel::currentSite() const {
    if (settings_.defaultSite && settings_.site(*settings_.defaultSite)) return settings_.defaultSite;
    if (!settings_.sites.empty()) return settings_.sites.front().id;
    return std::nullopt;
}

SiteID AppModel::ensureSite() {
    if (auto id = currentSite()) return *id;
    return addLocalSite("local", userDataFolder() / "local-site");
}

std::shared_ptr<SiteWorkspace> AppModel::workspace(const SiteID& id) {
    if (auto found = workspaces_.find(id); found != workspaces_.end()) return found->second;
    const LocalSite* site = &this->site(id);
    SiteWorkspace::Services services;
    auto limiter = std::make_shared<RateLimiter>(site->uploadLimit.bytesPerSecond());
    services.publish = services_.publishService(*site, limiter);
    if (!site->settings.isLocal())
        services.credentials = std::make_shared<CredentialStore>(services_.secrets, SiteStorage(id).credentialsItem);
    if (services_.libraryServices) services.library = services_.libraryServices(*site);
    if (services_.bulkService) services.bulk = services_.bulkService(*site, limiter);
    services.batchRuns = services_.batchRuns;
    if (services_.vimeoService) services.vimeo = services_.vimeoService(*site, limiter);
    if (services_.pageSettingsService)
        services.pageSettings = [this, make = services_.pageSettingsService, id] { return make(this->site(id), settings_); };
    if (services_.viewerService)
        services.viewers = [this, make = services_.viewerService, id] { return make(this->site(id)); };
    SiteWorkspace::Host host;
    host.macSettings = [this] { return settings_; };
    host.recordUploadRate = [this](double rate) { changeSettings([rate](LocalSettings& s) { s.lastUploadRate = rate; }); };
    host.save = [this](const LocalSite& local) {
        changeSettings([&](LocalSettings& s) {
            for (auto& each : s.sites)
                if (each.id == local.id) each = local;
        });
    };
    host.saveVimeoSelection = [this, key = SiteStorage(id).vimeoSelectionsKey](const VimeoSelection& selection) {
        changeSettings([&](LocalSettings& s) { s.vimeoSelections[key] = selection; });
    };
    auto made = SiteWorkspace::make(*site, services, host, mainQueue_, timing_);
    workspaces_[id] = made;
    limiters_[id] = limiter;
    return made;
}

void AppModel::setUploadLimit(const SiteID& id, UploadLimit limit) {
    site(id);
    changeSettings([&](LocalSettings& settings) {
        for (auto& site : settings.sites)
            if (site.id == id) site.uploadLimit = limit;
    });
    if (auto found = workspaces_.find(id); found != workspaces_.end()) found->second->setUploadLimit(limit);
    if (auto found = limiters_.find(id); found != limiters_.end()) found->second->setBytesPerSecond(limit.bytesPerSecond());
}

std::optional<std::string> AppModel::secretStoreNotice() const {
    try {
        return services_.secrets->notice();
    } catch (const std::exception& error) {
        return std::string(error.what());
    }
}

void AppModel::quit() {
    isQuitting_ = true;
    for (auto& [id, workspace] : workspaces_) {
        workspace->stop();
        // A batch run stops with its clean-up; what it finished stays in the site (and a bulk run's results file).
        if (workspace->batchRunHere() == BatchRunKind::bulkUpload) workspace->bulkUpload()->stop();
        if (workspace->batchRunHere() == BatchRunKind::vimeoSync) workspace->vimeoSync()->stop();
    }
}

bool AppModel::isJobRunning() const {
    for (const auto& [id, workspace] : workspaces_)
        if (workspace->isJobRunning()) return true;
    return false;
}

}  // namespace vorlen::app
