#include "core/cloudflare/WorkerResources.hpp"

#include <gtest/gtest.h>

namespace vorlen {
namespace {

WorkerScriptUpload upload() {
    WorkerScriptUpload upload;
    upload.mainModule = "main.js";
    upload.module = "export default {};";
    upload.compatibilityDate = "2026-04-20";
    upload.bindings = {{"r2_bucket", "BUCKET", "films", std::nullopt}, {"kv_namespace", "SESSIONS", std::nullopt, "ns1"}};
    upload.secrets = {{"CHALLENGE_KEY", "s3cr3t-value"}};
    return upload;
}

const WorkerBinding bucket{"r2_bucket", "BUCKET", "films", std::nullopt};
const WorkerBinding sessions{"kv_namespace", "SESSIONS", std::nullopt, "ns1"};
const WorkerBinding challengeKey{"secret_text", "CHALLENGE_KEY", std::nullopt, std::nullopt};

TEST(WorkerResourcesTest, MetadataWritesTheBindingsInOrderAndAssetsOnlyWhenThereAreAny) {
    auto withoutAssets = upload();
    withoutAssets.assetsHeaders = "/_assets/*\n  X: y\n";  // headers alone make no "assets" object
    EXPECT_EQ(Json(withoutAssets.metadata()), Json::parse(R"({
        "main_module": "main.js", "compatibility_date": "2026-04-20",
        "bindings": [{"type": "r2_bucket", "name": "BUCKET", "bucket_name": "films"},
                     {"type": "kv_namespace", "name": "SESSIONS", "namespace_id": "ns1"},
                     {"type": "secret_text", "name": "CHALLENGE_KEY", "text": "s3cr3t-value"}]})"));

    auto withAssets = upload();
    withAssets.assetsJWT = "completion";
    EXPECT_EQ(Json(withAssets.metadata())["assets"], Json::parse(R"({"jwt": "completion"})"));
    withAssets.assetsHeaders = "/_assets/*\n  X: y\n";
    EXPECT_EQ(Json(withAssets.metadata())["assets"],
              Json::parse(R"({"jwt": "completion", "config": {"_headers": "/_assets/*\n  X: y\n"}})"));

    const auto form = withAssets.form();
    ASSERT_EQ(form.parts.size(), 2u);
    EXPECT_EQ(form.parts[0].name, "metadata");
    EXPECT_EQ(form.parts[0].contentType, "application/json");
    EXPECT_EQ(Json::parse(form.parts[0].data), Json(withAssets.metadata()));
    EXPECT_EQ(form.parts[1].name, "main.js");
    EXPECT_EQ(form.parts[1].fileName, "main.js");
    EXPECT_EQ(form.parts[1].contentType, "application/javascript+module");
    EXPECT_EQ(form.parts[1].data, "export default {};");

    EXPECT_EQ(WorkerSecret({"CHALLENGE_KEY", "s3cr3t-value"}).description().find("s3cr3t"), std::string::npos);
}

TEST(WorkerResourcesTest, SettingsMatchInAnyOrderComparingASecretByNameOnly) {
    const auto deployed = Json::parse(R"({"compatibility_date": "2026-04-20", "usage_model": "standard", "bindings": [
        {"type": "secret_text", "name": "CHALLENGE_KEY"},
        {"type": "kv_namespace", "name": "SESSIONS", "namespace_id": "ns1"},
        {"type": "r2_bucket", "name": "BUCKET", "bucket_name": "films", "jurisdiction": "default"}]})")
                              .get<WorkerScriptSettings>();
    EXPECT_TRUE(deployed.matches({bucket, sessions, challengeKey}, "2026-04-20"));
    // A secret's text, which Cloudflare never gives back, is no reason to redeploy.
    EXPECT_TRUE(deployed.matches({WorkerBinding{"secret_text", "CHALLENGE_KEY", "x", "y"}, sessions, bucket}, "2026-04-20"));

    EXPECT_FALSE(deployed.matches({bucket, sessions, challengeKey}, "2026-04-21"));
    EXPECT_FALSE(deployed.matches({WorkerBinding{"r2_bucket", "BUCKET", "other", std::nullopt}, sessions, challengeKey},
                                  "2026-04-20"));
    EXPECT_FALSE(deployed.matches({bucket, WorkerBinding{"kv_namespace", "SESSIONS", std::nullopt, "ns2"}, challengeKey},
                                  "2026-04-20"));
    EXPECT_FALSE(deployed.matches({bucket, sessions, WorkerBinding{"secret_text", "KEY", std::nullopt, std::nullopt}},
                                  "2026-04-20"));
    EXPECT_FALSE(deployed.matches({bucket, sessions}, "2026-04-20"));
    EXPECT_FALSE(deployed.matches({bucket, sessions, challengeKey, challengeKey}, "2026-04-20"));
    const WorkerScriptSettings undated{{bucket, sessions, challengeKey}, std::nullopt};
    EXPECT_FALSE(undated.matches({bucket, sessions, challengeKey}, "2026-04-20"));
}

}  // namespace
}  // namespace vorlen
