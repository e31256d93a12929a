// Any text, read as a request both ways: the one-pass reading must agree with Qt's parser on
// what is accepted and on every value, or the fuzzer stops.

#include "json.h"
#include "request.h"

#include <QJsonObject>
#include <QJsonParseError>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), int(size));
    const QJsonDocument document = Json::parse(text);
    Request request;
    if (request.read(text) == document.isNull())
        abort();
    if (document.isNull())
        return 0;
    const QJsonObject expected = document.object();
    if (request.toObject() != expected || request.size() != expected.size())
        abort();
    // Looked up as a handler would in Qt's object (whose look-up misses keys holding NUL).
    for (auto it = expected.constBegin(); it != expected.constEnd(); ++it) {
        const QJsonValue value = request.value(it.key());
        const QJsonValue wanted = expected.value(it.key());
        if (value != wanted || value.toVariant() != wanted.toVariant()
            || value.toVariant().userType() != wanted.toVariant().userType()
            || request.string(it.key()) != wanted.toString())
            abort();
    }
    if (request.method() != expected.value(QStringLiteral("_")).toString())
        abort();
    return 0;
}
