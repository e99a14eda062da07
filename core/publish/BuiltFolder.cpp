#include "core/publish/BuiltFolder.hpp"

#include "core/base/Log.hpp"

namespace vorlen {

BuiltFolder::~BuiltFolder() {
    std::error_code error;
    std::filesystem::remove_all(work_.url, error);
    if (error) log().warn("cannot remove {}: {}", work_.url.string(), error.message());
}

std::vector<std::string> BuiltFolder::allFiles() const {
    std::vector<std::string> files = built_.media;
    if (built_.metadata.poster) {
        files.push_back(built_.metadata.poster->name);
        files.push_back("poster.jpg");
    }
    files.push_back("video.json");
    files.insert(files.end(), built_.manifests.begin(), built_.manifests.end());
    return files;
}

}  // namespace vorlen
