#include "app/LibraryModel.hpp"

#include <gtest/gtest.h>

namespace vorlen::app {
namespace {

LibraryVideo video(const std::string& folder, const std::string& title, const char* created,
                   VideoVisibility visibility = VideoVisibility::publicVideo) {
    const auto time = parseIso8601(created).value();
    return {folder, folder + "/",
            LibraryVideo::Valid{{VideoDetails(title, std::nullopt, std::nullopt, visibility), std::nullopt, 30.0,
                                 std::nullopt, time, time, std::nullopt, std::nullopt}},
            true};
}

class ScriptedLibraryService final : public LibraryService {
public:
    std::optional<std::vector<LibraryVideo>> cached;
    std::vector<LibraryVideo> current;
    std::optional<std::string> failure;

    std::optional<std::vector<LibraryVideo>> cachedVideos(const BucketAccess&) override { return cached; }
    std::vector<LibraryVideo> read(const BucketAccess&, const std::function<void(const LibraryReadProgress&)>& onProgress) override {
        onProgress({LibraryReadProgress::Reading{1, 1}});
        if (failure) throw std::runtime_error(*failure);
        return current;
    }
    std::optional<std::filesystem::path> thumbnail(const BucketAccess&, const LibraryVideo&) override { return std::nullopt; }
    void clearCache() override {}
    // The model reads; it changes nothing.
    LibraryVideo video(const BucketAccess&, const std::string&) override { throw std::logic_error("not read here"); }
    LibraryVideo saveDetails(const BucketAccess&, const LibraryVideo&, const VideoDetails&) override { throw std::logic_error("no change"); }
    PosterChange changePoster(const BucketAccess&, const LibraryVideo&, const std::filesystem::path&) override { throw std::logic_error("no change"); }
    VideoMove changeVisibility(const BucketAccess&, const LibraryVideo&, VideoVisibility) override { throw std::logic_error("no change"); }
    void remove(const BucketAccess&, const LibraryVideo&) override { throw std::logic_error("no change"); }
    void purge(const BucketAccess&, const std::string&, bool) override { throw std::logic_error("no change"); }
};

TEST(LibraryModelTest, TheCachedListShowsFirstAndAFailedReadingKeepsTheCurrentOne) {
    PostedQueue queue;
    auto service = std::make_shared<ScriptedLibraryService>();
    service->cached = std::vector{video("old", "Old", "2026-01-01T00:00:00Z")};
    service->current = {video("old", "Old", "2026-01-01T00:00:00Z"), video("new", "New", "2026-02-01T00:00:00Z")};
    SiteSummary site;
    site.pageHost = Hostname::parse("videos.example.com");
    auto model = LibraryModel::make(service, [site] { return BucketAccess{site, std::nullopt}; }, site, queue);

    model->refresh();
    ASSERT_TRUE(model->listing());
    EXPECT_FALSE(model->listing()->isCurrent);
    EXPECT_EQ(model->listing()->entries.size(), 1u);
    queue.runUntil([&] { return !model->isRefreshing(); });
    ASSERT_TRUE(model->listing()->isCurrent);
    EXPECT_EQ(model->listing()->entries[1].page, "https://videos.example.com/new");

    service->failure = "The bucket does not answer.";
    model->refresh();
    queue.runUntil([&] { return !model->isRefreshing(); });
    EXPECT_EQ(model->refreshFailure(), "The bucket does not answer.");
    EXPECT_EQ(model->listing()->entries.size(), 2u);
}

TEST(LibraryModelTest, EntriesAreOrderedAndSearchedAsPeopleExpect) {
    SiteSummary site;
    std::vector<LibraryEntry> entries;
    entries.push_back(LibraryEntry::from(video("b", "Été à Paris", "2026-03-01T00:00:00Z"), site));
    entries.push_back(LibraryEntry::from(video("a", "autumn", "2026-01-01T00:00:00Z", VideoVisibility::unlisted), site));
    entries.push_back(LibraryEntry::from({"c", "c/", LibraryVideo::Missing{}, true}, site));
    entries.push_back(LibraryEntry::from({"d", "d/", LibraryVideo::Unreadable{"newer"}, true}, site));

    auto folders = [](const std::vector<LibraryEntry>& arranged) {
        std::string text;
        for (const auto& entry : arranged) text += entry.folder();
        return text;
    };
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::newest)), "bacd");  // undated last, by folder
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::title)), "acdb");   // "c", "d" by folder name as title
    EXPECT_EQ(folders(arrangedEntries(entries, LibraryOrder::title, "ete PARIS")), "b");
    EXPECT_EQ(entries[2].visibility, VideoVisibility::publicVideo);
    EXPECT_FALSE(entries[3].visibility);
    EXPECT_EQ(entries[3].problem, "newer");
}

}  // namespace
}  // namespace vorlen::app
