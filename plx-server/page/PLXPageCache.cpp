#include "PLXPage.h"
