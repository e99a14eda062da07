#include "core/base/Log.hpp"

#include <mutex>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/sinks/syslog_sink.h>
#include <syslog.h>

namespace vorlen {

namespace {

struct Logger {
    std::shared_ptr<spdlog::sinks::stderr_color_sink_mt> standardError;
    std::shared_ptr<spdlog::logger> logger;

    Logger() {
        standardError = std::make_shared<spdlog::sinks::stderr_color_sink_mt>();
        standardError->set_level(spdlog::level::warn);
        auto journal = std::make_shared<spdlog::sinks::syslog_sink_mt>("vorlen", LOG_PID, LOG_USER, false);
        journal->set_level(spdlog::level::info);
        logger = std::make_shared<spdlog::logger>("com.dovrin.vorlen", spdlog::sinks_init_list{standardError, journal});
        logger->set_level(spdlog::level::debug);
    }
};

Logger& shared() {
    static Logger instance;
    return instance;
}

}  // namespace

spdlog::logger& log() { return *shared().logger; }

void logToFile(const std::filesystem::path& path) {
    try {
        std::filesystem::create_directories(path.parent_path());
        auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path.string(), 5 * 1024 * 1024, 3);
        sink->set_level(spdlog::level::debug);
        shared().logger->sinks().push_back(sink);
    } catch (const std::exception& error) {
        log().warn("No log file at {}: {}", path.string(), error.what());
    }
}

void setStandardErrorLevel(spdlog::level::level_enum level) { shared().standardError->set_level(level); }

}  // namespace vorlen
