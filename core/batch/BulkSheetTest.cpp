#include "core/batch/BulkSheet.hpp"

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <iterator>

using namespace vorlen;

namespace {

using Rows = std::vector<std::vector<std::string>>;

BulkColumnMapping fileIn(BulkSheetColumn column) {
    BulkColumnMapping mapping;
    mapping.file = std::move(column);
    return mapping;
}

const BulkColumnMapping fileOnly = fileIn({0, "File"});

BulkColumnMapping fileAnd(std::optional<BulkSheetColumn> BulkColumnMapping::*role, BulkSheetColumn column) {
    BulkColumnMapping mapping = fileOnly;
    mapping.*role = std::move(column);
    return mapping;
}

const BulkColumnMapping fileAndTitle = fileAnd(&BulkColumnMapping::title, {1, "Title"});
const BulkColumnMapping fileAndReference = fileAnd(&BulkColumnMapping::reference, {1, "Reference"});

BulkSheet sheetOf(std::string_view text) {
    return BulkSheet::open(DelimitedText::parse(text, delimiterRule::CommaOrSemicolon{}));
}

// The words of a failure of the given kind.
template <class Kind>
std::string failureText(const std::function<void()>& work) {
    try {
        work();
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<Kind>());
        return error.text();
    }
    return "no failure";
}

// Folder, page URL, status.
std::array<std::int64_t, 3> positions(const BulkSheet& sheet) {
    return {sheet.addedColumns.folder, sheet.addedColumns.pageURL, sheet.addedColumns.status};
}

std::vector<std::int64_t> indices(const std::vector<BulkRow>& rows) {
    std::vector<std::int64_t> result;
    for (const BulkRow& row : rows) result.push_back(row.index);
    return result;
}

class BulkSheetFileTest : public ::testing::Test {
protected:
    BulkSheetFileTest() : folder_(makeUniqueDirectory(fs::temp_directory_path(), "vorlen-sheet-")) {}
    ~BulkSheetFileTest() override {
        fs::permissions(folder_, fs::perms::owner_all);
        fs::remove_all(folder_);
    }

    fs::path write(const std::string& name, std::string_view bytes) const {
        writeFileAtomically(folder_ / name, bytes);
        return folder_ / name;
    }

    fs::path folder_;
};

}  // namespace

TEST_F(BulkSheetFileTest, TheCopySitsBesideTheInputWithPublishedBehindTheStem) {
    EXPECT_EQ(BulkSheetFile::outputPath("/videos/videos.csv"), "/videos/videos (published).csv");
    EXPECT_EQ(BulkSheetFile::outputPath("/videos/videos"), "/videos/videos (published)");
}

TEST(BulkSheetTest, AddedColumnsThatTheHeaderHasStayWhereTheyAreAsWritten) {
    const BulkSheet one = sheetOf("File, vorlen STATUS ,Title\nfilm.mp4,,A,extra\n");
    EXPECT_FALSE(one.isOutputCopy);
    EXPECT_EQ(one.table.rows.front(), (std::vector<std::string>{"File", " vorlen STATUS ", "Title", "", "Vorlen folder", "Vorlen page URL"}));
    EXPECT_EQ(positions(one), (std::array<std::int64_t, 3>{4, 5, 1}));
    EXPECT_EQ(one.inputColumns(), (std::vector<BulkSheetColumn>{{0, "File"}, {2, "Title"}}));

    const BulkSheet two = sheetOf("Vorlen page URL,File,Vorlen folder\n");
    EXPECT_EQ(two.table.rows.front(), (std::vector<std::string>{"Vorlen page URL", "File", "Vorlen folder", "Vorlen status"}));
    EXPECT_EQ(positions(two), (std::array<std::int64_t, 3>{2, 0, 3}));
}

