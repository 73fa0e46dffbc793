#pragma once

#include "transaction/work.h"

// Copies each bundle of the payload to `staged` in the run directory, and verifies the copy.
// Fails with "Stage verification failed", or like `copyTree` and `tree`.
void stage(const Work& work);
