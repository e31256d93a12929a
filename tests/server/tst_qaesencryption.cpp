#include "qaesencryption.h"
#include "random.h"

#include <QJsonDocument>
#include <QRandomGenerator>
#include <QtTest>

namespace {
QByteArray hex(const char *text) { return QByteArray::fromHex(QByteArray(text)); }

const char *const plainBlocks = "6bc1bee22e409f96e93d7e117393172a"
                                "ae2d8a571e03ac9c9eb76fac45af8e51"
                                "30c81c46a35ce411e5fbc1191a0a52ef"
                                "f69f2445df4f9b17ad2b417be66c3710";
const char *const key128 = "2b7e151628aed2a6abf7158809cf4f3c";
const char *const key192 = "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b";
const char *const key256 = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const char *const nistIv = "000102030405060708090a0b0c0d0e0f";

// Runs a test body once per cipher path that this machine has.
QList<bool> paths()
{
    QList<bool> result { false };
    if (QAESEncryption::hardwareAccelerationAvailable())
        result.append(true);
    return result;
}
} // namespace

class TestQAESEncryption : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { QAESEncryption::setHardwareAccelerationEnabled(true); }
    void encodeIntoAsEncode();
    void removePaddingInPlaceAsCopy();
    void decodeIntoAsDecode();

    void fips197_data();
    void fips197();
    void sp80038a_data();
    void sp80038a();
    void expandKeyLastRoundKey();
    void longerKeyIgnoresSurplus();
    void ivRequired_data();
    void ivRequired();
    void padding_data();
    void padding();
    void removePadding_data();
    void removePadding();
    void hardwareMatchesPortable();
    void partialStreamBlocks();
    void decodeIgnoresTrailingPartialBlock();
    void randomIntegerBounds();
    void randomIntegerEqualBounds();
};

void TestQAESEncryption::fips197_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("cipher");
    QTest::newRow("C.1 AES-128") << int(QAESEncryption::AES_128)
                                 << hex("000102030405060708090a0b0c0d0e0f")
                                 << hex("69c4e0d86a7b0430d8cdb78070b4c55a");
    QTest::newRow("C.2 AES-192") << int(QAESEncryption::AES_192)
                                 << hex("000102030405060708090a0b0c0d0e0f1011121314151617")
                                 << hex("dda97ca4864cdfe06eaf70a0ec0d7191");
    QTest::newRow("C.3 AES-256")
        << int(QAESEncryption::AES_256)
        << hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f")
        << hex("8ea2b7ca516745bfeafc49904b496089");
}

void TestQAESEncryption::fips197()
{
    QFETCH(int, level);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, cipher);
    const QByteArray plain = hex("00112233445566778899aabbccddeeff");
    for (bool hardware : paths()) {
        QAESEncryption::setHardwareAccelerationEnabled(hardware);
        QAESEncryption aes(QAESEncryption::Aes(level), QAESEncryption::ECB, QAESEncryption::ZERO);
        QCOMPARE(aes.encode(plain, key).toHex(), cipher.toHex());
        QCOMPARE(aes.decode(cipher, key).toHex(), plain.toHex());
    }
}

