#pragma once
// Core Audio: the audio-object properties of the default output device.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

typedef UInt32 AudioObjectID;
typedef UInt32 AudioObjectPropertySelector;
typedef UInt32 AudioObjectPropertyScope;
typedef UInt32 AudioObjectPropertyElement;
struct AudioObjectPropertyAddress {
    AudioObjectPropertySelector mSelector;
    AudioObjectPropertyScope mScope;
    AudioObjectPropertyElement mElement;
};
typedef struct AudioObjectPropertyAddress AudioObjectPropertyAddress;
typedef void (^AudioObjectPropertyListenerBlock)(
    UInt32 numberAddresses, const AudioObjectPropertyAddress *addresses);

enum : AudioObjectID { kAudioObjectUnknown = 0, kAudioObjectSystemObject = 1 };
enum : AudioObjectPropertySelector {
    kAudioHardwarePropertyDefaultOutputDevice = 'dOut',
    kAudioDevicePropertyVolumeScalar = 'volm',
    kAudioDevicePropertyMute = 'mute'
};
enum : AudioObjectPropertyScope {
    kAudioObjectPropertyScopeGlobal = 'glob',
    kAudioDevicePropertyScopeOutput = 'outp'
};
enum : AudioObjectPropertyElement { kAudioObjectPropertyElementMaster = 0 };

extern "C" {
OSStatus AudioObjectGetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress *address,
    UInt32 qualifierDataSize, const void *qualifierData, UInt32 *dataSize, void *data);
OSStatus AudioObjectSetPropertyData(AudioObjectID object, const AudioObjectPropertyAddress *address,
    UInt32 qualifierDataSize, const void *qualifierData, UInt32 dataSize, const void *data);
OSStatus AudioObjectAddPropertyListenerBlock(AudioObjectID object,
    const AudioObjectPropertyAddress *address, dispatch_queue_t queue,
    AudioObjectPropertyListenerBlock listener);
}
