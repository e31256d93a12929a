#pragma once

#include "request.h"
#include <QByteArray>

#include <QJsonObject>
#include <QString>
#include <QVector>

#include <functional>

class App;
class Platform;
class QImage;
class QPixmap;

namespace HandlerUtils {
// What the coordinator hands the handlers: the platform, and the installed applications in the
// order clients see them. Set before the first request; the handlers reach nothing else above.
struct Context
{
    Platform *platform = nullptr;
    std::function<QVector<App *>()> sortedApps;
};
void setContext(const Context &context);

Platform *platform();
QVector<App *> sortedApps();
// The application named by "i", or the one in front when "i" is empty.
App *appOrCurrent(const Request &message);
// The application named by "i"; null when "i" is empty or unknown.
App *appById(const Request &message);
// Empty for a null image. The QImage form may be used on any thread.
QByteArray toPng(const QPixmap &pixmap);
QByteArray toPng(const QImage &image);
} // namespace HandlerUtils
