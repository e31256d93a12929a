#include "macplatform.h"

#include "macapp.h"
#include "macapps.h"
#include "macfileservices.h"
#include "maclogging.h"

#include <QDir>
#include <QPixmap>
#include <QProcess>
#include <QtMac>

#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>
#import <CoreAudio/CoreAudio.h>
#import <CoreServices/CoreServices.h>
#import <IOKit/graphics/IOGraphicsLib.h>
#import <ServiceManagement/ServiceManagement.h>

// Follows the workspace's list of running applications (key-value observation).
@interface RunningAppsObserver : NSObject
@property (nonatomic, assign) MacPlatform *mpi;
@end

@implementation RunningAppsObserver
- (void)observeValueForKeyPath:(NSString *)keyPath
                      ofObject:(id)object
                        change:(NSDictionary<NSKeyValueChangeKey, id> *)change
                       context:(void *)context
{
    Q_UNUSED(object)
    Q_UNUSED(context)
    if (![keyPath isEqualToString:@"runningApplications"])
        return;
    switch ([change[NSKeyValueChangeKindKey] unsignedIntegerValue]) {
    case NSKeyValueChangeInsertion:
        _mpi->addRunningApps(change[NSKeyValueChangeNewKey]);
        break;
    case NSKeyValueChangeRemoval:
        _mpi->removeRunningApps(change[NSKeyValueChangeOldKey]);
        break;
    default:
        break;
    }
}
@end

// The screen saver and the lock screen, as other processes announce them.
@interface DistributedNotificationObserver : NSObject
@property (nonatomic, assign) MacPlatform *mpi;
- (void)screenLocked;
- (void)screenUnlocked;
- (void)onScreenSaverStarted;
- (void)onScreenSaverStopped;
@end

@implementation DistributedNotificationObserver
- (void)screenLocked
{
    _mpi->screenNotification(QStringLiteral("com.apple.screenIsLocked"));
}
- (void)screenUnlocked
{
    _mpi->screenNotification(QStringLiteral("com.apple.screenIsUnlocked"));
}
- (void)onScreenSaverStarted
{
    _mpi->screenNotification(QStringLiteral("com.apple.screensaver.didstart"));
}
- (void)onScreenSaverStopped
{
    _mpi->screenNotification(QStringLiteral("com.apple.screensaver.didstop"));
}
@end

