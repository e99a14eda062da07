#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vorlen::app {

// Where one secret stands: a service name and an account, as in a keychain.
struct SecretItem {
    std::string service;
    std::string account;
    bool operator==(const SecretItem&) const = default;
};

// A store of secrets by item. Two implementations: the desktop's Secret Service
// (libsecret), and a file readable by this user alone where no Secret Service runs.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual std::optional<std::string> read(const SecretItem& item) = 0;
    virtual void write(const SecretItem& item, std::string_view secret) = 0;
    // True when something was removed.
    virtual bool remove(const SecretItem& item) = 0;

    // The Secret Service when one answers on the session bus, else the file store at fallbackFile.
    static std::shared_ptr<SecretStore> makeDefault(const std::filesystem::path& fallbackFile);
};

// Secret Service through libsecret; the secrets are labelled "Vorlen" in the desktop's keyring.
class LibsecretStore final : public SecretStore {
public:
    // Nothing when no Secret Service answers.
    static std::shared_ptr<LibsecretStore> connect();
    std::optional<std::string> read(const SecretItem& item) override;
    void write(const SecretItem& item, std::string_view secret) override;
    bool remove(const SecretItem& item) override;
};

// One JSON file of mode 0600, rewritten atomically on every change.
class FileSecretStore final : public SecretStore {
public:
    explicit FileSecretStore(std::filesystem::path file) : file_(std::move(file)) {}
    std::optional<std::string> read(const SecretItem& item) override;
    void write(const SecretItem& item, std::string_view secret) override;
    bool remove(const SecretItem& item) override;

private:
    std::filesystem::path file_;
};

}  // namespace vorlen::app
