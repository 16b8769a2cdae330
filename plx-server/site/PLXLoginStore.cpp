#include "PLXLoginStore.h"