TEST(BulkSheetTest, RowsReadTrimmedCellsAndResolveFilesAndSkipBlankLines) {
    const char* home = std::getenv("HOME");
    ASSERT_NE(home, nullptr);
    const BulkSheet sheet = sheetOf("File,Title,Vorlen status\n"
                                    " a.mp4 ,  \n"
                                    " , ,Failed: x\n"
                                    "\n"
                                    "file:///films/my%20film.mp4,B\n"
                                    "~/films/c.mp4,C\n"
                                    "/films/./d.mp4,D\n"
                                    ",Only a title\n");
    const std::vector<BulkRow> rows = sheet.rows(fileAndTitle, "/sheets");
    ASSERT_EQ(indices(rows), (std::vector<std::int64_t>{1, 4, 5, 6, 7}));
    EXPECT_EQ(rows[0].file, fs::path("/sheets/a.mp4"));
    EXPECT_EQ(rows[0].title, std::nullopt);
    EXPECT_EQ(rows[1].file, fs::path("/films/my film.mp4"));
    EXPECT_EQ(rows[2].file, fs::path(home) / "films/c.mp4");
    EXPECT_EQ(rows[3].file, fs::path("/films/d.mp4"));
    EXPECT_EQ(rows[4].file, std::nullopt);
    EXPECT_EQ(rows[4].title, "Only a title");
    EXPECT_EQ(sheet.table.rows.size(), 8u);
}

TEST(BulkSheetTest, ASheetOrMappingThatDoesNotFitIsRefusedInThePersonsWords) {
    EXPECT_EQ(failureText<failure::Source>([] { sheetOf(""); }), "The spreadsheet is empty.");
    EXPECT_EQ(failureText<failure::Source>([] { sheetOf(" , \nfilm.mp4,A\n"); }),
              "The first row of the spreadsheet is empty. It must be a header with the column names.");

    const BulkSheet sheet = sheetOf("File,Vorlen Status \nfilm.mp4,\n");
    EXPECT_EQ(failureText<failure::Config>([&] { sheet.rows(fileIn({0, "Path"}), "/"); }),
              "The spreadsheet has no column “Path” for the file.");
    EXPECT_EQ(failureText<failure::Config>([&] { sheet.rows(fileAnd(&BulkColumnMapping::description, {7, "Notes"}), "/"); }),
              "The spreadsheet has no column “Notes” for the description.");
    EXPECT_EQ(failureText<failure::Config>([&] { sheet.rows(fileAnd(&BulkColumnMapping::title, {1, "Vorlen Status "}), "/"); }),
              "The title cannot come from the column “Vorlen Status ”, because Vorlen writes to that column.");
}

TEST(BulkSheetTest, StatusesWriteTheirCellsAndKeepMessagesOnOneLine) {
    BulkSheet sheet = sheetOf("File\nfilm.mp4\n");
    const auto cells = [&] { return sheet.table.rows[1]; };

    sheet.setStatus(1, bulkStatus::Published{{"film", "https://videos.example/film/"}});
    EXPECT_EQ(cells(), (std::vector<std::string>{"film.mp4", "film", "https://videos.example/film/", "Published"}));

    sheet.setStatus(1, bulkStatus::Failed{"The upload failed.\r\n  HTTP 500 \n\n from the server"});
    EXPECT_EQ(cells(), (std::vector<std::string>{"film.mp4", "film", "", "Failed: The upload failed. HTTP 500 from the server"}));

    sheet.setStatus(1, bulkStatus::Replaced{{"film-2", "https://videos.example/film-2/"}, "old files\nleft behind"});
    EXPECT_EQ(cells(), (std::vector<std::string>{"film.mp4", "film-2", "https://videos.example/film-2/",
                                                 "Re-imported: old files left behind"}));

    sheet.setStatus(2, bulkStatus::Publishing{"other"});
    sheet.setStatus(0, bulkStatus::Publishing{"other"});
    EXPECT_EQ(sheet.table.rows.size(), 2u);
    EXPECT_EQ(sheet.table.rows[0].back(), "Vorlen status");
}

TEST_F(BulkSheetFileTest, ACopyIsUtf8WithAMarkInTheInputsOtherForm) {
    const fs::path input = write("films.csv", "File;Title\r\nfilm.mp4;Caf\xE9\r\n");
    BulkSheetFile file = BulkSheetFile::open(input);
    EXPECT_EQ(file.source, BulkSheetSource::input);
    file.prepareForRun(fileAndTitle);

    EXPECT_EQ(readFile(input), "File;Title\r\nfilm.mp4;Caf\xE9\r\n");
    EXPECT_EQ(readFile(folder_ / "films (published).csv"),
              "\xEF\xBB\xBF" "File;Title;Vorlen folder;Vorlen page URL;Vorlen status\r\nfilm.mp4;Café\r\n");
}

