#include "PLXSite.h"
