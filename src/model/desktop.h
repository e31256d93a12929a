#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Desktop services the interface uses, carried out by the build's platform backend.
namespace desktop {
// Whether the desktop shows notifications at all.
bool canNotify();
// A notification; an empty subtitle is left out.
void notify(const QString &title, const QString &subtitle, const QString &text);
// Shows the file selected in the desktop's file browser (or at least opens its folder).
void showInFinder(const QString &path);
// Whether the main screen is a high-resolution one.
bool isHiDPI();
// The desktop's thin system font at that size, or an invalid variant when it has none.
QVariant lightFont(int size);
// How a person turns on what menus and fields need on this desktop (accessibility), as the
// steps of a numbered list in rich text; empty where nothing needs turning on.
QStringList accessibilitySteps();
} // namespace desktop
