#include "core/publish/SubtitleDocument.hpp"

#include <fmt/format.h>
#include <unicode/unistr.h>

#include <optional>
#include <regex>
#include <vector>

#include "core/base/Files.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace {

std::string fromUtf16(std::string_view bytes, bool bigEndian) {
    std::u16string units;
    units.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        auto first = static_cast<unsigned char>(bytes[at]);
        auto second = static_cast<unsigned char>(bytes[at + 1]);
        units.push_back(bigEndian ? char16_t(first << 8 | second) : char16_t(second << 8 | first));
    }
    std::string text;
    icu::UnicodeString(units.data(), static_cast<int32_t>(units.size())).toUTF8String(text);
    return text;
}

[[noreturn]] void notSubtitles(const std::string& fileName) {
    throw VorlenError::source(
        fmt::format("\u201c{}\u201d is not a subtitle file. Vorlen reads WebVTT and SubRip files.", fileName));
}

[[noreturn]] void noCues(const std::string& fileName) {
    throw VorlenError::source(fmt::format("\u201c{}\u201d has no subtitles in it.", fileName));
}

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> result;
    std::string line;
    for (std::size_t at = 0; at < text.size(); ++at) {
        char c = text[at];
        if (c == '\r' || c == '\n') {
            if (c == '\r' && at + 1 < text.size() && text[at + 1] == '\n') ++at;
            result.push_back(std::move(line));
            line.clear();
        } else {
            line.push_back(c);
        }
    }
    if (!line.empty()) result.push_back(std::move(line));
    return result;
}

bool isBlank(std::string_view line) { return trimmedAsciiWhitespace(line).empty(); }

bool isNumber(std::string_view line) {
    auto text = trimmedAsciiWhitespace(line);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// HH:MM:SS.mmm from the four captured parts; hours keep every digit they have beyond two.
std::string timestamp(const std::smatch& match, int first) {
    std::string hours = match[first].str();
    hours.erase(0, std::min(hours.find_first_not_of('0'), hours.size()));
    return fmt::format("{:0>2}:{:0>2}:{:0>2}.{:0>3}", hours, match[first + 1].str(), match[first + 2].str(),
                       match[first + 3].str());
}

// Font tags and the override blocks of other formats mean nothing to WebVTT; an
// arrow in text would read as a new timing line.
std::string cueText(const std::string& line) {
    static const std::regex font(R"(</?[fF][oO][nN][tT][^>]*>)");
    static const std::regex overrideBlock(R"(\{\\[^}]*\})");
    auto text = std::regex_replace(std::regex_replace(line, font, ""), overrideBlock, "");
    for (auto at = text.find("-->"); at != std::string::npos; at = text.find("-->", at)) text.replace(at + 2, 1, "&gt;");
    return text;
}

struct Cue {
    std::string timing;
    std::vector<std::string> text;
};

SubtitleDocument fromSubRip(const std::string& text, const std::string& fileName) {
    static const std::regex timing(
        R"(\s*(\d+):(\d{1,2}):(\d{1,2})[,.](\d{1,3})\s*-->\s*(\d+):(\d{1,2}):(\d{1,2})[,.](\d{1,3}).*)");
    std::vector<Cue> cues;
    std::optional<Cue> current;
    bool inText = false;
    auto all = lines(text);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto& line = all[i];
        std::smatch match;
        if (std::regex_match(line, match, timing)) {
            if (current) {
                // Without an empty line between cues, the index of this one ended the last one's text.
                if (inText && i > 0 && isNumber(all[i - 1]) && !current->text.empty()) current->text.pop_back();
                cues.push_back(std::move(*current));
            }
            current = Cue{timestamp(match, 1) + " --> " + timestamp(match, 5), {}};
            inText = true;
        } else if (isBlank(line)) {
            inText = false;
        } else if (current && inText) {
            // A line that only held tags would end the cue early in WebVTT.
            if (auto cleaned = cueText(line); !isBlank(cleaned)) current->text.push_back(std::move(cleaned));
        }
    }
    if (current) cues.push_back(std::move(*current));
    if (cues.empty()) notSubtitles(fileName);

    std::string webVTT = "WEBVTT\n\n";
    for (const auto& cue : cues) {
        webVTT += cue.timing + "\n";
        for (const auto& line : cue.text) webVTT += line + "\n";
        webVTT += "\n";
    }
    return SubtitleDocument{std::move(webVTT), static_cast<std::int64_t>(cues.size())};
}

}  // namespace

std::optional<std::string> SubtitleDocument::decodeText(std::string_view bytes) {
    std::string text;
    if (bytes.starts_with("\xEF\xBB\xBF")) text = repairUtf8(bytes.substr(3));
    else if (bytes.starts_with("\xFF\xFE")) text = fromUtf16(bytes.substr(2), false);
    else if (bytes.starts_with("\xFE\xFF")) text = fromUtf16(bytes.substr(2), true);
    else if (isValidUtf8(bytes)) text = std::string(bytes);
    else text = fromWindows1252(bytes);
    if (text.find('\0') != std::string::npos) return std::nullopt;
    return text;
}

SubtitleDocument SubtitleDocument::parse(std::string_view bytes, const std::string& fileName) {
    auto text = decodeText(bytes);
    if (!text) notSubtitles(fileName);
    if (text->starts_with("WEBVTT")) {
        std::int64_t cues = 0;
        for (const auto& line : lines(*text)) cues += line.find("-->") != std::string::npos ? 1 : 0;
        if (cues == 0) noCues(fileName);
        return SubtitleDocument{std::move(*text), cues};
    }
    return fromSubRip(*text, fileName);
}

SubtitleDocument SubtitleDocument::read(const std::filesystem::path& file) {
    return parse(readFile(file), file.filename().string());
}

}  // namespace vorlen
