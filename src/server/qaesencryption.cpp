#include "qaesencryption.h"

#include "aescore.h"

#include <atomic>
#include <cstring>
#include <utility>

namespace {

std::atomic<bool> &hardwareSwitch()
{
    static std::atomic<bool> enabled(aescore::hardwareAvailable());
    return enabled;
}

int keyWords(QAESEncryption::Aes level)
{
    switch (level) {
    case QAESEncryption::AES_192:
        return 6;
    case QAESEncryption::AES_256:
        return 8;
    case QAESEncryption::AES_128:
        break;
    }
    return 4;
}

aescore::Mode coreMode(QAESEncryption::Mode mode)
{
    switch (mode) {
    case QAESEncryption::CBC:
        return aescore::Mode::CBC;
    case QAESEncryption::CFB:
        return aescore::Mode::CFB;
    case QAESEncryption::OFB:
        return aescore::Mode::OFB;
    case QAESEncryption::ECB:
        break;
    }
    return aescore::Mode::ECB;
}

// Valid until the next call on the same thread.
const aescore::KeySchedule &schedule(QAESEncryption::Aes level, const QByteArray &key)
{
    const int words = keyWords(level);
    uint8_t material[32] = {};
    const int available = qMin(key.size(), 4 * words);
    for (int i = 0; i < available; ++i)
        material[i] = uint8_t(key.at(i));
    // Each message is decrypted and its reply encrypted under the same session key: the last
    // few schedules are kept rather than expanded again every time.
    struct Cached
    {
        int words = 0;
        uint8_t material[32];
        aescore::KeySchedule ks;
    };
    // One place per key, chosen by its first bytes: a look-up is one comparison, also with
    // many clients.
    static thread_local Cached cache[64];
    Cached &entry = cache[(material[0] ^ (material[1] << 3) ^ (material[2] << 6)) % 64];
    if (entry.words == words && memcmp(entry.material, material, sizeof material) == 0)
        return entry.ks;
    entry.words = words;
    memcpy(entry.material, material, sizeof material);
    aescore::expandKey(material, words, entry.ks);
    return entry.ks;
}

bool ivAcceptable(QAESEncryption::Mode mode, const QByteArray &iv)
{
    return mode == QAESEncryption::ECB || iv.size() == QAESEncryption::blockLength;
}

int paddingLength(QAESEncryption::Padding padding, int currentSize)
{
    const int remainder = currentSize % QAESEncryption::blockLength;
    if (padding == QAESEncryption::PKCS7)
        return QAESEncryption::blockLength - remainder;
    return remainder == 0 ? 0 : QAESEncryption::blockLength - remainder;
}

void writePadding(char *out, QAESEncryption::Padding padding, int length)
{
    if (length == 0)
        return;
    switch (padding) {
    case QAESEncryption::PKCS7:
        memset(out, length, size_t(length));
        return;
    case QAESEncryption::ISO:
        out[0] = char(0x80);
        memset(out + 1, 0, size_t(length - 1));
        return;
    case QAESEncryption::ZERO:
        break;
    }
    memset(out, 0, size_t(length));
}

QByteArray paddingFor(QAESEncryption::Padding padding, int currentSize)
{
    const int length = paddingLength(padding, currentSize);
    QByteArray pad(length, Qt::Uninitialized);
    writePadding(pad.data(), padding, length);
    return pad;
}

const uint8_t *ivBytes(const char *iv)
{
    static const uint8_t noIv[16] = {};
    return iv ? reinterpret_cast<const uint8_t *>(iv) : noIv;
}

// Null for no iv (as ECB has).
const char *ivPointer(const QByteArray &iv) { return iv.isEmpty() ? nullptr : iv.constData(); }

// The length that is encrypted of a text of the given size: block modes leave out a partial
// last block.
int encryptedLength(QAESEncryption::Mode mode, int size)
{
    const bool stream = mode == QAESEncryption::CFB || mode == QAESEncryption::OFB;
    return stream ? size : size - size % QAESEncryption::blockLength;
}

// Encrypts length bytes in place: every mode reads a block before it writes it.
void encryptBytes(QAESEncryption::Mode mode, uint8_t *bytes, int length,
    const aescore::KeySchedule &ks, const char *iv)
{
    if (length == 0)
        return;
    if (hardwareSwitch().load(std::memory_order_relaxed))
        aescore::encryptHardware(coreMode(mode), ks, ivBytes(iv), bytes, bytes, size_t(length));
    else
        aescore::encryptPortable(coreMode(mode), ks, ivBytes(iv), bytes, bytes, size_t(length));
}

void encryptInPlace(QAESEncryption::Aes level, QAESEncryption::Mode mode, QByteArray &text,
    const QByteArray &key, const QByteArray &iv)
{
    const int length = encryptedLength(mode, text.size());
    text.truncate(length);
    if (length > 0)
        encryptBytes(mode, reinterpret_cast<uint8_t *>(text.data()), length, schedule(level, key),
            ivPointer(iv));
}

// Decrypts length bytes (whole blocks, or any length in the stream modes) from in to out.
void decryptBytes(QAESEncryption::Mode mode, const char *in, char *out, int length,
    const aescore::KeySchedule &ks, const char *iv)
{
    const auto *from = reinterpret_cast<const uint8_t *>(in);
    auto *to = reinterpret_cast<uint8_t *>(out);
    if (hardwareSwitch().load(std::memory_order_relaxed))
        aescore::decryptHardware(coreMode(mode), ks, ivBytes(iv), from, to, size_t(length));
    else
        aescore::decryptPortable(coreMode(mode), ks, ivBytes(iv), from, to, size_t(length));
}

int decryptedLength(QAESEncryption::Mode mode, int size)
{
    const bool stream = mode == QAESEncryption::CFB || mode == QAESEncryption::OFB;
    return stream ? size : size - size % QAESEncryption::blockLength;
}

QByteArray decrypt(QAESEncryption::Aes level, QAESEncryption::Mode mode, const QByteArray &input,
    const QByteArray &key, const QByteArray &iv)
{
    if (!ivAcceptable(mode, iv))
        return QByteArray();
    const int length = decryptedLength(mode, input.size());
    if (length == 0)
        return QByteArray();
    QByteArray output(length, Qt::Uninitialized);
    decryptBytes(
        mode, input.constData(), output.data(), length, schedule(level, key), ivPointer(iv));
    return output;
}

} // namespace

