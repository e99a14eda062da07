#pragma once

#include <filesystem>
#include <string>

#include "core/site/SiteSettings.hpp"

namespace vorlen {

// The text of a built-in page template, as the Worker bundle's templates/ folder holds it
// ("auto.html", "light.html", "dark.html"), for a person to start a custom one from.
std::string builtInTemplateText(const std::filesystem::path& bundleDirectory, SiteTemplate design);

}  // namespace vorlen
