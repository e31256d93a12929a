#pragma once
// IOKit graphics: display parameters.
#include <IOKit/IOKitLib.h>

#define kIODisplayBrightnessKey "brightness"

extern "C" {
IOReturn IODisplayGetFloatParameter(
    io_service_t service, IOOptionBits options, CFStringRef parameterName, float *value);
IOReturn IODisplaySetFloatParameter(
    io_service_t service, IOOptionBits options, CFStringRef parameterName, float value);
}
