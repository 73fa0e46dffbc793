#pragma once

#include "transaction/work.h"

// Reverses the recorded moves, the last first: moves every new bundle to `failed` in the run
// directory, then every previous version back. Moves the old receipt back if there is no receipt at
// its path. A .tmp file stays. Fails like `target` or in the library's words, and then does nothing
// more.
void rollback(const Work& work, const Done& done);
