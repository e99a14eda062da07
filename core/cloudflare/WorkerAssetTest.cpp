#include "core/cloudflare/WorkerAsset.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"

namespace vorlen {
namespace {

class WorkerAssetTest : public ::testing::Test {
protected:
    fs::path dir = makeUniqueDirectory(fs::temp_directory_path(), "worker-asset-");
    DirectoryRemover remover{dir};

    fs::path write(const std::string& name, const std::string& bytes) {
        writeFileAtomically(dir / name, bytes);
        return dir / name;
    }
};

TEST_F(WorkerAssetTest, HashDependsOnTheBytesAndTheExtensionOnly) {
    const std::string css = "body { color: red; }\n";
    // Computed apart: printf '%s' "$(printf 'body { color: red; }\n' | base64 -w0)css" | sha256sum | cut -c1-32
    EXPECT_EQ(workerAssetHash(write("site.css", css)), "f151f2272a9142c2a9d58b6227d9f0ad");
    EXPECT_EQ(workerAssetHash(write("other-name.css", css)), "f151f2272a9142c2a9d58b6227d9f0ad");
    EXPECT_NE(workerAssetHash(write("site.txt", css)), "f151f2272a9142c2a9d58b6227d9f0ad");
    EXPECT_NE(workerAssetHash(write("site2.css", css + " ")), "f151f2272a9142c2a9d58b6227d9f0ad");

    // Longer than one piece of the streamed reading, and not a multiple of 3 bytes:
    // head -c 200000 /dev/zero | tr '\0' a > big.txt; printf '%s' "$(base64 -w0 big.txt)txt" | sha256sum
    EXPECT_EQ(workerAssetHash(write("big.txt", std::string(200000, 'a'))), "02961ba24055c6118be929ba49e0ad94");

    const auto asset = WorkerAsset::make("/site.css", dir / "site.css", static_cast<std::int64_t>(css.size()));
    EXPECT_EQ(asset.hash, "f151f2272a9142c2a9d58b6227d9f0ad");
    EXPECT_EQ(asset.contentType, "text/css; charset=utf-8");
}

TEST_F(WorkerAssetTest, ContentTypesAreStandardWithACharsetForText) {
    EXPECT_EQ(workerAssetContentType("a/site.css"), "text/css; charset=utf-8");
    EXPECT_EQ(workerAssetContentType("page.HTML"), "text/html; charset=utf-8");
    EXPECT_EQ(workerAssetContentType("player.js"), "text/javascript; charset=utf-8");
    EXPECT_EQ(workerAssetContentType("icon.svg"), "image/svg+xml");
    EXPECT_EQ(workerAssetContentType("font.woff2"), "font/woff2");
    EXPECT_EQ(workerAssetContentType("data.json"), "application/json");
    EXPECT_EQ(workerAssetContentType("master.m3u8"), "application/vnd.apple.mpegurl");
    EXPECT_EQ(workerAssetContentType("LICENSE"), "application/octet-stream");
    EXPECT_EQ(workerAssetContentType("archive.unknownext"), "application/octet-stream");
}

}  // namespace
}  // namespace vorlen
