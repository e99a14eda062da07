#include "core/vimeo/VimeoFileMatcher.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

using Difference = VimeoFileDifference;
using vimeoFileMatch::DurationDiffers;
using vimeoFileMatch::Matched;
using vimeoFileMatch::NoFile;
using vimeoFileMatch::Several;
using vimeoFileMatch::Shared;

VimeoVideo video(std::string id, std::string title, std::optional<double> duration) {
    VimeoVideo video;
    video.id = std::move(id);
    video.title = std::move(title);
    video.duration = duration;
    return video;
}

TEST(VimeoFileMatcherTest, KeysFoldNamesAndFindCopiesAndVimeoDownloadNames) {
    EXPECT_EQ(VimeoFileMatcher::nameKey("Été à Paris!"), VimeoFileMatcher::nameKey("ete a paris"));
    EXPECT_EQ(VimeoFileMatcher::nameKey("— ?! —"), std::nullopt);
    EXPECT_EQ(VimeoFileMatcher::fileKeys("/v/My Film (1).mp4"), (std::vector<std::string>{"My Film (1)", "My Film"}));
    EXPECT_EQ(VimeoFileMatcher::fileKeys("/v/123456789_v2 (1080p).mp4"),
              (std::vector<std::string>{"123456789_v2 (1080p)", "123456789"}));
    EXPECT_EQ(VimeoFileMatcher::fileKeys("/v/abc123_v2 (HD) (2).mp4"),
              (std::vector<std::string>{"abc123_v2 (HD) (2)", "abc123_v2 (HD)", "abc123"}));
}

TEST(VimeoFileMatcherTest, NamesMakeCandidatesAndADurationWithinASecondDecides) {
    const VimeoLocalFile copy{"/v/My Film (1).mp4", 100.9};
    const VimeoLocalFile download{"/v/Harbour_Walk_v2 (1080p).mp4", 30};
    const VimeoLocalFile longer{"/v/Pier.mp4", 101.0};
    const VimeoLocalFile unreadable{"/v/Crème.mkv", std::nullopt};
    const auto matches = VimeoFileMatcher::match(
        {video("1", "my film", 100.0), video("2", "Harbour Walk", 30.2), video("3", "Pier", 100.0),
         video("4", "Creme", 12), video("5", "?!", 100.0), video("6", "Elsewhere", 100.0)},
        {copy, download, longer, unreadable});
    EXPECT_EQ(matches.at("1"), VimeoFileMatch(Matched{copy, {}}));
    EXPECT_EQ(matches.at("2"), VimeoFileMatch(Matched{download, {}}));
    EXPECT_EQ(matches.at("3"), VimeoFileMatch(DurationDiffers{{longer}}));
    EXPECT_EQ(matches.at("4"), VimeoFileMatch(Matched{unreadable, {Difference::duration}}));
    EXPECT_EQ(matches.at("5"), VimeoFileMatch(NoFile{}));
    EXPECT_EQ(matches.at("6"), VimeoFileMatch(NoFile{}));
    EXPECT_EQ(VimeoFileMatcher::settledFile(matches.at("1")), copy);
    EXPECT_EQ(VimeoFileMatcher::settledFile(matches.at("3")), std::nullopt);
}

TEST(VimeoFileMatcherTest, TiesBetweenVideosAndBetweenFiles) {
    const VimeoLocalFile shortCut{"/v/Intro.mp4", 60};
    const VimeoLocalFile longCut{"/v/old/Intro (1).mp4", 90};
    auto matches = VimeoFileMatcher::match({video("1", "Intro", 60), video("2", "Intro", 90)}, {shortCut, longCut});
    EXPECT_EQ(matches.at("1"), VimeoFileMatch(Matched{shortCut, {}}));
    EXPECT_EQ(matches.at("2"), VimeoFileMatch(Matched{longCut, {}}));

    matches = VimeoFileMatcher::match({video("1", "Intro", 60), video("2", "Intro", 60), video("3", "Intro", 60.5)},
                                      {shortCut});
    EXPECT_EQ(matches.at("1"), VimeoFileMatch(Shared{shortCut, {"2", "3"}}));
    EXPECT_EQ(matches.at("2"), VimeoFileMatch(Shared{shortCut, {"1", "3"}}));
    EXPECT_EQ(matches.at("3"), VimeoFileMatch(Shared{shortCut, {"1", "2"}}));
    EXPECT_EQ(VimeoFileMatcher::settledFile(matches.at("1")), std::nullopt);

    const VimeoLocalFile inTitledFolder{"/v/intro/Intro (2).mp4", 60.4};
    matches = VimeoFileMatcher::match({video("1", "Intro", 60)}, {shortCut, inTitledFolder});
    EXPECT_EQ(matches.at("1"), VimeoFileMatch(Matched{inTitledFolder, {}}));
    matches = VimeoFileMatcher::match({video("1", "Intro", 60)}, {shortCut, {"/v/old/Intro.mp4", 60}});
    EXPECT_EQ(matches.at("1"), VimeoFileMatch(Several{{shortCut, {"/v/old/Intro.mp4", 60}}}));
}