void TestQAESEncryption::sp80038a_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("cipher");
    const int ecb = QAESEncryption::ECB, cbc = QAESEncryption::CBC, cfb = QAESEncryption::CFB,
              ofb = QAESEncryption::OFB;
    const int a128 = QAESEncryption::AES_128, a192 = QAESEncryption::AES_192,
              a256 = QAESEncryption::AES_256;
    QTest::newRow("F.1.1 ECB-AES128") << a128 << ecb << hex(key128)
                                      << hex("3ad77bb40d7a3660a89ecaf32466ef97"
                                             "f5d3d58503b9699de785895a96fdbaaf"
                                             "43b1cd7f598ece23881b00e3ed030688"
                                             "7b0c785e27e8ad3f8223207104725dd4");
    QTest::newRow("F.1.3 ECB-AES192") << a192 << ecb << hex(key192)
                                      << hex("bd334f1d6e45f25ff712a214571fa5cc"
                                             "974104846d0ad3ad7734ecb3ecee4eef"
                                             "ef7afd2270e2e60adce0ba2face6444e"
                                             "9a4b41ba738d6c72fb16691603c18e0e");
    QTest::newRow("F.1.5 ECB-AES256") << a256 << ecb << hex(key256)
                                      << hex("f3eed1bdb5d2a03c064b5a7e3db181f8"
                                             "591ccb10d410ed26dc5ba74a31362870"
                                             "b6ed21b99ca6f4f9f153e7b1beafed1d"
                                             "23304b7a39f9f3ff067d8d8f9e24ecc7");
    QTest::newRow("F.2.1 CBC-AES128") << a128 << cbc << hex(key128)
                                      << hex("7649abac8119b246cee98e9b12e9197d"
                                             "5086cb9b507219ee95db113a917678b2"
                                             "73bed6b8e3c1743b7116e69e22229516"
                                             "3ff1caa1681fac09120eca307586e1a7");
    QTest::newRow("F.2.3 CBC-AES192") << a192 << cbc << hex(key192)
                                      << hex("4f021db243bc633d7178183a9fa071e8"
                                             "b4d9ada9ad7dedf4e5e738763f69145a"
                                             "571b242012fb7ae07fa9baac3df102e0"
                                             "08b0e27988598881d920a9e64f5615cd");
    QTest::newRow("F.2.5 CBC-AES256") << a256 << cbc << hex(key256)
                                      << hex("f58c4c04d6e5f1ba779eabfb5f7bfbd6"
                                             "9cfc4e967edb808d679f777bc6702c7d"
                                             "39f23369a9d9bacfa530e26304231461"
                                             "b2eb05e2c39be9fcda6c19078c6a9d1b");
    QTest::newRow("F.3.13 CFB128-AES128") << a128 << cfb << hex(key128)
                                          << hex("3b3fd92eb72dad20333449f8e83cfb4a"
                                                 "c8a64537a0b3a93fcde3cdad9f1ce58b"
                                                 "26751f67a3cbb140b1808cf187a4f4df"
                                                 "c04b05357c5d1c0eeac4c66f9ff7f2e6");
    QTest::newRow("F.3.15 CFB128-AES192") << a192 << cfb << hex(key192)
                                          << hex("cdc80d6fddf18cab34c25909c99a4174"
                                                 "67ce7f7f81173621961a2b70171d3d7a"
                                                 "2e1e8a1dd59b88b1c8e60fed1efac4c9"
                                                 "c05f9f9ca9834fa042ae8fba584b09ff");
    QTest::newRow("F.3.17 CFB128-AES256") << a256 << cfb << hex(key256)
                                          << hex("dc7e84bfda79164b7ecd8486985d3860"
                                                 "39ffed143b28b1c832113c6331e5407b"
                                                 "df10132415e54b92a13ed0a8267ae2f9"
                                                 "75a385741ab9cef82031623d55b1e471");
    QTest::newRow("F.4.1 OFB-AES128") << a128 << ofb << hex(key128)
                                      << hex("3b3fd92eb72dad20333449f8e83cfb4a"
                                             "7789508d16918f03f53c52dac54ed825"
                                             "9740051e9c5fecf64344f7a82260edcc"
                                             "304c6528f659c77866a510d9c1d6ae5e");
    QTest::newRow("F.4.3 OFB-AES192") << a192 << ofb << hex(key192)
                                      << hex("cdc80d6fddf18cab34c25909c99a4174"
                                             "fcc28b8d4c63837c09e81700c1100401"
                                             "8d9a9aeac0f6596f559c6d4daf59a5f2"
                                             "6d9f200857ca6c3e9cac524bd9acc92a");
    QTest::newRow("F.4.5 OFB-AES256") << a256 << ofb << hex(key256)
                                      << hex("dc7e84bfda79164b7ecd8486985d3860"
                                             "4febdc6740d20b3ac88f6ad82a4fb08d"
                                             "71ab47a086e86eedf39d1c5bba97c408"
                                             "0126141d67f37be8538f5a8be740e484");
}

