#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/cloudflare/WorkerBundle.hpp"
#include "core/cloudflare/WorkerResources.hpp"
#include "core/cloudflare/WorkerScripts.hpp"

namespace vorlen {

// The page Worker of one site as it should be deployed: the bundle bound to the
// site's bucket, its sessions namespace and its challenge key.
struct WorkerDeployment {
    std::string scriptName;
    WorkerBundle bundle;
    std::string bucketName;
    std::string sessionsNamespaceID;
    // Made once for a site; it never reaches a log or a failure's words.
    std::string challengeKey;

    // The bucket, then the sessions namespace.
    std::vector<WorkerBinding> plainBindings() const;
    // All three, the challenge key as a "secret_text" without its text: what a
    // deployed script's settings must show.
    std::vector<WorkerBinding> wantedBindings() const;
    // Whether the deployed script already has what this deployment would give it.
    bool isDeployed(const WorkerScriptSettings& deployed) const;

    // Uploads the static assets that Cloudflare lacks and the script with its
    // bindings, then turns the workers.dev route off: a page must be reachable only
    // through the page hostname, where the zone's rules apply. Progress texts go to
    // `progress`.
    WorkerScript deploy(const WorkerScripts& scripts, const std::function<void(const std::string&)>& progress) const;
};

}  // namespace vorlen
