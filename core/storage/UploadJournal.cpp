#include "core/storage/UploadJournal.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <system_error>

#include "core/base/Log.hpp"
#include "core/base/VorlenError.hpp"
#include "core/net/TransportError.hpp"

namespace vorlen {

std::string describe(const RequestTransport& transport) {
    std::vector<std::string> parts;
    parts.push_back(transport.protocolName.value_or("no protocol"));
    parts.push_back(transport.isReusedConnection ? "reused connection" : "new connection");
    if (transport.isProxyConnection) parts.push_back("proxy");
    if (transport.remote) parts.push_back(*transport.remote);
    parts.push_back(fmt::format("{} body bytes sent", transport.bodyBytesSent));
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string UploadAttemptReport::text() const {
    std::string text = file;
    if (part) text += fmt::format(" part {}", *part);
    text += fmt::format(", attempt {} of {}: {} of {} bytes given in {:.1f} s", attempt, attemptLimit, givenBytes,
                        bodyBytes, seconds);
    if (transport) text += ", " + describe(*transport);
    return text;
}

namespace {

// The text between <tag> and </tag>, found without a parser.
std::optional<std::string> elementText(const std::string& body, const std::string& tag) {
    auto open = body.find("<" + tag + ">");
    if (open == std::string::npos) return std::nullopt;
    open += tag.size() + 2;
    auto close = body.find("</" + tag + ">", open);
    if (close == std::string::npos) return std::nullopt;
    return body.substr(open, close - open);
}

}  // namespace

std::string failureDigest(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const VorlenError& failure) {
        if (failure.is<failure::Integrity>()) return "storage rejected a checksum";
        if (auto* status = failure.as<failure::Status>()) {
            auto code = elementText(status->body, "Code");
            return code && !code->empty() ? fmt::format("HTTP {} {}", status->code, *code)
                                           : fmt::format("HTTP {}", status->code);
        }
        return failure.text();
    } catch (const TransportError& failure) {
        return failure.domainAndCode();
    } catch (const std::system_error& failure) {
        return fmt::format("{} {}", failure.code().category().name(), failure.code().value());
    } catch (const Cancelled&) {
        return "cancelled";
    } catch (const std::exception& failure) {
        return failure.what();
    } catch (...) {
        return "unknown failure";
    }
}

std::string uploadLabel(const std::string& path) {
    auto last = path.find_last_of('/');
    if (last == std::string::npos) return path;
    auto before = last == 0 ? std::string::npos : path.find_last_of('/', last - 1);
    return before == std::string::npos ? path : path.substr(before + 1);
}

UploadJournal::UploadJournal(std::function<BootClock::time_point()> now) : now_(std::move(now)), started_(now_()) {}

double UploadJournal::secondsSinceStart() const { return secondsBetween(started_, now_()); }

void UploadJournal::append(const std::string& text, bool failure) {
    std::string line = fmt::format("{:7.1f} s  {}", secondsSinceStart(), text);
    if (failure) vorlen::log().error("{}", line);
    else vorlen::log().info("{}", line);
    std::lock_guard lock(mutex_);
    entries_.push_back(std::move(line));
    while (entries_.size() > lineLimit) entries_.pop_front();
}

void UploadJournal::log(const std::string& text) { append(text, false); }

void UploadJournal::logStored(const UploadAttemptReport& report) {
    {
        std::lock_guard lock(mutex_);
        ++storedRequests_;
    }
    append("stored: " + report.text(), false);
}

void UploadJournal::logFailure(const UploadAttemptReport& report, const std::exception_ptr& error) {
    {
        std::lock_guard lock(mutex_);
        ++failedAttempts_;
    }
    append("failed: " + report.text() + ": " + failureDigest(error), true);
}

void UploadJournal::logCancelled(const UploadAttemptReport& report) { append("cancelled: " + report.text(), false); }

void UploadJournal::logFailedStep(const std::string& label, std::int64_t attempt, std::int64_t limit,
                                  const std::exception_ptr& error) {
    {
        std::lock_guard lock(mutex_);
        ++failedAttempts_;
    }
    append(fmt::format("failed: {}, attempt {} of {}: {}", label, attempt, limit, failureDigest(error)), true);
}

void UploadJournal::logStart(std::size_t files, std::uint64_t bytes, const UploadOptions& options,
                             std::uint64_t bytesPerSecond, std::string_view what) {
    log(fmt::format("{} started: {} files, {} bytes, {} requests at a time, parts of {} bytes, limit {} bytes/s", what,
                    files, bytes, options.concurrency, options.partSize, bytesPerSecond));
}

void UploadJournal::logStop(const std::exception_ptr& error) {
    std::int64_t stored = 0;
    std::int64_t failed = 0;
    {
        std::lock_guard lock(mutex_);
        stored = storedRequests_;
        failed = failedAttempts_;
    }
    append(fmt::format("upload stopped: {} requests stored, {} attempts failed: {}", stored, failed,
                       failureDigest(error)),
           true);
}

std::vector<std::string> UploadJournal::entries() const {
    std::lock_guard lock(mutex_);
    return {entries_.begin(), entries_.end()};
}

std::int64_t UploadJournal::storedRequests() const {
    std::lock_guard lock(mutex_);
    return storedRequests_;
}

std::int64_t UploadJournal::failedAttempts() const {
    std::lock_guard lock(mutex_);
    return failedAttempts_;
}

}  // namespace vorlen
