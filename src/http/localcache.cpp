#include "localcache.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QLoggingCategory>
#include <QMultiMap>
#include <QStandardPaths>
#include <QtEndian>

Q_LOGGING_CATEGORY(lcCache, "velm.http.cache")

namespace {

QDateTime creationTime(const QFileInfo &info)
{
    // Not every file system records a birth time.
    const QDateTime birth = info.birthTime();
    return birth.isValid() ? birth : info.lastModified();
}

} // namespace

LocalCache *LocalCache::instance(const char *name)
{
    // Caches live as long as the process; the table is never destroyed either, so they stay
    // reachable to the end.
    static auto *caches = new QHash<QByteArray, LocalCache *>;
    LocalCache *&cache = (*caches)[QByteArray(name)];
    if (!cache)
        cache = new LocalCache(QByteArray(name));
    return cache;
}

LocalCache::LocalCache(const QByteArray &name)
    : name(name)
    , directory(QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + QLatin1Char('/')
          + QString::fromUtf8(name) + QLatin1Char('/'))
{ }

QByteArray LocalCache::hash(const QByteArray &s)
{
    const QByteArray digest = QCryptographicHash::hash(s, QCryptographicHash::Sha1);
    const qint64 number = qFromLittleEndian<qint64>(digest.constData());
    // QByteArray::number treats other bases than 10 as unsigned; the sign must stay.
    const quint64 magnitude = number < 0 ? 0 - quint64(number) : quint64(number);
    const QByteArray text
        = (number < 0 ? QByteArray("-") : QByteArray()) + QByteArray::number(magnitude, 36);
    return text.left(1) + '/' + text.mid(1, 1) + '/' + text.mid(2);
}

bool LocalCache::isCached(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return false;
    if (maxSeconds == 0)
        return true;
    return creationTime(info).secsTo(QDateTime::currentDateTimeUtc()) < qint64(maxSeconds);
}

QByteArray LocalCache::value(const QByteArray &key)
{
    const QString path = cachePath(key);
    if (!isCached(path))
        return QByteArray();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcCache) << file.fileName() << file.errorString();
        return QByteArray();
    }
    return file.readAll();
}

QByteArray LocalCache::possiblyStaleValue(const QByteArray &key)
{
    QFile file(cachePath(key));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void LocalCache::insert(const QByteArray &key, const QByteArray &value)
{
    const QString path = cachePath(key);
    const QString parent = path.left(path.lastIndexOf(QLatin1Char('/')));
    if (!QDir(parent).exists())
        QDir().mkpath(parent);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qCWarning(lcCache) << "Cannot create" << path;
        return;
    }
    file.write(value);
    file.close();
    if (size > 0)
        size += value.size();
    if (maxSize > 0) {
        ++insertCount;
        // A directory walk at most every hundred inserts, and only while the size is unknown
        // or too large.
        if (insertCount % 100 == 0 && (size == 0 || size > maxSize))
            expire();
    }
}

void LocalCache::expire()
{
    if (!mutex.tryLock())
        return;
    QMultiMap<QDateTime, QString> entries;
    qint64 total = 0;
    QDirIterator walk(directory, QDir::Files | QDir::AllDirs | QDir::NoDotAndDotDot | QDir::Hidden,
        QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        walk.next();
        const QFileInfo info = walk.fileInfo();
        entries.insert(creationTime(info), info.filePath());
        // Only files count: a directory's own size is file-system bookkeeping (4 KiB each on
        // ext4), which would otherwise make many small entries look far too big.
        if (info.isFile())
            total += info.size();
        QCoreApplication::processEvents();
    }
    const qint64 goal = maxSize * 9 / 10;
    if (!entries.isEmpty() && total >= goal) {
        for (auto entry = entries.constBegin(); entry != entries.constEnd() && total >= goal;
             ++entry) {
            const QFileInfo info(entry.value());
            const qint64 bytes = info.isFile() ? info.size() : 0;
            if (info.isDir() ? QDir().rmdir(entry.value()) : QFile::remove(entry.value()))
                total -= bytes;
            QCoreApplication::processEvents();
        }
    }
    size = total;
    mutex.unlock();
}

void LocalCache::clear()
{
    size = 0;
    insertCount = 0;
    QMutexLocker locker(&mutex);
    QDir(directory).removeRecursively();
}

QString LocalCache::cachePath(const QByteArray &key) const
{
    return directory + QString::fromLatin1(key);
}
