#include "core/site/BuiltInTemplate.hpp"

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {

std::string builtInTemplateText(const fs::path& bundleDirectory, SiteTemplate design) {
    const fs::path folder = bundleDirectory / "templates";
    if (!fs::is_directory(folder))
        throw VorlenError::config(fmt::format("The Worker bundle has no templates/ in {}", bundleDirectory.string()));
    const fs::path file = folder / (rawValue(design) + ".html");
    if (design == SiteTemplate::custom || !fs::is_regular_file(file))
        throw VorlenError::config(fmt::format("The Worker bundle has no file for the {} template.", rawValue(design)));
    return readFile(file);
}

}  // namespace vorlen
