#include "updateutils.h"

#include "feedupdater.h"
#ifdef Q_OS_MACOS
#include "sparkleupdater.h"
#endif

#include <QCoreApplication>

void UpdateUtils::init()
{
    // Lives as long as the application; without one it lives for the process.
#ifdef Q_OS_MACOS
    Updater::setInstance(new updater::SparkleUpdater(QCoreApplication::instance()));
#else
    Updater::setInstance(new updater::FeedUpdater(QCoreApplication::instance()));
#endif
}
