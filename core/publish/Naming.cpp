#include "core/publish/Naming.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "core/base/Random.hpp"
#include "core/base/Text.hpp"

namespace vorlen::Naming {

namespace {

// Lowercase Latin-1 and Latin Extended-A letters and what they become; the
// uppercase forms reach this table through case folding.
const std::unordered_map<char32_t, std::string>& transliterations() {
    static const auto table = [] {
        const std::pair<const char*, const char32_t*> groups[] = {
            {"a", U"àáâãäåāăą"},    {"ae", U"æ"},   {"c", U"çćĉċč"},       {"d", U"ðďđ"},
            {"e", U"èéêëēĕėęě"},    {"g", U"ĝğġģ"}, {"h", U"ĥħ"},          {"i", U"ìíîïĩīĭįıİ"},
            {"ij", U"ĳ"},           {"j", U"ĵ"},    {"k", U"ķĸ"},          {"l", U"ĺļľŀł"},
            {"n", U"ñńņňŉŋ"},       {"o", U"òóôõöøōŏő"}, {"oe", U"œ"},     {"r", U"ŕŗř"},
            {"s", U"śŝşšſ"},        {"ss", U"ß"},   {"t", U"ţťŧ"},         {"th", U"þ"},
            {"u", U"ùúûüũūŭůűų"},   {"w", U"ŵ"},    {"y", U"ýÿŷ"},         {"z", U"źżž"},
        };
        std::unordered_map<char32_t, std::string> result;
        for (const auto& [replacement, letters] : groups) {
            for (const char32_t* letter = letters; *letter; ++letter) result.emplace(*letter, replacement);
        }
        return result;
    }();
    return table;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::string current;
    auto endWord = [&] {
        if (!current.empty()) words.push_back(std::move(current));
        current.clear();
    };
    const auto& table = transliterations();
    for (char32_t scalar : toUtf32(text)) {
        char32_t folded = scalar < 0x80 ? scalar : static_cast<char32_t>(u_foldCase(static_cast<UChar32>(scalar), U_FOLD_CASE_DEFAULT));
        if (auto found = table.find(folded); found != table.end()) {
            current += found->second;
        } else if (scalar >= 'A' && scalar <= 'Z') {
            current += static_cast<char>(scalar - 'A' + 'a');
        } else if ((scalar >= 'a' && scalar <= 'z') || (scalar >= '0' && scalar <= '9')) {
            current += static_cast<char>(scalar);
        } else {
            endWord();
        }
    }
    endWord();
    return words;
}

std::string joined(const std::vector<std::string>& words) {
    if (words.empty()) return "video";
    return fmt::format("{}", fmt::join(words, "-"));
}

bool isDigits(std::string_view text, std::size_t min, std::size_t max) {
    return text.size() >= min && text.size() <= max &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Words that describe the picture rather than the video: "4k", "1080p", "1920x1080".
bool isNoise(const std::string& word) {
    static const char* const sizes[] = {"2k", "4k", "5k", "6k", "8k", "uhd", "fhd", "qhd", "hd", "sd"};
    for (const char* size : sizes) {
        if (word == size) return true;
    }
    std::string_view view = word;
    if (!view.empty() && (view.back() == 'p' || view.back() == 'i') && isDigits(view.substr(0, view.size() - 1), 3, 4)) {
        return true;
    }
    auto x = view.find('x');
    return x != std::string_view::npos && isDigits(view.substr(0, x), 3, 4) && isDigits(view.substr(x + 1), 3, 4);
}

std::string_view withoutExtension(std::string_view fileName) {
    auto dot = fileName.rfind('.');
    if (dot == std::string_view::npos || dot == 0) return fileName;
    auto extension = fileName.substr(dot + 1);
    bool plain = !extension.empty() && extension.size() <= 5 &&
                 std::all_of(extension.begin(), extension.end(), [](char c) {
                     return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
                 });
    return plain ? fileName.substr(0, dot) : fileName;
}

}  // namespace

bool isValidName(std::string_view name) {
    if (name.empty() || name.front() == '-' || name.back() == '-') return false;
    if (name.find("--") != std::string_view::npos) return false;
    return std::all_of(name.begin(), name.end(),
                       [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-'; });
}

std::string invalidNameMessage(std::string_view name) {
    return fmt::format("“{}” is not a valid name: use lowercase letters, digits and single hyphens", repairUtf8(name));
}

std::string folderName(std::string_view title) { return joined(wordsOf(title)); }

std::string folderNameForFile(std::string_view fileName) {
    auto words = wordsOf(withoutExtension(fileName));
    std::erase_if(words, isNoise);
    return joined(words);
}

std::string randomPart() { return randomString(8, "abcdefghijklmnopqrstuvwxyz0123456789"); }

std::string unlistedName(std::string_view name) { return fmt::format("{}-{}", name, randomPart()); }

std::string numbered(std::string_view name, int n) {
    if (n == 0) return std::string(name);
    return fmt::format("{}-{}", name, n);
}

}  // namespace vorlen::Naming
