#pragma once

#include <filesystem>
#include <vector>

#include "core/site/FontPackage.hpp"
#include "core/storage/Bucket.hpp"

namespace vorlen {

// The fonts of a site's pages: a font hosted in the bucket, and stylesheets
// linked from elsewhere. Each choice is part of "_vorlen/site.json", rewritten
// whole; what it names is in the bucket before the file names it.

// The person's font files of one family as a package: WOFF2 and WOFF as they are,
// TrueType and OpenType converted to WOFF2 with woff2_compress. The folder's name
// carries a hash of the files, since the files are cached as immutable.
FontPackage fontPackageFromFiles(const std::vector<std::filesystem::path>& files);
// Uploads the package, makes it the font of the text and the headings, and
// deletes the font that it replaces.
void hostFont(Bucket& bucket, const FontPackage& package);
// Links the stylesheet after the pages' own styles; the same address again replaces its entry.
void linkStylesheet(Bucket& bucket, const SiteStylesheet& stylesheet);
// Back to the pages' own fonts: no hosted font, no stylesheets.
void removeFonts(Bucket& bucket);

}  // namespace vorlen
