#include "app/SealedSecret.hpp"

#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <stdexcept>

#include "core/base/Crypto.hpp"
#include "core/base/Random.hpp"

namespace vorlen::app {

namespace {

constexpr std::string_view prefix = "sealed-1:";
constexpr std::size_t saltSize = 16, nonceSize = 12, tagSize = 16, keySize = 32;

std::string deriveKey(std::string_view passphrase, std::string_view salt) {
    std::string key(keySize, '\0');
    // N = 2^15 costs about 32 MiB and a tenth of a second: slow for a guesser, quick for a person.
    if (EVP_PBE_scrypt(passphrase.data(), passphrase.size(), reinterpret_cast<const unsigned char*>(salt.data()), salt.size(),
                       1u << 15, 8, 1, 64u * 1024 * 1024, reinterpret_cast<unsigned char*>(key.data()), key.size()) != 1)
        throw std::runtime_error("scrypt failed");
    return key;
}

struct CipherContext {
    EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
    ~CipherContext() { EVP_CIPHER_CTX_free(context); }
};

}  // namespace

std::string SealedSecret::seal(std::string_view secret, std::string_view passphrase) {
    std::string salt(saltSize, '\0'), nonce(nonceSize, '\0');
    secureRandomBytes(salt.data(), salt.size());
    secureRandomBytes(nonce.data(), nonce.size());
    std::string key = deriveKey(passphrase, salt);
    CipherContext cipher;
    std::string sealed(secret.size(), '\0');
    std::string tag(tagSize, '\0');
    int length = 0;
    auto* out = reinterpret_cast<unsigned char*>(sealed.data());
    if (EVP_EncryptInit_ex(cipher.context, EVP_aes_256_gcm(), nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                           reinterpret_cast<const unsigned char*>(nonce.data())) != 1 ||
        EVP_EncryptUpdate(cipher.context, out, &length, reinterpret_cast<const unsigned char*>(secret.data()),
                          static_cast<int>(secret.size())) != 1 ||
        EVP_EncryptFinal_ex(cipher.context, out + length, &length) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.context, EVP_CTRL_GCM_GET_TAG, tagSize, tag.data()) != 1)
        throw std::runtime_error("sealing failed");
    return std::string(prefix) + base64(salt + nonce + sealed + tag);
}

std::string SealedSecret::open(std::string_view text, std::string_view passphrase) {
    if (!isSealed(text)) throw WrongPassphrase();
    auto bytes = base64Decode(text.substr(prefix.size()));
    if (!bytes || bytes->size() < saltSize + nonceSize + tagSize) throw WrongPassphrase();
    std::string_view all = *bytes;
    std::string_view salt = all.substr(0, saltSize), nonce = all.substr(saltSize, nonceSize);
    std::string_view sealed = all.substr(saltSize + nonceSize, all.size() - saltSize - nonceSize - tagSize);
    std::string tag(all.substr(all.size() - tagSize));
    std::string key = deriveKey(passphrase, salt);
    CipherContext cipher;
    std::string secret(sealed.size(), '\0');
    int length = 0;
    auto* out = reinterpret_cast<unsigned char*>(secret.data());
    if (EVP_DecryptInit_ex(cipher.context, EVP_aes_256_gcm(), nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                           reinterpret_cast<const unsigned char*>(nonce.data())) != 1 ||
        EVP_DecryptUpdate(cipher.context, out, &length, reinterpret_cast<const unsigned char*>(sealed.data()),
                          static_cast<int>(sealed.size())) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.context, EVP_CTRL_GCM_SET_TAG, tagSize, tag.data()) != 1 ||
        EVP_DecryptFinal_ex(cipher.context, out + length, &length) != 1)
        throw WrongPassphrase();
    return secret;
}

bool SealedSecret::isSealed(std::string_view text) { return text.starts_with(prefix); }

}  // namespace vorlen::app