namespace {

bool trustedSilently = false;
bool trustedWithPrompt = false;
RunningAppsObserver *runningAppsObserver = nil;
DistributedNotificationObserver *screenObserver = nil;

QString fromNS(NSString *text) { return text ? QString::fromNSString(text) : QString(); }

constexpr AudioObjectPropertyAddress defaultOutputAddress
    = { kAudioHardwarePropertyDefaultOutputDevice, kAudioObjectPropertyScopeGlobal,
          kAudioObjectPropertyElementMaster };
constexpr AudioObjectPropertyAddress volumeAddress
    = { kAudioDevicePropertyVolumeScalar, kAudioDevicePropertyScopeOutput, 1 };
constexpr AudioObjectPropertyAddress muteAddress
    = { kAudioDevicePropertyMute, kAudioDevicePropertyScopeOutput, 0 };

// One property of the device; false (after a warning) when it could not be read.
template<typename T>
bool readProperty(AudioObjectID device, const AudioObjectPropertyAddress &address, T *value)
{
    UInt32 size = sizeof(T);
    const OSStatus status = AudioObjectGetPropertyData(device, &address, 0, nullptr, &size, value);
    if (status != noErr) {
        qCWarning(lcMac) << "AudioObjectGetPropertyData error" << status;
        return false;
    }
    return true;
}

AudioObjectID defaultOutputDevice()
{
    AudioObjectID device = kAudioObjectUnknown;
    UInt32 size = sizeof(device);
    AudioObjectGetPropertyData(
        kAudioObjectSystemObject, &defaultOutputAddress, 0, nullptr, &size, &device);
    return device;
}

// The system process, asked by Apple event to shut down, restart, sleep or log out.
void sendPowerEvent(MacSystem::PowerAction action)
{
    const ProcessSerialNumber system = { 0, kSystemProcess };
    AEAddressDesc target = {};
    OSStatus status = AECreateDesc(typeProcessSerialNumber, &system, sizeof(system), &target);
    if (status == noErr) {
        AppleEvent event = {};
        status = AECreateAppleEvent(kCoreEventClass, MacSystem::appleEventId(action), &target,
            kAutoGenerateReturnID, kAnyTransactionID, &event);
        AEDisposeDesc(&target);
        if (status == noErr) {
            AppleEvent reply = {};
            status = AESend(
                &event, &reply, kAENoReply, kAENormalPriority, kAEDefaultTimeout, nullptr, nullptr);
            AEDisposeDesc(&event);
            if (status == noErr)
                AEDisposeDesc(&reply);
        }
    }
    if (status != noErr)
        qCWarning(lcMac).noquote() << MacSystem::signature(action) << status;
}

void postMediaKey(MacSystem::MediaKey key)
{
    const int code = MacSystem::mediaKeyCode(key);
    const auto post = [](const MacSystem::MediaKeyEvent &press) {
        NSEvent *event = [NSEvent otherEventWithType:NSEventTypeSystemDefined
                                            location:NSZeroPoint
                                       modifierFlags:press.modifierFlags
                                           timestamp:0
                                        windowNumber:0
                                             context:nil
                                             subtype:8
                                               data1:press.data1
                                               data2:-1];
        CGEventPost(kCGHIDEventTap, [event CGEvent]);
    };
    post(MacSystem::mediaKeyDown(key));
    NSLog(@"%d keycode (down) sent", code);
    post(MacSystem::mediaKeyUp(key));
    NSLog(@"%d keycode (up) sent", code);
}

} // namespace

namespace {

// What the workspace tells of a running application, in the platform's terms.
RunningApplication describe(NSRunningApplication *running)
{
    RunningApplication app;
    app.regular = running && [running activationPolicy] == NSApplicationActivationPolicyRegular;
    app.bundleIdentifier = fromNS([running bundleIdentifier]);
    app.bundleUrl = fromNS([[running bundleURL] absoluteString]);
    app.localizedName = fromNS([running localizedName]);
    app.icon = [running] { return MacPlatform::iconFromImage([running icon]); };
    return app;
}

QVector<RunningApplication> describe(NSArray *apps)
{
    QVector<RunningApplication> described;
    for (NSRunningApplication *running in apps)
        described.append(describe(running));
    return described;
}

} // namespace

MacPlatform::MacPlatform(QObject *parent)
    : MacPlatformBase(parent)
{
    files = std::make_shared<MacFileServices>();
}

MacPlatform::~MacPlatform()
{
    // The observers hold plain pointers back to this object.
    if (runningAppsObserver.mpi == this) {
        [[NSWorkspace sharedWorkspace] removeObserver:runningAppsObserver
                                           forKeyPath:@"runningApplications"];
        runningAppsObserver = nil;
    }
    if (screenObserver.mpi == this) {
        [[NSDistributedNotificationCenter defaultCenter] removeObserver:screenObserver];
        screenObserver = nil;
    }
}

bool MacPlatform::accessibilityEnabled()
{
    if (!trustedSilently)
        trustedSilently = AXIsProcessTrustedWithOptions(nullptr);
    return trustedSilently;
}

bool MacPlatform::accessibilityEnabledWithPrompt()
{
    if (!trustedWithPrompt) {
        NSDictionary *options = @{(__bridge NSString *)kAXTrustedCheckOptionPrompt : @YES};
        trustedWithPrompt = AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
    }
    return trustedWithPrompt;
}

bool MacPlatform::permissionsGranted() { return accessibilityEnabled(); }

