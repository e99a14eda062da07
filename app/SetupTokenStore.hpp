#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/SecretStore.hpp"

namespace vorlen::app {

// Why the Cloudflare Account API Token is needed; the prompt shows the reason.
enum class SetupTokenPurpose { setUp, checkSite, invite, listTokens, revokeToken, removeMac, purgeCache, changeOtherSites };
std::string reason(SetupTokenPurpose purpose);

struct PassphraseRequest {
    std::string reason;
    bool isNew = false;  // choosing a passphrase for a token being stored
};
// Returns nothing when the person declines, which counts as a cancellation.
using PassphrasePrompt = std::function<std::optional<std::string>(const PassphraseRequest&)>;

// The setup token, which can change the whole account. It is sealed with a
// passphrase that is asked for on every read; whether one is stored can be told
// without asking.
class SetupTokenStore {
public:
    SetupTokenStore(std::shared_ptr<SecretStore> store, SecretItem item, PassphrasePrompt prompt,
                    std::optional<SecretItem> legacyItem = std::nullopt)
        : store_(std::move(store)), item_(std::move(item)), prompt_(std::move(prompt)), legacyItem_(std::move(legacyItem)) {}

    bool hasToken();
    // Nothing when no token is stored; Cancelled when the person declines; the
    // sealed form's WrongPassphrase when the passphrase does not open it.
    std::optional<std::string> token(SetupTokenPurpose purpose);
    void save(const std::string& token);
    void remove();

private:
    // A token that still stands under the older single-site name moves to this site's name first.
    void moveLegacyItem();
    std::string askPassphrase(const PassphraseRequest& request);

    std::shared_ptr<SecretStore> store_;
    SecretItem item_;
    PassphrasePrompt prompt_;
    std::optional<SecretItem> legacyItem_;
};

}  // namespace vorlen::app
