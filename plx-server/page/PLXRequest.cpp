#include "PLXRequest.h"
