#include "core/publish/SubtitleDocument.hpp"

#include <gtest/gtest.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

std::string failure(std::string_view bytes, const std::string& name = "talk.srt") {
    try {
        SubtitleDocument::parse(bytes, name);
    } catch (const VorlenError& error) {
        return error.what();
    }
    return "no failure";
}

TEST(SubtitleDocumentTest, SubRipBecomesWebVTTWhateverItsTimesLookLike) {
    // Commas and full stops, 1-digit hours and fields, short milliseconds, CR LF,
    // coordinates after the times, and a cue whose index follows without a blank line.
    std::string srt =
        "1\r\n00:00:01,000 --> 00:00:02,500\r\nHello\r\nthere\r\n\r\n"
        "2\r\n0:0:3.5 --> 0:00:04.25 X1:10 X2:20\r\nSecond\r\n"
        "3\r\n100:01:02,003-->100:01:03,004\r\nThird\r\n";
    auto document = SubtitleDocument::parse(srt, "talk.srt");
    EXPECT_EQ(document.webVTT,
              "WEBVTT\n\n"
              "00:00:01.000 --> 00:00:02.500\nHello\nthere\n\n"
              "00:00:03.005 --> 00:00:04.025\nSecond\n\n"
              "100:01:02.003 --> 100:01:03.004\nThird\n\n");
    EXPECT_EQ(document.cueCount, 3);
}

TEST(SubtitleDocumentTest, CueTextKeepsWhatWebVTTKnowsAndDropsTheRest) {
    std::string srt =
        "1\n00:00:01,000 --> 00:00:02,000\n<font color=\"#ffff00\">Yellow</FONT> and <i>italic</i>\n"
        "{\\an8}On top\n<font size=2></font>\nA --> B\n";
    EXPECT_EQ(SubtitleDocument::parse(srt, "a.srt").webVTT,
              "WEBVTT\n\n00:00:01.000 --> 00:00:02.000\nYellow and <i>italic</i>\nOn top\nA --&gt; B\n\n");
}

TEST(SubtitleDocumentTest, WebVTTIsTakenAsItIsOnceItsByteOrderMarkIsGone) {
    std::string vtt = "WEBVTT - a title\n\nNOTE a comment\n\n00:01.000 --> 00:02.000 line:0\n<b>Bold</b>\n\n"
                      "cue-2\n00:03.000 --> 00:04.000\nMore\n";
    auto document = SubtitleDocument::parse("\xEF\xBB\xBF" + vtt, "a.vtt");
    EXPECT_EQ(document.webVTT, vtt);
    EXPECT_EQ(document.cueCount, 2);

    // The same file as UTF-16 with its mark, little-endian and big-endian.
    std::string little = "\xFF\xFE", big = "\xFE\xFF";
    for (char c : vtt) {
        little += std::string{c, '\0'};
        big += std::string{'\0', c};
    }
    EXPECT_EQ(SubtitleDocument::parse(little, "a.vtt"), document);
    EXPECT_EQ(SubtitleDocument::parse(big, "a.vtt"), document);
}

TEST(SubtitleDocumentTest, TextThatIsNotUtf8ReadsAsWindows1252) {
    auto text = SubtitleDocument::decodeText("caf\xE9 \x93quoted\x94 \x80");
    ASSERT_TRUE(text);
    EXPECT_EQ(*text, "caf\u00e9 \u201cquoted\u201d \u20ac");
    EXPECT_EQ(SubtitleDocument::decodeText("d\xC3\xA9j\xC3\xA0"), "d\u00e9j\u00e0");
    EXPECT_FALSE(SubtitleDocument::decodeText(std::string("ftyp\0\0\0\x18mp42", 12)));
}

TEST(SubtitleDocumentTest, FailuresNameTheFile) {
    const std::string notSubtitles = "\u201ctalk.srt\u201d is not a subtitle file. Vorlen reads WebVTT and SubRip files.";
    EXPECT_EQ(failure(std::string("\0\0\0\x20" "ftypisom", 12)), notSubtitles);
    EXPECT_EQ(failure("Just some notes\nwith no times in them\n"), notSubtitles);
    EXPECT_EQ(failure(""), notSubtitles);
    EXPECT_EQ(failure("1\n00:00:01 --> 00:00:02\nNo milliseconds\n"), notSubtitles);
    EXPECT_EQ(failure("WEBVTT\n\nNOTE nothing yet\n", "empty.vtt"), "\u201cempty.vtt\u201d has no subtitles in it.");

    fs::path folder = makeUniqueDirectory(fs::temp_directory_path(), "subtitle-document-test-");
    DirectoryRemover remover(folder);
    writeFileAtomically(folder / "notes.txt", "nothing timed");
    try {
        SubtitleDocument::read(folder / "notes.txt");
        ADD_FAILURE() << "a file without cues was read";
    } catch (const VorlenError& error) {
        EXPECT_EQ(std::string(error.what()),
                  "\u201cnotes.txt\u201d is not a subtitle file. Vorlen reads WebVTT and SubRip files.");
    }
}

}  // namespace
}  // namespace vorlen