void TestQAESEncryption::sp80038a()
{
    QFETCH(int, level);
    QFETCH(int, mode);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, cipher);
    const QByteArray plain = hex(plainBlocks);
    const QByteArray iv = mode == QAESEncryption::ECB ? QByteArray() : hex(nistIv);
    for (bool hardware : paths()) {
        QAESEncryption::setHardwareAccelerationEnabled(hardware);
        QAESEncryption aes(
            QAESEncryption::Aes(level), QAESEncryption::Mode(mode), QAESEncryption::ISO);
        QCOMPARE(aes.encode(plain, key, iv).toHex(), cipher.toHex());
        QCOMPARE(aes.decode(cipher, key, iv).toHex(), hex(plainBlocks).toHex());
        // The static forms agree with the members.
        QCOMPARE(QAESEncryption::Crypt(QAESEncryption::Aes(level), QAESEncryption::Mode(mode),
                     plain, key, iv, QAESEncryption::ISO),
            cipher);
        QCOMPARE(QAESEncryption::Decrypt(QAESEncryption::Aes(level), QAESEncryption::Mode(mode),
                     cipher, key, iv, QAESEncryption::ISO),
            plain);
    }
}

void TestQAESEncryption::expandKeyLastRoundKey()
{
    // FIPS-197 Appendix A: the last words of each expansion.
    const QByteArray k128 = QAESEncryption::ExpandKey(QAESEncryption::AES_128, hex(key128));
    QCOMPARE(k128.size(), 176);
    QCOMPARE(k128.right(16).toHex(), QByteArray("d014f9a8c9ee2589e13f0cc8b6630ca6"));
    QCOMPARE(k128.left(16), hex(key128));
    const QByteArray k192 = QAESEncryption::ExpandKey(QAESEncryption::AES_192, hex(key192));
    QCOMPARE(k192.size(), 208);
    QCOMPARE(k192.right(8).toHex(), QByteArray("8ecc720401002202"));
    const QByteArray k256 = QAESEncryption::ExpandKey(QAESEncryption::AES_256, hex(key256));
    QCOMPARE(k256.size(), 240);
    QCOMPARE(k256.right(4).toHex(), QByteArray("706c631e"));
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::ECB);
    QCOMPARE(aes.expandKey(hex(key128)), k128);
}

void TestQAESEncryption::longerKeyIgnoresSurplus()
{
    // The session key is a 20-byte digest; AES-128 reads its first 16 bytes only.
    const QByteArray key = hex(key128);
    const QByteArray longer = key + QByteArray("\x01\x02\x03\x04", 4);
    const QByteArray iv = hex(nistIv);
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7);
    QCOMPARE(aes.encode("some text", longer, iv), aes.encode("some text", key, iv));
}

void TestQAESEncryption::ivRequired_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QByteArray>("iv");
    QTest::addColumn<bool>("works");
    QTest::newRow("ECB without iv") << int(QAESEncryption::ECB) << QByteArray() << true;
    QTest::newRow("CBC without iv") << int(QAESEncryption::CBC) << QByteArray() << false;
    QTest::newRow("CBC 15-byte iv") << int(QAESEncryption::CBC) << QByteArray(15, 'x') << false;
    QTest::newRow("CBC 17-byte iv") << int(QAESEncryption::CBC) << QByteArray(17, 'x') << false;
    QTest::newRow("CBC 16-byte iv") << int(QAESEncryption::CBC) << QByteArray(16, 'x') << true;
    QTest::newRow("CFB without iv") << int(QAESEncryption::CFB) << QByteArray() << false;
    QTest::newRow("OFB without iv") << int(QAESEncryption::OFB) << QByteArray() << false;
}

void TestQAESEncryption::ivRequired()
{
    QFETCH(int, mode);
    QFETCH(QByteArray, iv);
    QFETCH(bool, works);
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::Mode(mode), QAESEncryption::PKCS7);
    const QByteArray key = hex(key128);
    QCOMPARE(aes.encode("hello", key, iv).isEmpty(), !works);
    QCOMPARE(aes.decode(QByteArray(32, 'c'), key, iv).isEmpty(), !works);
}

