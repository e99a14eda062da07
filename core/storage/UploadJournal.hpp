#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/base/Clock.hpp"
#include "core/net/RequestTransport.hpp"
#include "core/storage/UploadOptions.hpp"

namespace vorlen {

// What one attempt at one request did, as a journal line tells it.
struct UploadAttemptReport {
    std::string file;                 // the label, e.g. "v_1080/001.mp4"
    std::optional<std::int64_t> part;
    std::int64_t attempt = 1;
    std::int64_t attemptLimit = 1;
    std::uint64_t bodyBytes = 0;
    std::uint64_t givenBytes = 0;
    double seconds = 0;
    std::optional<RequestTransport> transport;

    // "v_1080/001.mp4 part 1, attempt 1 of 6: 3145728 of 33554432 bytes given in 47.2 s, h2, ..."
    std::string text() const;
};

// "h2, new connection, 192.0.2.1:443, 2097152 body bytes sent"
std::string describe(const RequestTransport& transport);

// A short description of a failure that is safe to show: "HTTP 503 SlowDown",
// "storage rejected a checksum", or the kind and code of a transport error.
std::string failureDigest(const std::exception_ptr& error);

// The label of a file: its two last path components, "v_1080/001.mp4".
std::string uploadLabel(const std::string& path);

// The lines of one upload, each with the seconds since its start, the last 300
// kept. Every line also goes to the log. Used from any thread.
class UploadJournal {
public:
    static constexpr std::size_t lineLimit = 300;

    explicit UploadJournal(std::function<BootClock::time_point()> now = BootClock::now);

    void log(const std::string& text);
    void logStored(const UploadAttemptReport& report);
    void logFailure(const UploadAttemptReport& report, const std::exception_ptr& error);
    void logCancelled(const UploadAttemptReport& report);
    void logFailedStep(const std::string& label, std::int64_t attempt, std::int64_t limit, const std::exception_ptr& error);
    // "<what> started: N files, ...": an upload, a replacement, an audio replacement.
    void logStart(std::size_t files, std::uint64_t bytes, const UploadOptions& options, std::uint64_t bytesPerSecond,
                  std::string_view what = "upload");
    void logStop(const std::exception_ptr& error);

    std::vector<std::string> entries() const;
    std::int64_t storedRequests() const;
    std::int64_t failedAttempts() const;
    double secondsSinceStart() const;

private:
    void append(const std::string& text, bool failure);

    std::function<BootClock::time_point()> now_;
    BootClock::time_point started_;
    mutable std::mutex mutex_;
    std::deque<std::string> entries_;
    std::int64_t storedRequests_ = 0;
    std::int64_t failedAttempts_ = 0;
};

}  // namespace vorlen
