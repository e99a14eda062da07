#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/cloudflare/SemanticVersion.hpp"
#include "core/cloudflare/WorkerAsset.hpp"

namespace vorlen {

// The page Worker as it comes beside the application: a directory with
// "manifest.json", the main module it names, and an optional "assets" directory
// of static files.
struct WorkerBundle {
    // The only format this app reads.
    static constexpr std::int64_t supportedFormat = 2;
    // Cloudflare's limit for one static asset (25 MiB).
    static constexpr std::int64_t maxAssetBytes = 26214400;

    // The manifest's "format" alone, read first so that a bundle of a later
    // format fails with its own words and not with a decoding error.
    struct FormatOnly {
        std::optional<std::int64_t> format;  // "format"
    };

    struct Manifest {
        std::int64_t format = 0;                 // "format"
        SemanticVersion version;                 // "version"
        std::string compatibilityDate;           // "compatibility_date", YYYY-MM-DD
        std::string mainModule;                  // "main_module"
        std::string bucketBinding;               // "bucket_binding"
        std::string sessionsBinding;             // "sessions_binding"
        std::string challengeKeyBinding;         // "challenge_key_binding"
        std::optional<std::string> headers;      // "headers": the assets' "_headers" rules
    };

    std::filesystem::path directory;
    Manifest manifest;
    std::vector<WorkerAsset> assets;  // sorted by path

    // Reads and checks a bundle; every refusal is VorlenError::config with words
    // for a person.
    static WorkerBundle load(const std::filesystem::path& directory);

    std::filesystem::path mainModuleFile() const { return directory / manifest.mainModule; }
};

}  // namespace vorlen
