#include "app/FrameChooser.hpp"

namespace vorlen::app {

std::shared_ptr<FrameChooser> FrameChooser::make(std::shared_ptr<PosterSource> source, MainQueue& mainQueue,
                                                 std::chrono::nanoseconds pause, int maxPixelSize) {
    return std::shared_ptr<FrameChooser>(new FrameChooser(std::move(source), mainQueue, pause, maxPixelSize));
}

FrameChooser::FrameChooser(std::shared_ptr<PosterSource> source, MainQueue& mainQueue, std::chrono::nanoseconds pause,
                           int maxPixelSize)
    : source_(std::move(source)), mainQueue_(mainQueue), pause_(pause), maxPixelSize_(maxPixelSize) {}

FrameChooser::~FrameChooser() { load_.reset(); }

void FrameChooser::changed() {
    for (auto& observer : observers_) observer();
}

void FrameChooser::start() {
    if (load_) return;
    isLoading_ = true;
    std::weak_ptr<FrameChooser> weak = weak_from_this();
    auto source = source_;
    auto times = source_->sampleTimes();
    auto pause = pause_;
    int maxPixelSize = maxPixelSize_;
    MainQueue& queue = mainQueue_;
    auto post = [weak, &queue](std::function<void(FrameChooser&)> work) {
        queue.post([weak, work = std::move(work)] {
            if (auto self = weak.lock()) work(*self);
        });
    };
    load_.emplace(Task<void>::spawn([source, times, pause, maxPixelSize, post] {
        for (std::size_t index = 0; index < times.size(); ++index) {
            if (index > 0) sleepFor(pause);
            checkCancellation();
            try {
                Poster small = thumbnail(source->frame(times[index]).jpeg, maxPixelSize, times[index]);
                post([index, small](FrameChooser& self) {
                    self.thumbnails_[index] = small;
                    self.changed();
                });
            } catch (const Cancelled&) {
                throw;
            } catch (const std::exception& error) {
                std::string words = error.what();
                post([words](FrameChooser& self) {
                    if (!self.failure_) self.failure_ = words;
                    self.changed();
                });
            }
        }
        post([](FrameChooser& self) {
            self.isLoading_ = false;
            self.changed();
        });
    }));
}

}  // namespace vorlen::app
