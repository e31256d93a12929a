#include "appcast.h"

#include <QVersionNumber>
#include <QXmlStreamReader>

namespace {
const QString sparkleNamespace
    = QStringLiteral("http://www.andymatuschak.org/xml-namespaces/sparkle");

// Feeds are small; a document bigger than this is not a feed.
constexpr int maxItems = 1000;

bool isSparkle(const QXmlStreamReader &reader) { return reader.namespaceUri() == sparkleNamespace; }

// The "os" of this build's enclosures, as feeds name systems.
QString thisSystem()
{
#if defined(Q_OS_MACOS)
    return QStringLiteral("macos");
#elif defined(Q_OS_LINUX)
    return QStringLiteral("linux");
#else
    return QSysInfo::kernelType();
#endif
}

// Enclosures for other systems are skipped; ones without "os" are for everybody.
bool isForThisSystem(const QString &os)
{
    return os.isEmpty() || os.compare(thisSystem(), Qt::CaseInsensitive) == 0;
}

AppcastItem readItem(QXmlStreamReader &reader, bool *wanted)
{
    AppcastItem item;
    QUrl enclosure;
    bool enclosureForUs = false;
    bool sawEnclosure = false;
    while (reader.readNextStartElement()) {
        const QStringRef name = reader.name();
        if (name == QLatin1String("title") && reader.namespaceUri().isEmpty()) {
            item.title = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        } else if (name == QLatin1String("link") && reader.namespaceUri().isEmpty()) {
            item.downloadPage
                = QUrl(reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed());
        } else if (name == QLatin1String("version") && isSparkle(reader)) {
            item.version = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        } else if (name == QLatin1String("shortVersionString") && isSparkle(reader)) {
            item.displayVersion
                = reader.readElementText(QXmlStreamReader::SkipChildElements).trimmed();
        } else if (name == QLatin1String("enclosure") && reader.namespaceUri().isEmpty()) {
            const QXmlStreamAttributes attributes = reader.attributes();
            const bool forUs = isForThisSystem(
                attributes.value(sparkleNamespace, QLatin1String("os")).toString());
            // The first enclosure meant for this system wins.
            if (forUs && !enclosureForUs) {
                enclosureForUs = true;
                enclosure = QUrl(attributes.value(QLatin1String("url")).toString().trimmed());
                if (item.version.isEmpty())
                    item.version = attributes.value(sparkleNamespace, QLatin1String("version"))
                                       .toString()
                                       .trimmed();
                if (item.displayVersion.isEmpty())
                    item.displayVersion
                        = attributes.value(sparkleNamespace, QLatin1String("shortVersionString"))
                              .toString()
                              .trimmed();
            }
            sawEnclosure = true;
            reader.skipCurrentElement();
        } else {
            reader.skipCurrentElement();
        }
    }
    if (item.downloadPage.isEmpty() || !item.downloadPage.isValid())
        item.downloadPage = enclosure;
    *wanted = (!sawEnclosure || enclosureForUs) && !item.version.isEmpty()
        && !QVersionNumber::fromString(item.version).isNull();
    return item;
}
} // namespace

QList<AppcastItem> Appcast::parse(const QByteArray &xml, QString *error)
{
    QList<AppcastItem> items;
    QXmlStreamReader reader(xml);
    bool sawRss = false;
    while (!reader.atEnd()) {
        reader.readNext();
        if (!reader.isStartElement())
            continue;
        if (reader.name() == QLatin1String("rss"))
            sawRss = true;
        else if (reader.name() == QLatin1String("item") && items.size() < maxItems) {
            bool wanted = false;
            AppcastItem item = readItem(reader, &wanted);
            if (wanted)
                items.append(item);
        }
    }
    QString message;
    if (reader.hasError())
        message
            = QStringLiteral("%1 at line %2").arg(reader.errorString()).arg(reader.lineNumber());
    else if (!sawRss)
        message = QStringLiteral("not an RSS document");
    if (!message.isEmpty()) {
        items.clear();
        if (error)
            *error = message;
    }
    return items;
}

const AppcastItem *Appcast::newest(const QList<AppcastItem> &items, const QString &current)
{
    const AppcastItem *best = nullptr;
    QVersionNumber bestVersion = QVersionNumber::fromString(current);
    for (const AppcastItem &item : items) {
        const QVersionNumber version = QVersionNumber::fromString(item.version);
        if (QVersionNumber::compare(version, bestVersion) > 0) {
            best = &item;
            bestVersion = version;
        }
    }
    return best;
}
