#include "platformfactory.h"

#include "noneplatform.h"

Platform *createPlatform(QObject *parent) { return new NonePlatform(parent); }
