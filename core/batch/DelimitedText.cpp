#include "core/batch/DelimitedText.hpp"

#include "core/base/Files.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

#include <algorithm>
#include <optional>

namespace vorlen {

namespace {

constexpr std::string_view utf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view utf16LittleEndianMark = "\xFF\xFE";
constexpr std::string_view utf16BigEndianMark = "\xFE\xFF";

char delimiterCharacter(DelimitedTextDelimiter delimiter) {
    switch (delimiter) {
        case DelimitedTextDelimiter::comma: return ',';
        case DelimitedTextDelimiter::tab: return '\t';
        case DelimitedTextDelimiter::semicolon: return ';';
    }
    return ',';
}

std::string_view lineEndingText(DelimitedTextLineEnding lineEnding) {
    switch (lineEnding) {
        case DelimitedTextLineEnding::lf: return "\n";
        case DelimitedTextLineEnding::crlf: return "\r\n";
        case DelimitedTextLineEnding::cr: return "\r";
    }
    return "\r\n";
}

std::vector<DelimitedTextDelimiter> candidates(const DelimitedTextDelimiterRule& rule) {
    using enum DelimitedTextDelimiter;
    if (const auto* fixed = std::get_if<delimiterRule::Fixed>(&rule)) return {fixed->delimiter};
    if (std::holds_alternative<delimiterRule::CommaOrSemicolon>(rule)) return {comma, semicolon};
    return {tab, comma, semicolon};
}

// Counts the candidates outside quotes on the first line. Doubled quotes flip the
// flag twice, which leaves it as it was, so they need no special case.
DelimitedTextDelimiter detectDelimiter(std::string_view text, const DelimitedTextDelimiterRule& rule) {
    const std::vector<DelimitedTextDelimiter> choices = candidates(rule);
    if (choices.size() == 1) return choices.front();
    std::vector<int> counts(choices.size(), 0);
    bool inQuotes = false;
    for (char c : text) {
        if (c == '"') {
            inQuotes = !inQuotes;
        } else if (!inQuotes) {
            if (c == '\r' || c == '\n') break;
            for (std::size_t i = 0; i < choices.size(); ++i) {
                if (c == delimiterCharacter(choices[i])) ++counts[i];
            }
        }
    }
    std::size_t best = 0;
    for (std::size_t i = 1; i < choices.size(); ++i) {
        if (counts[i] > counts[best]) best = i;
    }
    return choices[best];
}

void appendUtf16Unit(std::string& out, char16_t unit, bool littleEndian) {
    const char high = static_cast<char>(unit >> 8), low = static_cast<char>(unit & 0xFF);
    out += littleEndian ? low : high;
    out += littleEndian ? high : low;
}

std::optional<std::string> decodeUtf16(std::string_view bytes, bool littleEndian) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::u32string scalars;
    auto unitAt = [&](std::size_t at) {
        const auto first = static_cast<unsigned char>(bytes[at]), second = static_cast<unsigned char>(bytes[at + 1]);
        return static_cast<char32_t>(littleEndian ? (second << 8 | first) : (first << 8 | second));
    };
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        const char32_t unit = unitAt(at);
        if (unit >= 0xDC00 && unit <= 0xDFFF) return std::nullopt;
        if (unit < 0xD800 || unit > 0xDBFF) {
            scalars += unit;
            continue;
        }
        if (at + 2 >= bytes.size()) return std::nullopt;
        const char32_t next = unitAt(at + 2);
        if (next < 0xDC00 || next > 0xDFFF) return std::nullopt;
        scalars += 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
        at += 2;
    }
    return toUtf8(scalars);
}

std::string encodeUtf16(std::string_view text, bool littleEndian) {
    std::string out(littleEndian ? utf16LittleEndianMark : utf16BigEndianMark);
    for (char32_t scalar : toUtf32(text)) {
        if (scalar < 0x10000) {
            appendUtf16Unit(out, static_cast<char16_t>(scalar), littleEndian);
        } else {
            appendUtf16Unit(out, static_cast<char16_t>(0xD800 + ((scalar - 0x10000) >> 10)), littleEndian);
            appendUtf16Unit(out, static_cast<char16_t>(0xDC00 + ((scalar - 0x10000) & 0x3FF)), littleEndian);
        }
    }
    return out;
}


struct Decoded {
    std::string text;
    DelimitedTextEncoding encoding;
};

Decoded decode(std::string_view bytes) {
    if (bytes.starts_with(utf8Mark)) {
        bytes.remove_prefix(utf8Mark.size());
        if (!isValidUtf8(bytes)) {
            throw VorlenError::source("The spreadsheet starts with a UTF-8 byte order mark, but its text is not valid UTF-8.");
        }
        return {std::string(bytes), DelimitedTextEncoding::utf8WithBOM};
    }
    const bool littleEndian = bytes.starts_with(utf16LittleEndianMark);
    if (littleEndian || bytes.starts_with(utf16BigEndianMark)) {
        std::optional<std::string> text = decodeUtf16(bytes.substr(2), littleEndian);
        if (!text) {
            throw VorlenError::source("The spreadsheet starts with a UTF-16 byte order mark, but its text is not valid UTF-16.");
        }
        return {std::move(*text),
                littleEndian ? DelimitedTextEncoding::utf16LittleEndian : DelimitedTextEncoding::utf16BigEndian};
    }
    if (bytes.find('\0') != std::string_view::npos) {
        throw VorlenError::source("The spreadsheet has NUL characters. It may be UTF-16 text without a byte order mark. "
                                  "Export it again as UTF-8 CSV.");
    }
    if (isValidUtf8(bytes)) return {std::string(bytes), DelimitedTextEncoding::utf8};
    return {fromWindows1252(bytes), DelimitedTextEncoding::windows1252};
}

}  // namespace

