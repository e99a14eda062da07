#pragma once

// The records of Cloudflare's Workers API, each read or written with the JSON
// keys named beside its fields.

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/base/Json.hpp"
#include "core/cloudflare/MultipartForm.hpp"

namespace vorlen {

struct WorkerBinding {
    std::string type;                        // "type": "r2_bucket", "kv_namespace", "secret_text", …
    std::string name;                        // "name"
    std::optional<std::string> bucketName;   // "bucket_name"
    std::optional<std::string> namespaceID;  // "namespace_id"
    bool operator==(const WorkerBinding&) const = default;
};

// A secret text bound to a Worker. Its printable form never shows the text.
struct WorkerSecret {
    std::string name;
    std::string text;

    std::string description() const { return "WorkerSecret(" + name + ", redacted)"; }
};

// What the script upload sends: the main module with its metadata.
struct WorkerScriptUpload {
    // The form's "metadata" part.
    struct Metadata {
        using Binding = std::variant<WorkerBinding, WorkerSecret>;  // a secret is written as "secret_text"
        struct AssetsConfig {
            std::optional<std::string> headers;  // "_headers"
        };
        struct Assets {
            std::string jwt;                     // "jwt": the upload session's completion token
            std::optional<AssetsConfig> config;  // "config"
        };

        std::string mainModule;         // "main_module"
        std::string compatibilityDate;  // "compatibility_date"
        std::vector<Binding> bindings;  // "bindings"
        std::optional<Assets> assets;   // "assets"
    };

    std::string mainModule;
    std::string module;
    std::string compatibilityDate;
    std::vector<WorkerBinding> bindings;
    std::vector<WorkerSecret> secrets;
    std::optional<std::string> assetsJWT;
    std::optional<std::string> assetsHeaders;

    Metadata metadata() const;
    // The "metadata" part, then the main module under its own file name.
    MultipartForm form() const;
};

// A script as the upload answers it.
struct WorkerScript {
    std::optional<std::string> id;          // "id"
    std::optional<std::string> etag;        // "etag"
    std::optional<bool> hasAssets;          // "has_assets"
    std::optional<std::string> modifiedOn;  // "modified_on"
};

struct WorkerScriptSettings {
    std::vector<WorkerBinding> bindings;            // "bindings"
    std::optional<std::string> compatibilityDate;  // "compatibility_date"

    // Whether what is deployed has the wanted bindings, in any order, and the
    // compatibility date. A secret text is compared by name only, since
    // Cloudflare never gives its value back.
    bool matches(const std::vector<WorkerBinding>& wanted, const std::string& compatibilityDate) const;
};

// The script's workers.dev route.
struct WorkersDevSubdomain {
    bool enabled = false;          // "enabled"
    bool previewsEnabled = false;  // "previews_enabled"
};

struct WorkerDomain {
    std::string id;                       // "id"
    std::string hostname;                 // "hostname"
    std::string service;                  // "service"
    std::optional<std::string> zoneID;    // "zone_id"
    std::optional<std::string> zoneName;  // "zone_name"
};

struct AssetUploadSession {
    std::string jwt;                                // "jwt"
    std::vector<std::vector<std::string>> buckets;  // "buckets": the hashes Cloudflare lacks
};

void to_json(Json& json, const WorkerBinding& binding);
void from_json(const Json& json, WorkerBinding& binding);
void to_json(Json& json, const WorkerScriptUpload::Metadata& metadata);
void from_json(const Json& json, WorkerScript& script);
void from_json(const Json& json, WorkerScriptSettings& settings);
void from_json(const Json& json, WorkersDevSubdomain& subdomain);
void from_json(const Json& json, WorkerDomain& domain);
void from_json(const Json& json, AssetUploadSession& session);

}  // namespace vorlen
