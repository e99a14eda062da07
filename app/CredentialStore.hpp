#pragma once

#include <memory>
#include <optional>

#include "app/R2Credentials.hpp"
#include "app/SecretStore.hpp"

namespace vorlen::app {

// The R2 credentials of one site; read at will, so that uploads need no prompt.
class CredentialStore {
public:
    CredentialStore(std::shared_ptr<SecretStore> store, SecretItem item) : store_(std::move(store)), item_(std::move(item)) {}

    std::optional<R2Credentials> read();
    void save(const R2Credentials& credentials);
    void remove();

private:
    std::shared_ptr<SecretStore> store_;
    SecretItem item_;
};

}  // namespace vorlen::app
