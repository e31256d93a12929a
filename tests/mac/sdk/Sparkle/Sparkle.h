#pragma once
// Sparkle 2: the standard updater controller, the updater and its delegate protocol.
#include <Foundation/Foundation.h>

@interface SUAppcastItem : NSObject
- (NSString *)displayVersionString;
@end

@class SPUUpdater;

@protocol SPUUpdaterDelegate <NSObject>
@optional
- (void)updater:(SPUUpdater *)updater didFindValidUpdate:(SUAppcastItem *)item;
- (void)updaterDidNotFindUpdate:(SPUUpdater *)updater;
- (void)updater:(SPUUpdater *)updater
    willDownloadUpdate:(SUAppcastItem *)item
           withRequest:(NSMutableURLRequest *)request;
- (void)updater:(SPUUpdater *)updater didDownloadUpdate:(SUAppcastItem *)item;
- (void)userDidCancelDownload:(SPUUpdater *)updater;
- (void)updater:(SPUUpdater *)updater
    failedToDownloadUpdate:(SUAppcastItem *)item
                     error:(NSError *)error;
- (BOOL)updater:(SPUUpdater *)updater
    willInstallUpdateOnQuit:(SUAppcastItem *)item
    immediateInstallationBlock:(void (^)(void))immediateInstallHandler;
@end

@protocol SPUStandardUserDriverDelegate <NSObject>
@end

@interface SPUUpdater : NSObject
- (BOOL)automaticallyChecksForUpdates;
- (void)setAutomaticallyChecksForUpdates:(BOOL)value;
- (BOOL)automaticallyDownloadsUpdates;
- (void)setAutomaticallyDownloadsUpdates:(BOOL)value;
- (void)checkForUpdates;
- (void)checkForUpdatesInBackground;
- (void)checkForUpdateInformation;
@end

@interface SPUStandardUpdaterController : NSObject
- (instancetype)initWithStartingUpdater:(BOOL)startUpdater
                        updaterDelegate:(id<SPUUpdaterDelegate>)updaterDelegate
                     userDriverDelegate:(id<SPUStandardUserDriverDelegate>)userDriverDelegate;
- (SPUUpdater *)updater;
@end
