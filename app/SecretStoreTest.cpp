#include "app/SecretStore.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/CredentialStore.hpp"
#include "app/SealedSecret.hpp"
#include "app/SetupTokenStore.hpp"
#include "app/SiteStorage.hpp"
#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

using namespace vorlen;
using namespace vorlen::app;

namespace {

struct TemporaryFolder {
    fs::path path = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-secrets-test-");
    ~TemporaryFolder() { fs::remove_all(path); }
};

// What every store must do: items apart, overwrites, and removal that says whether it removed.
void expectItemsKeptApart(SecretStore& store, SecretStore& reopened) {
    SiteStorage one(SiteID{"one"}), two(SiteID{"two"});
    EXPECT_EQ(store.read(one.credentialsItem), std::nullopt);
    store.write(one.credentialsItem, "first");
    store.write(two.credentialsItem, "second");
    store.write(one.credentialsItem, "first again");
    EXPECT_EQ(reopened.read(one.credentialsItem), "first again");
    EXPECT_EQ(store.read(two.credentialsItem), "second");
    EXPECT_EQ(store.read(one.setupTokenItem), std::nullopt);
    EXPECT_TRUE(store.remove(two.credentialsItem));
    EXPECT_FALSE(store.remove(two.credentialsItem));
    EXPECT_EQ(store.read(two.credentialsItem), std::nullopt);
    EXPECT_TRUE(store.remove(one.credentialsItem));
}

}  // namespace

TEST(SecretStoreTest, FileStoreKeepsItemsApartAndIsPrivate) {
    TemporaryFolder folder;
    fs::path file = folder.path / "vorlen" / "secrets.json";
    FileSecretStore store(file), reopened(file);
    expectItemsKeptApart(store, reopened);
    store.write(SiteStorage(SiteID{"one"}).credentialsItem, "kept");

    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(file.parent_path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0077, 0u);
}

// Never against the person's own keyring: app/test/secret_service.sh starts a private one.
TEST(SecretStoreTest, SecretServiceKeepsItemsApart) {
    if (!std::getenv("VORLEN_PRIVATE_SECRET_SERVICE")) GTEST_SKIP() << "runs on a private Secret Service only";
    ASSERT_TRUE(LibsecretStore::isAvailable()) << "no Secret Service on the session bus";
    LibsecretStore store, reopened;
    expectItemsKeptApart(store, reopened);

    int fallbacks = 0;
    SystemSecretStore system("/nonexistent/secrets.json", [&](const std::string&) { ++fallbacks; });
    system.write(SiteStorage(SiteID{"one"}).credentialsItem, "in the keyring");
    EXPECT_EQ(store.read(SiteStorage(SiteID{"one"}).credentialsItem), "in the keyring");
    EXPECT_EQ(system.notice(), std::nullopt);
    EXPECT_EQ(fallbacks, 0);
    EXPECT_TRUE(system.remove(SiteStorage(SiteID{"one"}).credentialsItem));
}

// The private file only where no session bus runs, said once; a bus that does
// not answer is a failure in the store's words, never a silent move to the file.
TEST(SecretStoreTest, SystemStoreFallsBackOnlyWithoutASessionBus) {
    TemporaryFolder folder;
    const char* before = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    std::optional<std::string> saved = before ? std::optional<std::string>(before) : std::nullopt;
    struct Restore {
        std::optional<std::string>& saved;
        ~Restore() {
            if (saved) ::setenv("DBUS_SESSION_BUS_ADDRESS", saved->c_str(), 1);
            else ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
        }
    } restore{saved};
    const auto item = SiteStorage(SiteID{"one"}).credentialsItem;

    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (folder.path / "no-bus").string()).c_str(), 1);
    std::vector<std::string> notices;
    SystemSecretStore broken(folder.path / "broken.json", [&](const std::string& text) { notices.push_back(text); });
    try {
        broken.write(item, "secret");
        FAIL() << "a bus that does not answer must fail";
    } catch (const std::runtime_error& error) {
        EXPECT_TRUE(std::string(error.what()).starts_with("The secret store cannot reach the session bus: ")) << error.what();
    }
    EXPECT_THROW(broken.read(item), std::runtime_error);
    EXPECT_FALSE(fs::exists(folder.path / "broken.json"));
    EXPECT_TRUE(notices.empty());

    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    SystemSecretStore store(folder.path / "secrets.json", [&](const std::string& text) { notices.push_back(text); });
    store.write(item, "secret");
    EXPECT_EQ(store.read(item), "secret");
    EXPECT_EQ(notices, std::vector<std::string>{"Secrets are kept in a private file, since this desktop has no Secret Service."});
    EXPECT_EQ(store.notice(), notices.front());
    EXPECT_TRUE(fs::exists(folder.path / "secrets.json"));
}

