#pragma once

#include <string>
#include <string_view>

namespace vorlen {

// The rules that name a video's folder. Pure functions, apart from the secure
// random part of unlisted names.
namespace Naming {

// Lowercase ASCII letters, digits and single inner hyphens, not empty.
bool isValidName(std::string_view name);

// "“<name>” is not a valid name: use lowercase letters, digits and single hyphens"
std::string invalidNameMessage(std::string_view name);

// The words of the title joined by "-", or "video" when it has none.
std::string folderName(std::string_view title);

// As above from a file name, without its extension and without noise words
// such as "4k", "1080p" or "1920x1080".
std::string folderNameForFile(std::string_view fileName);

// 8 characters from a-z and 0-9, from the system's secure random source.
std::string randomPart();

// name + "-" + randomPart(): the folder of an unlisted video cannot be guessed from its title.
std::string unlistedName(std::string_view name);

// name for n 0, else name + "-" + n.
std::string numbered(std::string_view name, int n);

}  // namespace Naming

}  // namespace vorlen