DelimitedTextDelimiterRule DelimitedText::ruleForExtension(const std::filesystem::path& path) {
    const std::string extension = asciiLowercased(path.extension().string());
    if (extension == ".csv") return delimiterRule::CommaOrSemicolon{};
    if (extension == ".tsv" || extension == ".tab") return delimiterRule::Fixed{DelimitedTextDelimiter::tab};
    return delimiterRule::TabCommaOrSemicolon{};
}

DelimitedText DelimitedText::read(const std::filesystem::path& path) {
    return parse(readFile(path), ruleForExtension(path));
}

DelimitedText DelimitedText::parse(std::string_view bytes, const DelimitedTextDelimiterRule& rule) {
    const Decoded decoded = decode(bytes);
    return parse(decoded.text, decoded.encoding, rule);
}

// Walks bytes rather than scalars: every character that matters here is ASCII, and
// in UTF-8 no byte of a longer sequence can be taken for one.
DelimitedText DelimitedText::parse(std::string_view text, DelimitedTextEncoding encoding,
                                   const DelimitedTextDelimiterRule& rule) {
    DelimitedText result;
    result.format.delimiter = detectDelimiter(text, rule);
    result.format.encoding = encoding;
    const char delimiter = delimiterCharacter(result.format.delimiter);

    std::optional<DelimitedTextLineEnding> lineEnding;
    std::vector<std::string> row;
    std::string field;
    bool fieldStarted = false;
    bool inQuotes = false;
    std::size_t quotedFieldRow = 0;

    auto finishField = [&] {
        row.push_back(std::move(field));
        field.clear();
        fieldStarted = false;
    };
    auto finishRow = [&](DelimitedTextLineEnding ending) {
        finishField();
        result.rows.push_back(std::move(row));
        row.clear();
        if (!lineEnding) lineEnding = ending;
    };

    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (inQuotes) {
            if (c != '"') {
                field += c;
            } else if (at + 1 < text.size() && text[at + 1] == '"') {
                field += '"';
                ++at;
            } else {
                inQuotes = false;
            }
        } else if (c == '"' && !fieldStarted) {
            inQuotes = true;
            fieldStarted = true;
            quotedFieldRow = result.rows.size() + 1;
        } else if (c == delimiter) {
            finishField();
        } else if (c == '\n') {
            finishRow(DelimitedTextLineEnding::lf);
        } else if (c == '\r' && at + 1 < text.size() && text[at + 1] == '\n') {
            finishRow(DelimitedTextLineEnding::crlf);
            ++at;
        } else if (c == '\r') {
            finishRow(DelimitedTextLineEnding::cr);
        } else {
            field += c;
            fieldStarted = true;
        }
    }
    if (inQuotes) {
        throw VorlenError::source("The spreadsheet has a quoted field without a closing quote. The field starts in row " +
                                  std::to_string(quotedFieldRow) + ".");
    }
    result.format.endsWithLineEnding = true;
    if (!row.empty() || fieldStarted) {
        finishField();
        result.rows.push_back(std::move(row));
        result.format.endsWithLineEnding = false;
    }
    // A file without a line break gets the one that rows added later will most likely want.
    result.format.lineEnding = lineEnding.value_or(DelimitedTextLineEnding::crlf);
    return result;
}

std::string DelimitedText::text() const {
    const char delimiter = delimiterCharacter(format.delimiter);
    const std::string_view lineEnd = lineEndingText(format.lineEnding);
    // The header is quoted for every candidate delimiter: detection reads the first line
    // only, and an unquoted candidate there could change what the next reading finds.
    const std::string_view headerSpecials = ",\t;\"\r\n";
    const std::string otherSpecials = {delimiter, '"', '\r', '\n'};

    std::string out;
    for (std::size_t r = 0; r < rows.size(); ++r) {
        if (r > 0) out += lineEnd;
        const std::vector<std::string>& row = rows[r];
        const bool lastRow = r + 1 == rows.size();
        if (lastRow && !format.endsWithLineEnding && (row.empty() || (row.size() == 1 && row[0].empty()))) {
            out += "\"\"";  // without it the row would not exist on the next reading
            continue;
        }
        const std::string_view specials = r == 0 ? headerSpecials : std::string_view(otherSpecials);
        for (std::size_t f = 0; f < row.size(); ++f) {
            if (f > 0) out += delimiter;
            const std::string& cell = row[f];
            if (cell.find_first_of(specials) == std::string::npos) {
                out += cell;
                continue;
            }
            out += '"';
            for (char c : cell) {
                if (c == '"') out += '"';
                out += c;
            }
            out += '"';
        }
    }
    if (!rows.empty() && format.endsWithLineEnding) out += lineEnd;
    return out;
}

std::string DelimitedText::bytes() const {
    const std::string written = text();
    switch (format.encoding) {
        case DelimitedTextEncoding::utf8: return written;
        case DelimitedTextEncoding::utf8WithBOM: return std::string(utf8Mark) + written;
        case DelimitedTextEncoding::utf16LittleEndian: return encodeUtf16(written, true);
        case DelimitedTextEncoding::utf16BigEndian: return encodeUtf16(written, false);
        case DelimitedTextEncoding::windows1252: return toWindows1252(written);
    }
    return written;
}

}  // namespace vorlen
