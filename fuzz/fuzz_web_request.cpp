// Arbitrary request heads on the listening port: told apart from WebSocket upgrades and answered
// with a well-formed response that never names anything but the remote's files.

#include "webremote.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray head(reinterpret_cast<const char *>(data), int(size));
    WebRemote::isUpgrade(head);
    const QByteArray response = WebRemote::respond(head);
    if (!response.startsWith("HTTP/1.1 ") || !response.contains("\r\n\r\n")
        || !response.contains("X-Content-Type-Options: nosniff\r\n"))
        abort();
    const int status = response.mid(9, 3).toInt();
    if (status != 200 && status != 304 && status != 400 && status != 404 && status != 405)
        abort();
    return 0;
}
