#include "core/cloudflare/WorkerDeployment.hpp"

#include <fmt/format.h>

#include "core/base/Files.hpp"

namespace vorlen {

std::vector<WorkerBinding> WorkerDeployment::plainBindings() const {
    return {
        WorkerBinding{"r2_bucket", bundle.manifest.bucketBinding, bucketName, std::nullopt},
        WorkerBinding{"kv_namespace", bundle.manifest.sessionsBinding, std::nullopt, sessionsNamespaceID},
    };
}

std::vector<WorkerBinding> WorkerDeployment::wantedBindings() const {
    auto bindings = plainBindings();
    bindings.push_back(WorkerBinding{"secret_text", bundle.manifest.challengeKeyBinding, std::nullopt, std::nullopt});
    return bindings;
}

bool WorkerDeployment::isDeployed(const WorkerScriptSettings& deployed) const {
    return deployed.matches(wantedBindings(), bundle.manifest.compatibilityDate);
}

WorkerScript WorkerDeployment::deploy(const WorkerScripts& scripts,
                                      const std::function<void(const std::string&)>& progress) const {
    WorkerScriptUpload upload;
    upload.bindings = plainBindings();
    if (!bundle.assets.empty()) {
        progress(fmt::format("Uploading {} static assets.", bundle.assets.size()));
        upload.assetsJWT = scripts.uploadAssets(scriptName, bundle.assets);
        upload.assetsHeaders = bundle.manifest.headers;
    }
    progress(fmt::format("Uploading the script of \u201c{}\u201d.", scriptName));
    upload.mainModule = bundle.manifest.mainModule;
    upload.module = readFile(bundle.mainModuleFile());
    upload.compatibilityDate = bundle.manifest.compatibilityDate;
    upload.secrets.push_back(WorkerSecret{bundle.manifest.challengeKeyBinding, challengeKey});

    WorkerScript script = scripts.uploadScript(scriptName, upload);
    scripts.setWorkersDevSubdomain(scriptName, false, false);
    return script;
}

}  // namespace vorlen
