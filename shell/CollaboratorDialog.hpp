#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QDialog>

#include "app/LocalSettings.hpp"
#include "app/SiteCollaborators.hpp"
#include "core/base/Task.hpp"

class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace vorlen::shell {

// Joins a site with a setup code, or makes an invite for a collaborator. The
// network work runs on a task of its own; the window stays live, and closing the
// dialog cancels it.
class CollaboratorDialog : public QDialog {
public:
    // Joining: the code is checked and the site read; onJoined adds it.
    explicit CollaboratorDialog(Endpoints endpoints, QWidget* parent = nullptr);
    // Inviting to a site: the setup token makes the collaborator's token and its code.
    CollaboratorDialog(app::SiteSummary site, Endpoints endpoints, QWidget* parent = nullptr);
    ~CollaboratorDialog() override;

    std::function<void(const app::JoinedSite&)> onJoined;

    QLineEdit* field(const QString& accessibleName) const;
    QPlainTextEdit* codeView() const { return code_; }

private:
    void build(const QString& title, const QString& intro, const QString& action);
    QLineEdit* addField(const QString& accessibleName, bool isSecret);
    void join();
    void invite();
    template <class T>
    void runTask(std::function<T()> work, std::function<void(T)> done);
    void showProblem(const QString& words);

    Endpoints endpoints_;
    std::optional<app::SiteSummary> site_;
    QFormLayout* form_ = nullptr;
    QLineEdit* codeField_ = nullptr;
    QLineEdit* name_ = nullptr;
    QLineEdit* token_ = nullptr;
    QPlainTextEdit* code_ = nullptr;
    QLabel* warning_ = nullptr;
    QLabel* problem_ = nullptr;
    QPushButton* action_ = nullptr;
    std::unique_ptr<Task<void>> task_;
};

}  // namespace vorlen::shell
