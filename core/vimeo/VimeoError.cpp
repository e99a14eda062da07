#include "core/vimeo/VimeoError.hpp"

#include <fmt/format.h>

namespace vorlen {

VimeoError::VimeoError(std::string method, std::string path, std::int64_t status, std::string message,
                       std::optional<std::string> developerMessage, std::optional<std::int64_t> code,
                       std::optional<std::chrono::duration<double>> retryAfter)
    : method_(std::move(method)),
      path_(std::move(path)),
      status_(status),
      message_(std::move(message)),
      developerMessage_(std::move(developerMessage)),
      code_(code),
      retryAfter_(retryAfter),
      description_(code_ ? fmt::format("Vimeo {} {}: HTTP {}, code {}: {}", method_, path_, status_, *code_, message_)
                         : fmt::format("Vimeo {} {}: HTTP {}, {}", method_, path_, status_, message_)) {}

}  // namespace vorlen
