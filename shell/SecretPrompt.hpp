#pragma once

#include <QString>

#include <optional>
#include <string>

#include "app/AppModel.hpp"

class QWidget;

namespace vorlen::shell {

// A secret asked for without showing it; nothing when the person cancels.
std::optional<std::string> askSecret(QWidget* parent, const QString& title, const QString& question);

// The site's sealed Cloudflare Account API Token for a purge, asked for from a
// change's task: the window asks for the passphrase on its own thread while the
// task waits, and a stop of the task ends the wait. None when this computer keeps none.
std::optional<std::string> sealedTokenForPurge(QWidget* window, app::AppModel& model, const app::SiteID& site);

}  // namespace vorlen::shell
