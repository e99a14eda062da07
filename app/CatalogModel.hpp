#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/LibraryService.hpp"
#include "app/MainQueue.hpp"
#include "core/base/Task.hpp"

namespace vorlen::app {

// The catalogue of one site, rebuilt when something published changes. A
// rebuild reads the whole library, so requests are coalesced: one start per
// interval, and a request made during a rebuild leads to one more after it.
class CatalogModel : public std::enable_shared_from_this<CatalogModel> {
public:
    using AccessSource = std::function<BucketAccess()>;
    static constexpr std::chrono::seconds defaultInterval{600};

    static std::shared_ptr<CatalogModel> make(std::shared_ptr<CatalogService> service, AccessSource access,
                                              MainQueue& mainQueue,
                                              std::chrono::nanoseconds interval = defaultInterval);
    ~CatalogModel();

    bool isRebuilding() const { return rebuild_.has_value(); }
    // True while a rebuild runs or waits for its turn.
    bool isBusy() const { return rebuild_.has_value() || waitingRebuild_.has_value() || hasPendingRequest_; }
    const std::optional<std::string>& failure() const { return failure_; }
    void onChange(std::function<void()> observer) { observers_.push_back(std::move(observer)); }

    void requestRebuild();

private:
    CatalogModel(std::shared_ptr<CatalogService> service, AccessSource access, MainQueue& mainQueue,
                 std::chrono::nanoseconds interval)
        : service_(std::move(service)), access_(std::move(access)), mainQueue_(mainQueue), interval_(interval) {}
    void startOrWait();
    void start();
    void finish(std::uint64_t generation, std::optional<std::string> failure);
    void changed();

    std::shared_ptr<CatalogService> service_;
    AccessSource access_;
    MainQueue& mainQueue_;
    std::chrono::nanoseconds interval_;
    std::vector<std::function<void()>> observers_;

    std::optional<std::string> failure_;
    bool hasPendingRequest_ = false;
    std::uint64_t generation_ = 0;
    std::optional<std::chrono::steady_clock::time_point> lastStart_;
    std::optional<Task<void>> rebuild_;
    std::optional<Task<void>> waitingRebuild_;
};

}  // namespace vorlen::app