void TestQAESEncryption::padding_data()
{
    QTest::addColumn<int>("padding");
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("added");
    const int zero = QAESEncryption::ZERO, pkcs7 = QAESEncryption::PKCS7, iso = QAESEncryption::ISO;
    QTest::newRow("ZERO 0") << zero << 0 << QByteArray();
    QTest::newRow("ZERO 1") << zero << 1 << QByteArray(15, '\0');
    QTest::newRow("ZERO 16") << zero << 16 << QByteArray();
    QTest::newRow("ZERO 17") << zero << 17 << QByteArray(15, '\0');
    QTest::newRow("PKCS7 0") << pkcs7 << 0 << QByteArray(16, '\x10');
    QTest::newRow("PKCS7 2") << pkcs7 << 2 << QByteArray(14, '\x0e');
    QTest::newRow("PKCS7 15") << pkcs7 << 15 << QByteArray(1, '\x01');
    QTest::newRow("PKCS7 16") << pkcs7 << 16 << QByteArray(16, '\x10');
    QTest::newRow("ISO 0") << iso << 0 << QByteArray();
    QTest::newRow("ISO 1") << iso << 1 << QByteArray("\x80") + QByteArray(14, '\0');
    QTest::newRow("ISO 15") << iso << 15 << QByteArray("\x80");
    QTest::newRow("ISO 16") << iso << 16 << QByteArray();
}

void TestQAESEncryption::padding()
{
    QFETCH(int, padding);
    QFETCH(int, length);
    QFETCH(QByteArray, added);
    QAESEncryption aes(
        QAESEncryption::AES_128, QAESEncryption::ECB, QAESEncryption::Padding(padding));
    QCOMPARE(aes.getPadding(length), added);
    const QByteArray plain(length, 'a');
    const QByteArray key = hex(key128);
    const QByteArray cipher = aes.encode(plain, key);
    QCOMPARE(cipher.size(), length + added.size());
    QCOMPARE(aes.decode(cipher, key), plain + added);
    QCOMPARE(aes.removePadding(aes.decode(cipher, key)), plain);
}

void TestQAESEncryption::removePadding_data()
{
    QTest::addColumn<int>("padding");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("result");
    const int zero = QAESEncryption::ZERO, pkcs7 = QAESEncryption::PKCS7, iso = QAESEncryption::ISO;
    QTest::newRow("ZERO strips every trailing zero")
        << zero << QByteArray("ab\0c\0\0\0", 7) << QByteArray("ab\0c", 4);
    QTest::newRow("ZERO all zero") << zero << QByteArray(16, '\0') << QByteArray();
    QTest::newRow("PKCS7 removes k bytes unchecked")
        << pkcs7 << QByteArray("abcdef\x03", 7) << QByteArray("abcd");
    QTest::newRow("PKCS7 byte 0 removes nothing")
        << pkcs7 << QByteArray("abc\0", 4) << QByteArray("abc\0", 4);
    QTest::newRow("PKCS7 byte 200 is negative, removes nothing")
        << pkcs7 << QByteArray("abc\xc8") << QByteArray("abc\xc8");
    QTest::newRow("PKCS7 count beyond length empties")
        << pkcs7 << QByteArray("ab\x05") << QByteArray();
    QTest::newRow("PKCS7 empty") << pkcs7 << QByteArray() << QByteArray();
    QTest::newRow("ISO marker") << iso << QByteArray("abc\x80\0\0", 6) << QByteArray("abc");
    QTest::newRow("ISO no marker keeps text")
        << iso << QByteArray("abc\0\0", 5) << QByteArray("abc\0\0", 5);
    QTest::newRow("ISO marker last") << iso << QByteArray("abc\x80") << QByteArray("abc");
}

void TestQAESEncryption::removePadding()
{
    QFETCH(int, padding);
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, result);
    QCOMPARE(QAESEncryption::RemovePadding(text, QAESEncryption::Padding(padding)), result);
}