QIcon MacPlatform::iconFromImage(NSImage *image)
{
    QIcon icon;
    NSArray<NSImageRep *> *representations = [image representations];
    QVector<double> widths;
    for (NSImageRep *representation in representations)
        widths.append([representation size].width);
    for (int index : MacApps::iconRepresentations(widths)) {
        NSImageRep *representation = representations[NSUInteger(index)];
        NSRect rect = NSMakeRect(0, 0, [representation size].width, [representation size].height);
        CGImageRef image = [representation CGImageForProposedRect:&rect context:nil hints:nil];
        icon.addPixmap(QtMac::fromCGImageRef(image), QIcon::Normal, QIcon::Off);
    }
    return icon;
}

App *MacPlatform::createApp(const QString &id) { return new MacApp(id); }

void MacPlatform::init()
{
    if (!trustedWithPrompt)
        accessibilityEnabledWithPrompt();
    startObservingVolume();
    emit ready();
}

void MacPlatform::findInstalledApps()
{
    NSMetadataQuery *query = [[NSMetadataQuery alloc] init];
    NSMutableArray<NSString *> *scopes = [NSMutableArray array];
    const QStringList wanted = MacApps::searchScopes(QDir::homePath());
    for (const QString &scope : wanted)
        [scopes addObject:scope.toNSString()];
    [query setSearchScopes:scopes];
    [query setPredicate:[NSPredicate predicateWithFormat:
                                         @"kMDItemContentType == 'com.apple.application-bundle'"]];
    [query setNotificationBatchingInterval:1.0];
    [query setSortDescriptors:@[ [[NSSortDescriptor alloc]
                                  initWithKey:(__bridge NSString *)kMDItemDisplayName
                                    ascending:YES] ]];

    __block id token = nil;
    NSOperationQueue *queue = [[NSOperationQueue alloc] init];
    token = [[NSNotificationCenter defaultCenter]
        addObserverForName:NSMetadataQueryDidFinishGatheringNotification
                    object:query
                     queue:queue
                usingBlock:^(NSNotification *) {
                    [query stopQuery];
                    [[NSNotificationCenter defaultCenter] removeObserver:token];
                    // Read here, on the query's thread; the lists are the main thread's, and
                    // icons (pixmaps) are made there.
                    QVector<FoundApplication> found;
                    for (NSMetadataItem *item in [query results]) {
                        NSString *path = [item valueForAttribute:NSMetadataItemPathKey];
                        NSImage *image = [[NSWorkspace sharedWorkspace] iconForFile:path];
                        found.append(
                            { fromNS([item valueForAttribute:(__bridge NSString *)
                                                                 kMDItemCFBundleIdentifier]),
                                fromNS([item
                                    valueForAttribute:(__bridge NSString *)kMDItemDisplayName]),
                                fromNS(path), [image] { return iconFromImage(image); } });
                    }
                    QMetaObject::invokeMethod(
                        this,
                        [this, found] {
                            addFoundApps(found);
                            startObserving();
                        },
                        Qt::QueuedConnection);
                }];
    [query startQuery];
}

void MacPlatform::startObserving()
{
    NSWorkspace *workspace = [NSWorkspace sharedWorkspace];
    setRunningApps([workspace runningApplications]);

    if (runningAppsObserver)
        [workspace removeObserver:runningAppsObserver forKeyPath:@"runningApplications"];
    runningAppsObserver = [[RunningAppsObserver alloc] init];
    [runningAppsObserver setMpi:this];
    [workspace addObserver:runningAppsObserver
                forKeyPath:@"runningApplications"
                   options:NSKeyValueObservingOptionNew | NSKeyValueObservingOptionOld
                   context:nullptr];

    setCurrentApp([workspace frontmostApplication]);
    static bool activationObserved = false;
    if (!activationObserved) {
        activationObserved = true;
        [[workspace notificationCenter]
            addObserverForName:NSWorkspaceDidActivateApplicationNotification
                        object:nil
                         queue:nil
                    usingBlock:^(NSNotification *notification) {
                        setCurrentApp([notification userInfo][NSWorkspaceApplicationKey]);
                    }];
    }

    NSDistributedNotificationCenter *center = [NSDistributedNotificationCenter defaultCenter];
    if (screenObserver)
        [center removeObserver:screenObserver];
    screenObserver = [[DistributedNotificationObserver alloc] init];
    [screenObserver setMpi:this];
    [center addObserver:screenObserver
               selector:@selector(screenLocked)
                   name:@"com.apple.screenIsLocked"
                 object:nil];
    [center addObserver:screenObserver
               selector:@selector(screenUnlocked)
                   name:@"com.apple.screenIsUnlocked"
                 object:nil];
    [center addObserver:screenObserver
               selector:@selector(onScreenSaverStarted)
                   name:@"com.apple.screensaver.didstart"
                 object:nil];
    [center addObserver:screenObserver
               selector:@selector(onScreenSaverStopped)
                   name:@"com.apple.screensaver.didstop"
                 object:nil];
}

