#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace vorlen {

// One static file of a Worker bundle, as the assets upload session knows it.
struct WorkerAsset {
    std::string path;  // the URL path, with a leading "/"
    std::filesystem::path file;
    std::int64_t size = 0;
    std::string contentType;
    std::string hash;  // 32 lower-case hexadecimal characters

    // Reads the file once to hash it.
    static WorkerAsset make(std::string path, std::filesystem::path file, std::int64_t size);

    bool operator==(const WorkerAsset&) const = default;
};

// The hash that Cloudflare compares to skip files it has: SHA-256 of the file's
// base64 text followed by its extension (no dot), the first 32 hex characters. It
// depends on nothing but the content and the extension, so a redeploy of an
// unchanged bundle uploads nothing.
std::string workerAssetHash(const std::filesystem::path& file);

// A standard MIME type for the file's extension; "text/" types carry
// "; charset=utf-8", and an unknown extension gives "application/octet-stream".
std::string workerAssetContentType(const std::filesystem::path& file);

}  // namespace vorlen
