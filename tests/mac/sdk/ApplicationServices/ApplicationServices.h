#pragma once
// Application Services: the accessibility interface (HIServices), with Core Graphics and Core
// Services, which it includes.
#include <CoreFoundation/CoreFoundation.h>
#include <CoreGraphics/CoreGraphics.h>
#include <CoreServices/CoreServices.h>
#include <sys/types.h>

typedef const struct __AXUIElement *AXUIElementRef;
typedef struct __AXObserver *AXObserverRef;
typedef const struct __AXValue *AXValueRef;

typedef enum : int32_t {
    kAXErrorSuccess = 0,
    kAXErrorFailure = -25200,
    kAXErrorIllegalArgument = -25201,
    kAXErrorInvalidUIElement = -25202,
    kAXErrorInvalidUIElementObserver = -25203,
    kAXErrorCannotComplete = -25204,
    kAXErrorAttributeUnsupported = -25205,
    kAXErrorActionUnsupported = -25206,
    kAXErrorNotificationUnsupported = -25207,
    kAXErrorNotImplemented = -25208,
    kAXErrorNotificationAlreadyRegistered = -25209,
    kAXErrorNotificationNotRegistered = -25210,
    kAXErrorAPIDisabled = -25211,
    kAXErrorNoValue = -25212,
    kAXErrorParameterizedAttributeUnsupported = -25213,
    kAXErrorNotEnoughPrecision = -25214
} AXError;

typedef enum : uint32_t {
    kAXValueTypeCGPoint = 1,
    kAXValueTypeCGSize = 2,
    kAXValueTypeCGRect = 3,
    kAXValueTypeCFRange = 4,
    kAXValueTypeAXError = 5,
    kAXValueTypeIllegal = 0
} AXValueType;

typedef void (*AXObserverCallback)(
    AXObserverRef observer, AXUIElementRef element, CFStringRef notification, void *refcon);

// Attributes, parameterised attributes, actions and notifications, as the documentation
// defines them.
#define kAXRoleAttribute CFSTR("AXRole")
#define kAXTitleAttribute CFSTR("AXTitle")
#define kAXDescriptionAttribute CFSTR("AXDescription")
#define kAXValueAttribute CFSTR("AXValue")
#define kAXHelpAttribute CFSTR("AXHelp")
#define kAXParentAttribute CFSTR("AXParent")
#define kAXChildrenAttribute CFSTR("AXChildren")
#define kAXWindowsAttribute CFSTR("AXWindows")
#define kAXPositionAttribute CFSTR("AXPosition")
#define kAXSizeAttribute CFSTR("AXSize")
#define kAXFocusedAttribute CFSTR("AXFocused")
#define kAXEnabledAttribute CFSTR("AXEnabled")
#define kAXMenuBarAttribute CFSTR("AXMenuBar")
#define kAXFocusedWindowAttribute CFSTR("AXFocusedWindow")
#define kAXFocusedUIElementAttribute CFSTR("AXFocusedUIElement")
#define kAXMinimizeButtonAttribute CFSTR("AXMinimizeButton")
#define kAXCloseButtonAttribute CFSTR("AXCloseButton")
#define kAXZoomButtonAttribute CFSTR("AXZoomButton")
#define kAXMinimizedAttribute CFSTR("AXMinimized")
#define kAXNumberOfCharactersAttribute CFSTR("AXNumberOfCharacters")
#define kAXSelectedTextAttribute CFSTR("AXSelectedText")
#define kAXSelectedTextRangeAttribute CFSTR("AXSelectedTextRange")
#define kAXVisibleCharacterRangeAttribute CFSTR("AXVisibleCharacterRange")
#define kAXInsertionPointLineNumberAttribute CFSTR("AXInsertionPointLineNumber")
#define kAXLineForIndexParameterizedAttribute CFSTR("AXLineForIndex")
#define kAXRangeForLineParameterizedAttribute CFSTR("AXRangeForLine")
#define kAXStringForRangeParameterizedAttribute CFSTR("AXStringForRange")
#define kAXAttributedStringForRangeParameterizedAttribute CFSTR("AXAttributedStringForRange")
#define kAXBoundsForRangeParameterizedAttribute CFSTR("AXBoundsForRange")
#define kAXStyleRangeForIndexParameterizedAttribute CFSTR("AXStyleRangeForIndex")
#define kAXPressAction CFSTR("AXPress")
#define kAXRaiseAction CFSTR("AXRaise")
#define kAXFocusedUIElementChangedNotification CFSTR("AXFocusedUIElementChanged")

extern "C" {
extern const CFStringRef kAXTrustedCheckOptionPrompt;
Boolean AXIsProcessTrustedWithOptions(CFDictionaryRef options);

AXUIElementRef AXUIElementCreateApplication(pid_t pid);
AXError AXUIElementCopyAttributeValue(
    AXUIElementRef element, CFStringRef attribute, CFTypeRef *value);
AXError AXUIElementCopyAttributeValues(AXUIElementRef element, CFStringRef attribute,
    CFIndex index, CFIndex maxValues, CFArrayRef *values);
AXError AXUIElementCopyParameterizedAttributeValue(AXUIElementRef element,
    CFStringRef parameterizedAttribute, CFTypeRef parameter, CFTypeRef *result);
AXError AXUIElementSetAttributeValue(AXUIElementRef element, CFStringRef attribute, CFTypeRef value);
AXError AXUIElementCopyActionNames(AXUIElementRef element, CFArrayRef *names);
AXError AXUIElementPerformAction(AXUIElementRef element, CFStringRef action);

CFTypeID AXValueGetTypeID(void);
AXValueRef AXValueCreate(AXValueType type, const void *value);
AXValueType AXValueGetType(AXValueRef value);
Boolean AXValueGetValue(AXValueRef value, AXValueType type, void *result);

AXError AXObserverCreate(pid_t application, AXObserverCallback callback, AXObserverRef *observer);
CFRunLoopSourceRef AXObserverGetRunLoopSource(AXObserverRef observer);
AXError AXObserverAddNotification(
    AXObserverRef observer, AXUIElementRef element, CFStringRef notification, void *refcon);
AXError AXObserverRemoveNotification(
    AXObserverRef observer, AXUIElementRef element, CFStringRef notification);
}
