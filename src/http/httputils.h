#pragma once

#include <QByteArray>

class Http;

// The process-wide clients and texts of the web service.
namespace HttpUtils {
// A plain client with the program's User-Agent.
Http &notCached();
// A client over the on-disk cache "http" (fresh for 30 days, trimmed above 100 MiB).
Http &cached();
void clearCaches();
// The web service's base address, ending in "/velm-ws"; empty when none is configured, and then
// nothing is requested at all. Set by VELM_WS_BASE (whole), else by the setting "webService"
// (the host part), else by the build option VELM_WEB_SERVICE (the host part).
QByteArray wsBase();
const QByteArray &userAgent();
} // namespace HttpUtils
