#pragma once

#include <filesystem>
#include <string>

#include "transaction/work.h"

// Takes the support directory and the product. Makes the support directory and, in its `Backups`,
// the run directory. The name is the product, "-" and the time of `system_clock` in that clock's
// own ticks. Gives the path of the run directory.
// Fails with "Backup transaction already exists", like `safe`, or in the library's words.
std::filesystem::path openTx(const std::filesystem::path& support, const std::string& product);

// Copies each installed bundle to `verified-backup` in the run directory, and verifies the copy.
// Fails with "Backup verification failed", or like `target`, `copyTree` and `tree`.
void backup(const Work& work);
