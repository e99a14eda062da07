#include "core/publish/ToolRunner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/base/Text.hpp"
#include "core/base/VorlenError.hpp"

extern char** environ;

namespace vorlen {

namespace {

// What the cancellation handler and the reading loop share.
struct RunState {
    std::mutex mutex;
    bool cancelled = false;
    bool launched = false;
    bool reaped = false;
    pid_t pid = -1;
};

struct Pipe {
    FileHandle read;
    FileHandle write;
};

Pipe makePipe() {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    return Pipe{FileHandle(fds[0]), FileHandle(fds[1])};
}

// Splits complete lines off the front of buffer and hands each one over.
void deliverLines(std::string& buffer, const OutputLineHandler& onLine, bool atEnd) {
    std::size_t start = 0;
    for (;;) {
        auto end = buffer.find('\n', start);
        if (end == std::string::npos) break;
        std::size_t length = end - start;
        if (length > 0 && buffer[end - 1] == '\r') --length;
        onLine(repairUtf8(std::string_view(buffer).substr(start, length)));
        start = end + 1;
    }
    buffer.erase(0, start);
    if (atEnd && !buffer.empty()) {
        if (buffer.back() == '\r') buffer.pop_back();
        onLine(repairUtf8(buffer));
        buffer.clear();
    }
}

std::string joinedForLog(const std::filesystem::path& program, const std::vector<std::string>& arguments) {
    std::string text = program.string();
    for (const auto& argument : arguments) text += " " + argument;
    return text;
}

}  // namespace

std::string ToolRunner::failureDetail(const std::string& termination, const std::string& standardError) {
    std::vector<std::string_view> lines;
    std::string_view rest(standardError);
    for (;;) {
        auto end = rest.find('\n');
        if (end == std::string_view::npos) {
            lines.push_back(rest);
            break;
        }
        lines.push_back(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    if (!lines.empty() && lines.back().empty()) lines.pop_back();
    std::size_t first = lines.size() > 20 ? lines.size() - 20 : 0;
    std::string detail = termination + "\n";
    for (std::size_t i = first; i < lines.size(); ++i) {
        if (i > first) detail += "\n";
        detail += lines[i];
    }
    return detail;
}

std::vector<std::string> ToolRunner::childEnvironment() {
    // Names, or name prefixes ending in "_": what a tool needs to find its way and speak
    // the person's language. Everything else (tokens, S3 keys, Vorlen's own settings) stays here.
    static constexpr std::string_view allowed[] = {"PATH", "HOME", "USER", "LOGNAME", "TMPDIR", "TZ", "LANG", "LANGUAGE",
                                                   "LC_", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME",
                                                   "XDG_RUNTIME_DIR"};
    std::vector<std::string> kept;
    std::shared_lock environment(environmentLock());
    for (char** entry = environ; *entry; ++entry) {
        std::string_view variable(*entry);
        std::string_view name = variable.substr(0, variable.find('='));
        for (auto each : allowed) {
            if (each.ends_with('_') ? name.starts_with(each) : name == each) {
                kept.emplace_back(variable);
                break;
            }
        }
    }
    return kept;
}

std::shared_mutex& environmentLock() {
    static std::shared_mutex lock;
    return lock;
}

ToolOutput ToolRunner::run(const std::string& tool, const std::filesystem::path& program,
                           const std::vector<std::string>& arguments, const OutputLineHandler& onOutputLine) {
    log().info("running {}", joinedForLog(program, arguments));

    Pipe output = makePipe();
    Pipe error = makePipe();

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output.write.fd(), 1);
    posix_spawn_file_actions_adddup2(&actions, error.write.fd(), 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A group of its own, so that signal 9 reaches whatever the tool started too.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t noSignals;
    sigemptyset(&noSignals);
    posix_spawnattr_setsigmask(&attributes, &noSignals);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGTERM);
    posix_spawnattr_setsigdefault(&attributes, &defaults);

    std::vector<std::string> argvStrings;
    argvStrings.reserve(arguments.size() + 1);
    argvStrings.push_back(program.string());
    argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& argument : argvStrings) argv.push_back(argument.data());
    argv.push_back(nullptr);

    std::vector<std::string> environmentStrings = childEnvironment();
    std::vector<char*> environment;
    for (auto& variable : environmentStrings) environment.push_back(variable.data());
    environment.push_back(nullptr);

    auto state = std::make_shared<RunState>();
    CancellationHandler onCancel([state] {
        std::lock_guard lock(state->mutex);
        state->cancelled = true;
        if (state->launched && !state->reaped) ::kill(-state->pid, SIGKILL);
    });

    int spawnError = 0;
    {
        std::lock_guard lock(state->mutex);
        if (!state->cancelled) {
            pid_t pid = -1;
            spawnError = posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), environment.data());
            if (spawnError == 0) {
                state->pid = pid;
                state->launched = true;
            }
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (!state->launched) {
        if (spawnError == 0) throw Cancelled();
        throw VorlenError::tool(tool, fmt::format("cannot start {}: {}", program.string(), std::strerror(spawnError)));
    }
    output.write.reset();
    error.write.reset();

    FileHandle processFd(static_cast<int>(::syscall(SYS_pidfd_open, state->pid, 0)));

    std::string outputBytes;
    std::string errorBytes;
    std::optional<std::string> termination;
    bool outputOpen = true;
    bool errorOpen = true;
    char buffer[65536];

    // Never blocks: the cancellation handler takes the same lock to send its signal.
    auto reap = [&] {
        int status = 0;
        std::lock_guard lock(state->mutex);
        pid_t result = ::waitpid(state->pid, &status, WNOHANG);
        if (result != state->pid) return;
        state->reaped = true;
        if (WIFSIGNALED(status))
            termination = fmt::format("signal: {}", WTERMSIG(status));
        else
            termination = fmt::format("exit status: {}", WEXITSTATUS(status));
    };

    while (outputOpen || errorOpen || !termination) {
        pollfd fds[3];
        nfds_t count = 0;
        int outputSlot = -1, errorSlot = -1, processSlot = -1;
        if (outputOpen) {
            outputSlot = static_cast<int>(count);
            fds[count++] = {output.read.fd(), POLLIN, 0};
        }
        if (errorOpen) {
            errorSlot = static_cast<int>(count);
            fds[count++] = {error.read.fd(), POLLIN, 0};
        }
        if (!termination && processFd.fd() >= 0) {
            processSlot = static_cast<int>(count);
            fds[count++] = {processFd.fd(), POLLIN, 0};
        }
        if (count == 0) {
            // Without a process descriptor the end of the process is polled for.
            ::poll(nullptr, 0, 20);
            reap();
            continue;
        }
        int timeout = (!termination && processFd.fd() < 0) ? 100 : -1;
        int ready = ::poll(fds, count, timeout);
        if (ready < 0) {
            if (errno == EINTR) continue;
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        auto readInto = [&](int slot, const FileHandle& fd, std::string& into, bool& open) {
            if (slot < 0 || fds[slot].revents == 0) return false;
            ssize_t got = ::read(fd.fd(), buffer, sizeof buffer);
            if (got < 0 && errno == EINTR) return false;
            if (got <= 0) {
                open = false;
                return true;
            }
            into.append(buffer, static_cast<std::size_t>(got));
            return false;
        };
        bool outputEnded = readInto(outputSlot, output.read, outputBytes, outputOpen);
        if (onOutputLine) deliverLines(outputBytes, onOutputLine, outputEnded);
        readInto(errorSlot, error.read, errorBytes, errorOpen);
        if (processSlot >= 0 ? fds[processSlot].revents != 0 : !termination) reap();
    }

    {
        std::lock_guard lock(state->mutex);
        if (state->cancelled) throw Cancelled();
    }
    ToolOutput result{onOutputLine ? std::string() : std::move(outputBytes), repairUtf8(errorBytes)};
    if (*termination != "exit status: 0") throw VorlenError::tool(tool, failureDetail(*termination, result.standardError));
    return result;
}

std::optional<double> ToolRunner::progressSeconds(const std::string& line) {
    std::string text = trimmed(line);
    std::string_view value;
    for (const char* key : {"out_time_ms=", "out_time_us="}) {
        if (text.rfind(key, 0) == 0) value = std::string_view(text).substr(std::strlen(key));
    }
    if (value.empty()) return std::nullopt;
    long long microseconds = 0;
    auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), microseconds);
    if (error != std::errc() || end != value.data() + value.size() || microseconds < 0) return std::nullopt;
    return static_cast<double>(microseconds) / 1'000'000.0;
}

ToolOutput ToolRunner::runFFmpeg(const Tools& tools, const std::vector<std::string>& arguments,
                                 const std::function<void(double)>& onTime) {
    std::vector<std::string> all{"-progress", "pipe:1", "-nostats"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return run("ffmpeg", tools.ffmpeg, all, [&](const std::string& line) {
        if (!onTime) return;
        if (auto seconds = progressSeconds(line)) onTime(*seconds);
    });
}

}  // namespace vorlen
