#include "core/site/PlayerColors.hpp"

namespace vorlen {

SeekBarColors SeekBarColors::defaults() {
    return {"rgba(255, 255, 255, 0.3)", "rgba(255, 255, 255, 0.54)", "rgb(255, 255, 255)", "rgb(255, 204, 0)",
            "rgba(255, 0, 0, 0.8)"};
}

PlayerColors PlayerColors::defaults() {
    return {"rgb(255, 255, 255)", "rgba(0, 0, 0, 0.5)", "rgba(0, 0, 0, 0.5)", "rgba(28, 28, 28, 0.9)", "rgb(255, 255, 255)"};
}

}  // namespace vorlen
