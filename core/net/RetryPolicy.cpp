#include "core/net/RetryPolicy.hpp"

#include <algorithm>

#include "core/base/VorlenError.hpp"
#include "core/net/TransportError.hpp"

namespace vorlen {

namespace {

bool isServerTrouble(int status) { return status == 429 || status >= 500; }

}  // namespace

bool isTransient(const std::exception_ptr& error) {
    if (!error) return false;
    try {
        std::rethrow_exception(error);
    } catch (const VorlenError& failure) {
        if (auto* status = failure.as<failure::Status>()) return isServerTrouble(status->code);
        if (auto* download = failure.as<failure::Download>()) return isServerTrouble(download->status);
        return failure.is<failure::Integrity>() || failure.is<failure::IncompleteDownload>();
    } catch (const TransportError& transport) {
        return transport.isTransient();
    } catch (const RetryDelaySuggesting& suggesting) {
        auto status = suggesting.suggestingStatus();
        return status && isServerTrouble(*status) && suggesting.suggestedRetryDelay() <= std::chrono::seconds(60);
    } catch (...) {
        return false;
    }
}

std::chrono::duration<double> suggestedRetryDelay(const std::exception_ptr& error) {
    if (!error) return {};
    try {
        std::rethrow_exception(error);
    } catch (const RetryDelaySuggesting& suggesting) {
        return std::max(std::chrono::duration<double>(0), suggesting.suggestedRetryDelay());
    } catch (...) {
        return {};
    }
}

std::chrono::duration<double> retryWait(std::chrono::duration<double> delay, std::int64_t retry,
                                        const std::exception_ptr& error) {
    const int factor = retry >= 3 ? 16 : (2 << retry);
    return std::max(delay * factor, suggestedRetryDelay(error));
}

}  // namespace vorlen
