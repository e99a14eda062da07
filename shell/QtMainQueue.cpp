#include "shell/QtMainQueue.hpp"

#include <QMetaObject>

namespace vorlen::shell {

void QtMainQueue::post(std::function<void()> work) {
    QMetaObject::invokeMethod(&receiver_, std::move(work), Qt::QueuedConnection);
}

}  // namespace vorlen::shell
