#include "app/CatalogModel.hpp"

namespace vorlen::app {

std::shared_ptr<CatalogModel> CatalogModel::make(std::shared_ptr<CatalogService> service, AccessSource access,
                                                 MainQueue& mainQueue, std::chrono::nanoseconds interval) {
    return std::shared_ptr<CatalogModel>(new CatalogModel(std::move(service), std::move(access), mainQueue, interval));
}

CatalogModel::~CatalogModel() {
    waitingRebuild_.reset();
    rebuild_.reset();
}

void CatalogModel::changed() {
    for (const auto& observer : observers_) observer();
}

void CatalogModel::requestRebuild() {
    ++generation_;
    if (rebuild_) {
        hasPendingRequest_ = true;
        return;
    }
    startOrWait();
}

void CatalogModel::startOrWait() {
    const auto now = std::chrono::steady_clock::now();
    if (!lastStart_ || now - *lastStart_ >= interval_) return start();
    if (waitingRebuild_) return;  // a request made meanwhile joins the one that waits
    const auto remaining = interval_ - (now - *lastStart_);
    std::weak_ptr<CatalogModel> weak = weak_from_this();
    waitingRebuild_.emplace(Task<void>::spawn([weak, remaining, &queue = mainQueue_] {
        sleepFor(remaining);
        queue.post([weak] {
            if (auto self = weak.lock()) {
                self->waitingRebuild_.reset();
                self->start();
            }
        });
    }));
    changed();
}

void CatalogModel::start() {
    lastStart_ = std::chrono::steady_clock::now();
    failure_.reset();
    const auto generation = generation_;
    std::optional<BucketAccess> access;
    try {
        access = access_();
    } catch (const std::exception& error) {
        failure_ = error.what();
        changed();
        return;
    }
    std::weak_ptr<CatalogModel> weak = weak_from_this();
    rebuild_.emplace(Task<void>::spawn([weak, generation, access = *access, service = service_, &queue = mainQueue_] {
        std::optional<std::string> failure;
        try {
            service->rebuild(access);
        } catch (const Cancelled&) {
            return;
        } catch (const std::exception& error) {
            failure = error.what();
        }
        queue.post([weak, generation, failure] {
            if (auto self = weak.lock()) self->finish(generation, failure);
        });
    }));
    changed();
}

void CatalogModel::finish(std::uint64_t generation, std::optional<std::string> failure) {
    rebuild_.reset();
    // A failure that a newer request already superseded is not worth showing.
    if (failure && generation == generation_) failure_ = failure;
    if (hasPendingRequest_) {
        hasPendingRequest_ = false;
        startOrWait();
    }
    changed();
}

}  // namespace vorlen::app
