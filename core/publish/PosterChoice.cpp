#include "core/publish/PosterChoice.hpp"

#include <algorithm>
#include <cmath>
#include <functional>

#include "core/base/Log.hpp"
#include "core/base/Task.hpp"
#include "core/base/VorlenError.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {

namespace {

constexpr int statisticsSide = 64;
constexpr double faceBonus = 0.1;

// The first candidate with the greatest value: a later one must be strictly greater to win.
template <class Value>
std::optional<double> firstGreatest(const std::vector<const PosterCandidate*>& candidates, Value value) {
    const PosterCandidate* best = nullptr;
    double bestValue = 0;
    for (const auto* candidate : candidates) {
        double candidateValue = value(*candidate);
        if (best == nullptr || candidateValue > bestValue) {
            best = candidate;
            bestValue = candidateValue;
        }
    }
    if (best == nullptr) return std::nullopt;
    return best->time;
}

}  // namespace

std::vector<double> PosterChoice::samplingTimes(double duration) {
    std::vector<double> times;
    times.reserve(sampleCount);
    for (int i = 0; i < sampleCount; ++i) times.push_back(duration * (i * 0.6 / (sampleCount - 1) + 0.1));
    return times;
}

PosterFrameStatistics PosterChoice::statistics(const vips::VImage& frame) {
    startVips();
    std::vector<unsigned char> pixels;
    try {
        auto image = frame.colourspace(VIPS_INTERPRETATION_sRGB);
        if (image.has_alpha())
            image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255, 255, 255}));
        image = image.thumbnail_image(statisticsSide, vips::VImage::option()
                                                          ->set("height", statisticsSide)
                                                          ->set("size", VIPS_SIZE_FORCE)
                                                          ->set("no_rotate", true))
                    .colourspace(VIPS_INTERPRETATION_B_W)
                    .cast(VIPS_FORMAT_UCHAR);
        if (image.width() != statisticsSide || image.height() != statisticsSide || image.bands() != 1)
            throw VorlenError::source("Could not measure a video frame.");
        std::size_t length = 0;
        auto* data = static_cast<unsigned char*>(image.write_to_memory(&length));
        pixels.assign(data, data + length);
        g_free(data);
    } catch (const vips::VError&) {
        throw VorlenError::source("Could not measure a video frame.");
    }
    double sum = 0;
    double sumOfSquares = 0;
    for (unsigned char pixel : pixels) {
        double value = pixel / 255.0;
        sum += value;
        sumOfSquares += value * value;
    }
    double count = double(pixels.size());
    double mean = sum / count;
    return {mean, std::max(0.0, sumOfSquares / count - mean * mean)};
}

bool PosterChoice::isUsable(const PosterFrameStatistics& statistics) {
    return statistics.mean >= 0.08 && statistics.mean <= 0.92 && std::sqrt(statistics.variance) >= 0.04;
}

PosterCandidate PosterChoice::Evaluator::evaluate(double time, const vips::VImage& frame) {
    checkCancellation();
    PosterCandidate candidate{time, statistics(frame), std::nullopt};
    if (!isUsable(candidate.statistics) || scorerFailed || !scorer) return candidate;
    try {
        candidate.score = scorer->score(frame);
    } catch (const Cancelled&) {
        throw;
    } catch (const std::exception& error) {
        // From here on the choice goes by variance, so earlier scores no longer count.
        scorerFailed = true;
        log().warn("the poster scorer failed: {}", error.what());
    }
    return candidate;
}

std::optional<double> PosterChoice::choose(std::vector<PosterCandidate> candidates) {
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const PosterCandidate& a, const PosterCandidate& b) { return a.time < b.time; });
    std::vector<const PosterCandidate*> all;
    std::vector<const PosterCandidate*> usable;
    for (const auto& candidate : candidates) {
        all.push_back(&candidate);
        if (isUsable(candidate.statistics)) usable.push_back(&candidate);
    }
    auto variance = [](const PosterCandidate& candidate) { return candidate.statistics.variance; };
    if (usable.empty()) return firstGreatest(all, variance);
    bool allScored = std::all_of(usable.begin(), usable.end(), [](const auto* c) { return c->score.has_value(); });
    if (!allScored) return firstGreatest(usable, variance);
    return firstGreatest(usable, [](const PosterCandidate& candidate) {
        return candidate.score->aesthetics + (candidate.score->faceCount >= 1 ? faceBonus : 0.0);
    });
}

}  // namespace vorlen
