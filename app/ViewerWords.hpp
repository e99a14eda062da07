#pragma once

#include <string>

#include <fmt/format.h>

namespace vorlen::app {

// What Vorlen tells a person about the viewers of a private site.
namespace ViewerWords {

inline const std::string newerViewer = "A newer version of Vorlen made this viewer. Update Vorlen to change it.";
inline const std::string noViewers = "The site has no viewers yet. Add one, and send them the invite link.";
inline const std::string privateSwitch = "Only signed-in viewers can watch";
inline const std::string privateExplanation =
    "Every page of the site asks for a sign-in with a passkey. Without it, the pages are public, and a signed-in "
    "viewer also sees the unlisted videos in the home page's list.";
inline const std::string removeExplanation =
    "They can no longer sign in to watch: their invite link and their passkey stop working. This cannot be undone.";

inline std::string removeTitle(const std::string& name) { return fmt::format("Remove \u201c{}\u201d?", name); }
inline std::string linkNote(const std::string& name) {
    return fmt::format("Send this invite link to \u201c{}\u201d. It works once, for 7 days, and Vorlen shows it only now.",
                       name);
}

}  // namespace ViewerWords

}  // namespace vorlen::app
