#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace vorlen::app {

// Where one secret stands: a service name and an account.
struct SecretItem {
    std::string service;
    std::string account;
    bool operator==(const SecretItem&) const = default;
};

// A store of secrets by item. Two implementations: the desktop's Secret Service
// (libsecret), and a file readable by this user alone where no Secret Service runs.
// A store that fails says so in its own words; it never loses a secret silently.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual std::optional<std::string> read(const SecretItem& item) = 0;
    virtual void write(const SecretItem& item, std::string_view secret) = 0;
    // True when something was removed.
    virtual bool remove(const SecretItem& item) = 0;
    // What a person should know of where the secrets are kept; nothing for the desktop's own store.
    virtual std::optional<std::string> notice() { return std::nullopt; }
};

// Secret Service through libsecret; the secrets are labelled "Vorlen" in the desktop's keyring.
class LibsecretStore final : public SecretStore {
public:
    // True when the session bus has a Secret Service, running or ready to start;
    // false when there is no session bus or no Secret Service on it. A bus that
    // does not answer is a failure with its words.
    static bool isAvailable();
    std::optional<std::string> read(const SecretItem& item) override;
    void write(const SecretItem& item, std::string_view secret) override;
    bool remove(const SecretItem& item) override;
};

// One JSON file of mode 0600, rewritten atomically on every change.
class FileSecretStore final : public SecretStore {
public:
    inline static const std::string fallbackNotice =
        "Secrets are kept in a private file, since this desktop has no Secret Service.";

    explicit FileSecretStore(std::filesystem::path file) : file_(std::move(file)) {}
    std::optional<std::string> read(const SecretItem& item) override;
    void write(const SecretItem& item, std::string_view secret) override;
    bool remove(const SecretItem& item) override;
    std::optional<std::string> notice() override;

private:
    std::filesystem::path file_;
};

// This user's store: the Secret Service where the desktop has one, else the
// private file. The choice waits for the first use, so that a command that
// needs no secret never touches D-Bus, and a failure to choose is tried again
// at the next use. Choosing the file calls onFallback once, with the notice.
class SystemSecretStore final : public SecretStore {
public:
    SystemSecretStore(std::filesystem::path fallbackFile, std::function<void(const std::string&)> onFallback = {})
        : fallbackFile_(std::move(fallbackFile)), onFallback_(std::move(onFallback)) {}
    std::optional<std::string> read(const SecretItem& item) override { return chosen().read(item); }
    void write(const SecretItem& item, std::string_view secret) override { chosen().write(item, secret); }
    bool remove(const SecretItem& item) override { return chosen().remove(item); }
    std::optional<std::string> notice() override { return chosen().notice(); }

private:
    SecretStore& chosen();

    std::filesystem::path fallbackFile_;
    std::function<void(const std::string&)> onFallback_;
    std::mutex mutex_;
    std::unique_ptr<SecretStore> chosen_;
};

}  // namespace vorlen::app
