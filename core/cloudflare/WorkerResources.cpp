#include "core/cloudflare/WorkerResources.hpp"

#include <algorithm>
#include <tuple>

#include "core/cloudflare/RecordFields.hpp"

namespace vorlen {

namespace {

const char* const secretTextType = "secret_text";

// The fields of a binding that a comparison looks at.
WorkerBinding comparable(WorkerBinding binding) {
    if (binding.type == secretTextType) {
        binding.bucketName.reset();
        binding.namespaceID.reset();
    } else if (binding.type == "r2_bucket") {
        binding.namespaceID.reset();
    } else if (binding.type == "kv_namespace") {
        binding.bucketName.reset();
    }
    return binding;
}

std::vector<WorkerBinding> sortedComparable(const std::vector<WorkerBinding>& bindings) {
    std::vector<WorkerBinding> sorted;
    for (const auto& binding : bindings) sorted.push_back(comparable(binding));
    std::sort(sorted.begin(), sorted.end(), [](const WorkerBinding& a, const WorkerBinding& b) {
        return std::tie(a.type, a.name, a.bucketName, a.namespaceID) < std::tie(b.type, b.name, b.bucketName, b.namespaceID);
    });
    return sorted;
}

}  // namespace

WorkerScriptUpload::Metadata WorkerScriptUpload::metadata() const {
    Metadata metadata{mainModule, compatibilityDate, {}, std::nullopt};
    for (const auto& binding : bindings) metadata.bindings.emplace_back(binding);
    for (const auto& secret : secrets) metadata.bindings.emplace_back(secret);
    if (assetsJWT) {
        metadata.assets = Metadata::Assets{*assetsJWT, std::nullopt};
        if (assetsHeaders) metadata.assets->config = Metadata::AssetsConfig{assetsHeaders};
    }
    return metadata;
}

MultipartForm WorkerScriptUpload::form() const {
    return MultipartForm::make({
        {"metadata", std::nullopt, "application/json", encodeJson(metadata())},
        {mainModule, mainModule, "application/javascript+module", module},
    });
}

bool WorkerScriptSettings::matches(const std::vector<WorkerBinding>& wanted, const std::string& date) const {
    return compatibilityDate == date && sortedComparable(bindings) == sortedComparable(wanted);
}

void to_json(Json& json, const WorkerBinding& binding) {
    json = {{"type", binding.type}, {"name", binding.name}};
    writeOptional(json, "bucket_name", binding.bucketName);
    writeOptional(json, "namespace_id", binding.namespaceID);
}

void from_json(const Json& json, WorkerBinding& binding) {
    json.at("type").get_to(binding.type);
    json.at("name").get_to(binding.name);
    readOptional(json, "bucket_name", binding.bucketName);
    readOptional(json, "namespace_id", binding.namespaceID);
}

void to_json(Json& json, const WorkerScriptUpload::Metadata& metadata) {
    Json bindings = Json::array();
    for (const auto& binding : metadata.bindings) {
        if (const auto* secret = std::get_if<WorkerSecret>(&binding))
            bindings.push_back({{"type", secretTextType}, {"name", secret->name}, {"text", secret->text}});
        else
            bindings.push_back(std::get<WorkerBinding>(binding));
    }
    json = {{"main_module", metadata.mainModule},
            {"compatibility_date", metadata.compatibilityDate},
            {"bindings", bindings}};
    if (metadata.assets) {
        Json assets = {{"jwt", metadata.assets->jwt}};
        if (metadata.assets->config) {
            Json config = Json::object();
            writeOptional(config, "_headers", metadata.assets->config->headers);
            assets["config"] = config;
        }
        json["assets"] = assets;
    }
}

void from_json(const Json& json, WorkerScript& script) {
    readOptional(json, "id", script.id);
    readOptional(json, "etag", script.etag);
    readOptional(json, "has_assets", script.hasAssets);
    readOptional(json, "modified_on", script.modifiedOn);
}

void from_json(const Json& json, WorkerScriptSettings& settings) {
    settings.bindings.clear();
    if (auto bindings = json.find("bindings"); bindings != json.end() && !bindings->is_null())
        bindings->get_to(settings.bindings);
    readOptional(json, "compatibility_date", settings.compatibilityDate);
}

void from_json(const Json& json, WorkersDevSubdomain& subdomain) {
    json.at("enabled").get_to(subdomain.enabled);
    json.at("previews_enabled").get_to(subdomain.previewsEnabled);
}

void from_json(const Json& json, WorkerDomain& domain) {
    json.at("id").get_to(domain.id);
    json.at("hostname").get_to(domain.hostname);
    json.at("service").get_to(domain.service);
    readOptional(json, "zone_id", domain.zoneID);
    readOptional(json, "zone_name", domain.zoneName);
}

void from_json(const Json& json, AssetUploadSession& session) {
    json.at("jwt").get_to(session.jwt);
    session.buckets.clear();
    if (auto buckets = json.find("buckets"); buckets != json.end() && !buckets->is_null()) buckets->get_to(session.buckets);
}

}  // namespace vorlen
