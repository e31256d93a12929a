#pragma once

#include <QByteArray>
#include <QMutex>
#include <QString>

// An on-disk store of response bodies: one directory per named cache under the user's cache
// location, one file per key, stale by age on read, trimmed by total size on write.
class LocalCache
{
public:
    static LocalCache *instance(const char *name);
    // The relative file path for a key text: base 36 of the first eight bytes of its SHA-1
    // (little-endian, signed), spread as "a/b/rest".
    static QByteArray hash(const QByteArray &s);

    bool isCached(const QString &path);
    // A fresh copy, or a null array.
    QByteArray value(const QByteArray &key);
    // Whatever copy there is, however old; a null array when there is none.
    QByteArray possiblyStaleValue(const QByteArray &key);
    void insert(const QByteArray &key, const QByteArray &value);
    void expire();
    void clear();
    QString cachePath(const QByteArray &key) const;

    void setMaxSeconds(uint seconds) { maxSeconds = seconds; }
    void setMaxSize(qint64 bytes) { maxSize = bytes; }
    QString getDirectory() const { return directory; }
    qint64 knownSize() const { return size; }

private:
    explicit LocalCache(const QByteArray &name);

    QByteArray name;
    QString directory;
    uint maxSeconds = 2592000;
    qint64 maxSize = 104857600;
    qint64 size = 0;
    QMutex mutex;
    uint insertCount = 0;
};
