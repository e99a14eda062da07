#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vorlen {

enum class DelimitedTextDelimiter { comma, tab, semicolon };
enum class DelimitedTextLineEnding { lf, crlf, cr };
enum class DelimitedTextEncoding { utf8, utf8WithBOM, utf16LittleEndian, utf16BigEndian, windows1252 };

// How the delimiter of a file is found: one given, or the most frequent of the
// candidates on the first line, the earlier candidate winning a tie.
namespace delimiterRule {
struct Fixed { DelimitedTextDelimiter delimiter = DelimitedTextDelimiter::comma; };
struct CommaOrSemicolon {};
struct TabCommaOrSemicolon {};
}  // namespace delimiterRule

using DelimitedTextDelimiterRule =
    std::variant<delimiterRule::Fixed, delimiterRule::CommaOrSemicolon, delimiterRule::TabCommaOrSemicolon>;

// The form a file came in, kept so that writing it back changes only what changed.
struct DelimitedTextFormat {
    DelimitedTextDelimiter delimiter = DelimitedTextDelimiter::comma;
    DelimitedTextLineEnding lineEnding = DelimitedTextLineEnding::crlf;  // the first one met
    DelimitedTextEncoding encoding = DelimitedTextEncoding::utf8;
    bool endsWithLineEnding = true;
    bool operator==(const DelimitedTextFormat&) const = default;
};

// A CSV or TSV spreadsheet held whole: rows of UTF-8 cells (rows may differ in
// length) and the format to write them back in. Reading failures are source failures.
struct DelimitedText {
    std::vector<std::vector<std::string>> rows;
    DelimitedTextFormat format;

    // "csv" allows comma or semicolon, "tsv" and "tab" only tab, anything else all three.
    static DelimitedTextDelimiterRule ruleForExtension(const std::filesystem::path& path);

    static DelimitedText read(const std::filesystem::path& path);
    static DelimitedText parse(std::string_view bytes, const DelimitedTextDelimiterRule& rule);
    // Text already decoded to UTF-8; the encoding is only recorded for writing.
    static DelimitedText parse(std::string_view text, DelimitedTextEncoding encoding,
                               const DelimitedTextDelimiterRule& rule);

    // The rows as UTF-8 text, and that text in the format's encoding.
    std::string text() const;
    std::string bytes() const;
};

}  // namespace vorlen
