#include "shell/SecretPrompt.hpp"

#include <QInputDialog>
#include <QMetaObject>
#include <QWidget>

#include <chrono>
#include <future>
#include <memory>

#include "core/base/Task.hpp"

namespace vorlen::shell {

std::optional<std::string> askSecret(QWidget* parent, const QString& title, const QString& question) {
    bool isGiven = false;
    const QString answer = QInputDialog::getText(parent, title, question, QLineEdit::Password, QString(), &isGiven);
    if (!isGiven) return std::nullopt;
    return answer.toStdString();
}

std::optional<std::string> sealedTokenForPurge(QWidget* window, app::AppModel& model, const app::SiteID& site) {
    auto answer = std::make_shared<std::promise<std::optional<std::string>>>();
    auto future = answer->get_future();
    // Queued to the window: a window closed meanwhile drops the question, and the task's stop ends the wait.
    QMetaObject::invokeMethod(
        window,
        [window, &model, site, answer] {
            try {
                auto store = model.setupTokens(site, [window](const app::PassphraseRequest& request) {
                    return askSecret(window, "Passphrase",
                                     QString("To %1, give the passphrase of its sealed copy:").arg(QString::fromStdString(request.reason)));
                });
                answer->set_value(store.hasToken() ? store.token(app::SetupTokenPurpose::purgeCache) : std::nullopt);
            } catch (...) {
                answer->set_exception(std::current_exception());
            }
        },
        Qt::QueuedConnection);
    while (future.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) checkCancellation();
    return future.get();
}

}  // namespace vorlen::shell
