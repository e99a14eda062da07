#include "core/batch/BulkTimeEstimate.hpp"

#include <algorithm>

namespace vorlen {

std::optional<double> BulkTimeEstimate::secondsLeft(const Work& work) const {
    // Output bytes per source byte, as the builds so far made them.
    const double ratio = builtExpectedBytes == 0 ? 1.0 : double(builtBytes) / double(builtExpectedBytes);
    double uploadWork = double(work.uploadBytes);
    double buildWork = 0;
    auto queued = work.queued;
    if (work.build) {
        if (const auto* built = std::get_if<Work::Built>(&*work.build)) {
            uploadWork += double(built->bytes);
        } else if (const auto* building = std::get_if<Work::Building>(&*work.build)) {
            const double expected = double(building->expectedBytes);
            uploadWork += ratio * expected;
            buildWork = building->fraction > 0 ? expected * (1 - std::min(building->fraction, 1.0)) : expected;
        } else {
            ++queued;
        }
    }
    if (queued > 0) {
        if (inspectedCount <= 0) return std::nullopt;
        const double bytes = double(queued) * (double(inspectedBytes) / double(inspectedCount));
        uploadWork += ratio * bytes;
        buildWork += bytes;
    }
    if (uploadWork == 0 && buildWork == 0) return 0.0;
    if (!uploadRate) return std::nullopt;
    const double uploadSeconds = uploadWork / *uploadRate;
    if (builtExpectedBytes != 0 && buildSeconds > 0) {
        const double buildRate = double(builtExpectedBytes) / buildSeconds;
        return std::max(uploadSeconds, buildWork / buildRate);
    }
    return uploadSeconds;
}

}  // namespace vorlen