QByteArray QAESEncryption::Crypt(Aes level, Mode mode, const QByteArray &rawText,
    const QByteArray &key, const QByteArray &iv, Padding padding)
{
    if (!ivAcceptable(mode, iv))
        return QByteArray();
    const QByteArray pad = paddingFor(padding, rawText.size());
    QByteArray text;
    text.reserve(rawText.size() + pad.size());
    text.append(rawText);
    text.append(pad);
    encryptInPlace(level, mode, text, key, iv);
    return text;
}

QByteArray QAESEncryption::Decrypt(Aes level, Mode mode, const QByteArray &rawText,
    const QByteArray &key, const QByteArray &iv, Padding)
{
    return decrypt(level, mode, rawText, key, iv);
}

QByteArray QAESEncryption::ExpandKey(Aes level, const QByteArray &key)
{
    const aescore::KeySchedule &ks = schedule(level, key);
    return QByteArray(reinterpret_cast<const char *>(ks.enc), 16 * (ks.rounds + 1));
}

QByteArray QAESEncryption::RemovePadding(const QByteArray &rawText, Padding padding)
{
    return RemovePadding(QByteArray(rawText), padding);
}

QByteArray QAESEncryption::RemovePadding(QByteArray &&rawText, Padding padding)
{
    QByteArray text = std::move(rawText);
    if (text.isEmpty())
        return text;
    switch (padding) {
    case PKCS7:
        // Deliberately unchecked: a wrong key yields text that fails to parse later. A negative
        // count removes nothing, a count beyond the length removes everything.
        text.chop(static_cast<signed char>(text.back()));
        break;
    case ISO: {
        int end = text.size() - 1;
        while (end >= 0 && text.at(end) == '\0')
            --end;
        if (end >= 0 && text.at(end) == char(0x80))
            text.truncate(end);
        break;
    }
    case ZERO: {
        int end = text.size();
        while (end > 0 && text.at(end - 1) == '\0')
            --end;
        text.truncate(end);
        break;
    }
    }
    return text;
}

