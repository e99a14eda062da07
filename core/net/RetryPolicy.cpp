#include "core/net/RetryPolicy.hpp"

#include "core/base/VorlenError.hpp"

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
    } catch (...) {
        return false;
    }
}

std::chrono::duration<double> suggestedRetryDelay(const std::exception_ptr& error) {
    if (!error) return {};
    try {
        std::rethrow_exception(error);
    } catch (const RetryDelaySuggesting& suggesting) {
        return suggesting.suggestedRetryDelay();
    } catch (...) {
        return {};
    }
}

}  // namespace vorlen
