#include "platformfactory.h"

#include "macplatform.h"

Platform *createPlatform(QObject *parent) { return new MacPlatform(parent); }
