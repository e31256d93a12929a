// Arbitrary ciphertexts, keys, vectors and paddings: decoding never fails loudly, the portable
// and hardware paths agree, and encode followed by decode gives the text back.

#include "qaesencryption.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    const auto level = QAESEncryption::Aes(data[0] % 3);
    const auto mode = QAESEncryption::Mode((data[0] >> 2) % 4);
    const auto padding = QAESEncryption::Padding((data[0] >> 4) % 3);
    const int keyLength = data[1] % 40;
    const int ivLength = (data[1] >> 6) == 0 ? 0 : 16;
    size_t offset = 2;
    auto take = [&](int n) {
        const int available = int(qMin(size - offset, size_t(n)));
        QByteArray bytes(reinterpret_cast<const char *>(data + offset), available);
        offset += size_t(available);
        return bytes;
    };
    const QByteArray key = take(keyLength);
    const QByteArray iv = take(ivLength);
    const QByteArray text = take(int(size));

    QAESEncryption aes(level, mode, padding);
    QAESEncryption::setHardwareAccelerationEnabled(false);
    const QByteArray portable = aes.decode(text, key, iv);
    const QByteArray portableCipher = aes.encode(text, key, iv);
    QAESEncryption::setHardwareAccelerationEnabled(true);
    const QByteArray hardware = aes.decode(text, key, iv);
    const QByteArray hardwareCipher = aes.encode(text, key, iv);
    if (portable != hardware || portableCipher != hardwareCipher)
        abort();
    aes.removePadding(portable);

    // PKCS#7 padding is reversible for any text. ISO padding adds nothing to a whole number of
    // blocks, so it is reversible only where it added something; ZERO padding not reliably.
    const bool reversible = padding == QAESEncryption::PKCS7
        || (padding == QAESEncryption::ISO && text.size() % 16 != 0);
    if (!hardwareCipher.isEmpty() && reversible) {
        if (aes.removePadding(aes.decode(hardwareCipher, key, iv)) != text)
            abort();
    }
    return 0;
}
