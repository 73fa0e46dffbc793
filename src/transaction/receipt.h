#pragma once

#include "transaction/work.h"

// Writes the package's manifest to the receipt's .tmp file. Then moves the old receipt, if any, to
// `previous-receipt.sha256` in the run directory, and the .tmp file to the receipt's path.
// Fails with "Stale transaction receipt preserved; contact support", "Cannot write receipt",
// "Receipt write failed", like `safe`, or in the library's words.
void writeReceipt(const Work& work);

// Moves the receipt, if any, to `removed-receipt.sha256` in the run directory.
// Fails in the library's words.
void removeReceipt(const Work& work);
