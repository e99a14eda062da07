#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/cloudflare/CloudflareAPI.hpp"
#include "core/cloudflare/WorkerAsset.hpp"
#include "core/cloudflare/WorkerResources.hpp"

namespace vorlen {

// The Worker scripts and Worker domains of one account, through the Cloudflare
// client. Holds the client by reference: it must outlive this value.
class WorkerScripts {
public:
    WorkerScripts(const CloudflareAPI& api, std::string accountID) : api_(api), accountID_(std::move(accountID)) {}

    // Uploads the files that Cloudflare does not have yet, at most 3 requests at
    // once, each file read when its request starts; answers the completion token
    // that the script upload refers to.
    std::string uploadAssets(const std::string& script, const std::vector<WorkerAsset>& assets) const;

    AssetUploadSession startAssetUpload(const std::string& script, const std::vector<WorkerAsset>& assets) const;
    WorkerScript uploadScript(const std::string& script, const WorkerScriptUpload& upload) const;
    // Absent when there is no such script.
    std::optional<WorkerScriptSettings> settings(const std::string& script) const;
    void deleteScript(const std::string& script) const;
    WorkersDevSubdomain workersDevSubdomain(const std::string& script) const;
    void setWorkersDevSubdomain(const std::string& script, bool enabled, bool previewsEnabled) const;

    // The Worker domain whose hostname, lower-cased, is `hostname`.
    std::optional<WorkerDomain> findDomain(const std::string& hostname) const;
    WorkerDomain attachDomain(const std::string& hostname, const std::string& service, const std::string& zoneID) const;
    void detachDomain(const std::string& domainID) const;

private:
    // One request of the upload: the files of one bucket, base64; answers the
    // completion token when this request completed the set.
    std::optional<std::string> uploadBucket(const std::string& uploadJWT, const std::vector<const WorkerAsset*>& files) const;
    std::vector<std::string> scriptPath(const std::string& script, std::initializer_list<std::string> rest = {}) const;

    const CloudflareAPI& api_;
    std::string accountID_;
};

}  // namespace vorlen
