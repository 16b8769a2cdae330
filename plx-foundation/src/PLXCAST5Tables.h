#pragma once

#include "PLXTypes.h"

// The substitution boxes S1 to S8 of CAST-128.
extern PLXUInt32 const kPLXCAST5SBoxes[8][256];
