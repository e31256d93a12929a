#pragma once
// Service Management: the login item inside the bundle.
#include <CoreFoundation/CoreFoundation.h>

extern "C" Boolean SMLoginItemSetEnabled(CFStringRef identifier, Boolean enabled);