void MacPlatform::setRunningApps(NSArray *apps) { MacPlatformBase::setRunningApps(describe(apps)); }

void MacPlatform::addRunningApps(NSArray *apps) { MacPlatformBase::addRunningApps(describe(apps)); }

void MacPlatform::removeRunningApps(NSArray *apps)
{
    MacPlatformBase::removeRunningApps(describe(apps));
}

App *MacPlatform::appForNSRunningApp(NSRunningApplication *app)
{
    return appForRunningApp(describe(app));
}

void MacPlatform::setCurrentApp(NSRunningApplication *app)
{
    const RunningApplication described = describe(app);
    setCurrentRunningApp(app ? &described : nullptr);
}

void MacPlatform::startObservingVolume()
{
    outputDevice = defaultOutputDevice();
    readVolume();
    readVolumeMute();
    emit volumeChanged();
    emit volumeMuteChanged();

    OSStatus status = AudioObjectAddPropertyListenerBlock(outputDevice, &volumeAddress,
        dispatch_get_current_queue(), ^(UInt32, const AudioObjectPropertyAddress *) {
            if (readVolume())
                emit volumeChanged();
        });
    if (status != noErr)
        qCWarning(lcMac) << "AudioObjectAddPropertyListener error" << status;
    status = AudioObjectAddPropertyListenerBlock(outputDevice, &muteAddress,
        dispatch_get_current_queue(), ^(UInt32, const AudioObjectPropertyAddress *) {
            if (readVolumeMute())
                emit volumeMuteChanged();
        });
    if (status != noErr)
        qCWarning(lcMac) << "AudioObjectAddPropertyListener error" << status;
}

bool MacPlatform::readVolume()
{
    Float32 scalar = 0;
    if (!readProperty(outputDevice, volumeAddress, &scalar))
        return false;
    volume = MacSystem::percentFromScalar(scalar);
    return true;
}

bool MacPlatform::readVolumeMute()
{
    UInt32 muted = 0;
    if (!readProperty(outputDevice, muteAddress, &muted))
        return false;
    volumeMute = muted != 0;
    return true;
}

void MacPlatform::setVolume(int value)
{
    const AudioObjectID device = defaultOutputDevice();
    const Float32 scalar = MacSystem::scalarFromPercent(value);
    for (const unsigned element : MacSystem::volumeWriteElements) {
        const AudioObjectPropertyAddress address
            = { kAudioDevicePropertyVolumeScalar, kAudioDevicePropertyScopeOutput, element };
        AudioObjectSetPropertyData(device, &address, 0, nullptr, sizeof(scalar), &scalar);
    }
}

void MacPlatform::setVolumeMute(bool mute)
{
    const UInt32 value = mute ? 1 : 0;
    AudioObjectSetPropertyData(
        defaultOutputDevice(), &muteAddress, 0, nullptr, sizeof(value), &value);
}

int MacPlatform::getBrightness()
{
    io_service_t service
        = IOServiceGetMatchingService(kIOMasterPortDefault, IOServiceMatching("IODisplayConnect"));
    if (!service)
        return 0;
    float value = 0;
    IODisplayGetFloatParameter(service, kNilOptions, CFSTR(kIODisplayBrightnessKey), &value);
    IOObjectRelease(service);
    return MacSystem::percentFromScalar(value);
}

