#include "PLXSQLite.h"
