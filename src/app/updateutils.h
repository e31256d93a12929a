#pragma once

namespace UpdateUtils {
// Makes this platform's updater and installs it as Updater::instance().
void init();
} // namespace UpdateUtils
