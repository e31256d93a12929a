#pragma once
// The Objective-C runtime's basic types.
typedef struct objc_class *Class;
typedef struct objc_selector *SEL;
#if defined(__arm64__) || defined(__aarch64__)
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif
#define YES __objc_yes
#define NO __objc_no
#ifndef nil
#define nil nullptr
#endif
