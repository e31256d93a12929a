#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

// The rules of the macOS application list that are plain computation: names, where
// applications are looked for, which icon images are used, and the fixed names and folders of
// the login item and the sandbox scripts.
namespace MacApps {

// The display name without a trailing ".app" (exactly those four characters, case-sensitive).
QString displayName(const QString &name);

// Where installed applications are looked for, in this order.
QStringList searchScopes(const QString &home);

// The icon sizes wanted, in points.
const QVector<int> &iconSizes();
// Of an image's representations (their widths, in order), those that go into the icon: the
// first of each wanted width, until every wanted width is taken.
QVector<int> iconRepresentations(const QVector<double> &widths);

// The login item's bundle identifier.
QString loginItemIdentifier();
// The folder the sandbox scripts go to, and their names in the order they are installed.
QString sandboxScriptFolder(const QString &home);
QStringList sandboxScripts();

} // namespace MacApps
