#include "handlerutils.h"

#include "app.h"
#include "l.h"
#include "platform.h"

#include <QBuffer>
#include <QImage>
#include <QPixmap>

namespace HandlerUtils {

namespace {
Context current;
}

void setContext(const Context &context) { current = context; }

Platform *platform() { return current.platform; }

QVector<App *> sortedApps() { return current.sortedApps ? current.sortedApps() : QVector<App *>(); }

App *appOrCurrent(const Request &message)
{
    const QString id = message.string(L::id);
    return id.isEmpty() ? platform()->getCurrentApp() : platform()->appforId(id);
}

App *appById(const Request &message)
{
    const QString id = message.string(L::id);
    return id.isEmpty() ? nullptr : platform()->appforId(id);
}

QByteArray toPng(const QImage &image)
{
    QByteArray bytes;
    if (image.isNull())
        return bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray toPng(const QPixmap &pixmap) { return toPng(pixmap.toImage()); }

} // namespace HandlerUtils
