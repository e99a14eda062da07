#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "core/publish/Tools.hpp"

namespace vorlen {

struct ToolOutput {
    std::string standardOutput;  // bytes; empty when a line callback took the output
    std::string standardError;   // UTF-8, repaired
};

using OutputLineHandler = std::function<void(const std::string&)>;

// Runs one child process to its end: null standard input, both pipes read to
// their end, and the process's end, in whatever order those three come. A
// cancelled task kills the child (and anything it started) with signal 9 and
// ends in Cancelled.
class ToolRunner {
public:
    static ToolOutput run(const std::string& tool, const std::filesystem::path& program,
                          const std::vector<std::string>& arguments, const OutputLineHandler& onOutputLine = {});

    // ffmpeg with "-progress pipe:1 -nostats" in front; onTime gets the seconds written so far.
    static ToolOutput runFFmpeg(const Tools& tools, const std::vector<std::string>& arguments,
                                const std::function<void(double)>& onTime = {});

    // The seconds of one progress line ("out_time_us=..." or "out_time_ms=...", both microseconds).
    static std::optional<double> progressSeconds(const std::string& line);

    // "exit status: <n>" or "signal: <n>", a line feed, and the last 20 lines of standard error.
    static std::string failureDetail(const std::string& termination, const std::string& standardError);

    // The environment a child gets: this process's own, cut to an allow-list, so
    // that no token or key reaches a tool.
    static std::vector<std::string> childEnvironment();
};

// Reading the environment for a child races with whatever changes it (libvips does
// as it starts): that holds this lock exclusively, so that no read sees it half-changed.
std::shared_mutex& environmentLock();

}  // namespace vorlen
