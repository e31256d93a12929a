#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

class App;
class Platform;
class QImage;
class QPixmap;

namespace HandlerUtils {
Platform *platform();
// The application named by "i", or the one in front when "i" is empty.
App *appOrCurrent(const QJsonObject &message);
// The application named by "i"; null when "i" is empty or unknown.
App *appById(const QJsonObject &message);
// Empty for a null image. The QImage form may be used on any thread.
QByteArray toPng(const QPixmap &pixmap);
QByteArray toPng(const QImage &image);
} // namespace HandlerUtils
