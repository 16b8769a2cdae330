#include "PLXServer.h"
