#include "core/publish/Tools.hpp"

#include <cstdlib>
#include <system_error>

#include "core/base/VorlenError.hpp"

namespace vorlen {

namespace fs = std::filesystem;

std::vector<fs::path> Tools::searchDirectories(const std::optional<fs::path>& helpersDir,
                                               const std::string& pathVariable) {
    std::vector<fs::path> directories;
    if (helpersDir) directories.push_back(*helpersDir);
    std::size_t start = 0;
    while (start <= pathVariable.size()) {
        auto end = pathVariable.find(':', start);
        if (end == std::string::npos) end = pathVariable.size();
        if (end > start) directories.emplace_back(pathVariable.substr(start, end - start));
        start = end + 1;
    }
    directories.emplace_back("/opt/homebrew/bin");
    directories.emplace_back("/usr/local/bin");
    return directories;
}

Tools Tools::locateIn(const std::vector<fs::path>& directories) {
    auto find = [&](const char* name) -> fs::path {
        for (const auto& directory : directories) {
            auto candidate = directory / name;
            std::error_code error;
            if (fs::exists(candidate, error) && !fs::is_directory(candidate, error)) return candidate;
        }
        return {};
    };
    Tools tools{find("ffmpeg"), find("ffprobe"), find("packager")};
    std::string missing;
    auto note = [&](const fs::path& found, const char* name) {
        if (!found.empty()) return;
        if (!missing.empty()) missing += ", ";
        missing += name;
    };
    note(tools.ffmpeg, "ffmpeg");
    note(tools.ffprobe, "ffprobe");
    note(tools.packager, "packager");
    if (!missing.empty()) throw VorlenError::config("cannot find " + missing);
    return tools;
}

Tools Tools::locate(const std::optional<fs::path>& helpersDir) {
    const char* path = std::getenv("PATH");
    return locateIn(searchDirectories(helpersDir, path ? path : ""));
}

std::optional<fs::path> Tools::defaultHelpersDir() {
    std::error_code error;
    auto executable = fs::read_symlink("/proc/self/exe", error);
    if (error) return std::nullopt;
    return executable.parent_path().parent_path() / "libexec" / "vorlen";
}

}  // namespace vorlen