void TestQAESEncryption::hardwareMatchesPortable()
{
    if (!QAESEncryption::hardwareAccelerationAvailable())
        QSKIP("this processor has no AES instructions: only the portable path exists");
    QRandomGenerator generator(20261122);
    for (int length = 0; length <= 5000; length += (length < 300 ? 1 : 37)) {
        QByteArray plain(length, Qt::Uninitialized);
        for (char &c : plain)
            c = char(generator.bounded(256));
        QByteArray key(32, Qt::Uninitialized);
        for (char &c : key)
            c = char(generator.bounded(256));
        QByteArray iv(16, Qt::Uninitialized);
        for (char &c : iv)
            c = char(generator.bounded(256));
        for (int level = 0; level < 3; ++level) {
            for (int mode = 0; mode < 4; ++mode) {
                const auto l = QAESEncryption::Aes(level);
                const auto m = QAESEncryption::Mode(mode);
                QAESEncryption::setHardwareAccelerationEnabled(false);
                const QByteArray portable
                    = QAESEncryption::Crypt(l, m, plain, key, iv, QAESEncryption::PKCS7);
                const QByteArray portableBack
                    = QAESEncryption::Decrypt(l, m, portable, key, iv, QAESEncryption::PKCS7);
                QAESEncryption::setHardwareAccelerationEnabled(true);
                const QByteArray hardware
                    = QAESEncryption::Crypt(l, m, plain, key, iv, QAESEncryption::PKCS7);
                const QByteArray hardwareBack
                    = QAESEncryption::Decrypt(l, m, portable, key, iv, QAESEncryption::PKCS7);
                QVERIFY2(portable == hardware,
                    qPrintable(QStringLiteral("length %1 level %2 mode %3")
                                   .arg(length)
                                   .arg(level)
                                   .arg(mode)));
                QCOMPARE(hardwareBack, portableBack);
                QCOMPARE(QAESEncryption::RemovePadding(hardwareBack, QAESEncryption::PKCS7), plain);
            }
        }
    }
}

void TestQAESEncryption::partialStreamBlocks()
{
    // CFB and OFB are stream modes: a ciphertext cut short still decrypts to its prefix.
    const QByteArray plain = hex(plainBlocks);
    for (bool hardware : paths()) {
        QAESEncryption::setHardwareAccelerationEnabled(hardware);
        for (int mode : { int(QAESEncryption::CFB), int(QAESEncryption::OFB) }) {
            QAESEncryption aes(
                QAESEncryption::AES_128, QAESEncryption::Mode(mode), QAESEncryption::ZERO);
            const QByteArray cipher = aes.encode(plain, hex(key128), hex(nistIv));
            QCOMPARE(aes.decode(cipher.left(37), hex(key128), hex(nistIv)), plain.left(37));
        }
    }
}

void TestQAESEncryption::decodeIgnoresTrailingPartialBlock()
{
    QAESEncryption aes(QAESEncryption::AES_128, QAESEncryption::CBC, QAESEncryption::PKCS7);
    const QByteArray key = hex(key128);
    const QByteArray iv = hex(nistIv);
    const QByteArray cipher = aes.encode(QByteArray(20, 'z'), key, iv);
    QCOMPARE(cipher.size(), 32);
    QCOMPARE(aes.decode(cipher + "abc", key, iv), aes.decode(cipher, key, iv));
    QVERIFY(aes.decode(QByteArray(15, 'q'), key, iv).isEmpty());
}

void TestQAESEncryption::randomIntegerBounds()
{
    QVector<int> seen(63, 0);
    for (int i = 0; i < 20000; ++i) {
        const int value = Random::integer(0, 61);
        QVERIFY(value >= 0 && value <= 61);
        ++seen[value];
    }
    for (int v = 0; v <= 61; ++v)
        QVERIFY2(seen[v] > 0, qPrintable(QString::number(v)));
    QCOMPARE(seen[62], 0);
}

void TestQAESEncryption::randomIntegerEqualBounds()
{
    QCOMPARE(Random::integer(7, 7), 7);
    QCOMPARE(Random::integer(-3, -3), -3);
    const uint32_t a = Random::generate();
    const uint32_t b = Random::generate();
    const uint32_t c = Random::generate();
    QVERIFY(a != b || b != c);
}

