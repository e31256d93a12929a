#pragma once

// The AES block cipher and its modes of operation, free of Qt so that the hardware translation
// unit can be compiled with instruction-set flags without affecting anything else.

#include <cstddef>
#include <cstdint>

namespace aescore {

enum class Mode { ECB, CBC, CFB, OFB };

struct KeySchedule
{
    // Round keys in byte order, 16 bytes per round, rounds + 1 of them.
    uint8_t enc[15 * 16];
    int rounds = 0;
};

// keyWords is Nk (4, 6 or 8); exactly 4 * keyWords bytes of key are read.
void expandKey(const uint8_t *key, int keyWords, KeySchedule &schedule);

// For ECB and CBC only whole blocks are processed; CFB and OFB also handle a partial last block.
// iv is 16 bytes and ignored by ECB. Encryption may run in place; decryption may not.
void encryptPortable(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length);
void decryptPortable(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length);

// Whether this processor has AES instructions that the hardware path can use.
bool hardwareAvailable();
void encryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length);
void decryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length);

namespace detail {
static inline void xor16(uint8_t *out, const uint8_t *a, const uint8_t *b, size_t n = 16)
{
    for (size_t i = 0; i < n; ++i)
        out[i] = a[i] ^ b[i];
}

static inline void copy16(uint8_t *out, const uint8_t *in)
{
    for (int i = 0; i < 16; ++i)
        out[i] = in[i];
}

// The chaining of every mode over a single-block cipher. Encrypt and Decrypt map 16 bytes to 16
// bytes. Encryption may run in place (in == out); decryption needs separate buffers.
template<typename Encrypt>
static inline void encryptModes(
    Mode mode, Encrypt encrypt, const uint8_t *iv, const uint8_t *in, uint8_t *out, size_t length)
{
    uint8_t chain[16];
    uint8_t block[16];
    const size_t blocks = length / 16;
    switch (mode) {
    case Mode::ECB:
        for (size_t b = 0; b < blocks; ++b)
            encrypt(in + 16 * b, out + 16 * b);
        break;
    case Mode::CBC:
        copy16(chain, iv);
        for (size_t b = 0; b < blocks; ++b) {
            xor16(block, in + 16 * b, chain);
            encrypt(block, out + 16 * b);
            copy16(chain, out + 16 * b);
        }
        break;
    case Mode::CFB:
        copy16(chain, iv);
        for (size_t offset = 0; offset < length; offset += 16) {
            const size_t n = length - offset < 16 ? length - offset : 16;
            encrypt(chain, block);
            xor16(out + offset, in + offset, block, n);
            if (n == 16)
                copy16(chain, out + offset);
        }
        break;
    case Mode::OFB:
        copy16(chain, iv);
        for (size_t offset = 0; offset < length; offset += 16) {
            const size_t n = length - offset < 16 ? length - offset : 16;
            encrypt(chain, block);
            copy16(chain, block);
            xor16(out + offset, in + offset, block, n);
        }
        break;
    }
}

template<typename Encrypt, typename Decrypt>
static inline void decryptModes(Mode mode, Encrypt encrypt, Decrypt decrypt, const uint8_t *iv,
    const uint8_t *in, uint8_t *out, size_t length)
{
    uint8_t chain[16];
    uint8_t block[16];
    const size_t blocks = length / 16;
    switch (mode) {
    case Mode::ECB:
        for (size_t b = 0; b < blocks; ++b)
            decrypt(in + 16 * b, out + 16 * b);
        break;
    case Mode::CBC:
        copy16(chain, iv);
        for (size_t b = 0; b < blocks; ++b) {
            decrypt(in + 16 * b, block);
            xor16(out + 16 * b, block, chain);
            copy16(chain, in + 16 * b);
        }
        break;
    case Mode::CFB:
        copy16(chain, iv);
        for (size_t offset = 0; offset < length; offset += 16) {
            const size_t n = length - offset < 16 ? length - offset : 16;
            encrypt(chain, block);
            if (n == 16)
                copy16(chain, in + offset);
            xor16(out + offset, in + offset, block, n);
        }
        break;
    case Mode::OFB:
        encryptModes(mode, encrypt, iv, in, out, length);
        break;
    }
}
} // namespace detail
} // namespace aescore
