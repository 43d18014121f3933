#pragma once

#include <QColor>
#include <QPushButton>
#include <QString>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/Action.h"
#include "platform/Color.h"

/// What menus, alerts, windows and the status item share when they turn values into widgets.
namespace platform {

/// What is shown of `text`: all of it, or its two ends if it is so long that laying it out would
/// hold up the program, or sending it would break the session bus's limits.
QString displayText(const std::string& text);

/// The text of a button or a menu item that shows `text` verbatim: no character of it marks a key.
QString verbatimTitle(const std::string& text);

/// `text` with invisible places to break a line in words that may be too long for one: Qt's labels
/// cut such a word off.
QString breakable(const std::string& text);

/// The tool tip that shows `text` verbatim: never read as HTML.
QString verbatimToolTip(const std::string& text);

/// The shade of `color` that fits the application's palette.
QColor toQColor(Color color);

/// The file with the drawing of the system symbol of that name, or none if there is no such symbol.
std::optional<std::filesystem::path> symbolDrawing(const std::string& name);

/// Makes Return and Enter press `button`, whichever control of `window` has the focus.
void makeDefaultButton(QPushButton& button, QWidget& window);

/// Brings the alert that waits for an answer to the front. Whether there is one.
bool raiseAlert();

/// Carries out `action` from the event loop, so that what it opens or destroys never meets the
/// control it came from half-way through an event. While an alert waits for its answer, commands
/// are ignored and it comes to the front instead.
void performLater(const Action& action);

}  // namespace platform