TEST(SecretStoreTest, CredentialsRoundTripAndRedactTheSecret) {
    TemporaryFolder folder;
    auto store = std::make_shared<FileSecretStore>(folder.path / "secrets.json");
    CredentialStore credentials(store, SiteStorage(SiteID{"s"}).credentialsItem);
    // The secret key of a token is the SHA-256 of its value, in the lowercase hex that S3 signing expects.
    auto value = R2Credentials::fromToken("tok-id", "abc");
    EXPECT_EQ(value.accessKeyID, "tok-id");
    EXPECT_EQ(value.secretAccessKey, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    credentials.save(value);
    EXPECT_EQ(credentials.read(), value);
    EXPECT_EQ(value.redacted().find(value.secretAccessKey), std::string::npos);
    EXPECT_EQ(value.redacted().find("abc"), std::string::npos);
    credentials.remove();
    EXPECT_EQ(credentials.read(), std::nullopt);
}

TEST(SecretStoreTest, SealedTokenNeedsThePassphraseOnEveryReadButNotToTellItIsThere) {
    TemporaryFolder folder;
    auto store = std::make_shared<FileSecretStore>(folder.path / "secrets.json");
    std::vector<PassphraseRequest> asked;
    std::optional<std::string> answer = "correct horse";
    SetupTokenStore tokens(store, SiteStorage(SiteID{"s"}).setupTokenItem, [&](const PassphraseRequest& request) {
        asked.push_back(request);
        return answer;
    });
    EXPECT_FALSE(tokens.hasToken());
    EXPECT_EQ(tokens.token(SetupTokenPurpose::setUp), std::nullopt);
    EXPECT_TRUE(asked.empty());

    tokens.save("cloudflare-account-token");
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_TRUE(asked[0].isNew);
    EXPECT_EQ(store->read(SiteStorage(SiteID{"s"}).setupTokenItem)->find("cloudflare-account-token"), std::string::npos);

    EXPECT_TRUE(tokens.hasToken());
    EXPECT_EQ(asked.size(), 1u);
    EXPECT_EQ(tokens.token(SetupTokenPurpose::purgeCache), "cloudflare-account-token");
    EXPECT_EQ(tokens.token(SetupTokenPurpose::purgeCache), "cloudflare-account-token");
    ASSERT_EQ(asked.size(), 3u);
    EXPECT_EQ(asked[2].reason, "use the Cloudflare Account API Token to remove old video files from the cache");

    answer = "wrong";
    EXPECT_THROW(tokens.token(SetupTokenPurpose::checkSite), SealedSecret::WrongPassphrase);
    answer = std::nullopt;
    EXPECT_THROW(tokens.token(SetupTokenPurpose::checkSite), Cancelled);
}

TEST(SecretStoreTest, LegacyTokenMovesToTheSiteNameOnFirstUse) {
    TemporaryFolder folder;
    auto store = std::make_shared<FileSecretStore>(folder.path / "secrets.json");
    SiteStorage site(SiteID{"s"});
    store->write(SiteStorage::legacy().setupTokenItem, SealedSecret::seal("old-token", "pw"));
    SetupTokenStore tokens(store, site.setupTokenItem, [](const PassphraseRequest&) { return std::optional<std::string>("pw"); },
                           SiteStorage::legacy().setupTokenItem);
    EXPECT_TRUE(tokens.hasToken());
    EXPECT_EQ(store->read(SiteStorage::legacy().setupTokenItem), std::nullopt);
    EXPECT_EQ(tokens.token(SetupTokenPurpose::setUp), "old-token");
}

TEST(SecretStoreTest, SealedSecretRefusesDamage) {
    std::string sealed = SealedSecret::seal("secret", "pw");
    EXPECT_NE(SealedSecret::seal("secret", "pw"), sealed);  // fresh salt and nonce each time
    EXPECT_EQ(SealedSecret::open(sealed, "pw"), "secret");
    std::string damaged = sealed;
    damaged[damaged.size() - 3] = damaged[damaged.size() - 3] == 'A' ? 'B' : 'A';
    EXPECT_THROW(SealedSecret::open(damaged, "pw"), SealedSecret::WrongPassphrase);
    EXPECT_THROW(SealedSecret::open("plain", "pw"), SealedSecret::WrongPassphrase);
}
