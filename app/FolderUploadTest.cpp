#include "app/FolderUpload.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/storage/FolderBucket.hpp"

using namespace vorlen;
using namespace vorlen::app;

TEST(FolderUploadTest, AFolderGoesUpWithItsHeadersAndTheJournalTellsOfIt) {
    auto root = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-folder-upload-");
    DirectoryRemover remover(root);
    std::filesystem::create_directories(root / "film" / "v_360");
    writeFileAtomically(root / "film" / "master.m3u8", "#EXTM3U\n");
    writeFileAtomically(root / "film" / "v_360" / "001.mp4", std::string(3000, 'v'));
    writeFileAtomically(root / "film" / ".hidden", "not for the bucket");

    FolderUpload upload;
    upload.folder = root / "film";
    upload.endpoint = "file://" + (root / "buckets").string();
    upload.bucket = "videos";
    upload.prefix = "library";
    UploadJournal journal;
    std::uint64_t reported = 0;
    auto result = upload.run(journal, [&](const UploadProgress& progress) { reported = progress.reportedBytes; });
    EXPECT_EQ(result.files, 2u);
    EXPECT_EQ(result.bytes, 3008u);
    EXPECT_EQ(reported, 3008u);

    FolderBucket bucket(root / "buckets" / "videos");
    EXPECT_EQ(bucket.listKeys(""), (std::vector<std::string>{"library/master.m3u8", "library/v_360/001.mp4"}));
    auto entries = journal.entries();
    ASSERT_FALSE(entries.empty());
    EXPECT_NE(entries.front().find("upload started: 2 files, 3008 bytes"), std::string::npos) << entries.front();
    EXPECT_NE(entries.back().find("upload ended: 3008 bytes"), std::string::npos) << entries.back();
}
