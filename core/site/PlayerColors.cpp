#include "core/site/PlayerColors.hpp"

#include <regex>

namespace vorlen {

SeekBarColors SeekBarColors::defaults() {
    return {"rgba(255, 255, 255, 0.3)", "rgba(255, 255, 255, 0.54)", "rgb(255, 255, 255)", "rgb(255, 204, 0)",
            "rgba(255, 0, 0, 0.8)"};
}

PlayerColors PlayerColors::defaults() {
    return {"rgb(255, 255, 255)", "rgba(0, 0, 0, 0.5)", "rgba(0, 0, 0, 0.5)", "rgba(28, 28, 28, 0.9)", "rgb(255, 255, 255)"};
}

bool isPlayerColor(std::string_view text) {
    // The page Worker checks with the same expression (worker/src/worker.js).
    static const std::regex pattern(
        "^(?:#(?:[0-9a-fA-F]{3,4}|[0-9a-fA-F]{6}|[0-9a-fA-F]{8})|[a-zA-Z]{3,20}|"
        "(?:rgba?|hsla?)\\( *[-+]?(?:\\d+(?:\\.\\d+)?|\\.\\d+)(?:%|deg)?"
        "(?:(?: *[,/] *| +)[-+]?(?:\\d+(?:\\.\\d+)?|\\.\\d+)%?){2,3} *\\))$");
    return text.size() <= 64 && std::regex_match(text.begin(), text.end(), pattern);
}

}  // namespace vorlen
