#include "idle.h"

#import <Foundation/Foundation.h>
#import <IOKit/pwr_mgt/IOPMLib.h>

// One assertion of each kind at a time: callers pair prevent and allow.
namespace Idle {
namespace {
IOPMAssertionID displayAssertion = 0;
IOPMAssertionID systemAssertion = 0;

bool prevent(CFStringRef type, const QString &reason, IOPMAssertionID *assertion)
{
    return IOPMAssertionCreateWithName(
               type, kIOPMAssertionLevelOn, (__bridge CFStringRef)reason.toNSString(), assertion)
        == kIOReturnSuccess;
}
} // namespace

bool preventDisplaySleep(const QString &reason)
{
    return prevent(kIOPMAssertionTypePreventUserIdleDisplaySleep, reason, &displayAssertion);
}

bool allowDisplaySleep() { return IOPMAssertionRelease(displayAssertion) == kIOReturnSuccess; }

bool preventSystemSleep(const QString &reason)
{
    return prevent(kIOPMAssertionTypePreventUserIdleSystemSleep, reason, &systemAssertion);
}

bool allowSystemSleep() { return IOPMAssertionRelease(systemAssertion) == kIOReturnSuccess; }

QString displayErrorMessage() { return QString(); }

QString systemErrorMessage() { return QString(); }
} // namespace Idle
