#include "core/storage/WriteFailure.hpp"

#include "core/base/VorlenError.hpp"

namespace vorlen {

std::exception_ptr mappedWriteFailure(const std::exception_ptr& error, const std::string& key, bool hadCondition) {
    try {
        std::rethrow_exception(error);
    } catch (const VorlenError& failure) {
        if (auto* status = failure.as<failure::Status>()) {
            if (hadCondition && status->code == 412) return std::make_exception_ptr(VorlenError::conflict(key));
            if (status->code == 400 && (status->body.find("BadDigest") != std::string::npos ||
                                        status->body.find("InvalidDigest") != std::string::npos))
                return std::make_exception_ptr(VorlenError::integrity(key, status->body));
        }
        return error;
    } catch (...) {
        return error;
    }
}

}  // namespace vorlen
