#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

// One release announced by an update feed (an RSS "appcast").
struct AppcastItem
{
    QString title;
    // The version compared with ours, and the one shown to the user (may be empty).
    QString version;
    QString displayVersion;
    // Where the user gets the release: the item's link, else its enclosure.
    QUrl downloadPage;
};

namespace Appcast {
// The items of a feed that are meant for this platform and carry a version. Malformed XML
// gives no items and a message in `error`.
QList<AppcastItem> parse(const QByteArray &xml, QString *error = nullptr);
// The item with the highest version that is newer than `current`, or null.
const AppcastItem *newest(const QList<AppcastItem> &items, const QString &current);
} // namespace Appcast
