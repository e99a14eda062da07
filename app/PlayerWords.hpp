#pragma once

#include <string>

namespace vorlen::app {

// What Vorlen tells a person about the player options of a site.
namespace PlayerWords {

inline const std::string saved = "The pages use the saved player settings on their next load.";
inline const std::string mutedWithAutoplay =
    "Browsers start a video by itself only when its sound is off, so Muted turns on with Autoplay.";
inline const std::string resetTitle = "Reset All Player Options?";
inline const std::string resetExplanation = "This resets all of the player options. The pages change when you save.";
inline const std::string changedElsewhere =
    "A different computer changed the player options after Vorlen read them, so nothing was saved. "
    "Try again with the options as they are now.";

}  // namespace PlayerWords

}  // namespace vorlen::app
