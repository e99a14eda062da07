#include "app/SecretStore.hpp"

#include <libsecret/secret.h>
#include <mutex>
#include <stdexcept>
#include <sys/stat.h>

#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/Log.hpp"

namespace vorlen::app {

namespace {

const SecretSchema* schema() {
    static const SecretSchema value = {
        "com.dovrin.vorlen.Secret",
        SECRET_SCHEMA_NONE,
        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING}, {"account", SECRET_SCHEMA_ATTRIBUTE_STRING}, {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
        0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    return &value;
}

// The error's words, never the secret's.
[[noreturn]] void fail(const char* what, GError* error) {
    std::string message = std::string(what) + ": " + (error ? error->message : "unknown failure");
    if (error) g_error_free(error);
    throw std::runtime_error(message);
}

std::string accountKey(const SecretItem& item) { return item.service + "\n" + item.account; }

// One lock for all file stores of the process; across processes the atomic rename keeps the file whole.
std::mutex fileMutex;

Json readSecretFile(const std::filesystem::path& file) {
    std::error_code missing;
    if (!std::filesystem::exists(file, missing)) return Json::object();
    try {
        Json json = decodeJson(readFile(file));
        return json.is_object() ? json : Json::object();
    } catch (const Json::exception&) {
        log().error("The secret file {} cannot be read; it counts as empty.", file.string());
        return Json::object();
    }
}

void writeSecretFile(const std::filesystem::path& file, const Json& json) {
    std::filesystem::create_directories(file.parent_path());
    ::chmod(file.parent_path().c_str(), 0700);
    writeFileAtomically(file, encodeJson(json), 0600);
}

}  // namespace

bool LibsecretStore::isAvailable() {
    // Without a session bus libsecret would try to start one; a server has none to offer.
    const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (!address || !*address) return false;
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (!bus) fail("The secret store cannot reach the session bus", error);
    auto ask = [&](const char* method, GVariant* parameters) {
        GVariant* reply = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                      "org.freedesktop.DBus", method, parameters, nullptr,
                                                      G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, &error);
        if (!reply) {
            g_object_unref(bus);
            fail("The session bus did not answer the secret store", error);
        }
        return reply;
    };
    constexpr const char* serviceName = "org.freedesktop.secrets";
    GVariant* owned = ask("NameHasOwner", g_variant_new("(s)", serviceName));
    gboolean available = FALSE;
    g_variant_get(owned, "(b)", &available);
    g_variant_unref(owned);
    if (!available) {
        GVariant* activatable = ask("ListActivatableNames", nullptr);
        GVariantIter* names = nullptr;
        g_variant_get(activatable, "(as)", &names);
        const gchar* name = nullptr;
        while (!available && g_variant_iter_loop(names, "&s", &name)) available = g_strcmp0(name, serviceName) == 0;
        g_variant_iter_free(names);
        g_variant_unref(activatable);
    }
    g_object_unref(bus);
    return available;
}

std::optional<std::string> LibsecretStore::read(const SecretItem& item) {
    GError* error = nullptr;
    gchar* secret = secret_password_lookup_sync(schema(), nullptr, &error, "service", item.service.c_str(), "account",
                                                item.account.c_str(), nullptr);
    if (error) fail("The secret store did not answer", error);
    if (!secret) return std::nullopt;
    std::string value(secret);
    secret_password_free(secret);
    return value;
}

void LibsecretStore::write(const SecretItem& item, std::string_view secret) {
    GError* error = nullptr;
    std::string value(secret);
    std::string label = "Vorlen (" + item.account + ")";
    if (!secret_password_store_sync(schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value.c_str(), nullptr, &error,
                                    "service", item.service.c_str(), "account", item.account.c_str(), nullptr))
        fail("The secret store did not keep the secret", error);
}

bool LibsecretStore::remove(const SecretItem& item) {
    GError* error = nullptr;
    gboolean removed = secret_password_clear_sync(schema(), nullptr, &error, "service", item.service.c_str(), "account",
                                                  item.account.c_str(), nullptr);
    if (error) fail("The secret store did not remove the secret", error);
    return removed;
}

std::optional<std::string> FileSecretStore::read(const SecretItem& item) {
    std::lock_guard lock(fileMutex);
    return optionalField<std::string>(readSecretFile(file_), accountKey(item).c_str());
}

void FileSecretStore::write(const SecretItem& item, std::string_view secret) {
    std::lock_guard lock(fileMutex);
    Json json = readSecretFile(file_);
    json[accountKey(item)] = std::string(secret);
    writeSecretFile(file_, json);
}

bool FileSecretStore::remove(const SecretItem& item) {
    std::lock_guard lock(fileMutex);
    Json json = readSecretFile(file_);
    if (json.erase(accountKey(item)) == 0) return false;
    writeSecretFile(file_, json);
    return true;
}

std::optional<std::string> FileSecretStore::notice() { return fallbackNotice; }

SecretStore& SystemSecretStore::chosen() {
    std::lock_guard lock(mutex_);
    if (!chosen_) {
        if (LibsecretStore::isAvailable()) {
            chosen_ = std::make_unique<LibsecretStore>();
        } else {
            chosen_ = std::make_unique<FileSecretStore>(fallbackFile_);
            log().info("No Secret Service on the session bus: secrets go to {}.", fallbackFile_.string());
            if (onFallback_) onFallback_(FileSecretStore::fallbackNotice);
        }
    }
    return *chosen_;
}

}  // namespace vorlen::app
