#include "core/publish/EncodeMeter.hpp"

#include <algorithm>
#include <numeric>

namespace vorlen {

std::string displayName(PublishProgress::Stage stage) {
    switch (stage) {
        case PublishProgress::Stage::encoding: return "encoding";
        case PublishProgress::Stage::packaging: return "packaging";
        case PublishProgress::Stage::reviewingPoster: return "reviewing poster";
        case PublishProgress::Stage::uploading: return "uploading";
    }
    return "";
}

void EncodeMeter::setVideoSeconds(double seconds) {
    std::lock_guard lock(mutex_);
    state_.videoSeconds = seconds;
}

void EncodeMeter::setAudioFraction(std::size_t rendition, double fraction) {
    std::lock_guard lock(mutex_);
    if (rendition < state_.audioFractions.size()) state_.audioFractions[rendition] = fraction;
}

EncodeMeter::State EncodeMeter::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

double EncodeMeter::fraction(const State& state, double durationSeconds) {
    double audio = state.audioFractions.empty()
                       ? 1.0
                       : std::accumulate(state.audioFractions.begin(), state.audioFractions.end(), 0.0) /
                             static_cast<double>(state.audioFractions.size());
    double video = durationSeconds > 0 ? std::clamp(state.videoSeconds / durationSeconds, 0.0, 1.0) : 0.0;
    return audio * 0.1 + video * 0.9;
}

PublishProgress EncodingProgressReporter::report(const EncodeMeter::State& state, double elapsed) {
    PublishProgress progress;
    progress.stage = PublishProgress::Stage::encoding;
    progress.stageFraction = EncodeMeter::fraction(state, duration_);
    estimator_.add(elapsed, progress.stageFraction);
    if (auto rate = estimator_.rate(); rate && *rate > 0) progress.stageETA = (1 - progress.stageFraction) / *rate;
    progress.totalETA = progress.stageETA;
    if (progress.stageETA && expectedUploadRate_ && *expectedUploadRate_ > 0)
        progress.totalETA = *progress.stageETA + static_cast<double>(estimatedBytes_) / *expectedUploadRate_;
    if (elapsed > 1) progress.encodeSpeed = state.videoSeconds / elapsed;
    progress.uploadTotalBytes = estimatedBytes_;
    return progress;
}

}  // namespace vorlen
