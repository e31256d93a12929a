#pragma once

class Platform;
class QObject;

// The platform of this build (Linux or macOS).
Platform *createPlatform(QObject *parent);
