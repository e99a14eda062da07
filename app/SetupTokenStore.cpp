#include "app/SetupTokenStore.hpp"

#include "app/SealedSecret.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen::app {

std::string reason(SetupTokenPurpose purpose) {
    switch (purpose) {
        case SetupTokenPurpose::setUp: return "use the Cloudflare Account API Token to set up your site";
        case SetupTokenPurpose::checkSite: return "use the Cloudflare Account API Token to check your site";
        case SetupTokenPurpose::invite: return "use the Cloudflare Account API Token to make an invite";
        case SetupTokenPurpose::listTokens: return "use the Cloudflare Account API Token to list the Vorlen tokens";
        case SetupTokenPurpose::revokeToken: return "use the Cloudflare Account API Token to revoke a token";
        case SetupTokenPurpose::removeMac: return "use the Cloudflare Account API Token to revoke the token of this computer";
        case SetupTokenPurpose::purgeCache:
            return "use the Cloudflare Account API Token to remove old video files from the cache";
        case SetupTokenPurpose::changeOtherSites:
            return "use the Cloudflare Account API Token to change the sites that can use your videos";
    }
    return "";
}

void SetupTokenStore::moveLegacyItem() {
    if (!legacyItem_) return;
    auto legacy = store_->read(*legacyItem_);
    if (!legacy) return;
    if (!store_->read(item_)) store_->write(item_, *legacy);
    store_->remove(*legacyItem_);
}

std::string SetupTokenStore::askPassphrase(const PassphraseRequest& request) {
    auto passphrase = prompt_ ? prompt_(request) : std::nullopt;
    if (!passphrase) throw Cancelled();
    return *passphrase;
}

bool SetupTokenStore::hasToken() {
    moveLegacyItem();
    return store_->read(item_).has_value();
}

std::optional<std::string> SetupTokenStore::token(SetupTokenPurpose purpose) {
    moveLegacyItem();
    auto stored = store_->read(item_);
    if (!stored) return std::nullopt;
    return SealedSecret::open(*stored, askPassphrase({reason(purpose), false}));
}

void SetupTokenStore::save(const std::string& token) {
    moveLegacyItem();
    std::string passphrase = askPassphrase({"choose a passphrase that guards the Cloudflare Account API Token", true});
    store_->write(item_, SealedSecret::seal(token, passphrase));
}

void SetupTokenStore::remove() {
    moveLegacyItem();
    store_->remove(item_);
}

}  // namespace vorlen::app
