#include "core/cloudflare/MultipartForm.hpp"

#include "core/base/Random.hpp"

namespace vorlen {

MultipartForm MultipartForm::make(std::vector<Part> parts) {
    return MultipartForm{"vorlen-" + randomUUID(), std::move(parts)};
}

std::string MultipartForm::bytes() const {
    std::string body;
    for (const auto& part : parts) {
        body += "--" + boundary + "\r\n";
        body += "Content-Disposition: form-data; name=\"" + part.name + "\"";
        if (part.fileName) body += "; filename=\"" + *part.fileName + "\"";
        body += "\r\n";
        if (part.contentType) body += "Content-Type: " + *part.contentType + "\r\n";
        body += "\r\n";
        body += part.data;
        body += "\r\n";
    }
    body += "--" + boundary + "--\r\n";
    return body;
}

}  // namespace vorlen
