#include "app/PageSettingsService.hpp"

#include <map>
#include <set>

#include "app/LocalPreview.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::app {

namespace {

namespace fs = std::filesystem;

const std::string siteKey = "_vorlen/site.json";

// The folder of the smallest complete video of a local site: the preview copies it.
std::optional<std::string> smallestVideo(FolderBucket& bucket, const std::string& prefix) {
    std::map<std::string, std::int64_t> sizes;
    std::set<std::string> records;
    std::set<std::string> playlists;
    for (const auto& key : bucket.listKeys(prefix)) {
        const auto slash = key.find('/', prefix.size());
        if (key.starts_with("_vorlen/") || slash == std::string::npos) continue;
        const auto folder = key.substr(0, slash);
        const auto name = key.substr(slash + 1);
        if (name == "video.json") records.insert(folder);
        if (name == "master.m3u8") playlists.insert(folder);
        if (const auto info = bucket.info(key)) sizes[folder] += info->size;
    }
    std::optional<std::string> smallest;
    for (const auto& [folder, size] : sizes)
        if (records.contains(folder) && playlists.contains(folder) && (!smallest || size < sizes[*smallest])) smallest = folder;
    return smallest;
}

void copyObject(FolderBucket& from, FolderBucket& to, const std::string& key) {
    const auto info = from.info(key);
    const auto headers = from.headers(key);
    if (!info || !headers) return;
    to.put(key, RequestBody::file(from.objectPath(key), ByteRange{0, std::uint64_t(info->size)}), *headers);
}

}  // namespace

std::shared_ptr<CorePageSettingsService> CorePageSettingsService::open(const LocalSite& site, const LocalSettings& settings,
                                                                       std::shared_ptr<SecretStore> secrets,
                                                                       const Endpoints& endpoints) {
    std::optional<LocalSite> previewSite;
    if (site.settings.isLocal()) previewSite = site;
    for (const auto& each : settings.sites)
        if (!previewSite && each.settings.isLocal()) previewSite = each;
    return std::make_shared<CorePageSettingsService>(SitePlayerSettings::open(site, secrets, endpoints),
                                                     SitePageFonts::open(site, secrets, endpoints), std::move(previewSite));
}

void CorePageSettingsService::servePreview(const PlayerSettings& settings,
                                           const std::function<void(const std::string&)>& onServing) {
    const auto noVideo = VorlenError::config(
        "The preview plays a video of a local site on this computer. Publish a video to a local site first.");
    if (!previewSite_) throw noVideo;
    FolderBucket site(*previewSite_->settings.localFolder);
    const auto& folderPath = previewSite_->settings.folderPath;
    const auto video = smallestVideo(site, folderPath.empty() ? "" : folderPath + "/");
    if (!video) throw noVideo;

    // A copy of the one video with the options as edited, so that nothing of the site changes.
    auto previewSite = *previewSite_;
    previewSite.settings.localFolder = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-player-preview-");
    const DirectoryRemover remover(*previewSite.settings.localFolder);
    FolderBucket preview(*previewSite.settings.localFolder);
    copyObject(site, preview, siteKey);
    for (const auto& key : site.listKeys(*video + "/")) copyObject(site, preview, key);
    settings.write(preview, std::nullopt);

    LocalPreview::run(
        previewSite, 0,
        [&](const LocalPreview::Serving& serving) {
            if (!serving.pages.empty()) onServing(serving.pages.front());
        },
        [](const std::string&) {});
}

}  // namespace vorlen::app
