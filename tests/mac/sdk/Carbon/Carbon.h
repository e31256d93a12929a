#pragma once
// Carbon: keyboard layouts (Text Input Sources) and key translation.
#include <ApplicationServices/ApplicationServices.h>

typedef struct __TISInputSource *TISInputSourceRef;
typedef struct UCKeyboardLayout UCKeyboardLayout;
enum { kUCKeyActionDown = 0, kUCKeyActionUp = 1, kUCKeyActionAutoKey = 2, kUCKeyActionDisplay = 3 };

extern "C" {
extern const CFStringRef kTISPropertyUnicodeKeyLayoutData;
TISInputSourceRef TISCopyCurrentKeyboardInputSource(void);
TISInputSourceRef TISCopyCurrentASCIICapableKeyboardLayoutInputSource(void);
void *TISGetInputSourceProperty(TISInputSourceRef source, CFStringRef key);
UInt8 LMGetKbdType(void);
OSStatus UCKeyTranslate(const UCKeyboardLayout *layout, UInt16 virtualKeyCode,
    UInt16 keyAction, UInt32 modifierKeyState, UInt32 keyboardType, OptionBits keyTranslateOptions,
    UInt32 *deadKeyState, UniCharCount maxStringLength, UniCharCount *actualStringLength,
    UniChar unicodeString[]);
}
