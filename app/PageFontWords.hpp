#pragma once

#include <string>

namespace vorlen::app {

// What Vorlen tells a person about the fonts of a site's pages.
namespace PageFontWords {

inline const std::string ownFonts = "The pages use their own fonts.";
inline const std::string removeTitle = "Remove the Fonts?";
inline const std::string removeExplanation =
    "The pages go back to their own fonts: the hosted font is deleted and the stylesheets are unlinked.";
inline const std::string changed = "The pages use the fonts on their next load.";

}  // namespace PageFontWords

}  // namespace vorlen::app
