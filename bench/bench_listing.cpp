// Directory listing ("dl") on folders of 10k and 100k entries: the handler's own listing, JSON
// text included, against QDir with the same filters and order (names only), in the same run.
// Also the listing with the encryption of the reply. It measures; it never passes or fails.

#include "filehandlers.h"
#include "l.h"
#include "server.h"
#include "testenvironment.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

void populate(const QString &path, int entries)
{
    QDir dir(path);
    QRandomGenerator random(entries);
    for (int i = 0; i < entries; ++i) {
        QString name;
        const int length = 6 + random.bounded(14);
        for (int c = 0; c < length; ++c) {
            const int pick = random.bounded(36);
            QChar ch = pick < 26 ? QChar(u'a' + pick) : QChar(u'0' + pick - 26);
            if (random.bounded(4) == 0)
                ch = ch.toUpper();
            name.append(ch);
        }
        name += QString::number(i);
        if (i % 10 == 0) {
            dir.mkdir(name);
        } else if (i % 50 == 1) {
            QFile(dir.filePath(QLatin1Char('.') + name)).open(QIODevice::WriteOnly);
        } else {
            QFile(dir.filePath(name + QStringLiteral(".txt"))).open(QIODevice::WriteOnly);
        }
    }
}

// The median of several runs, in milliseconds.
double median(const std::function<int()> &work, int runs)
{
    std::vector<double> times;
    int sink = 0;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        sink += work();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    return sink >= 0 ? times[times.size() / 2] : 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    TestEnvironment::setUp();
    qputenv("AVAHI_COMPAT_NOWARN", "1");
    QLoggingCategory::setFilterRules(QStringLiteral("velm.*.warning=false"));
    Server server;
    const QByteArray key(20, 'k');

    std::printf("%-10s %14s %14s %8s %22s\n", "entries", "handler (ms)", "QDir (ms)", "ratio",
        "+ AES (ms)");
    for (int entries : { 10000, 100000 }) {
        QTemporaryDir dir;
        populate(dir.path(), entries);
        const int runs = entries > 50000 ? 5 : 15;
        const double handler = median(
            [&] { return DirectoryListingHandler::listDirectory(dir.path()).size(); }, runs);
        const double qdir = median(
            [&] {
                return QDir(dir.path())
                    .entryList(QDir::Dirs | QDir::Files | QDir::Drives | QDir::NoDotAndDotDot,
                        QDir::Name | QDir::DirsFirst | QDir::IgnoreCase | QDir::LocaleAware)
                    .size();
            },
            runs);
        const double wire = median(
            [&] {
                return server.encrypt(DirectoryListingHandler::listDirectory(dir.path()), key)
                    .size();
            },
            runs);
        std::printf(
            "%-10d %14.1f %14.1f %8.2f %22.1f\n", entries, handler, qdir, handler / qdir, wire);
    }
    std::printf("\nTargets for the handler: <= 15 ms at 10k entries, <= 200 ms at 100k.\n");
    return 0;
}
