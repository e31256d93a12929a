#pragma once
// Core Foundation: the parts the backend calls.
#include <stdint.h>

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint16_t UInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef int16_t SInt16;
typedef float Float32;
typedef int32_t OSStatus;
typedef int16_t OSErr;
typedef uint32_t FourCharCode;
typedef uint32_t OptionBits;
typedef long Size;
typedef uint16_t UniChar;
typedef unsigned long UniCharCount;
enum { noErr = 0 };
enum { kNilOptions = 0 };

typedef long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef const void *CFTypeRef;
typedef const struct __CFString *CFStringRef;
typedef struct __CFString *CFMutableStringRef;
typedef const struct __CFArray *CFArrayRef;
typedef const struct __CFDictionary *CFDictionaryRef;
typedef struct __CFDictionary *CFMutableDictionaryRef;
typedef const struct __CFBoolean *CFBooleanRef;
typedef const struct __CFNumber *CFNumberRef;
typedef const struct __CFData *CFDataRef;
typedef const struct __CFURL *CFURLRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef struct __CFRunLoop *CFRunLoopRef;
typedef struct __CFRunLoopSource *CFRunLoopSourceRef;
typedef CFStringRef CFRunLoopMode;
typedef uint32_t CFStringEncoding;

typedef struct {
    CFIndex location;
    CFIndex length;
} CFRange;
static inline CFRange CFRangeMake(CFIndex location, CFIndex length)
{
    CFRange range = { location, length };
    return range;
}

enum { kCFStringEncodingUTF8 = 0x08000100 };
typedef enum : CFIndex { kCFNumberSInt32Type = 3, kCFNumberNSIntegerType = 15 } CFNumberType;

#define CFSTR(text) ((CFStringRef)__builtin___CFStringMakeConstantString("" text ""))

extern "C" {
void CFRelease(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);
CFStringRef CFCopyDescription(CFTypeRef object);

CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef array);
const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

CFTypeID CFNumberGetTypeID(void);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void *value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value);

CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithCString(
    CFAllocatorRef allocator, const char *text, CFStringEncoding encoding);

const UInt8 *CFDataGetBytePtr(CFDataRef data);

extern const CFRunLoopMode kCFRunLoopCommonModes;
CFRunLoopRef CFRunLoopGetCurrent(void);
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
}
