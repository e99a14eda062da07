#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorlen {

// Decodes bytes as UTF-8, replacing each bad sequence with U+FFFD.
std::string repairUtf8(std::string_view bytes);
bool isValidUtf8(std::string_view bytes);

// Unicode normalisation form C.
std::string nfc(std::string_view text);

// Trims white space and newlines (Unicode's set) from both ends.
std::string trimmed(std::string_view text);

// The white space of description text: tab, LF, VT, FF, CR, blank, U+00A0, U+1680,
// U+2000..U+200A, U+2028, U+2029, U+202F, U+205F, U+3000, U+FEFF.
bool isDescriptionWhitespace(char32_t scalar);

// Case folding, and the case-, diacritic- and width-insensitive folding used to compare names.
std::string caseFolded(std::string_view text);
std::string foldedForComparison(std::string_view text);
// Only the letters and digits of text, of any script.
std::string lettersAndDigits(std::string_view text);

// ASCII letters lowered, every other byte kept (header names, hostnames).
std::string asciiLowercased(std::string_view text);
// Blanks, tabs and line breaks trimmed from both ends; other bytes stay.
std::string trimmedAsciiWhitespace(std::string_view text);

// Every byte but the unreserved ones (A-Z a-z 0-9 - . _ ~) as "%XX" with upper-case digits.
std::string percentEncoded(std::string_view bytes);
// "%XX" back to its byte (either case of hex digit); a "%" without two hex digits stays as it is.
std::string percentDecoded(std::string_view text);

// Windows-1252 bytes as UTF-8 text; its five unassigned bytes read as the C1
// controls, as in Latin-1, so that every file comes back as it was.
std::string fromWindows1252(std::string_view bytes);
// UTF-8 text (NFC) as Windows-1252; a character it cannot hold becomes "?".
std::string toWindows1252(std::string_view text);

// An address that a document's own location resolves: no scheme, not rooted.
bool isRelativeAddress(std::string_view address);

// "a", "a and b", "a, b and c"
std::string joinedWithAnd(const std::vector<std::string>& items);

// "820 bytes", "4.2 MB", "1.30 GB": decimal units, as disks and networks count.
std::string fileSizeText(std::uint64_t bytes);

// "1:05", "1:02:03": a length or a time left, to the second.
std::string clockText(double seconds);

// UTF-8 <-> UTF-32 for code that walks scalars.
std::u32string toUtf32(std::string_view utf8);
std::string toUtf8(std::u32string_view scalars);

}  // namespace vorlen
