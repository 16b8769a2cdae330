#include "PLXForms.h"