TEST(VimeoFileMatcherTest, AChosenFileIsMatchedWithItsDifferences) {
    const auto harbour = video("1", "Harbour", 125);
    EXPECT_EQ(VimeoFileMatcher::chosen(harbour, {"/v/harbour (3).mp4", 124.5}),
              VimeoFileMatch(Matched{{"/v/harbour (3).mp4", 124.5}, {}}));
    EXPECT_EQ(VimeoFileMatcher::chosen(harbour, {"/v/take2.mp4", 130}),
              VimeoFileMatch(Matched{{"/v/take2.mp4", 130}, {Difference::name, Difference::duration}}));
    EXPECT_EQ(VimeoFileMatcher::chosen(harbour, {"/v/Harbour.mp4", std::nullopt}),
              VimeoFileMatch(Matched{{"/v/Harbour.mp4", std::nullopt}, {Difference::duration}}));
}

TEST(VimeoFileMatcherTest, TheWordsOfEachCase) {
    const auto harbour = video("1", "Harbour", 125);
    const VimeoLocalFile file{"/v/a/Harbour.mp4", 125};
    const VimeoLocalFile other{"/v/b/Harbour.mp4", 61};
    auto text = [&](const VimeoFileMatch& match, bool chosenByHand = false) {
        return VimeoFileMatcher::text(match, harbour, chosenByHand);
    };
    EXPECT_EQ(text(Matched{file, {}}), std::nullopt);
    EXPECT_EQ(text(NoFile{}), std::nullopt);
    EXPECT_EQ(text(Matched{file, {}}, true), "You chose this file: Harbour.mp4");
    EXPECT_EQ(text(Matched{other, {Difference::name, Difference::duration}}, true),
              "You chose this file: Harbour.mp4\nCheck that this is the file of the video.\n"
              "The file name is not the same as the title.");
    EXPECT_EQ(text(Matched{{"/v/Harbour.mkv", std::nullopt}, {Difference::duration}}),
              "Vorlen cannot read the duration of “Harbour.mkv”. Choose the file of this video.");
    EXPECT_EQ(text(Several{{file, other}}),
              "These files have the title and the duration of the video: Harbour.mp4 and Harbour.mp4. Choose the file "
              "of this video.");
    EXPECT_EQ(text(Shared{file, {"2", "3"}}),
              "“Harbour.mp4” has the title and the duration of 3 videos. Choose the file of each video, or import only "
              "one of them.");
    EXPECT_EQ(text(DurationDiffers{{other}}),
              "“Harbour.mp4” has the title, but it is 1:01, and the video on Vimeo is 2:05. Choose the file of this "
              "video.");
    EXPECT_EQ(VimeoFileMatcher::text(DurationDiffers{{other}}, video("1", "Harbour", std::nullopt), false),
              "“Harbour.mp4” has the title, but it is 1:01, and the video on Vimeo is of an unknown length. Choose the "
              "file of this video.");
    EXPECT_EQ(text(DurationDiffers{{other, {"/v/Harbour (1).mp4", 3}}}),
              "2 files have the title, but none has the duration of the video on Vimeo, 2:05. Choose the file of this "
              "video.");
}

TEST(VimeoFileMatcherTest, TheScanKeepsVisibleVideoFilesOnly) {
    const auto folder = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vimeo-scan-");
    const DirectoryRemover remover(folder);
    std::filesystem::create_directories(folder / "trips" / ".thumbnails");
    std::filesystem::create_directories(folder / ".trash");
    for (auto name : {"b.MOV", "a.mp4", "notes.txt", "mp4", ".hidden.mp4", "trips/c.mkv", "trips/.thumbnails/d.mp4",
                      ".trash/e.mp4"})
        writeFileAtomically(folder / name, "x");
    EXPECT_EQ(VimeoFileMatcher::scan({folder}),
              (std::vector<std::filesystem::path>{folder / "a.mp4", folder / "b.MOV", folder / "trips" / "c.mkv"}));

    try {
        VimeoFileMatcher::scan({folder / "gone"});
        FAIL() << "a missing folder was scanned";
    } catch (const VorlenError& error) {
        EXPECT_EQ(std::string(error.what()), "Vorlen cannot read the folder “" + (folder / "gone").string() + "”.");
    }
}

}  // namespace
}  // namespace vorlen
