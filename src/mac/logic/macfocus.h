#pragma once

#include "app.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <optional>

// The rules of focus and browser tracking on macOS that are plain computation: how an
// accessibility role is classified, what a focused element reports, the AppleScript that asks
// a browser for its address, and how its output is read.
namespace MacFocus {

// "AXTextField" and "AXComboBox" are Text, "AXTextArea" TextArea, "AXList" and "AXOutline"
// List, "AXTable" Table, "AXButton" Button, "AXWindow" Window; anything else Null.
App::ElementRole classify(const QString &role);

struct Range
{
    long location = 0;
    long length = 0;
};

// What is reported of a focused element.
struct Report
{
    App::ElementRole role = App::Null;
    QString title;
    QString value;
    QJsonObject extras;
};
// Null elements report nothing else; the title is the description when the title is empty;
// only Text elements report their selection ("i" and "l"), when it could be read.
Report report(const QString &role, const QString &title, const QString &description,
    const QString &value, const std::optional<Range> &selection);

// The script that yields the browser's address: the command set's "u" run inside a tell block
// addressed to the application by name. Empty when the command set has no "u".
QString browserScript(const QString &appName, const QByteArray &commands);

// The address in a script's output: up to the first zero byte, as ASCII (the trailing line
// break stays).
QString addressFromOutput(const QByteArray &output);

} // namespace MacFocus
