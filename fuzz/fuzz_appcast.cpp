// The update feed: any bytes parse without a crash or a hang, every item returned carries a
// version, and the newest one is one of them.

#include "appcast.h"

#include <QVersionNumber>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray xml = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    QString error;
    const QList<AppcastItem> items = Appcast::parse(xml, &error);
    if (!error.isEmpty() && !items.isEmpty())
        abort();
    for (const AppcastItem &item : items) {
        if (QVersionNumber::fromString(item.version).isNull())
            abort();
    }
    if (const AppcastItem *newest = Appcast::newest(items, QStringLiteral("1.5"))) {
        if (QVersionNumber::fromString(newest->version) <= QVersionNumber(1, 5))
            abort();
    }
    return 0;
}
