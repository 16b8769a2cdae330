#include "PLXConfiguration.h"
