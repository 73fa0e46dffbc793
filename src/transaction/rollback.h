#pragma once

#include "transaction/work.h"

// Undoes what the commit has done, the last first: moves every new bundle to `failed` in the
// transaction directory, then every old one back. The old receipt comes back if nothing stands in
// its place; what stands there is never replaced, and a .tmp file stays.
// Fails like `target` or in the library's words, and then stops where it is.
void rollback(const Work& work, const Done& done);
