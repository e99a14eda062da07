#pragma once

#include <string>
#include <string_view>

#include "core/site/FontPackage.hpp"

namespace vorlen {

// What a font file says of itself, read with FreeType (WOFF2, WOFF, TrueType and OpenType).
struct FontFacts {
    std::string family;  // the typographic family where the file names one
    FontWeight weight;   // a variable font's whole weight axis
    bool isItalic = false;

    // Fails with the words for a file that is no font that Vorlen can use.
    static FontFacts read(std::string_view bytes, const std::string& fileName);
};

}  // namespace vorlen
