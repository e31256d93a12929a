#include "sparkleupdater.h"

#import <Foundation/Foundation.h>
#import <Sparkle/Sparkle.h>

// Sparkle's callbacks as update statuses.
@interface SparkleDelegate : NSObject <SPUUpdaterDelegate>
@property (nonatomic, assign) updater::SparkleUpdater *updater;
@end

@implementation SparkleDelegate

- (void)updater:(SPUUpdater *)updater didFindValidUpdate:(SUAppcastItem *)item
{
    Q_UNUSED(updater)
    _updater->setVersion(QString::fromNSString([item displayVersionString] ?: @""));
    _updater->setStatus(Updater::UpdateAvailable);
}

- (void)updaterDidNotFindUpdate:(SPUUpdater *)updater
{
    Q_UNUSED(updater)
    _updater->setStatus(Updater::UpToDate);
}

- (void)updater:(SPUUpdater *)updater
    willDownloadUpdate:(SUAppcastItem *)item
           withRequest:(NSMutableURLRequest *)request
{
    Q_UNUSED(updater)
    Q_UNUSED(item)
    Q_UNUSED(request)
    _updater->setStatus(Updater::DownloadingUpdate);
}

- (void)updater:(SPUUpdater *)updater didDownloadUpdate:(SUAppcastItem *)item
{
    Q_UNUSED(updater)
    Q_UNUSED(item)
    _updater->setStatus(Updater::UpdateDownloaded);
}

- (void)userDidCancelDownload:(SPUUpdater *)updater
{
    Q_UNUSED(updater)
    _updater->setStatus(Updater::UpdateAvailable);
}

- (void)updater:(SPUUpdater *)updater
    failedToDownloadUpdate:(SUAppcastItem *)item
                     error:(NSError *)error
{
    Q_UNUSED(updater)
    Q_UNUSED(item)
    Q_UNUSED(error)
    _updater->setStatus(Updater::UpdateDownloadFailed);
}

- (BOOL)updater:(SPUUpdater *)updater
       willInstallUpdateOnQuit:(SUAppcastItem *)item
    immediateInstallationBlock:(void (^)(void))immediateInstallHandler
{
    Q_UNUSED(updater)
    Q_UNUSED(item)
    // Nobody is using the remote control: install and relaunch now.
    if (_updater->isImmediateInstallAllowed()) {
        immediateInstallHandler();
        return YES;
    }
    return NO;
}

@end

namespace updater {

SparkleUpdater::SparkleUpdater(QObject *parent)
    : Updater(parent)
{
    delegate = [[SparkleDelegate alloc] init];
    [delegate setUpdater:this];
    controller = [[SPUStandardUpdaterController alloc] initWithStartingUpdater:YES
                                                               updaterDelegate:delegate
                                                            userDriverDelegate:nil];
    SPUUpdater *sparkle = [controller updater];
    [sparkle setAutomaticallyChecksForUpdates:YES];
    [sparkle setAutomaticallyDownloadsUpdates:YES];
}

SparkleUpdater::~SparkleUpdater() { [delegate setUpdater:nullptr]; }

bool SparkleUpdater::getAutomaticDownload() const
{
    return [[controller updater] automaticallyDownloadsUpdates];
}

void SparkleUpdater::setAutomaticDownload(bool value)
{
    [[controller updater] setAutomaticallyDownloadsUpdates:value];
}

void SparkleUpdater::checkAndShowUI() { [[controller updater] checkForUpdates]; }

void SparkleUpdater::checkAndMaybeShowUI() { [[controller updater] checkForUpdatesInBackground]; }

void SparkleUpdater::checkWithoutUI() { [[controller updater] checkForUpdateInformation]; }

} // namespace updater
