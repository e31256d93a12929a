#pragma once

#include "aescore.h"

#include <QByteArray>
#include <QObject>

// AES (FIPS-197) with the ECB, CBC, CFB (128-bit feedback) and OFB modes and three paddings.
// The key and the initialisation vector are arguments of every call, so one object can serve any
// number of connections. A hardware path (AES-NI) is chosen at run time when the processor has
// it; it gives the same bytes as the portable path.
class QAESEncryption : public QObject
{
    Q_OBJECT
public:
    enum Aes { AES_128 = 0, AES_192 = 1, AES_256 = 2 };
    Q_ENUM(Aes)
    enum Mode { ECB = 0, CBC = 1, CFB = 2, OFB = 3 };
    Q_ENUM(Mode)
    enum Padding { ZERO = 0, PKCS7 = 1, ISO = 2 };
    Q_ENUM(Padding)

    static constexpr int blockLength = 16;

    // Pads, then encrypts. Every mode but ECB needs an iv of exactly 16 bytes; without one the
    // result is empty.
    static QByteArray Crypt(Aes level, Mode mode, const QByteArray &rawText, const QByteArray &key,
        const QByteArray &iv = QByteArray(), Padding padding = ISO);
    // Decrypts and leaves the padding in place.
    static QByteArray Decrypt(Aes level, Mode mode, const QByteArray &rawText,
        const QByteArray &key, const QByteArray &iv = QByteArray(), Padding padding = ISO);
    // The round keys, 16 bytes per round. Only the first 16, 24 or 32 bytes of key are read; a
    // shorter key reads as if filled up with zero bytes.
    static QByteArray ExpandKey(Aes level, const QByteArray &key);
    static QByteArray RemovePadding(const QByteArray &rawText, Padding padding);
    // The same, in the text's own buffer when nothing else shares it.
    static QByteArray RemovePadding(QByteArray &&rawText, Padding padding);

    explicit QAESEncryption(Aes level, Mode mode, Padding padding = ISO, QObject *parent = nullptr);

    QByteArray encode(const QByteArray &rawText, const QByteArray &key,
        const QByteArray &iv = QByteArray()) const;
    QByteArray decode(const QByteArray &rawText, const QByteArray &key,
        const QByteArray &iv = QByteArray()) const;
    QByteArray removePadding(const QByteArray &rawText) const;
    QByteArray expandKey(const QByteArray &key) const;
    // The bytes that this object's padding adds to a text of the given size.
    QByteArray getPadding(int currentSize) const;
    // What encode() gives for a text of the given size, written straight into out (which holds
    // encodedSize(size) bytes): no buffer of its own on the way. False without a usable iv.
    int encodedSize(int size) const;
    bool encodeInto(
        char *out, const char *text, int size, const QByteArray &key, const QByteArray &iv) const;
    // The same with the iv read where it lies: 16 bytes at iv, or null for none (ECB only).
    bool encodeInto(
        char *out, const char *text, int size, const QByteArray &key, const char *iv) const;
    // What decode() gives for the size bytes at in, written into out (which holds size bytes):
    // the number of bytes written, 0 without a usable iv (16 bytes at iv, or null for ECB).
    int decodeInto(
        char *out, const char *in, int size, const QByteArray &key, const char *iv) const;

    // A key expanded once, for a connection that encrypts and decrypts every message under it:
    // its round keys are not looked for again each time, however many connections there are.
    class ExpandedKey
    {
    public:
        ExpandedKey() = default;
        ExpandedKey(Aes level, const QByteArray &key);
        bool isNull() const { return schedule.rounds == 0; }

    private:
        friend class QAESEncryption;
        aescore::KeySchedule schedule;
    };
    // The same as above with a key of this object's level, expanded beforehand.
    bool encodeInto(
        char *out, const char *text, int size, const ExpandedKey &key, const char *iv) const;
    int decodeInto(
        char *out, const char *in, int size, const ExpandedKey &key, const char *iv) const;

    Aes level() const { return m_level; }
    Mode mode() const { return m_mode; }
    Padding padding() const { return m_padding; }

    // Process-wide choice of the hardware path; on by default where the processor has one.
    static bool hardwareAccelerationAvailable();
    static bool hardwareAccelerationEnabled();
    static void setHardwareAccelerationEnabled(bool enabled);

private:
    void encodeWith(char *out, const char *text, int size, const aescore::KeySchedule &ks,
        const char *iv) const;

    Aes m_level;
    Mode m_mode;
    Padding m_padding;
};
