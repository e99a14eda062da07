#include "core/cloudflare/WorkerDeployment.hpp"

#include <gtest/gtest.h>

#include <set>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Random.hpp"
#include "core/base/VorlenError.hpp"
#include "testing/LocalCloudflareAccount.hpp"

namespace vorlen {
namespace {

using testing::LocalCloudflareAccount;

// The page Worker as `node worker/build.mjs` leaves it in the source tree.
const fs::path pageWorker = fs::path(VORLEN_SOURCE_DIR) / "worker";

class WorkerDeploymentAccountTest : public ::testing::Test {
protected:
    LocalCloudflareAccount& account = LocalCloudflareAccount::shared();
    CloudflareAPI api{account.setupToken(), std::make_shared<HttpClient>(), account.endpoints(),
                      RetryPolicy{5, std::chrono::duration<double>(0.5), [](std::chrono::nanoseconds) {}}};
    WorkerScripts scripts{api, account.accountID()};
    std::vector<std::string> progress;

    void SetUp() override {
        ASSERT_TRUE(fs::is_regular_file(pageWorker / "main.js")) << "run node worker/build.mjs first";
        account.reset();
        account.clearRequests();
    }
    void TearDown() override { account.reset(); }

    static std::string freshName(const char* prefix) {
        return prefix + randomString(10, "abcdefghijklmnopqrstuvwxyz0123456789");
    }

    WorkerDeployment deploymentOf(WorkerBundle bundle) {
        const std::string bucket = api.createBucket(account.accountID(), freshName("site-"), std::nullopt).name;
        const std::string sessions = api.createKVNamespace(account.accountID(), freshName("sessions-")).id;
        return WorkerDeployment{freshName("page-"), std::move(bundle), bucket, sessions, randomString(32, "abcdef0123456789")};
    }

    WorkerScript deploy(const WorkerDeployment& deployment) {
        return deployment.deploy(scripts, [&](const std::string& text) { progress.push_back(text); });
    }

    std::size_t requestsTo(const std::string& method, const std::string& suffix) const {
        std::size_t count = 0;
        for (const auto& request : account.requests())
            if (request.method == method && request.path.ends_with(suffix)) ++count;
        return count;
    }

    // A copy of the page Worker without its assets.
    WorkerBundle bundleWithoutAssets(const fs::path& dir) const {
        fs::copy_file(pageWorker / "manifest.json", dir / "manifest.json");
        fs::copy_file(pageWorker / "main.js", dir / "main.js");
        return WorkerBundle::load(dir);
    }
};

TEST_F(WorkerDeploymentAccountTest, DeploysThePageWorkerWithItsBindingsAndAssetsAndOnlyOnce) {
    const auto deployment = deploymentOf(WorkerBundle::load(pageWorker));
    const auto& bundle = deployment.bundle;
    ASSERT_FALSE(bundle.assets.empty());

    const auto script = deploy(deployment);
    EXPECT_EQ(script.id, deployment.scriptName);
    EXPECT_EQ(script.hasAssets, true);
    EXPECT_EQ(progress, (std::vector<std::string>{
                            fmt::format("Uploading {} static assets.", bundle.assets.size()),
                            fmt::format("Uploading the script of \u201c{}\u201d.", deployment.scriptName)}));
    EXPECT_GE(requestsTo("POST", "/workers/assets/upload"), 1u);

    const Json state = account.state();
    const Json& deployed = state["workers"]["scripts"][deployment.scriptName];
    EXPECT_EQ(deployed["main_module"], "main.js");
    EXPECT_EQ(deployed["compatibility_date"], bundle.manifest.compatibilityDate);
    EXPECT_EQ(deployed["bindings"], Json::parse(fmt::format(
                                        R"([{{"type":"r2_bucket","name":"BUCKET","bucket_name":"{}"}},
                                            {{"type":"kv_namespace","name":"SESSIONS","namespace_id":"{}"}},
                                            {{"type":"secret_text","name":"CHALLENGE_KEY"}}])",
                                        deployment.bucketName, deployment.sessionsNamespaceID)));
    EXPECT_EQ(deployed["assets"]["config"]["_headers"], *bundle.manifest.headers);
    const Json& manifest = deployed["assets"]["manifest"];
    EXPECT_EQ(manifest.size(), bundle.assets.size());
    for (const auto& asset : bundle.assets) {
        EXPECT_EQ(manifest[asset.path]["hash"], asset.hash) << asset.path;
        const Json& stored = state["workers"]["assets"][asset.hash];
        EXPECT_EQ(stored["size"], asset.size) << asset.path;
        EXPECT_EQ(stored["contentType"], asset.contentType) << asset.path;
    }

    const auto route = scripts.workersDevSubdomain(deployment.scriptName);
    EXPECT_FALSE(route.enabled);
    EXPECT_FALSE(route.previewsEnabled);

    // What is deployed reads back as current; another bucket would need a redeploy.
    const auto settings = scripts.settings(deployment.scriptName);
    ASSERT_TRUE(settings);
    EXPECT_TRUE(deployment.isDeployed(*settings));
    auto moved = deployment;
    moved.bucketName = "another-bucket";
    EXPECT_FALSE(moved.isDeployed(*settings));

