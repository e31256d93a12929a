#include "aescore.h"

namespace aescore {
namespace {

uint8_t rotl8(uint8_t x, int shift) { return uint8_t((x << shift) | (x >> (8 - shift))); }

uint32_t rotl32(uint32_t x, int shift) { return (x << shift) | (x >> (32 - shift)); }

uint8_t xtime(uint8_t x) { return uint8_t((x << 1) ^ ((x & 0x80) ? 0x1b : 0)); }

uint8_t gmul(uint8_t a, uint8_t b)
{
    uint8_t product = 0;
    while (b) {
        if (b & 1)
            product ^= a;
        a = xtime(a);
        b >>= 1;
    }
    return product;
}

// The S-box and the round tables are derived from the field arithmetic rather than typed in; the
// known-answer tests pin the result.
struct Tables
{
    uint8_t sbox[256];
    uint8_t inverseSbox[256];
    uint32_t te[4][256];
    uint32_t td[4][256];

    Tables()
    {
        // Walk the multiplicative group with generator 3 and its inverse to get x^-1 for each x.
        uint8_t p = 1;
        uint8_t q = 1;
        do {
            p = uint8_t(p ^ xtime(p));
            q ^= uint8_t(q << 1);
            q ^= uint8_t(q << 2);
            q ^= uint8_t(q << 4);
            if (q & 0x80)
                q ^= 0x09;
            sbox[p] = uint8_t(q ^ rotl8(q, 1) ^ rotl8(q, 2) ^ rotl8(q, 3) ^ rotl8(q, 4) ^ 0x63);
        } while (p != 1);
        sbox[0] = 0x63;
        for (int i = 0; i < 256; ++i)
            inverseSbox[sbox[i]] = uint8_t(i);

        // Column words hold row 0 in the lowest byte.
        for (int i = 0; i < 256; ++i) {
            const uint8_t s = sbox[i];
            const uint32_t e = uint32_t(gmul(s, 2)) | uint32_t(s) << 8 | uint32_t(s) << 16
                | uint32_t(gmul(s, 3)) << 24;
            const uint8_t v = inverseSbox[i];
            const uint32_t d = uint32_t(gmul(v, 14)) | uint32_t(gmul(v, 9)) << 8
                | uint32_t(gmul(v, 13)) << 16 | uint32_t(gmul(v, 11)) << 24;
            for (int t = 0; t < 4; ++t) {
                te[t][i] = t ? rotl32(e, 8 * t) : e;
                td[t][i] = t ? rotl32(d, 8 * t) : d;
            }
        }
    }
};

const Tables &tables()
{
    static const Tables instance;
    return instance;
}

uint32_t load32(const uint8_t *p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

void store32(uint8_t *p, uint32_t v)
{
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
    p[2] = uint8_t(v >> 16);
    p[3] = uint8_t(v >> 24);
}

uint8_t byteOf(uint32_t w, int row) { return uint8_t(w >> (8 * row)); }

struct PortableCipher
{
    const Tables &t = tables();
    uint32_t ek[60];
    uint32_t dk[60];
    int rounds;

    explicit PortableCipher(const KeySchedule &ks)
        : rounds(ks.rounds)
    {
        const int words = 4 * (rounds + 1);
        for (int i = 0; i < words; ++i)
            ek[i] = load32(ks.enc + 4 * i);
        // Equivalent inverse cipher: reversed round keys, InvMixColumns on the inner ones.
        for (int r = 0; r <= rounds; ++r) {
            for (int c = 0; c < 4; ++c) {
                const uint32_t w = ek[4 * (rounds - r) + c];
                if (r == 0 || r == rounds) {
                    dk[4 * r + c] = w;
                } else {
                    dk[4 * r + c] = t.td[0][t.sbox[byteOf(w, 0)]] ^ t.td[1][t.sbox[byteOf(w, 1)]]
                        ^ t.td[2][t.sbox[byteOf(w, 2)]] ^ t.td[3][t.sbox[byteOf(w, 3)]];
                }
            }
        }
    }

    void encrypt(const uint8_t *in, uint8_t *out) const
    {
        uint32_t s[4];
        uint32_t n[4];
        for (int c = 0; c < 4; ++c)
            s[c] = load32(in + 4 * c) ^ ek[c];
        for (int r = 1; r < rounds; ++r) {
            for (int c = 0; c < 4; ++c) {
                n[c] = t.te[0][byteOf(s[c], 0)] ^ t.te[1][byteOf(s[(c + 1) & 3], 1)]
                    ^ t.te[2][byteOf(s[(c + 2) & 3], 2)] ^ t.te[3][byteOf(s[(c + 3) & 3], 3)]
                    ^ ek[4 * r + c];
            }
            for (int c = 0; c < 4; ++c)
                s[c] = n[c];
        }
        for (int c = 0; c < 4; ++c) {
            const uint32_t w = uint32_t(t.sbox[byteOf(s[c], 0)])
                | uint32_t(t.sbox[byteOf(s[(c + 1) & 3], 1)]) << 8
                | uint32_t(t.sbox[byteOf(s[(c + 2) & 3], 2)]) << 16
                | uint32_t(t.sbox[byteOf(s[(c + 3) & 3], 3)]) << 24;
            store32(out + 4 * c, w ^ ek[4 * rounds + c]);
        }
    }

    void decrypt(const uint8_t *in, uint8_t *out) const
    {
        uint32_t s[4];
        uint32_t n[4];
        for (int c = 0; c < 4; ++c)
            s[c] = load32(in + 4 * c) ^ dk[c];
        for (int r = 1; r < rounds; ++r) {
            for (int c = 0; c < 4; ++c) {
                n[c] = t.td[0][byteOf(s[c], 0)] ^ t.td[1][byteOf(s[(c + 3) & 3], 1)]
                    ^ t.td[2][byteOf(s[(c + 2) & 3], 2)] ^ t.td[3][byteOf(s[(c + 1) & 3], 3)]
                    ^ dk[4 * r + c];
            }
            for (int c = 0; c < 4; ++c)
                s[c] = n[c];
        }
        for (int c = 0; c < 4; ++c) {
            const uint32_t w = uint32_t(t.inverseSbox[byteOf(s[c], 0)])
                | uint32_t(t.inverseSbox[byteOf(s[(c + 3) & 3], 1)]) << 8
                | uint32_t(t.inverseSbox[byteOf(s[(c + 2) & 3], 2)]) << 16
                | uint32_t(t.inverseSbox[byteOf(s[(c + 1) & 3], 3)]) << 24;
            store32(out + 4 * c, w ^ dk[4 * rounds + c]);
        }
    }
};

} // namespace

void expandKey(const uint8_t *key, int keyWords, KeySchedule &schedule)
{
    const Tables &t = tables();
    const int rounds = keyWords + 6;
    const int words = 4 * (rounds + 1);
    uint32_t w[60];
    for (int i = 0; i < keyWords; ++i)
        w[i] = load32(key + 4 * i);
    uint8_t rcon = 1;
    for (int i = keyWords; i < words; ++i) {
        uint32_t temp = w[i - 1];
        if (i % keyWords == 0) {
            temp = (temp >> 8) | (temp << 24); // RotWord with row 0 in the low byte
            temp = uint32_t(t.sbox[byteOf(temp, 0)]) | uint32_t(t.sbox[byteOf(temp, 1)]) << 8
                | uint32_t(t.sbox[byteOf(temp, 2)]) << 16 | uint32_t(t.sbox[byteOf(temp, 3)]) << 24;
            temp ^= rcon;
            rcon = xtime(rcon);
        } else if (keyWords > 6 && i % keyWords == 4) {
            temp = uint32_t(t.sbox[byteOf(temp, 0)]) | uint32_t(t.sbox[byteOf(temp, 1)]) << 8
                | uint32_t(t.sbox[byteOf(temp, 2)]) << 16 | uint32_t(t.sbox[byteOf(temp, 3)]) << 24;
        }
        w[i] = w[i - keyWords] ^ temp;
    }
    for (int i = 0; i < words; ++i)
        store32(schedule.enc + 4 * i, w[i]);
    schedule.rounds = rounds;
}

void encryptPortable(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    const PortableCipher cipher(ks);
    detail::encryptModes(
        mode, [&](const uint8_t *i, uint8_t *o) { cipher.encrypt(i, o); }, iv, in, out, length);
}

void decryptPortable(Mode mode, const KeySchedule &ks, const uint8_t *iv, const uint8_t *in,
    uint8_t *out, size_t length)
{
    const PortableCipher cipher(ks);
    detail::decryptModes(
        mode, [&](const uint8_t *i, uint8_t *o) { cipher.encrypt(i, o); },
        [&](const uint8_t *i, uint8_t *o) { cipher.decrypt(i, o); }, iv, in, out, length);
}

} // namespace aescore
