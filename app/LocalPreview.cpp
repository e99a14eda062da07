#include "app/LocalPreview.hpp"

#include <fmt/format.h>

#include "app/AppModel.hpp"
#include "app/Screen.hpp"
#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/ToolRunner.hpp"
#include "core/storage/FolderBucket.hpp"

namespace vorlen::app {

namespace {

namespace fs = std::filesystem;

fs::path nodeProgram() {
    for (const char* candidate : {"/usr/bin/node", "/usr/local/bin/node"})
        if (fs::exists(candidate)) return candidate;
    throw VorlenError::config("cannot find node, which runs the page Worker for a preview");
}

// The page of each folder that holds a video.json.
std::vector<std::string> videoPages(const SiteSummary& site, int port) {
    std::vector<std::string> pages;
    std::string prefix = site.folderPath.empty() ? "" : site.folderPath + "/";
    FolderBucket bucket(*site.localFolder);
    for (const auto& key : bucket.listKeys(prefix)) {
        if (!key.ends_with("/video.json") || key.starts_with("_vorlen/")) continue;
        std::string folder = key.substr(prefix.size(), key.size() - prefix.size() - std::string("/video.json").size());
        if (folder.find('/') == std::string::npos) pages.push_back(linksFor(site, folder, port).page);
    }
    return pages;
}

}  // namespace

void LocalPreview::run(const LocalSite& site, int port, const std::function<void(const Serving&)>& onServing,
                       const std::function<void(const std::string&)>& onMessage) {
    if (!site.settings.isLocal())
        throw VorlenError::config(fmt::format("\u201c{}\u201d is not a local site: its pages are on {}.", site.id.value,
                                              site.settings.pageHost.name));
    fs::path server = bundledWorkerDirectory() / "dev" / "serve.mjs";
    ToolRunner::run("node", nodeProgram(), {server.string(), site.settings.localFolder->string(), "--port", std::to_string(port)},
                    [&](const std::string& line) {
                        Json ready;
                        try {
                            ready = decodeJson(line);
                        } catch (const Json::exception&) {
                            return onMessage(line);
                        }
                        int served = fieldOr<int>(ready, "port", port);
                        onServing(Serving{fieldOr<std::string>(ready, "page", ""), fieldOr<std::string>(ready, "media", ""),
                                          videoPages(site.settings, served)});
                    });
}

}  // namespace vorlen::app
