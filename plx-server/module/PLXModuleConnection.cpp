#include "PLXModuleHost.h"
