#include "PLXListener.h"
