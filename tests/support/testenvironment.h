#pragma once

#include <QString>

namespace TestEnvironment {
// Gives the test process the program's identity and a private, empty settings location.
// Call before anything reads settings (initTestCase).
void setUp();
// Empties the settings.
void clearSettings();
} // namespace TestEnvironment
