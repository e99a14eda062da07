#pragma once

#include <string>
#include <string_view>

namespace vorlen::app {

// A secret sealed with a passphrase: scrypt derives the key, AES-256-GCM seals
// and authenticates. The text form is "sealed-1:" and base64 of salt, nonce,
// ciphertext and tag. Asking for the passphrase on every read is what makes a
// person present for each use of the sealed secret.
struct SealedSecret {
    static std::string seal(std::string_view secret, std::string_view passphrase);
    // Throws WrongPassphrase when the passphrase does not open it or the text is damaged.
    static std::string open(std::string_view sealed, std::string_view passphrase);
    static bool isSealed(std::string_view text);

    struct WrongPassphrase : std::exception {
        const char* what() const noexcept override { return "The passphrase does not open the stored token."; }
    };
};

}  // namespace vorlen::app
