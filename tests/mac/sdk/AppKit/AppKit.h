#pragma once
// AppKit: the workspace, running applications, images, events and screens.
#include <Foundation/Foundation.h>
#include <ApplicationServices/ApplicationServices.h>
#include <sys/types.h>

@class NSGraphicsContext;

@interface NSImageRep : NSObject
- (NSSize)size;
- (CGImageRef)CGImageForProposedRect:(NSRect *)proposedDestRect
                             context:(NSGraphicsContext *)context
                               hints:(NSDictionary *)hints;
@end

@interface NSImage : NSObject
- (instancetype)initWithSize:(NSSize)size;
- (NSArray<NSImageRep *> *)representations;
- (void)addRepresentation:(NSImageRep *)representation;
- (void)setSize:(NSSize)size;
- (CGImageRef)CGImageForProposedRect:(NSRect *)proposedDestRect
                             context:(NSGraphicsContext *)context
                               hints:(NSDictionary *)hints;
@end

typedef enum : NSInteger {
    NSApplicationActivationPolicyRegular = 0,
    NSApplicationActivationPolicyAccessory = 1,
    NSApplicationActivationPolicyProhibited = 2
} NSApplicationActivationPolicy;

typedef NSUInteger NSApplicationActivationOptions;
enum : NSUInteger {
    NSApplicationActivateAllWindows = 1 << 0,
    NSApplicationActivateIgnoringOtherApps = 1 << 1
};

@interface NSRunningApplication : NSObject
+ (NSArray<NSRunningApplication *> *)runningApplicationsWithBundleIdentifier:(NSString *)bundleIdentifier;
- (NSApplicationActivationPolicy)activationPolicy;
- (NSString *)bundleIdentifier;
- (NSURL *)bundleURL;
- (NSString *)localizedName;
- (NSImage *)icon;
- (pid_t)processIdentifier;
- (BOOL)isActive;
- (BOOL)activateWithOptions:(NSApplicationActivationOptions)options;
- (BOOL)terminate;
- (BOOL)hide;
@end

@interface NSWorkspace : NSObject
+ (NSWorkspace *)sharedWorkspace;
- (NSArray<NSRunningApplication *> *)runningApplications;
- (NSRunningApplication *)frontmostApplication;
- (NSNotificationCenter *)notificationCenter;
- (NSImage *)iconForFile:(NSString *)fullPath;
- (NSImage *)iconForFileType:(NSString *)fileType;
- (BOOL)openFile:(NSString *)fullPath;
- (BOOL)openFile:(NSString *)fullPath withApplication:(NSString *)appName;
- (BOOL)launchApplication:(NSString *)appName;
- (BOOL)selectFile:(NSString *)fullPath inFileViewerRootedAtPath:(NSString *)rootFullPath;
@end
extern "C" NSNotificationName const NSWorkspaceDidActivateApplicationNotification;
extern "C" NSString *const NSWorkspaceApplicationKey;

typedef enum : NSUInteger { NSEventTypeSystemDefined = 14 } NSEventType;
typedef NSUInteger NSEventModifierFlags;

@interface NSEvent : NSObject
+ (NSEvent *)otherEventWithType:(NSEventType)type
                       location:(NSPoint)location
                  modifierFlags:(NSEventModifierFlags)flags
                      timestamp:(NSTimeInterval)time
                   windowNumber:(NSInteger)windowNum
                        context:(NSGraphicsContext *)unusedPassNil
                        subtype:(short)subtype
                          data1:(NSInteger)d1
                          data2:(NSInteger)d2;
- (CGEventRef)CGEvent;
@end

@interface NSScreen : NSObject
+ (NSScreen *)mainScreen;
- (CGFloat)backingScaleFactor;
@end
