#include "core/batch/DelimitedText.hpp"

#include "core/base/Files.hpp"
#include "core/base/Json.hpp"
#include "core/base/VorlenError.hpp"

#include <gtest/gtest.h>

#include <functional>

using namespace vorlen;

namespace {

using Rows = std::vector<std::vector<std::string>>;

const fs::path testdata = fs::path(VORLEN_SOURCE_DIR) / "core/batch/testdata";

DelimitedText parsed(std::string_view bytes, DelimitedTextDelimiterRule rule = delimiterRule::TabCommaOrSemicolon{}) {
    return DelimitedText::parse(bytes, rule);
}

DelimitedText parsedAs(std::string_view bytes, const fs::path& name) {
    return DelimitedText::parse(bytes, DelimitedText::ruleForExtension(name));
}

std::string sourceFailure(const std::function<void()>& reading) {
    try {
        reading();
    } catch (const VorlenError& error) {
        EXPECT_TRUE(error.is<failure::Source>());
        return error.text();
    }
    return "no failure";
}

}  // namespace

// The rows and the bytes together pin the format down: a wrong encoding, delimiter or
// line ending would read other rows or write other bytes.
TEST(DelimitedTextTest, SpreadsheetsWrittenByPythonRoundTripByteForByte) {
    const Json expectedRows = decodeJson(readFile(testdata / "rows.json"));
    ASSERT_EQ(expectedRows.size(), 15u);
    for (const auto& [name, rows] : expectedRows.items()) {
        SCOPED_TRACE(name);
        const std::string original = readFile(testdata / name);

        DelimitedText table = DelimitedText::read(testdata / name);
        EXPECT_EQ(table.rows, rows.get<Rows>());
        EXPECT_EQ(table.bytes(), original);

        table.rows[2][2] = "Zoë’s new words";
        EXPECT_EQ(table.bytes(), readFile(testdata / "changed" / name));
    }
}

TEST(DelimitedTextTest, TheFirstLineOutsideQuotesDecidesTheDelimiter) {
    const fs::path csv = "x.csv";
    EXPECT_EQ(parsedAs("a;b;c", csv).format.delimiter, DelimitedTextDelimiter::semicolon);
    EXPECT_EQ(parsedAs("a,b;c", csv).format.delimiter, DelimitedTextDelimiter::comma);
    EXPECT_EQ(parsedAs("a,b;c;d", csv).format.delimiter, DelimitedTextDelimiter::semicolon);
    EXPECT_EQ(parsedAs("a\tb\tc", csv).format.delimiter, DelimitedTextDelimiter::comma);
    EXPECT_EQ(parsedAs("\"x;y;z\",b\n", csv).format.delimiter, DelimitedTextDelimiter::comma);
    EXPECT_EQ(parsedAs("\"x\ny,z\";b;c,d\n", csv).format.delimiter, DelimitedTextDelimiter::semicolon);
    EXPECT_EQ(parsedAs("a,b\nc;d;e;f\n", csv).format.delimiter, DelimitedTextDelimiter::comma);
    EXPECT_EQ(parsedAs("title\n", csv).format.delimiter, DelimitedTextDelimiter::comma);
    EXPECT_EQ(parsedAs("title\n", "x.txt").format.delimiter, DelimitedTextDelimiter::tab);
    EXPECT_EQ(parsedAs("a;b,c\td", "x.txt").format.delimiter, DelimitedTextDelimiter::tab);

    const DelimitedText tsv = parsedAs("a,b,c\td\n", "x.TSV");
    EXPECT_EQ(tsv.format.delimiter, DelimitedTextDelimiter::tab);
    EXPECT_EQ(tsv.rows, (Rows{{"a,b,c", "d"}}));
}

