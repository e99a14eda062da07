#include "app/CredentialStore.hpp"

namespace vorlen::app {

std::optional<R2Credentials> CredentialStore::read() {
    auto text = store_->read(item_);
    if (!text) return std::nullopt;
    try {
        return R2Credentials::fromJson(decodeJson(*text));
    } catch (const Json::exception&) {
        return std::nullopt;
    }
}

void CredentialStore::save(const R2Credentials& credentials) { store_->write(item_, encodeJson(credentials.toJson())); }

void CredentialStore::remove() { store_->remove(item_); }

}  // namespace vorlen::app
