#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcLinux)
Q_DECLARE_LOGGING_CATEGORY(lcLinuxIdle)
