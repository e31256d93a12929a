#pragma once
// IOKit: finding services in the registry.
#include <CoreFoundation/CoreFoundation.h>

typedef unsigned int mach_port_t;
typedef int kern_return_t;
typedef kern_return_t IOReturn;
typedef UInt32 IOOptionBits;
typedef mach_port_t io_object_t;
typedef io_object_t io_service_t;
typedef io_object_t io_iterator_t;
enum { kIOReturnSuccess = 0 };

extern "C" {
extern const mach_port_t kIOMasterPortDefault;
CFMutableDictionaryRef IOServiceMatching(const char *name);
io_service_t IOServiceGetMatchingService(mach_port_t mainPort, CFDictionaryRef matching);
kern_return_t IOServiceGetMatchingServices(
    mach_port_t mainPort, CFDictionaryRef matching, io_iterator_t *existing);
io_object_t IOIteratorNext(io_iterator_t iterator);
kern_return_t IOObjectRelease(io_object_t object);
}