void MacPlatform::setBrightness(int value)
{
    io_iterator_t services = 0;
    if (IOServiceGetMatchingServices(
            kIOMasterPortDefault, IOServiceMatching("IODisplayConnect"), &services)
        != kIOReturnSuccess)
        return;
    // The first display only.
    if (io_service_t service = IOIteratorNext(services)) {
        IODisplaySetFloatParameter(service, kNilOptions, CFSTR(kIODisplayBrightnessKey),
            MacSystem::scalarFromPercent(value));
        IOObjectRelease(service);
    }
    IOObjectRelease(services);
}

void MacPlatform::lockScreen()
{
    auto *process = new QProcess;
    connect(process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), process,
        &QObject::deleteLater);
    process->start(QStringLiteral("/System/Library/CoreServices/Menu Extras/User.menu/Contents/"
                                  "Resources/CGSession"),
        { QStringLiteral("-suspend") }, QIODevice::ReadWrite);
}

void MacPlatform::shutdown() { sendPowerEvent(MacSystem::PowerAction::Shutdown); }

void MacPlatform::restart() { sendPowerEvent(MacSystem::PowerAction::Restart); }

void MacPlatform::sleep() { sendPowerEvent(MacSystem::PowerAction::Sleep); }

void MacPlatform::logout() { sendPowerEvent(MacSystem::PowerAction::Logout); }

void MacPlatform::playPause() { postMediaKey(MacSystem::MediaKey::PlayPause); }

void MacPlatform::nextTrack() { postMediaKey(MacSystem::MediaKey::Next); }

void MacPlatform::previousTrack() { postMediaKey(MacSystem::MediaKey::Previous); }

void MacPlatform::setAutostart(bool enabled)
{
    SMLoginItemSetEnabled(
        (__bridge CFStringRef)MacApps::loginItemIdentifier().toNSString(), enabled);
}

QPixmap MacPlatform::iconForFileType(const QString &type, int size)
{
    NSImage *image = [[NSWorkspace sharedWorkspace] iconForFileType:type.toNSString()];
    [image setSize:NSMakeSize(size, size)];
    NSRect rect = NSMakeRect(0, 0, size, size);
    QPixmap pixmap = QtMac::fromCGImageRef([image CGImageForProposedRect:&rect
                                                                 context:nil
                                                                   hints:nil]);
    if (pixmap.width() > size)
        pixmap = pixmap.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return pixmap;
}

QStringList MacPlatform::handlersForType(const QString &type)
{
    NSString *identifier = type.toNSString();
    if (!MacFileServices::isTypeIdentifier(type)) {
        identifier = CFBridgingRelease(UTTypeCreatePreferredIdentifierForTag(
            kUTTagClassFilenameExtension, (__bridge CFStringRef)identifier, nullptr));
    }
    QStringList handlers;
    if (!identifier)
        return handlers;
    NSString *preferred = CFBridgingRelease(LSCopyDefaultRoleHandlerForContentType(
        (__bridge CFStringRef)identifier, kLSRolesViewer | kLSRolesEditor));
    if (preferred)
        handlers.append(fromNS(preferred));
    NSArray<NSString *> *all = CFBridgingRelease(LSCopyAllRoleHandlersForContentType(
        (__bridge CFStringRef)identifier, kLSRolesViewer | kLSRolesEditor));
    for (NSString *handler in all) {
        if (!handlers.contains(fromNS(handler)))
            handlers.append(fromNS(handler));
    }
    return handlers;
}

void MacPlatform::openWithDefault(const QString &path)
{
    [[NSWorkspace sharedWorkspace] openFile:path.toNSString()];
}

void MacPlatform::openWithApplication(const QString &path, const QString &appName)
{
    [[NSWorkspace sharedWorkspace] openFile:path.toNSString() withApplication:appName.toNSString()];
}
