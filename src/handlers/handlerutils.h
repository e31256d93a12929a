#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

class App;
class Platform;
class QPixmap;

namespace HandlerUtils {
Platform *platform();
// The application named by "i", or the one in front when "i" is empty.
App *appOrCurrent(const QJsonObject &message);
// The application named by "i"; null when "i" is empty or unknown.
App *appById(const QJsonObject &message);
QByteArray toPng(const QPixmap &pixmap);
} // namespace HandlerUtils
