#pragma once

#include <filesystem>
#include <string>

#include "transaction/work.h"

// Takes the support directory and the product. Makes the support directory and in it the
// transaction directory of this run, named by the product and the count of `system_clock` in that
// clock's own ticks. Gives the path of the latter.
// Fails with "Backup transaction already exists", like `safe`, or in the library's words.
std::filesystem::path openTx(const std::filesystem::path& support, const std::string& product);

// Copies each captured bundle from its destination to `verified-backup` in the transaction
// directory, and proves the copy.
// Fails with "Backup verification failed", or like `target`, `copyTree` and `tree`.
void backup(const Work& work);
