#include "core/cloudflare/WorkerBundle.hpp"

#include <algorithm>
#include <regex>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

const char* const manifestName = "manifest.json";

WorkerBundle::FormatOnly formatOnly(const Json& json) {
    WorkerBundle::FormatOnly read;
    if (auto format = json.find("format"); format != json.end() && !format->is_null())
        read.format = format->get<std::int64_t>();
    return read;
}

WorkerBundle::Manifest manifestOf(const Json& json) {
    WorkerBundle::Manifest manifest;
    json.at("format").get_to(manifest.format);
    manifest.version = SemanticVersion::parse(json.at("version").get<std::string>());
    json.at("compatibility_date").get_to(manifest.compatibilityDate);
    json.at("main_module").get_to(manifest.mainModule);
    json.at("bucket_binding").get_to(manifest.bucketBinding);
    json.at("sessions_binding").get_to(manifest.sessionsBinding);
    json.at("challenge_key_binding").get_to(manifest.challengeKeyBinding);
    if (auto headers = json.find("headers"); headers != json.end() && !headers->is_null())
        manifest.headers = headers->get<std::string>();
    return manifest;
}

WorkerBundle::Manifest readManifest(const fs::path& directory) {
    std::string text;
    try {
        text = readFile(directory / manifestName);
    } catch (const std::exception& error) {
        throw VorlenError::config(fmt::format("the Worker bundle has no manifest.json: {}", error.what()));
    }
    try {
        const Json json = decodeJson(text);
        const auto format = formatOnly(json).format;
        if (!format) throw VorlenError::config("the manifest.json of the Worker bundle has no format");
        if (*format != WorkerBundle::supportedFormat)
            throw VorlenError::config(fmt::format("the Worker bundle has format {}. This app reads format {}", *format,
                                                  WorkerBundle::supportedFormat));
        return manifestOf(json);
    } catch (const nlohmann::json::exception& error) {
        throw VorlenError::config(fmt::format("the manifest.json of the Worker bundle can\u2019t be read: {}", error.what()));
    }
}

void check(const WorkerBundle::Manifest& manifest, const fs::path& directory) {
    static const std::regex dateForm("[0-9]{4}-[0-9]{2}-[0-9]{2}");
    if (!std::regex_match(manifest.compatibilityDate, dateForm))
        throw VorlenError::config(
            fmt::format("\u201c{}\u201d is not a compatibility date (YYYY-MM-DD)", manifest.compatibilityDate));

    const std::string& main = manifest.mainModule;
    const bool isPlainName = !main.empty() && main != "." && main != ".." && main.find('/') == std::string::npos;
    if (!isPlainName || !fs::is_regular_file(directory / main))
        throw VorlenError::config(fmt::format("the Worker bundle has no main module \u201c{}\u201d", main));

    for (const auto* name : {&manifest.bucketBinding, &manifest.sessionsBinding, &manifest.challengeKeyBinding})
        if (name->empty()) throw VorlenError::config("the Worker bundle has no name for a binding");
}

// Every regular file under "assets", links not followed: a link could reach
// files outside the bundle.
std::vector<WorkerAsset> assetsOf(const fs::path& directory) {
    const fs::path root = directory / "assets";
    std::vector<WorkerAsset> assets;
    if (!fs::is_directory(fs::symlink_status(root))) return assets;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file() || entry.is_symlink()) continue;
        const std::string path = "/" + entry.path().lexically_relative(root).generic_string();
        const auto size = static_cast<std::int64_t>(entry.file_size());
        if (size > WorkerBundle::maxAssetBytes)
            throw VorlenError::config(fmt::format("the asset {} has {} bytes. An asset can have {} bytes at most.",
                                                  path, size, WorkerBundle::maxAssetBytes));
        assets.push_back(WorkerAsset::make(path, entry.path(), size));
    }
    std::sort(assets.begin(), assets.end(), [](const auto& a, const auto& b) { return a.path < b.path; });
    return assets;
}

}  // namespace

WorkerBundle WorkerBundle::load(const fs::path& directory) {
    WorkerBundle bundle{directory, readManifest(directory), {}};
    check(bundle.manifest, directory);
    bundle.assets = assetsOf(directory);
    return bundle;
}

}  // namespace vorlen
