#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/publish/SubtitleTrack.hpp"

namespace vorlen::SubtitleLanguage {

// The code a manifest carries: the language as given, "und" when it is empty.
std::string code(std::string_view language);

// The English name of a language code, with its script or region when it has one
// ("Portuguese (Brazil)"); a code that names no ISO language is its own name.
std::string englishName(std::string_view language);

// The labels of a video's tracks, in order: two tracks of one language are told
// apart by a number after the name ("English 1", "English 2"), and an
// auto-generated track says so behind it.
std::vector<std::string> trackNames(const std::vector<std::pair<std::string, SubtitleTrack::Kind>>& tracks);

// The language that a file name carries before its extension, such as "clip.fr.srt"
// or "clip.pt-BR.vtt", when that part is a known language.
std::optional<std::string> fromFileName(const std::filesystem::path& file);

// The language of the current locale ("en" for the POSIX locale).
std::string currentLanguage();

}  // namespace vorlen::SubtitleLanguage
