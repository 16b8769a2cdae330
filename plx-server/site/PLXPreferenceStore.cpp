#include "PLXPreferenceStore.h"