    // Cloudflare has every file by its hash: the second deploy uploads none.
    account.clearRequests();
    progress.clear();
    deploy(deployment);
    EXPECT_EQ(requestsTo("POST", "/assets-upload-session"), 1u);
    EXPECT_EQ(requestsTo("POST", "/workers/assets/upload"), 0u);
    EXPECT_EQ(requestsTo("PUT", "/workers/scripts/" + deployment.scriptName), 1u);
    EXPECT_EQ(progress.size(), 2u);

    scripts.deleteScript(deployment.scriptName);
    EXPECT_FALSE(scripts.settings(deployment.scriptName));
}

TEST_F(WorkerDeploymentAccountTest, ABundleWithoutAssetsStartsNoUploadSession) {
    const fs::path dir = makeUniqueDirectory(fs::temp_directory_path(), "bare-worker-");
    DirectoryRemover remover(dir);
    const auto deployment = deploymentOf(bundleWithoutAssets(dir));

    const auto script = deploy(deployment);
    EXPECT_EQ(script.hasAssets, false);
    EXPECT_EQ(progress, (std::vector<std::string>{fmt::format("Uploading the script of \u201c{}\u201d.", deployment.scriptName)}));
    EXPECT_EQ(requestsTo("POST", "/assets-upload-session"), 0u);
    EXPECT_TRUE(account.state()["workers"]["scripts"][deployment.scriptName]["assets"].is_null());
    EXPECT_FALSE(scripts.workersDevSubdomain(deployment.scriptName).enabled);
}

TEST_F(WorkerDeploymentAccountTest, ManyAssetsGoUpInSeveralRequestsAndOneOfThemCompletesTheSet) {
    const fs::path dir = makeUniqueDirectory(fs::temp_directory_path(), "many-assets-");
    DirectoryRemover remover(dir);
    fs::create_directories(dir / "assets" / "pages");
    for (int i = 0; i < 25; ++i)
        writeFileAtomically(dir / "assets" / "pages" / fmt::format("{}.html", i), fmt::format("<p>{} {}</p>", i, freshName("")));
    const auto deployment = deploymentOf(bundleWithoutAssets(dir));
    ASSERT_EQ(deployment.bundle.assets.size(), 25u);

    EXPECT_EQ(deploy(deployment).hasAssets, true);
    // The local account asks for 10 files a request.
    EXPECT_EQ(requestsTo("POST", "/workers/assets/upload"), 3u);
    const Json state = account.state();
    const Json& manifest = state["workers"]["scripts"][deployment.scriptName]["assets"]["manifest"];
    EXPECT_EQ(manifest.size(), 25u);
    for (const auto& asset : deployment.bundle.assets)
        EXPECT_EQ(state["workers"]["assets"][asset.hash]["contentType"], "text/html; charset=utf-8") << asset.path;
}

TEST_F(WorkerDeploymentAccountTest, UploadSessionRefusesUnknownHashesAndAnEndWithoutACompletionToken) {
    const auto bundle = WorkerBundle::load(pageWorker);
    const std::string script = freshName("page-");
    auto sessionAnswer = [](const std::string& hash) {
        return Json{{"status", 200},
                    {"body", encodeJson({{"success", true},
                                         {"errors", Json::array()},
                                         {"result", {{"jwt", "upload-token"}, {"buckets", {{hash}}}}}})}};
    };

    account.setFaults({{"script", {sessionAnswer("0123456789abcdef0123456789abcdef")}}});
    try {
        scripts.uploadAssets(script, bundle.assets);
        ADD_FAILURE() << "an unknown hash was accepted";
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "Cloudflare requested an asset that the bundle does not have (0123456789abcdef0123456789abcdef)");
    }
    EXPECT_EQ(requestsTo("POST", "/workers/assets/upload"), 0u);

    const Json answerWithoutToken = {{"status", 202}, {"body", R"({"success":true,"errors":[],"result":{}})"}};
    account.setFaults({{"script", {sessionAnswer(bundle.assets[0].hash), answerWithoutToken}}});
    try {
        scripts.uploadAssets(script, bundle.assets);
        ADD_FAILURE() << "an upload without a completion token was accepted";
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), fmt::format("Cloudflare gave no completion token for the assets of \u201c{}\u201d", script));
    }
    EXPECT_EQ(requestsTo("POST", "/workers/assets/upload"), 1u);
}

TEST_F(WorkerDeploymentAccountTest, WorkerDomainsAreAttachedFoundAndDetached) {
    const fs::path dir = makeUniqueDirectory(fs::temp_directory_path(), "bare-worker-");
    DirectoryRemover remover(dir);
    const auto deployment = deploymentOf(bundleWithoutAssets(dir));
    deploy(deployment);
    const std::string zoneID = account.zones().at("dovrin.test");
    const std::string hostname = freshName("watch-") + ".dovrin.test";

    EXPECT_FALSE(scripts.findDomain(hostname));
    const auto attached = scripts.attachDomain(hostname, deployment.scriptName, zoneID);
    EXPECT_EQ(attached.hostname, hostname);
    EXPECT_EQ(attached.service, deployment.scriptName);
    EXPECT_EQ(attached.zoneID, zoneID);

    const auto found = scripts.findDomain(hostname);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->id, attached.id);

    scripts.detachDomain(attached.id);
    EXPECT_FALSE(scripts.findDomain(hostname));
    try {
        scripts.detachDomain(attached.id);
        ADD_FAILURE() << "a detached domain was detached again";
    } catch (const CloudflareError& error) {
        EXPECT_TRUE(error.isNotFound()) << error.what();
    }
}

}  // namespace
}  // namespace vorlen
