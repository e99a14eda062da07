#include "core/publish/PosterHeuristicScorer.hpp"

#include <algorithm>
#include <cmath>

#include "core/base/Task.hpp"
#include "core/publish/Vips.hpp"

namespace vorlen {

namespace {

constexpr int workingSize = 256;

// Column indexes of the rows of vips' stats(): min, max, sum, sum², mean, deviation.
constexpr int statMean = 4;
constexpr int statDeviation = 5;

double clamp01(double value) {
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

// The mean and standard deviation of a one-band image.
std::pair<double, double> meanAndDeviation(const vips::VImage& band) {
    auto stats = band.stats();
    return {stats(statMean, 0)[0], stats(statDeviation, 0)[0]};
}

}  // namespace

PosterHeuristicScorer::Measures PosterHeuristicScorer::measure(const vips::VImage& frame) {
    startVips();
    double longer = std::max(frame.width(), frame.height());
    auto image = frame;
    if (longer > workingSize) image = image.resize(workingSize / longer);
    image = image.colourspace(VIPS_INTERPRETATION_sRGB);
    if (image.has_alpha())
        image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255, 255, 255}));
    image = image.cast(VIPS_FORMAT_FLOAT);
    auto red = image[0], green = image[1], blue = image[2];
    auto grey = red * 0.299 + green * 0.587 + blue * 0.114;

    Measures measures;
    // Sharpness: the spread of the Laplacian; soft or blurred frames have little.
    auto laplacian = vips::VImage::new_matrixv(3, 3, 0.0, 1.0, 0.0, 1.0, -4.0, 1.0, 0.0, 1.0, 0.0);
    auto edges = grey.conv(laplacian, vips::VImage::option()->set("precision", VIPS_PRECISION_FLOAT));
    measures.sharpness = clamp01(1.0 - std::exp(-meanAndDeviation(edges).second / 20.0));

    auto [brightness, spread] = meanAndDeviation(grey);
    double deviationFromMiddle = (brightness / 255.0 - 0.45) / 0.3;
    measures.exposure = clamp01(std::exp(-deviationFromMiddle * deviationFromMiddle));
    measures.contrast = clamp01(spread / 255.0 / 0.25);

    // Colourfulness after Hasler and Süsstrunk, on the opponent channels.
    auto [rgMean, rgDeviation] = meanAndDeviation(red - green);
    auto [ybMean, ybDeviation] = meanAndDeviation((red + green) * 0.5 - blue);
    double colourfulness = std::hypot(rgDeviation, ybDeviation) + 0.3 * std::hypot(rgMean, ybMean);
    measures.colourfulness = clamp01(colourfulness / 100.0);
    return measures;
}

double PosterHeuristicScorer::aesthetics(const Measures& measures) {
    double value = clamp01(0.35 * measures.sharpness + 0.25 * measures.exposure + 0.2 * measures.contrast +
                           0.2 * measures.colourfulness);
    // libvips sums in parallel, in no fixed order: without rounding, two equal
    // frames could differ in the last bits and the earlier one would not win.
    return std::round(value * 1e6) / 1e6;
}

PosterFrameScore PosterHeuristicScorer::score(const vips::VImage& frame) {
    checkCancellation();
    return {aesthetics(measure(frame)), 0};
}

}  // namespace vorlen
