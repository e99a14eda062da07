#include "core/publish/StreamLayout.hpp"

namespace vorlen {

std::vector<std::string> StreamLayout::files() const {
    // Chunks are filled in order, so a new name can only follow the last one.
    std::vector<std::string> names{initSegment.file};
    for (const auto& segment : segments) {
        if (segment.file != names.back()) names.push_back(segment.file);
    }
    return names;
}

}  // namespace vorlen
