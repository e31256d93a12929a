// Compiled with -maes -msse4.1; nothing here runs unless hardwareAvailable() said so.
#include "aescore.h"

#include <immintrin.h>

namespace aescore {
namespace {

struct HardwareCipher
{
    __m128i ek[15] = {};
    __m128i dk[15] = {};
    int rounds;

    HardwareCipher(const KeySchedule &ks, bool forDecryption)
        : rounds(ks.rounds)
    {
        for (int r = 0; r <= rounds; ++r)
            ek[r] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(ks.enc + 16 * r));
        if (forDecryption) {
            dk[0] = ek[rounds];
            for (int r = 1; r < rounds; ++r)
                dk[r] = _mm_aesimc_si128(ek[rounds - r]);
            dk[rounds] = ek[0];
        }
    }

    __m128i encrypt(__m128i b) const
    {
        b = _mm_xor_si128(b, ek[0]);
        for (int r = 1; r < rounds; ++r)
            b = _mm_aesenc_si128(b, ek[r]);
        return _mm_aesenclast_si128(b, ek[rounds]);
    }

    __m128i decrypt(__m128i b) const
    {
        b = _mm_xor_si128(b, dk[0]);
        for (int r = 1; r < rounds; ++r)
            b = _mm_aesdec_si128(b, dk[r]);
        return _mm_aesdeclast_si128(b, dk[rounds]);
    }

    // Four independent blocks in flight hide the instruction latency.
    void decrypt4(__m128i &a, __m128i &b, __m128i &c, __m128i &d) const
    {
        a = _mm_xor_si128(a, dk[0]);
        b = _mm_xor_si128(b, dk[0]);
        c = _mm_xor_si128(c, dk[0]);
        d = _mm_xor_si128(d, dk[0]);
        for (int r = 1; r < rounds; ++r) {
            a = _mm_aesdec_si128(a, dk[r]);
            b = _mm_aesdec_si128(b, dk[r]);
            c = _mm_aesdec_si128(c, dk[r]);
            d = _mm_aesdec_si128(d, dk[r]);
        }
        a = _mm_aesdeclast_si128(a, dk[rounds]);
        b = _mm_aesdeclast_si128(b, dk[rounds]);
        c = _mm_aesdeclast_si128(c, dk[rounds]);
        d = _mm_aesdeclast_si128(d, dk[rounds]);
    }
};

__m128i load(const uint8_t *p) { return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p)); }

void store(uint8_t *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

void cbcDecrypt(
    const HardwareCipher &cipher, const uint8_t *iv, const uint8_t *in, uint8_t *out, size_t blocks)
{
    __m128i chain = load(iv);
    size_t b = 0;
    for (; b + 4 <= blocks; b += 4) {
        const __m128i c0 = load(in + 16 * b);
        const __m128i c1 = load(in + 16 * (b + 1));
        const __m128i c2 = load(in + 16 * (b + 2));
        const __m128i c3 = load(in + 16 * (b + 3));
        __m128i p0 = c0, p1 = c1, p2 = c2, p3 = c3;
        cipher.decrypt4(p0, p1, p2, p3);
        store(out + 16 * b, _mm_xor_si128(p0, chain));
        store(out + 16 * (b + 1), _mm_xor_si128(p1, c0));
        store(out + 16 * (b + 2), _mm_xor_si128(p2, c1));
        store(out + 16 * (b + 3), _mm_xor_si128(p3, c2));
        chain = c3;
    }
    for (; b < blocks; ++b) {
        const __m128i c = load(in + 16 * b);
        store(out + 16 * b, _mm_xor_si128(cipher.decrypt(c), chain));
        chain = c;
    }
}

} // namespace

bool hardwareAvailable()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("aes") && __builtin_cpu_supports("sse4.1");
}

void encryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    const HardwareCipher cipher(ks, false);
    if (mode == Mode::CBC) {
        __m128i chain = load(iv);
        for (size_t b = 0; b < length / 16; ++b) {
            chain = cipher.encrypt(_mm_xor_si128(load(in + 16 * b), chain));
            store(out + 16 * b, chain);
        }
        return;
    }
    detail::encryptModes(
        mode, [&](const uint8_t *i, uint8_t *o) { store(o, cipher.encrypt(load(i))); }, iv, in, out,
        length);
}

void decryptHardware(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    const HardwareCipher cipher(ks, mode == Mode::ECB || mode == Mode::CBC);
    if (mode == Mode::CBC) {
        cbcDecrypt(cipher, iv, in, out, length / 16);
        return;
    }
    detail::decryptModes(
        mode, [&](const uint8_t *i, uint8_t *o) { store(o, cipher.encrypt(load(i))); },
        [&](const uint8_t *i, uint8_t *o) { store(o, cipher.decrypt(load(i))); }, iv, in, out,
        length);
}

} // namespace aescore
