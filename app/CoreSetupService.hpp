#pragma once

#include <filesystem>
#include <memory>

#include "app/SetupService.hpp"
#include "core/net/Endpoints.hpp"
#include "core/net/HttpClient.hpp"

namespace vorlen::app {

// The setup service over Cloudflare's API, R2's S3 interface and the page Worker
// bundle that this program carries.
class CoreSetupService : public SetupService {
public:
    CoreSetupService(Endpoints endpoints, std::shared_ptr<HttpClient> session, std::filesystem::path workerDirectory);

    WorkerBundle workerBundle() const override;
    SetupTokenCheck checkToken(const APIToken& token, const std::optional<std::string>& accountID) const override;
    SetupAccountChoices choices(const APIToken& token, const std::string& accountID) const override;
    SiteHostname siteHostname(const APIToken& token, const std::string& accountID, const std::string& hostname) const override;
    std::optional<SiteSettings> bucketSettings(const APIToken& token, const std::string& accountID,
                                               const std::string& bucket) const override;
    SetupReport run(const APIToken& token, const SiteSetupRequest& request, const SiteSetup::ReportCallback& report,
                    const SiteSetup::NewTokenCallback& onNewDailyToken,
                    const SiteSetup::ProgressCallback& progress) const override;
    SetupReport check(const APIToken& token, const SiteSetupRequest& request, const SiteSetup::ReportCallback& report,
                      const SiteSetup::ProgressCallback& progress) const override;

private:
    CloudflareAPI api(const APIToken& token) const;
    SiteSetupOptions options(const std::string& accountID) const;

    Endpoints endpoints_;
    std::shared_ptr<HttpClient> session_;
    std::filesystem::path workerDirectory_;
};

}  // namespace vorlen::app
