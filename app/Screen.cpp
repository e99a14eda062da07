#include "app/Screen.hpp"

#include <algorithm>

#include "core/publish/Naming.hpp"

namespace vorlen::app {

std::string ConfirmState::folderName() const {
    return visibility == VideoVisibility::unlisted ? name + "-" + randomPart : name;
}

namespace {
std::string withSlash(const std::string& path) { return path.empty() ? "" : path + "/"; }
}  // namespace

VideoLinks linksFor(const SiteSummary& site, const std::string& folderName, int previewPort) {
    std::string pageBase = site.isLocal() ? "http://" + site.pageHost.name + ":" + std::to_string(previewPort)
                                          : "https://" + site.pageHost.name;
    std::string mediaBase = site.isLocal() ? "http://" + site.mediaHost.name + ":" + std::to_string(previewPort)
                                           : "https://" + site.mediaHost.name;
    VideoLinks links;
    links.page = pageBase + "/" + withSlash(site.pagePath) + folderName;
    links.embed = links.page + "/embed";
    links.media = mediaBase + "/" + withSlash(site.folderPath) + folderName + "/";
    links.hls = links.media + "master.m3u8";
    links.dash = links.media + "manifest.mpd";
    return links;
}

std::optional<std::string> folderOfLink(const SiteSummary& site, std::string_view text) {
    const auto scheme = text.find("://");
    if (scheme == std::string_view::npos) return std::string(text);
    auto rest = text.substr(scheme + 3);
    rest = rest.substr(0, rest.find_first_of("?#"));
    const auto slash = rest.find('/');
    auto host = rest.substr(0, slash);
    host = host.substr(0, host.find(':'));
    if (host != site.pageHost.name || slash == std::string_view::npos) return std::nullopt;
    auto path = rest.substr(slash + 1);
    const auto pagePath = withSlash(site.pagePath);
    if (!path.starts_with(pagePath)) return std::nullopt;
    path.remove_prefix(pagePath.size());
    if (path.ends_with("/")) path.remove_suffix(1);
    if (path.ends_with("/embed")) path.remove_suffix(6);
    return std::string(path);
}

bool isSubtitleFile(const std::filesystem::path& file) {
    std::string extension = file.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char c) { return std::tolower(c); });
    return extension == ".vtt" || extension == ".srt";
}

}  // namespace vorlen::app
