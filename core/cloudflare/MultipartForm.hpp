#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vorlen {

// A multipart/form-data body, as the Worker uploads send it.
struct MultipartForm {
    struct Part {
        std::string name;
        std::optional<std::string> fileName;
        std::optional<std::string> contentType;
        std::string data;
    };

    std::string boundary;
    std::vector<Part> parts;

    // A form with a fresh boundary: "vorlen-" and a new UUID in upper case.
    static MultipartForm make(std::vector<Part> parts);

    std::string contentType() const { return "multipart/form-data; boundary=" + boundary; }
    std::string bytes() const;
};

}  // namespace vorlen
