#pragma once

#include <QLatin1String>

namespace Constants {
namespace detail {
template<int N>
constexpr QLatin1String latin1(const char (&text)[N])
{
    return QLatin1String(text, N - 1);
}
} // namespace detail

inline constexpr QLatin1String NAME = detail::latin1("Velm Server");
inline constexpr QLatin1String UNIX_NAME = detail::latin1("velm-server");
inline constexpr QLatin1String VERSION = detail::latin1("1.5");
inline constexpr QLatin1String ORG_NAME = detail::latin1("Velm");
inline constexpr QLatin1String ORG_DOMAIN = detail::latin1("velm.app");
inline constexpr QLatin1String WEBSITE = detail::latin1("https://velm.app");
} // namespace Constants
