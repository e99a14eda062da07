#include "app/SiteStorage.hpp"

#include <cstdlib>

#include "core/base/Random.hpp"

namespace vorlen::app {

namespace {

std::filesystem::path xdgFolder(const char* variable, const char* fallback) {
    if (const char* value = std::getenv(variable); value && *value == '/') return std::filesystem::path(value) / "vorlen";
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home ? home : "/tmp") / fallback / "vorlen";
}

}  // namespace

std::filesystem::path userCacheFolder() { return xdgFolder("XDG_CACHE_HOME", ".cache"); }
std::filesystem::path userConfigFolder() { return xdgFolder("XDG_CONFIG_HOME", ".config"); }
std::filesystem::path userDataFolder() { return xdgFolder("XDG_DATA_HOME", ".local/share"); }
std::filesystem::path userStateFolder() { return xdgFolder("XDG_STATE_HOME", ".local/state"); }

SiteID SiteID::make() { return SiteID{randomString(12, "abcdefghijklmnopqrstuvwxyz0123456789")}; }

SiteStorage::SiteStorage(const SiteID& id)
    : credentialsItem{service, "r2-credentials/" + id.value},
      setupTokenItem{service, "setup-token/" + id.value},
      vimeoTokenItem{service, "vimeo-token/" + id.value},
      cacheFolder(userCacheFolder() / "sites" / id.value),
      vimeoSelectionsKey("vimeoSelections/" + id.value) {}

SiteStorage SiteStorage::legacy() {
    SiteStorage storage;
    storage.credentialsItem = {service, "r2-credentials"};
    storage.setupTokenItem = {service, "setup-token"};
    storage.vimeoTokenItem = {service, "vimeo-token"};
    storage.cacheFolder = userCacheFolder();
    storage.vimeoSelectionsKey = "vimeoSelections";
    return storage;
}

}  // namespace vorlen::app
