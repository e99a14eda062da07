#include "testing/LocalGoogleFonts.hpp"

#include <unistd.h>

#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "core/base/Files.hpp"
#include "testing/CommandOutput.hpp"

namespace vorlen::testing {

namespace {

std::string script(const char* name) { return std::string(VORLEN_SOURCE_DIR) + "/testing/googlefonts/" + name; }

}  // namespace

LocalGoogleFonts& LocalGoogleFonts::shared() {
    static LocalGoogleFonts fonts;
    return fonts;
}

LocalGoogleFonts::LocalGoogleFonts() {
    dir_ = makeUniqueDirectory(std::filesystem::temp_directory_path(), "vorlen-googlefonts-");
    std::istringstream lines(commandOutput(
        fmt::format("VORLEN_GOOGLE_FONTS_OWNER={} '{}' '{}'", ::getpid(), script("start"), dir_.string()),
        "the local Google Fonts did not start; see its log"));
    for (std::string line; std::getline(lines, line);) {
        const auto equals = line.find('=');
        if (equals == std::string::npos) continue;
        const auto key = line.substr(0, equals);
        const auto value = line.substr(equals + 1);
        if (key == "api") api_ = value;
        if (key == "file_host") fileHost_ = value;
        if (key == "connect_to") connectTo_ = value;
        if (key == "ca") certificateAuthority_ = value;
    }
    if (api_.empty() || connectTo_.empty()) throw std::runtime_error("the local Google Fonts did not report its address");
}

LocalGoogleFonts::~LocalGoogleFonts() {
    std::system(fmt::format("'{}' '{}' >/dev/null 2>&1", script("stop"), dir_.string()).c_str());
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

HttpClientOptions LocalGoogleFonts::httpOptions() const {
    HttpClientOptions options;
    options.connectTo = {connectTo_};
    options.extraCertificateAuthority = certificateAuthority_;
    return options;
}

Json LocalGoogleFonts::requests() const {
    HttpRequest request;
    request.url = api_ + "/_admin/requests";
    return Json::parse(HttpClient().send(request).body);
}

}  // namespace vorlen::testing
