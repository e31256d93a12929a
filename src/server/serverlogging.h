#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcServer)
Q_DECLARE_LOGGING_CATEGORY(lcZeroConf)
