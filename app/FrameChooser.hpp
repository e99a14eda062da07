#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"
#include "core/publish/PosterSource.hpp"

namespace vorlen::app {

// The poster review's row of frames: a thumbnail for each sample time. They are
// read one at a time with a pause between them, so that the encoder keeps the
// machine. Lives on the main thread; dropping it stops the reading.
class FrameChooser : public std::enable_shared_from_this<FrameChooser> {
public:
    static std::shared_ptr<FrameChooser> make(std::shared_ptr<PosterSource> source, MainQueue& mainQueue,
                                              std::chrono::nanoseconds pause = std::chrono::milliseconds(150),
                                              int maxPixelSize = 256);
    ~FrameChooser();

    const std::vector<double>& sampleTimes() const { return source_->sampleTimes(); }
    // Each sample's thumbnail, by index, as it arrives.
    const std::map<std::size_t, Poster>& thumbnails() const { return thumbnails_; }
    // The first frame that could not be read, in its own words.
    const std::optional<std::string>& failure() const { return failure_; }
    bool isLoading() const { return isLoading_; }
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    void start();

private:
    FrameChooser(std::shared_ptr<PosterSource> source, MainQueue& mainQueue, std::chrono::nanoseconds pause, int maxPixelSize);
    void changed();

    std::shared_ptr<PosterSource> source_;
    MainQueue& mainQueue_;
    std::chrono::nanoseconds pause_;
    int maxPixelSize_;
    std::map<std::size_t, Poster> thumbnails_;
    std::optional<std::string> failure_;
    bool isLoading_ = false;
    std::vector<std::function<void()>> observers_;
    std::optional<Task<void>> load_;
};

}  // namespace vorlen::app
