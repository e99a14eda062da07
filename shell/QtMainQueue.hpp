#pragma once

#include <QObject>

#include "app/MainQueue.hpp"

namespace vorlen::shell {

// The models' main queue on Qt's event loop: work posted from any thread runs
// on the GUI thread, in the order posted. Work still queued when the queue goes
// away is dropped.
class QtMainQueue final : public app::MainQueue {
public:
    QtMainQueue() = default;
    void post(std::function<void()> work) override;

private:
    QObject receiver_;
};

}  // namespace vorlen::shell
