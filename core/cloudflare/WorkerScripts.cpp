#include "core/cloudflare/WorkerScripts.hpp"

#include <algorithm>
#include <map>
#include <mutex>

#include <fmt/format.h>

#include "core/base/Crypto.hpp"
#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

constexpr std::size_t uploadWidth = 3;

struct AssetUploadAnswer {
    std::optional<std::string> jwt;
};

void from_json(const Json& json, AssetUploadAnswer& answer) {
    if (auto jwt = json.find("jwt"); jwt != json.end() && jwt->is_string()) answer.jwt = jwt->get<std::string>();
}

using Method = CloudflareRequest::Method;

}  // namespace

std::vector<std::string> WorkerScripts::scriptPath(const std::string& script, std::initializer_list<std::string> rest) const {
    std::vector<std::string> path{"accounts", accountID_, "workers", "scripts", script};
    path.insert(path.end(), rest.begin(), rest.end());
    return path;
}

std::string WorkerScripts::uploadAssets(const std::string& script, const std::vector<WorkerAsset>& assets) const {
    const AssetUploadSession session = startAssetUpload(script, assets);
    if (std::all_of(session.buckets.begin(), session.buckets.end(), [](const auto& bucket) { return bucket.empty(); }))
        return session.jwt;

    // Every requested hash is checked before anything is sent.
    std::map<std::string, const WorkerAsset*> byHash;
    for (const auto& asset : assets) byHash.emplace(asset.hash, &asset);
    std::vector<std::vector<const WorkerAsset*>> buckets;
    for (const auto& hashes : session.buckets) {
        auto& files = buckets.emplace_back();
        for (const auto& hash : hashes) {
            const auto found = byHash.find(hash);
            if (found == byHash.end())
                throw VorlenError::config(
                    fmt::format("Cloudflare requested an asset that the bundle does not have ({})", hash));
            files.push_back(found->second);
        }
    }

    std::mutex mutex;
    std::optional<std::string> completion;
    forEachInWindow(buckets.size(), uploadWidth, [&](std::size_t index) {
        if (buckets[index].empty()) return;
        auto jwt = uploadBucket(session.jwt, buckets[index]);
        std::lock_guard lock(mutex);
        if (jwt) completion = std::move(jwt);
    });
    if (!completion)
        throw VorlenError::config(
            fmt::format("Cloudflare gave no completion token for the assets of \u201c{}\u201d", script));
    return *completion;
}

AssetUploadSession WorkerScripts::startAssetUpload(const std::string& script, const std::vector<WorkerAsset>& assets) const {
    Json manifest = Json::object();
    for (const auto& asset : assets) manifest[asset.path] = {{"hash", asset.hash}, {"size", asset.size}};
    auto response = api_.call<AssetUploadSession>(CloudflareRequest::withJson(
        Method::post, scriptPath(script, {"assets-upload-session"}), {{"manifest", manifest}}, true));
    if (!response.result)
        throw VorlenError::config(fmt::format("Cloudflare gave no asset upload session for \u201c{}\u201d", script));
    return std::move(*response.result);
}

std::optional<std::string> WorkerScripts::uploadBucket(const std::string& uploadJWT,
                                                       const std::vector<const WorkerAsset*>& files) const {
    std::vector<MultipartForm::Part> parts;
    for (const auto* asset : files)
        parts.push_back({asset->hash, asset->hash, asset->contentType, base64(readFile(asset->file))});
    const CloudflareRequest request{Method::post,
                                    {"accounts", accountID_, "workers", "assets", "upload"},
                                    {{"base64", "true"}},
                                    MultipartForm::make(std::move(parts)),
                                    CloudflareRequest::Bearer{uploadJWT},
                                    true};
    const auto response = api_.call<AssetUploadAnswer>(request);
    return response.result ? response.result->jwt : std::nullopt;
}

WorkerScript WorkerScripts::uploadScript(const std::string& script, const WorkerScriptUpload& upload) const {
    const CloudflareRequest request{Method::put, scriptPath(script), {}, upload.form(),
                                    CloudflareRequest::APITokenCredential{}, true};
    return api_.call<WorkerScript>(request).result.value_or(WorkerScript{});
}

std::optional<WorkerScriptSettings> WorkerScripts::settings(const std::string& script) const {
    try {
        return api_.call<WorkerScriptSettings>(CloudflareRequest::get(scriptPath(script, {"settings"}))).result;
    } catch (const CloudflareError& error) {
        if (error.isNotFound()) return std::nullopt;
        throw;
    }
}

void WorkerScripts::deleteScript(const std::string& script) const {
    api_.call<IgnoredResult>(CloudflareRequest::remove(scriptPath(script), {{"force", "true"}}));
}

WorkersDevSubdomain WorkerScripts::workersDevSubdomain(const std::string& script) const {
    auto response = api_.call<WorkersDevSubdomain>(CloudflareRequest::get(scriptPath(script, {"subdomain"})));
    if (!response.result)
        throw VorlenError::config(fmt::format("Cloudflare gave no workers.dev state for \u201c{}\u201d", script));
    return *response.result;
}

void WorkerScripts::setWorkersDevSubdomain(const std::string& script, bool enabled, bool previewsEnabled) const {
    api_.call<IgnoredResult>(CloudflareRequest::withJson(Method::post, scriptPath(script, {"subdomain"}),
                                                         {{"enabled", enabled}, {"previews_enabled", previewsEnabled}},
                                                         true));
}

std::optional<WorkerDomain> WorkerScripts::findDomain(const std::string& hostname) const {
    const auto found = api_.call<std::vector<WorkerDomain>>(
        CloudflareRequest::get({"accounts", accountID_, "workers", "domains"}, {{"hostname", hostname}}));
    const std::string wanted = asciiLowercased(hostname);
    for (const auto& domain : found.result.value_or(std::vector<WorkerDomain>{}))
        if (asciiLowercased(domain.hostname) == wanted) return domain;
    return std::nullopt;
}

WorkerDomain WorkerScripts::attachDomain(const std::string& hostname, const std::string& service,
                                         const std::string& zoneID) const {
    auto response = api_.call<WorkerDomain>(
        CloudflareRequest::withJson(Method::put, {"accounts", accountID_, "workers", "domains"},
                                    {{"hostname", hostname}, {"service", service}, {"zone_id", zoneID}}, true));
    if (!response.result)
        throw VorlenError::config(fmt::format("Cloudflare gave no Worker domain for \u201c{}\u201d", hostname));
    return std::move(*response.result);
}

void WorkerScripts::detachDomain(const std::string& domainID) const {
    api_.call<IgnoredResult>(CloudflareRequest::remove({"accounts", accountID_, "workers", "domains", domainID}));
}

}  // namespace vorlen
