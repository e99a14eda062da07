#pragma once

#include <filesystem>
#include <string>

#include "app/SecretStore.hpp"

namespace vorlen::app {

struct SiteID {
    std::string value;
    static SiteID make();  // a fresh random identifier
    bool operator==(const SiteID&) const = default;
    auto operator<=>(const SiteID&) const = default;
};

// Where the things of one site stand on this computer.
struct SiteStorage {
    static constexpr const char* service = "vorlen";

    SecretItem credentialsItem;
    SecretItem setupTokenItem;
    SecretItem vimeoTokenItem;
    std::filesystem::path cacheFolder;
    std::string vimeoSelectionsKey;

    explicit SiteStorage(const SiteID& id);
    // The names of the older single-site form.
    static SiteStorage legacy();

private:
    SiteStorage() = default;
};

// $XDG_CACHE_HOME/vorlen (or ~/.cache/vorlen), $XDG_CONFIG_HOME/vorlen, $XDG_DATA_HOME/vorlen,
// $XDG_STATE_HOME/vorlen (or ~/.local/state/vorlen, where the log file lives).
std::filesystem::path userCacheFolder();
std::filesystem::path userConfigFolder();
std::filesystem::path userDataFolder();
std::filesystem::path userStateFolder();

}  // namespace vorlen::app
