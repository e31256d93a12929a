#pragma once
#define __MAC_NA 9999
#define __IPHONE_NA 99999
#define __TVOS_NA 99999
#define __WATCHOS_NA 99999
#define __MAC_10_15 101500
// The oldest system the bundle runs on (LSMinimumSystemVersion).
#define __MAC_OS_X_VERSION_MIN_REQUIRED __MAC_10_15
#define __MAC_OS_X_VERSION_MAX_ALLOWED 140000
