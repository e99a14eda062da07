#include "core/base/Json.hpp"

#include <fmt/format.h>

namespace vorlen {

std::string encodeJson(const Json& value, bool pretty) {
    return value.dump(pretty ? 2 : -1, ' ', false, Json::error_handler_t::replace);
}

std::string encodeOrderedJson(const OrderedJson& value, bool pretty) {
    return value.dump(pretty ? 2 : -1, ' ', false, OrderedJson::error_handler_t::replace);
}

Json decodeJson(std::string_view text) { return Json::parse(text.begin(), text.end()); }

std::string newerVersionMessage(const std::string& key, long long found, long long supported) {
    return fmt::format("{} has version {}, from a newer version of Vorlen. This app reads version {}. Update the app.",
                       key, found, supported);
}

}  // namespace vorlen
