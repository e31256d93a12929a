#include "fileservices.h"

FileServices::~FileServices() = default;
