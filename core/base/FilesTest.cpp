#include "core/base/Files.hpp"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vorlen;

namespace {
struct TemporaryFolder {
    fs::path path = makeUniqueDirectory(fs::temp_directory_path(), "vorlen-files-test-");
    ~TemporaryFolder() { fs::remove_all(path); }
};
}  // namespace

TEST(FilesTest, AtomicWriteNeverShowsAHalfFile) {
    TemporaryFolder folder;
    fs::path target = folder.path / "settings.json";
    const std::string oldText(200000, 'o'), newText(300000, 'n');
    writeFileAtomically(target, oldText);

    // A writer killed at a random moment leaves the old file or the new one, and no stray temporary.
    for (int round = 0; round < 20; ++round) {
        pid_t child = fork();
        if (child == 0) {
            for (;;) {
                writeFileAtomically(target, newText);
                writeFileAtomically(target, oldText);
            }
        }
        usleep(static_cast<useconds_t>(200 + round * 150));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::string seen = readFile(target);
        EXPECT_TRUE(seen == oldText || seen == newText) << "size " << seen.size();
        for (auto& entry : fs::directory_iterator(folder.path))
            if (entry.path() != target) fs::remove(entry.path());  // a killed writer's temporary file
    }
}

TEST(FilesTest, WalkSkipsHiddenFilesAndFoldersAndSorts) {
    TemporaryFolder folder;
    fs::create_directories(folder.path / "b" / ".cache");
    fs::create_directories(folder.path / ".git");
    for (auto name : {"b/2.mp4", "b/.DS_Store", "b/.cache/x", ".git/config", "a.csv"})
        writeFileAtomically(folder.path / name, "x");
    auto files = walkVisibleFiles(folder.path);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0], folder.path / "a.csv");
    EXPECT_EQ(files[1], folder.path / "b" / "2.mp4");
    EXPECT_GT(availableSpace(folder.path), 0u);
    try {
        walkVisibleFiles(folder.path / "gone");
        FAIL() << "a missing folder was walked";
    } catch (const fs::filesystem_error& error) {
        EXPECT_EQ(error.path1(), folder.path / "gone");
    }
}
