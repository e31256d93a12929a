#pragma once

#include <QDebug>

// An accessibility error code (AXError) as the debug stream writes it.
struct AXErrorTag
{
    int value = 0;
};

namespace AXErrors {
// The error's name and description; "<unknown error>" and "UNKNOWN ERROR" for other codes.
const char *name(int code);
const char *description(int code);
} // namespace AXErrors

// AXError(value=-25204, name=kAXErrorCannotComplete, description="...")
QDebug operator<<(QDebug debug, AXErrorTag error);
