#pragma once

#include <functional>
#include <string>

#include <QDialog>

class QLabel;
class QLineEdit;
class QPushButton;

namespace vorlen::shell {

// Asks for a site to add: a local one (a name and a folder) or an R2 one (the
// bucket, its hostnames and its R2 API Token).
class SiteDialog : public QDialog {
public:
    enum class Kind { local, r2 };
    struct Values {
        std::string name;
        std::string folder;
        std::string account, bucket, mediaHost, pageHost, path, pagePath, tokenID, tokenValue;
    };

    SiteDialog(Kind kind, QWidget* parent = nullptr);

    // Adds the site; a failure keeps the dialog open with the failure's words.
    std::function<void(const Values&)> onAccept;

    QLineEdit* field(const QString& accessibleName) const;

private:
    void save();

    Kind kind_;
    QLineEdit* name_ = nullptr;
    QLineEdit* folder_ = nullptr;
    QLineEdit* account_ = nullptr;
    QLineEdit* bucket_ = nullptr;
    QLineEdit* mediaHost_ = nullptr;
    QLineEdit* pageHost_ = nullptr;
    QLineEdit* path_ = nullptr;
    QLineEdit* pagePath_ = nullptr;
    QLineEdit* tokenID_ = nullptr;
    QLineEdit* tokenValue_ = nullptr;
    QLabel* problem_;
    QPushButton* add_;
};

}  // namespace vorlen::shell