QAESEncryption::QAESEncryption(Aes level, Mode mode, Padding padding, QObject *parent)
    : QObject(parent)
    , m_level(level)
    , m_mode(mode)
    , m_padding(padding)
{ }

QByteArray QAESEncryption::encode(
    const QByteArray &rawText, const QByteArray &key, const QByteArray &iv) const
{
    return Crypt(m_level, m_mode, rawText, key, iv, m_padding);
}

QByteArray QAESEncryption::decode(
    const QByteArray &rawText, const QByteArray &key, const QByteArray &iv) const
{
    return Decrypt(m_level, m_mode, rawText, key, iv, m_padding);
}

QByteArray QAESEncryption::removePadding(const QByteArray &rawText) const
{
    return RemovePadding(rawText, m_padding);
}

int QAESEncryption::encodedSize(int size) const
{
    return encryptedLength(m_mode, size + paddingLength(m_padding, size));
}

bool QAESEncryption::encodeInto(
    char *out, const char *text, int size, const QByteArray &key, const QByteArray &iv) const
{
    if (!ivAcceptable(m_mode, iv))
        return false;
    return encodeInto(out, text, size, key, ivPointer(iv));
}

bool QAESEncryption::encodeInto(
    char *out, const char *text, int size, const QByteArray &key, const char *iv) const
{
    if (!iv && m_mode != ECB)
        return false;
    encodeWith(out, text, size, schedule(m_level, key), iv);
    return true;
}

bool QAESEncryption::encodeInto(
    char *out, const char *text, int size, const ExpandedKey &key, const char *iv) const
{
    if ((!iv && m_mode != ECB) || key.isNull())
        return false;
    encodeWith(out, text, size, key.schedule, iv);
    return true;
}

void QAESEncryption::encodeWith(
    char *out, const char *text, int size, const aescore::KeySchedule &ks, const char *iv) const
{
    const int padLength = paddingLength(m_padding, size);
    const int length = encryptedLength(m_mode, size + padLength);
    // What a partial last block leaves out of the text is left out here too.
    const int fromText = qMin(size, length);
    memcpy(out, text, size_t(fromText));
    if (length > fromText) {
        char pad[blockLength];
        writePadding(pad, m_padding, padLength);
        memcpy(out + fromText, pad, size_t(length - fromText));
    }
    encryptBytes(m_mode, reinterpret_cast<uint8_t *>(out), length, ks, iv);
}

int QAESEncryption::decodeInto(
    char *out, const char *in, int size, const QByteArray &key, const char *iv) const
{
    if (!iv && m_mode != ECB)
        return 0;
    const int length = decryptedLength(m_mode, size);
    if (length > 0)
        decryptBytes(m_mode, in, out, length, schedule(m_level, key), iv);
    return length;
}

int QAESEncryption::decodeInto(
    char *out, const char *in, int size, const ExpandedKey &key, const char *iv) const
{
    if ((!iv && m_mode != ECB) || key.isNull())
        return 0;
    const int length = decryptedLength(m_mode, size);
    if (length > 0)
        decryptBytes(m_mode, in, out, length, key.schedule, iv);
    return length;
}

QAESEncryption::ExpandedKey::ExpandedKey(Aes level, const QByteArray &key)
    : schedule(::schedule(level, key))
{ }

QByteArray QAESEncryption::expandKey(const QByteArray &key) const
{
    return ExpandKey(m_level, key);
}

QByteArray QAESEncryption::getPadding(int currentSize) const
{
    return paddingFor(m_padding, currentSize);
}

bool QAESEncryption::hardwareAccelerationAvailable() { return aescore::hardwareAvailable(); }

bool QAESEncryption::hardwareAccelerationEnabled() { return hardwareSwitch().load(); }

void QAESEncryption::setHardwareAccelerationEnabled(bool enabled)
{
    hardwareSwitch().store(enabled && aescore::hardwareAvailable());
}
