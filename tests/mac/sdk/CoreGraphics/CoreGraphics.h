#pragma once
// Core Graphics: geometry, images and synthesised events.
#include <CoreFoundation/CoreFoundation.h>

typedef double CGFloat;
struct CGPoint {
    CGFloat x;
    CGFloat y;
};
typedef struct CGPoint CGPoint;
struct CGSize {
    CGFloat width;
    CGFloat height;
};
typedef struct CGSize CGSize;
struct CGRect {
    CGPoint origin;
    CGSize size;
};
typedef struct CGRect CGRect;

typedef struct CGImage *CGImageRef;
typedef struct __CGEvent *CGEventRef;
typedef struct __CGEventSource *CGEventSourceRef;
typedef uint16_t CGKeyCode;
typedef uint64_t CGEventFlags;
typedef enum : uint32_t {
    kCGHIDEventTap = 0,
    kCGSessionEventTap = 1,
    kCGAnnotatedSessionEventTap = 2
} CGEventTapLocation;
typedef enum : uint32_t { kCGScrollEventUnitPixel = 0, kCGScrollEventUnitLine = 1 } CGScrollEventUnit;

extern "C" {
extern const CGPoint CGPointZero;
extern const CGSize CGSizeZero;
extern const CGRect CGRectZero;

CGEventRef CGEventCreateKeyboardEvent(CGEventSourceRef source, CGKeyCode key, bool keyDown);
CGEventRef CGEventCreateScrollWheelEvent(CGEventSourceRef source, CGScrollEventUnit units,
    uint32_t wheelCount, int32_t wheel1, ...);
void CGEventSetFlags(CGEventRef event, CGEventFlags flags);
void CGEventPost(CGEventTapLocation tap, CGEventRef event);
}
