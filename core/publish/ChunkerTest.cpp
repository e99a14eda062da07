#include "core/publish/Chunker.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

struct TempDir {
    fs::path path;
    explicit TempDir(const fs::path& parent = fs::temp_directory_path())
        : path(makeUniqueDirectory(parent, "chunker-test-")) {}
    ~TempDir() { fs::remove_all(path); }
};

void writeStream(const fs::path& directory, const std::vector<std::string>& contents) {
    fs::create_directories(directory);
    writeFileAtomically(directory / "init.mp4", contents[0]);
    for (std::size_t i = 1; i < contents.size(); ++i)
        writeFileAtomically(directory / (std::to_string(i) + ".m4s"), contents[i]);
}

std::string manifestFailure(const std::function<void()>& action) {
    try {
        action();
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Manifest>());
        return error.text();
    }
    return "no failure";
}

TEST(ChunkerTest, LayoutStartsANewChunkOnlyBeforeASegmentThatWouldOverflow) {
    auto layout = Chunker::layout("v_1080", 4, {4, 4, 20, 3}, 10);
    EXPECT_EQ(layout.initSegment, (ChunkRange{"v_1080/001.mp4", {0, 4}}));
    ASSERT_EQ(layout.segments.size(), 4u);
    EXPECT_EQ(layout.segments[0], (ChunkRange{"v_1080/001.mp4", {4, 4}}));
    EXPECT_EQ(layout.segments[1], (ChunkRange{"v_1080/002.mp4", {0, 4}}));
    EXPECT_EQ(layout.segments[2], (ChunkRange{"v_1080/003.mp4", {0, 20}})) << "an oversized segment stands alone, whole";
    EXPECT_EQ(layout.segments[3], (ChunkRange{"v_1080/004.mp4", {0, 3}}));
    EXPECT_EQ(layout.files(), (std::vector<std::string>{"v_1080/001.mp4", "v_1080/002.mp4", "v_1080/003.mp4",
                                                        "v_1080/004.mp4"}));

    // Exactly full is not over; an init larger than the limit still shares chunk 1 with nothing.
    auto exact = Chunker::layout("a", 2, {8, 1}, 10);
    EXPECT_EQ(exact.segments[0].file, "a/001.mp4");
    EXPECT_EQ(exact.segments[1].file, "a/002.mp4");
    auto bigInit = Chunker::layout("a", 12, {1}, 10);
    EXPECT_EQ(bigInit.segments[0], (ChunkRange{"a/002.mp4", {0, 1}}));
    // Near the top of the 64-bit range the sum must not wrap around into "fits".
    auto huge = Chunker::layout("a", 1, {UINT64_MAX - 1, 5}, UINT64_MAX - 1);
    EXPECT_EQ(huge.segments[0].file, "a/002.mp4");
    EXPECT_EQ(huge.segments[1].file, "a/003.mp4");
}

TEST(ChunkerTest, SegmentsMustBeNumberedWithoutGaps) {
    TempDir dir;
    EXPECT_EQ(manifestFailure([&] { Chunker::segmentFiles(dir.path); }), "no media segments in " + dir.path.string());
    for (const char* name : {"1.m4s", "2.m4s", "3.m4s", "10.m4s", "init.mp4", "x.m4s", "4.m4s.tmp", "99999999999.m4s"})
        writeFileAtomically(dir.path / name, "x");
    for (int n = 4; n <= 9; ++n) {
        if (n != 7) writeFileAtomically(dir.path / (std::to_string(n) + ".m4s"), "x");
    }
    EXPECT_EQ(manifestFailure([&] { Chunker::segmentFiles(dir.path); }),
              "media segments in " + dir.path.string() + " are not numbered 1..9");
    writeFileAtomically(dir.path / "7.m4s", "x");
    auto files = Chunker::segmentFiles(dir.path);
    ASSERT_EQ(files.size(), 10u);
    EXPECT_EQ(files[1].filename(), "2.m4s");
    EXPECT_EQ(files[9].filename(), "10.m4s") << "numeric order, not text order";
}

TEST(ChunkerTest, ChunkFilesHoldEveryPieceAtItsRange) {
    TempDir dir;
    auto input = dir.path / "package";
    const std::vector<std::string> contents{"INIT", "aaaa", "bbbb", std::string(20, 'c')};
    writeStream(input / "v_360", contents);

    auto layout = Chunker::chunk(PackagedStream{"v_360"}, input, dir.path / "publish", 10);
    EXPECT_EQ(layout, Chunker::layout("v_360", 4, {4, 4, 20}, 10));
    EXPECT_EQ(readFile(dir.path / "publish/v_360/001.mp4"), "INITaaaa");
    EXPECT_EQ(readFile(dir.path / "publish/v_360/002.mp4"), "bbbb");
    EXPECT_EQ(readFile(dir.path / "publish/v_360/003.mp4"), contents[3]);
    EXPECT_FALSE(fs::exists(dir.path / "publish/v_360/004.mp4"));
}

TEST(ChunkerTest, ACancelledTaskStopsBeforeCopying) {
    TempDir dir;
    writeStream(dir.path / "v_360", {"INIT", "aaaa"});
    auto scope = CancellationScope::makeRoot();
    ScopeBinding binding(scope);
    scope->cancel();
    EXPECT_THROW(Chunker::chunk(PackagedStream{"v_360"}, dir.path, dir.path / "out", 1000), Cancelled);
}

TEST(ChunkerTest, CopiesBetweenFileSystemsThroughTheBuffer) {
    // The kernel does not copy from a memory file system to a disk one, so the buffer carries it.
    if (!fs::is_directory("/dev/shm")) GTEST_SKIP() << "no /dev/shm to put the input on";
    TempDir input("/dev/shm");
    TempDir output;
    std::string big(Chunker::copyBufferBytes * 2 + 17, '\0');
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 % 251);
    writeStream(input.path / "a_stereo", {"INIT", big, "tail"});
    auto layout = Chunker::chunk(PackagedStream{"a_stereo"}, input.path, output.path, Chunker::maxChunkBytes);
    EXPECT_EQ(layout.files().size(), 1u);
    EXPECT_EQ(readFile(output.path / "a_stereo/001.mp4"), "INIT" + big + "tail");
}

TEST(ChunkerTest, AFileThatIsNotTheSizeItWasMeasuredAtIsRefused) {
    // A sysfs file reports 4096 bytes and reads fewer, as a segment rewritten under our feet would.
    const fs::path shrinking = "/sys/kernel/mm/transparent_hugepage/enabled";
    if (!fs::exists(shrinking)) GTEST_SKIP() << "no " << shrinking;
    TempDir dir;
    writeStream(dir.path / "v_360", {"INIT", "aaaa"});
    fs::create_symlink(shrinking, dir.path / "v_360/2.m4s");
    EXPECT_EQ(manifestFailure([&] { Chunker::chunk(PackagedStream{"v_360"}, dir.path, dir.path / "out", 1000); }),
              (dir.path / "v_360/2.m4s").string() + " changed size while chunking");
}

}  // namespace
}  // namespace vorlen
