#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vorlen {

// A subtitle file as WebVTT. SubRip is converted; WebVTT is kept as it is.
struct SubtitleDocument {
    std::string webVTT;
    std::int64_t cueCount = 0;

    // Reads and converts a file; failures name the file.
    static SubtitleDocument read(const std::filesystem::path& file);

    // The same for bytes already read; `fileName` is what a failure names.
    static SubtitleDocument parse(std::string_view bytes, const std::string& fileName);

    // Bytes as UTF-8 text: a byte-order mark (UTF-8, UTF-16) says how and is dropped;
    // otherwise UTF-8, and bytes that are not UTF-8 as Windows-1252, which is what
    // older subtitle editors write. Absent when the bytes are no text at all (NUL bytes).
    static std::optional<std::string> decodeText(std::string_view bytes);

    bool operator==(const SubtitleDocument&) const = default;
};

}  // namespace vorlen
