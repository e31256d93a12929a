#pragma once

#include <QLatin1String>

namespace Constants {
inline constexpr QLatin1String NAME("Velm Server");
inline constexpr QLatin1String UNIX_NAME("velm-server");
inline constexpr QLatin1String VERSION("1.5");
inline constexpr QLatin1String ORG_NAME("Velm");
inline constexpr QLatin1String ORG_DOMAIN("velm.app");
inline constexpr QLatin1String WEBSITE("https://velm.app");
} // namespace Constants
