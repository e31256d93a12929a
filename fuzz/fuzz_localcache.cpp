// Whatever a cache file holds (a truncated write, another program's file, garbage), reading it
// back never fails loudly and returns exactly its bytes.

#include "localcache.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QTemporaryDir>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static QTemporaryDir *home = [] {
        auto *dir = new QTemporaryDir;
        qputenv("XDG_CACHE_HOME", dir->path().toUtf8());
        QLoggingCategory::setFilterRules(QStringLiteral("velm.*=false"));
        return dir;
    }();
    Q_UNUSED(home)
    static LocalCache *cache = LocalCache::instance("fuzz");
    const QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    const QByteArray key = LocalCache::hash(bytes);
    if (key.count('/') != 2 || key.size() < 5)
        abort();
    // Write the bytes as another program might have, then read them through the cache.
    const QString path = cache->cachePath(key);
    QDir().mkpath(path.left(path.lastIndexOf(QLatin1Char('/'))));
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(bytes);
        file.close();
        if (cache->possiblyStaleValue(key) != bytes)
            abort();
        if (cache->value(key) != bytes)
            abort();
    }
    cache->insert(key, bytes);
    if (cache->possiblyStaleValue(key) != bytes)
        abort();
    QFile::remove(path);
    return 0;
}