void TestQAESEncryption::encodeIntoAsEncode()
{
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f1011121314151617"
                                               "18191a1b1c1d1e1f");
    const QByteArray iv = QByteArray::fromHex("f0e0d0c0b0a090807060504030201000");
    for (int level = 0; level < 3; ++level) {
        for (int mode = 0; mode < 4; ++mode) {
            for (int padding = 0; padding < 3; ++padding) {
                const QAESEncryption aes { QAESEncryption::Aes(level), QAESEncryption::Mode(mode),
                    QAESEncryption::Padding(padding) };
                for (int size = 0; size <= 40; ++size) {
                    const QByteArray text(size, char('a' + size % 26));
                    const QByteArray expected = aes.encode(text, key, iv);
                    QCOMPARE(aes.encodedSize(size), expected.size());
                    QByteArray written(aes.encodedSize(size), '\0');
                    QVERIFY(aes.encodeInto(written.data(), text.constData(), size, key, iv));
                    QCOMPARE(written, expected);
                    // With the vector read where it lies (none for ECB).
                    written.fill('\0');
                    const char *at = mode == QAESEncryption::ECB ? nullptr : iv.constData();
                    QVERIFY(aes.encodeInto(written.data(), text.constData(), size, key, at));
                    QCOMPARE(written, expected);
                    // And with the key expanded beforehand.
                    written.fill('\0');
                    const QAESEncryption::ExpandedKey expanded(aes.level(), key);
                    QVERIFY(aes.encodeInto(written.data(), text.constData(), size, expanded, at));
                    QCOMPARE(written, expected);
                }
                char none[64];
                QVERIFY(
                    !aes.encodeInto(none, "abc", 3, QAESEncryption::ExpandedKey(), iv.constData()));
                if (mode != QAESEncryption::ECB) {
                    char out[64];
                    QVERIFY(!aes.encodeInto(out, "abc", 3, key, QByteArray("short")));
                    QVERIFY(
                        !aes.encodeInto(out, "abc", 3, key, static_cast<const char *>(nullptr)));
                }
            }
        }
    }
}

void TestQAESEncryption::removePaddingInPlaceAsCopy()
{
    for (int padding = 0; padding < 3; ++padding) {
        for (const QByteArray &text :
            { QByteArray(), QByteArray("abc\x03\x03\x03"), QByteArray("abc\x80\0\0", 6),
                QByteArray("ab\0\0", 4), QByteArray("x\xff"), QByteArray("\x10") }) {
            const auto kind = QAESEncryption::Padding(padding);
            const QByteArray copy = QAESEncryption::RemovePadding(text, kind);
            QByteArray moved = text;
            moved.detach();
            QCOMPARE(QAESEncryption::RemovePadding(std::move(moved), kind), copy);
        }
    }
}

void TestQAESEncryption::decodeIntoAsDecode()
{
    const QByteArray key = QByteArray::fromHex("2b7e151628aed2a6abf7158809cf4f3c"
                                               "762e7170f9cf4f3c2b7e151628aed2a6");
    const QByteArray iv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
    for (bool hardware : { false, true }) {
        QAESEncryption::setHardwareAccelerationEnabled(hardware);
        for (int level = 0; level < 3; ++level) {
            for (int mode = 0; mode < 4; ++mode) {
                const QAESEncryption aes { QAESEncryption::Aes(level), QAESEncryption::Mode(mode),
                    QAESEncryption::PKCS7 };
                const char *at = mode == QAESEncryption::ECB ? nullptr : iv.constData();
                // Whole blocks, partial ones and nothing; ciphertext or not, it is all bytes.
                for (int size = 0; size <= 70; ++size) {
                    QByteArray input(size, Qt::Uninitialized);
                    for (int i = 0; i < size; ++i)
                        input[i] = char(i * 37 + size);
                    const QByteArray expected = aes.decode(input, key, iv);
                    QByteArray written(size, '\0');
                    const int length
                        = aes.decodeInto(written.data(), input.constData(), size, key, at);
                    QCOMPARE(written.left(length), expected);
                    written.fill('\0');
                    const QAESEncryption::ExpandedKey expanded(aes.level(), key);
                    QCOMPARE(aes.decodeInto(written.data(), input.constData(), size, expanded, at),
                        length);
                    QCOMPARE(written.left(length), expected);
                }
                char none[32];
                QCOMPARE(aes.decodeInto(none, "0123456789abcdef", 16, QAESEncryption::ExpandedKey(),
                             iv.constData()),
                    0);
                if (mode != QAESEncryption::ECB) {
                    char out[32];
                    QCOMPARE(aes.decodeInto(out, "0123456789abcdef", 16, key, nullptr), 0);
                }
            }
        }
    }
}

QTEST_GUILESS_MAIN(TestQAESEncryption)
#include "tst_qaesencryption.moc"