TEST(DelimitedTextTest, QuotesAndRowsReadAsSpreadsheetsWriteThem) {
    const DelimitedText quoted = parsed("a,\"say \"\"hi\"\"\",c\r\nx\r\n\"ab\"cd,e\"f\n\"end\"");
    EXPECT_EQ(quoted.rows, (Rows{{"a", "say \"hi\"", "c"}, {"x"}, {"abcd", "e\"f"}, {"end"}}));
    EXPECT_EQ(quoted.format.lineEnding, DelimitedTextLineEnding::crlf);
    EXPECT_FALSE(quoted.format.endsWithLineEnding);

    const std::string line = "h1,h2,h3\r\none,\"a \"\"b\"\" c\",three\r\n";
    EXPECT_EQ(parsed(line).rows[1][1], "a \"b\" c");
    EXPECT_EQ(parsed(line).bytes(), line);

    const DelimitedText empty = parsed("");
    EXPECT_TRUE(empty.rows.empty());
    EXPECT_TRUE(empty.format.endsWithLineEnding);
    EXPECT_EQ(empty.bytes(), "");

    // No line break at all: rows added later get CRLF.
    DelimitedText single = parsed("title,file");
    EXPECT_EQ(single.format.lineEnding, DelimitedTextLineEnding::crlf);
    single.rows.push_back({"", ""});
    single.rows.push_back({""});
    EXPECT_EQ(single.bytes(), "title,file\r\n,\r\n\"\"");
    EXPECT_EQ(parsed(single.bytes()).rows, single.rows);

    const std::string lines = "a\rb\n\r\n";
    EXPECT_EQ(parsed(lines).rows, (Rows{{"a"}, {"b"}, {""}}));
    EXPECT_EQ(parsed(lines).format.lineEnding, DelimitedTextLineEnding::cr);
}

TEST(DelimitedTextTest, TheHeaderIsQuotedForEveryCandidateDelimiter) {
    DelimitedText table = parsed("a,b\r\nc,d\r\n", delimiterRule::CommaOrSemicolon{});
    table.rows[0][1] = "x;y;z";
    table.rows[1][1] = "x;y\tz";
    EXPECT_EQ(table.bytes(), "a,\"x;y;z\"\r\nc,x;y\tz\r\n");
    EXPECT_EQ(DelimitedText::parse(table.bytes(), delimiterRule::CommaOrSemicolon{}).rows, table.rows);
}

TEST(DelimitedTextTest, EncodingsKeepTheirBytes) {
    DelimitedText latin = parsed("caf\xE9,\x81\x80\n");
    EXPECT_EQ(latin.format.encoding, DelimitedTextEncoding::windows1252);
    EXPECT_EQ(latin.rows[0], (std::vector<std::string>{"café", "\u0081€"}));
    EXPECT_EQ(latin.bytes(), "caf\xE9,\x81\x80\n");
    latin.rows[0].push_back("e\u0301 → 日本");
    EXPECT_EQ(latin.bytes(), "caf\xE9,\x81\x80,\xE9 ? ??\n");

    const std::string utf16 = std::string("\xFF\xFE" "a\0,\0" "\x3D\xD8\x00\xDE" "\n\0", 12);
    const DelimitedText wide = parsed(utf16);
    EXPECT_EQ(wide.rows, (Rows{{"a", "😀"}}));
    EXPECT_EQ(wide.bytes(), utf16);
}

TEST(DelimitedTextTest, UnreadableFilesAreRefusedWithWordsForPeople) {
    EXPECT_EQ(sourceFailure([] { parsed("\xEF\xBB\xBF" "caf\xE9"); }),
              "The spreadsheet starts with a UTF-8 byte order mark, but its text is not valid UTF-8.");
    const std::string utf16Failure =
        "The spreadsheet starts with a UTF-16 byte order mark, but its text is not valid UTF-16.";
    EXPECT_EQ(sourceFailure([] { parsed(std::string("\xFF\xFE" "a\0b", 5)); }), utf16Failure);
    EXPECT_EQ(sourceFailure([] { parsed(std::string("\xFE\xFF" "\xD8\x3D\0a", 6)); }), utf16Failure);
    EXPECT_EQ(sourceFailure([] { parsed(std::string("\xFF\xFE" "\x00\xDE", 4)); }), utf16Failure);
    EXPECT_EQ(sourceFailure([] { parsed(std::string("a\0,\0b\0", 6)); }),
              "The spreadsheet has NUL characters. It may be UTF-16 text without a byte order mark. "
              "Export it again as UTF-8 CSV.");
    EXPECT_EQ(sourceFailure([] { parsed("h,i\n1,2\n2,\"open\n3\n4\n"); }),
              "The spreadsheet has a quoted field without a closing quote. The field starts in row 3.");
}
