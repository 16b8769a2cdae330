#include "PLXLog.h"
