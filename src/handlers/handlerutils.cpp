#include "handlerutils.h"

#include "app.h"
#include "core.h"
#include "l.h"
#include "platform.h"

#include <QBuffer>
#include <QPixmap>

namespace HandlerUtils {

Platform *platform() { return Core::instance()->platform; }

App *appOrCurrent(const QJsonObject &message)
{
    const QString id = message.value(L::id).toString();
    return id.isEmpty() ? platform()->getCurrentApp() : platform()->appforId(id);
}

App *appById(const QJsonObject &message)
{
    const QString id = message.value(L::id).toString();
    return id.isEmpty() ? nullptr : platform()->appforId(id);
}

QByteArray toPng(const QPixmap &pixmap)
{
    QByteArray bytes;
    if (pixmap.isNull())
        return bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    pixmap.save(&buffer, "PNG");
    return bytes;
}

} // namespace HandlerUtils
