#include "PLXStaticFile.h"
