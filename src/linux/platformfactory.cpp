#include "platformfactory.h"

#include "linuxplatform.h"

Platform *createPlatform(QObject *parent) { return new LinuxPlatform(parent); }
