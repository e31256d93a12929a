#pragma once
// Core Services: Apple events, LaunchServices, uniform type identifiers and Spotlight's
// attribute names.
#include <CoreFoundation/CoreFoundation.h>

// Apple events.
typedef FourCharCode DescType;
typedef FourCharCode AEEventClass;
typedef FourCharCode AEEventID;
typedef int16_t AEReturnID;
typedef int32_t AETransactionID;
typedef int32_t AESendMode;
typedef int16_t AESendPriority;
typedef struct OpaqueAEDataStorageType *AEDataStorageType;
typedef AEDataStorageType *AEDataStorage;
struct AEDesc {
    DescType descriptorType;
    AEDataStorage dataHandle;
};
typedef struct AEDesc AEDesc;
typedef AEDesc AEAddressDesc;
typedef AEDesc AppleEvent;
typedef struct OpaqueAEIdleUPP *AEIdleUPP;
typedef struct OpaqueAEFilterUPP *AEFilterUPP;
struct ProcessSerialNumber {
    UInt32 highLongOfPSN;
    UInt32 lowLongOfPSN;
};
typedef struct ProcessSerialNumber ProcessSerialNumber;

enum { kSystemProcess = 1 };
enum { typeProcessSerialNumber = 'psn ' };
enum { kCoreEventClass = 'aevt' };
enum { kAutoGenerateReturnID = -1 };
enum { kAnyTransactionID = 0 };
enum { kAENoReply = 0x00000001 };
enum { kAENormalPriority = 0x00000000 };
enum { kAEDefaultTimeout = -1 };

// LaunchServices.
typedef OptionBits LSRolesMask;
enum { kLSRolesNone = 0x00000001, kLSRolesViewer = 0x00000002, kLSRolesEditor = 0x00000004,
    kLSRolesShell = 0x00000008, kLSRolesAll = 0xFFFFFFFF };

extern "C" {
OSErr AECreateDesc(DescType type, const void *data, Size size, AEDesc *result);
OSErr AECreateAppleEvent(AEEventClass eventClass, AEEventID eventId,
    const AEAddressDesc *target, AEReturnID returnId, AETransactionID transactionId,
    AppleEvent *result);
OSErr AESend(const AppleEvent *event, AppleEvent *reply, AESendMode mode,
    AESendPriority priority, SInt32 timeOutInTicks, AEIdleUPP idleProc, AEFilterUPP filterProc);
OSErr AEDisposeDesc(AEDesc *desc);

CFStringRef LSCopyDefaultRoleHandlerForContentType(CFStringRef contentType, LSRolesMask role);
CFArrayRef LSCopyAllRoleHandlersForContentType(CFStringRef contentType, LSRolesMask role);

extern const CFStringRef kUTTagClassFilenameExtension;
CFStringRef UTTypeCreatePreferredIdentifierForTag(
    CFStringRef tagClass, CFStringRef tag, CFStringRef conformingToUti);

extern const CFStringRef kMDItemDisplayName;
extern const CFStringRef kMDItemCFBundleIdentifier;
extern const CFStringRef kMDItemContentType;
}
