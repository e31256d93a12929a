#pragma once
// IOKit power management: assertions that keep the display or the system awake.
#include <IOKit/IOKitLib.h>

typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;
enum { kIOPMAssertionLevelOff = 0, kIOPMAssertionLevelOn = 255 };
#define kIOPMAssertionTypePreventUserIdleDisplaySleep CFSTR("PreventUserIdleDisplaySleep")
#define kIOPMAssertionTypePreventUserIdleSystemSleep CFSTR("PreventUserIdleSystemSleep")

extern "C" {
IOReturn IOPMAssertionCreateWithName(CFStringRef type, IOPMAssertionLevel level,
    CFStringRef name, IOPMAssertionID *assertion);
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion);
}
