// Processors without an AES instruction set the build knows: the portable path serves alone.
#include "aescore.h"

namespace aescore {

bool hardwareAvailable() { return false; }

void encryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    encryptPortable(mode, ks, iv, in, out, length);
}

void decryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    decryptPortable(mode, ks, iv, in, out, length);
}

} // namespace aescore
