#pragma once

#include "transaction/work.h"

// Writes the package's manifest as the new receipt beside the old one. Then moves the old one, if
// any, to `previous-receipt.sha256` in the transaction directory, and the new one into its place.
// Fails with "Stale transaction receipt preserved; contact support", "Cannot write receipt",
// "Receipt write failed", like `safe`, or in the library's words.
void writeReceipt(const Work& work);

// Moves the receipt, if any, to `removed-receipt.sha256` in the transaction directory.
// Fails in the library's words.
void removeReceipt(const Work& work);
