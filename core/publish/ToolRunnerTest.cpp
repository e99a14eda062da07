#include "core/publish/ToolRunner.hpp"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <fstream>
#include <thread>

#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"

namespace vorlen {
namespace {

namespace fs = std::filesystem;

ToolOutput shell(const std::string& script, const OutputLineHandler& onLine = {}) {
    return ToolRunner::run("sh", "/bin/sh", {"-c", script}, onLine);
}

std::string toolFailure(const std::string& script) {
    try {
        shell(script);
    } catch (const VorlenError& error) {
        return error.text();
    }
    return "no failure";
}

// A process that is gone or a zombie no longer runs.
bool isRunning(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string pidText, name, state;
    if (!(stat >> pidText >> name >> state)) return false;
    return state != "Z" && state != "X";
}

TEST(ToolRunner, CollectsBothStreamsAndStripsLineEnds) {
    auto plain = shell("printf 'a\\nb'; printf 'warn\\n' >&2; exit 0");
    EXPECT_EQ(plain.standardOutput, "a\nb");
    EXPECT_EQ(plain.standardError, "warn\n");

    std::vector<std::string> lines;
    auto withLines = shell("printf 'one\\r\\ntwo\\n\\nlast-without-feed'", [&](const std::string& line) {
        lines.push_back(line);
    });
    EXPECT_EQ(withLines.standardOutput, "");
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", "", "last-without-feed"}));

    // Standard input is the null device, so a reader of it ends at once.
    EXPECT_EQ(shell("cat; echo done").standardOutput, "done\n");
}

// A tool sees the way to programs, the home and the language, and no token, key or setting of Vorlen's.
TEST(ToolRunner, AChildGetsNoSecretFromTheEnvironment) {
    const std::vector<std::pair<const char*, const char*>> secrets = {
        {"VORLEN_R2_TOKEN", "r2-token-value"}, {"VORLEN_SECRET_ACCESS_KEY", "s3-secret"},
        {"AWS_SECRET_ACCESS_KEY", "aws-secret"}, {"CLOUDFLARE_API_TOKEN", "cf-token"}};
    for (auto [name, value] : secrets) ::setenv(name, value, 1);
    ::setenv("LC_TIME", "en_GB.UTF-8", 1);
    auto seen = ToolRunner::run("env", "/usr/bin/env", {}).standardOutput;
    for (auto [name, value] : secrets) {
        ::unsetenv(name);
        EXPECT_EQ(seen.find(value), std::string::npos) << name;
    }
    ::unsetenv("LC_TIME");
    EXPECT_NE(seen.find("PATH="), std::string::npos);
    EXPECT_NE(seen.find("LC_TIME=en_GB.UTF-8"), std::string::npos);
}

TEST(ToolRunner, FailureKeepsTheLastTwentyLinesOfALargeStandardError) {
    auto text = toolFailure("i=0; while [ $i -lt 30000 ]; do echo \"line $i of noise to pass a megabyte\" >&2; i=$((i+1)); done; exit 3");
    std::string expected = "sh failed: exit status: 3\n";
    for (int i = 29980; i < 30000; ++i)
        expected += "line " + std::to_string(i) + " of noise to pass a megabyte" + (i < 29999 ? "\n" : "");
    EXPECT_EQ(text, expected);

    EXPECT_EQ(toolFailure("echo gone >&2; kill -9 $$"), "sh failed: signal: 9\ngone");
    EXPECT_EQ(toolFailure("exit 1"), "sh failed: exit status: 1\n");
}

TEST(ToolRunner, ReportsAProgramThatCannotStart) {
    try {
        ToolRunner::run("ffmpeg", "/nonexistent/ffmpeg", {});
        FAIL();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "ffmpeg failed: cannot start /nonexistent/ffmpeg: No such file or directory");
    }
}

TEST(ToolRunner, WaitsForAPipeThatOutlivesTheProcess) {
    auto result = shell("(sleep 0.3; echo late) & echo early");
    EXPECT_EQ(result.standardOutput, "early\nlate\n");
}

TEST(ToolRunner, CancellationKillsTheProcessAndWhatItStarted) {
    std::atomic<pid_t> shellPid{0}, childPid{0};
    auto task = Task<void>::spawn([&] {
        shell("sleep 60 & echo $$ $!; wait", [&](const std::string& line) {
            auto space = line.find(' ');
            shellPid = std::stoi(line.substr(0, space));
            childPid = std::stoi(line.substr(space + 1));
        });
    });
    while (childPid == 0 && !task.isFinished()) std::this_thread::yield();
    task.cancel();
    EXPECT_THROW(task.value(), Cancelled);
    EXPECT_FALSE(isRunning(shellPid));
    for (int i = 0; i < 200 && isRunning(childPid); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(isRunning(childPid));
}

TEST(ToolRunner, CancelledBeforeTheLaunchStartsNothing) {
    auto marker = fs::temp_directory_path() / ("vorlen-tool-" + std::to_string(::getpid()));
    fs::remove(marker);
    auto scope = CancellationScope::makeRoot();
    scope->cancel();
    ScopeBinding binding(scope);
    EXPECT_THROW(shell("touch " + marker.string()), Cancelled);
    EXPECT_FALSE(fs::exists(marker));
}

TEST(ToolRunner, ReadsFFmpegProgressInMicroseconds) {
    EXPECT_EQ(ToolRunner::progressSeconds("out_time_us=2500000"), 2.5);
    EXPECT_EQ(ToolRunner::progressSeconds("  out_time_ms=1000000 \r"), 1.0);
    EXPECT_EQ(ToolRunner::progressSeconds("out_time_us=-9223372036854775807"), std::nullopt);
    EXPECT_EQ(ToolRunner::progressSeconds("out_time_us=N/A"), std::nullopt);
    EXPECT_EQ(ToolRunner::progressSeconds("out_time_ms="), std::nullopt);
    EXPECT_EQ(ToolRunner::progressSeconds("out_time=00:00:01.000000"), std::nullopt);
}

TEST(Tools, TakesTheFirstRegularFileInSearchOrder) {
    auto root = fs::temp_directory_path() / ("vorlen-tools-" + std::to_string(::getpid()));
    fs::remove_all(root);
    for (auto dir : {"helpers", "path/ffmpeg", "other"}) fs::create_directories(root / dir);
    auto touch = [](const fs::path& path) { std::ofstream(path) << "#!/bin/sh\n"; };
    touch(root / "helpers/ffprobe");
    touch(root / "other/ffmpeg");
    touch(root / "other/ffprobe");
    touch(root / "other/packager");

    auto dirs = Tools::searchDirectories(root / "helpers", "::" + (root / "path").string() + ":" + (root / "other").string());
    ASSERT_EQ(dirs.size(), 5u);
    EXPECT_EQ(dirs[0], root / "helpers");
    EXPECT_EQ(dirs[1], root / "path");
    EXPECT_EQ(dirs[3], fs::path("/opt/homebrew/bin"));
    EXPECT_EQ(dirs[4], fs::path("/usr/local/bin"));

    // path/ffmpeg is a folder, so ffmpeg comes from further on.
    auto tools = Tools::locateIn({root / "helpers", root / "path", root / "other"});
    EXPECT_EQ(tools.ffprobe, root / "helpers/ffprobe");
    EXPECT_EQ(tools.ffmpeg, root / "other/ffmpeg");

    try {
        Tools::locateIn({root / "path"});
        FAIL();
    } catch (const VorlenError& error) {
        EXPECT_EQ(error.text(), "cannot find ffmpeg, ffprobe, packager");
    }
    fs::remove_all(root);
}

}  // namespace
}  // namespace vorlen
