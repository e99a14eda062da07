#include "core/cloudflare/WorkerBundle.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

class WorkerBundleTest : public ::testing::Test {
protected:
    fs::path dir = makeUniqueDirectory(fs::temp_directory_path(), "worker-bundle-");
    DirectoryRemover remover{dir};

    static Json validManifest() {
        return {{"format", 2},
                {"version", "1.2.3"},
                {"compatibility_date", "2026-04-20"},
                {"main_module", "main.js"},
                {"bucket_binding", "BUCKET"},
                {"sessions_binding", "SESSIONS"},
                {"challenge_key_binding", "CHALLENGE_KEY"}};
    }

    void SetUp() override {
        writeFileAtomically(dir / "main.js", "export default {};\n");
        writeManifest(validManifest());
    }

    void writeManifest(const Json& manifest) { writeFileAtomically(dir / "manifest.json", manifest.dump()); }
    void writeAsset(const std::string& relative, const std::string& bytes) {
        fs::create_directories((dir / "assets" / relative).parent_path());
        writeFileAtomically(dir / "assets" / relative, bytes);
    }
    // A sparse file: its size costs no disk and no time to write.
    void writeSparseAsset(const std::string& relative, std::uintmax_t size) {
        writeAsset(relative, "");
        fs::resize_file(dir / "assets" / relative, size);
    }

    std::string refusal() {
        try {
            WorkerBundle::load(dir);
        } catch (const VorlenError& error) {
            EXPECT_TRUE(error.is<failure::Config>()) << error.text();
            return error.text();
        }
        ADD_FAILURE() << "the bundle was accepted";
        return "";
    }
    std::string refusalWith(const char* key, const Json& value) {
        Json manifest = validManifest();
        if (value.is_null())
            manifest.erase(key);
        else
            manifest[key] = value;
        writeManifest(manifest);
        return refusal();
    }
};

TEST_F(WorkerBundleTest, ReadsTheManifestAndWalksTheAssetsWithoutFollowingLinks) {
    Json manifest = validManifest();
    manifest["headers"] = "/_assets/*\n  Cache-Control: public\n";
    manifest["later_key"] = true;
    writeManifest(manifest);
    writeAsset("index.html", "<p>hi</p>");
    writeAsset("_assets/deep/site.css", "body{}");
    writeAsset(".well-known/x.txt", "x");
    fs::create_directories(dir / "outside");
    writeFileAtomically(dir / "outside" / "secret.txt", "not an asset");
    fs::create_symlink(dir / "outside", dir / "assets" / "linked-folder");
    fs::create_symlink(dir / "outside" / "secret.txt", dir / "assets" / "linked.txt");

    const auto bundle = WorkerBundle::load(dir);
    EXPECT_EQ(bundle.manifest.version.text(), "1.2.3");
    EXPECT_EQ(bundle.manifest.compatibilityDate, "2026-04-20");
    EXPECT_EQ(bundle.manifest.challengeKeyBinding, "CHALLENGE_KEY");
    EXPECT_EQ(bundle.manifest.headers, "/_assets/*\n  Cache-Control: public\n");
    EXPECT_EQ(bundle.mainModuleFile(), dir / "main.js");

    std::vector<std::string> paths;
    for (const auto& asset : bundle.assets) paths.push_back(asset.path);
    EXPECT_EQ(paths, (std::vector<std::string>{"/.well-known/x.txt", "/_assets/deep/site.css", "/index.html"}));
    EXPECT_EQ(bundle.assets[1].size, 6);
    EXPECT_EQ(bundle.assets[1].contentType, "text/css; charset=utf-8");
    EXPECT_EQ(bundle.assets[1].file, dir / "assets" / "_assets" / "deep" / "site.css");

    // Without an assets folder the bundle simply has none.
    fs::remove_all(dir / "assets");
    EXPECT_TRUE(WorkerBundle::load(dir).assets.empty());
}

TEST_F(WorkerBundleTest, RefusesAManifestThatIsMissingOrOfAnotherFormat) {
    fs::remove(dir / "manifest.json");
    EXPECT_TRUE(refusal().starts_with("the Worker bundle has no manifest.json: ")) << refusal();

    EXPECT_EQ(refusalWith("format", nullptr), "the manifest.json of the Worker bundle has no format");
    // A later format is named as such even when the rest no longer decodes.
    writeManifest({{"format", 3}, {"entry", "main.js"}});
    EXPECT_EQ(refusal(), "the Worker bundle has format 3. This app reads format 2");

    EXPECT_TRUE(refusalWith("main_module", 7).starts_with("the manifest.json of the Worker bundle can\u2019t be read: "));
    writeFileAtomically(dir / "manifest.json", "{format: 2");
    EXPECT_TRUE(refusal().starts_with("the manifest.json of the Worker bundle can\u2019t be read: "));
}

TEST_F(WorkerBundleTest, RefusesABadDateMainModuleOrBindingName) {
    for (const char* date : {"2026-4-20", "20260420", "2026-04-20T00:00", ""})
        EXPECT_EQ(refusalWith("compatibility_date", date),
                  fmt::format("\u201c{}\u201d is not a compatibility date (YYYY-MM-DD)", date));

    fs::create_directories(dir / "src");
    writeFileAtomically(dir / "src" / "main.js", "");
    for (const char* name : {"absent.js", "src/main.js", "", "src", ".."})
        EXPECT_EQ(refusalWith("main_module", name), fmt::format("the Worker bundle has no main module \u201c{}\u201d", name));

    for (const char* key : {"bucket_binding", "sessions_binding", "challenge_key_binding"})
        EXPECT_EQ(refusalWith(key, ""), "the Worker bundle has no name for a binding") << key;
}

TEST_F(WorkerBundleTest, AnAssetMayHaveTwentyFiveMebibytesAndNotOneByteMore) {
    writeSparseAsset("video/intro.mp4", 26214400);
    const auto bundle = WorkerBundle::load(dir);
    ASSERT_EQ(bundle.assets.size(), 1u);
    EXPECT_EQ(bundle.assets[0].size, 26214400);

    writeSparseAsset("video/long.mp4", 26214401);
    EXPECT_EQ(refusal(), "the asset /video/long.mp4 has 26214401 bytes. An asset can have 26214400 bytes at most.");
}

}  // namespace
}  // namespace vorlen