TEST_F(BulkSheetFileTest, AResultsCopyPickedAsTheInputIsContinuedInPlace) {
    const std::string text = "File,Vorlen folder,Vorlen page URL,Vorlen status\nfilm.mp4,film,https://v.example/film/,Published\n\n";
    const fs::path copy = write("films (published).csv", text);
    BulkSheetFile file = BulkSheetFile::open(copy);
    EXPECT_EQ(file.source, BulkSheetSource::inputAsOutputCopy);
    EXPECT_EQ(file.output, copy);
    EXPECT_EQ(file.plan(fileOnly), (BulkPlan{.rowCount = 1, .doneCount = 1, .newRowCount = 0}));

    file.prepareForRun(fileOnly);
    EXPECT_EQ(readFile(copy), text);
    EXPECT_FALSE(fs::exists(BulkSheetFile::outputPath(copy)));
}

TEST_F(BulkSheetFileTest, RowsNewInTheInputAreAppendedOnceForEachMissingCopy) {
    const fs::path input = write("films.csv", "File,Reference\na.mp4,1\nc.mp4,3\n");
    BulkSheetFile first = BulkSheetFile::open(input);
    const std::vector<BulkRow> firstRows = first.prepareForRun(fileAndReference);
    first.setStatus(firstRows[0], bulkStatus::Published{{"a", "https://v.example/a/"}});
    first.save();

    write("films.csv", "File,Reference\n./c.mp4, 3\nc.mp4,3\nb.mp4,2\n");
    BulkSheetFile second = BulkSheetFile::open(input);
    EXPECT_EQ(second.source, BulkSheetSource::outputCopy);
    EXPECT_EQ(second.plan(fileAndReference), (BulkPlan{.rowCount = 2, .doneCount = 1, .newRowCount = 2}));
    const std::vector<BulkRow> rows = second.prepareForRun(fileAndReference);
    EXPECT_EQ(second.addedRowCount, 2);
    EXPECT_EQ(indices(rows), (std::vector<std::int64_t>{1, 2, 3, 4}));
    EXPECT_EQ(DelimitedText::read(second.output).rows,
              (Rows{{"File", "Reference", "Vorlen folder", "Vorlen page URL", "Vorlen status"},
                    {"a.mp4", "1", "a", "https://v.example/a/", "Published"},
                    {"c.mp4", "3"},
                    {"c.mp4", "3"},
                    {"b.mp4", "2"}}));

    EXPECT_EQ(BulkSheetFile::open(input).plan(fileAndReference).newRowCount, 0);

    write("films.csv", "File,Reference,Notes\nd.mp4,4,\n");
    BulkSheetFile changed = BulkSheetFile::open(input);
    EXPECT_EQ(changed.source, BulkSheetSource::outputCopyWithDifferentInputColumns);
    EXPECT_EQ(changed.prepareForRun(fileAndReference).size(), 4u);
    EXPECT_EQ(changed.addedRowCount, 0);
}

TEST_F(BulkSheetFileTest, AFailedSaveLeavesTheCopyAsItWas) {
    if (::geteuid() == 0) GTEST_SKIP() << "root writes into a read-only folder";
    const fs::path input = write("films.csv", "File\nfilm.mp4\n");
    BulkSheetFile file = BulkSheetFile::open(input);
    const std::vector<BulkRow> rows = file.prepareForRun(fileOnly);
    const std::string saved = readFile(file.output);

    fs::permissions(folder_, fs::perms::owner_read | fs::perms::owner_exec);
    file.setStatus(rows[0], bulkStatus::Publishing{"film"});
    EXPECT_THROW(file.save(), fs::filesystem_error);
    EXPECT_EQ(readFile(file.output), saved);
}

TEST_F(BulkSheetFileTest, AFailedRenameRemovesItsTemporaryFile) {
    const fs::path input = write("films.csv", "File\nfilm.mp4\n");
    BulkSheetFile file = BulkSheetFile::open(input);
    fs::create_directories(file.output / "in the way");

    EXPECT_THROW(file.prepareForRun(fileOnly), fs::filesystem_error);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2);
}
