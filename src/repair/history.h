#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "package/identity.h"

// A transaction that has moved something and was not given back, as it now stands on disk.
struct Transaction {
    std::filesystem::path directory;
    bool removal;                      // else an install
    std::filesystem::path oldReceipt;  // the place of the receipt that it moves away
    bool newReceipt;                   // the receipt in place is its own
    bool receiptMoved;                 // so it is, or the old one is at that place
    std::set<BundleKey> bundles;       // those of its package, as far as anything tells
    std::set<BundleKey> moved;         // those that it moved away or brought to where none stood
    bool before;                       // what stands equals what stood before
    bool interrupted;                  // what stands is neither its end nor what stood before,
                                       // or is what stood before and an older one left that so
};

// One product in one format, as it now stands on disk.
struct History {
    std::filesystem::path testRoot;
    std::string product;
    std::string format;
    std::filesystem::path receipt;
    std::filesystem::path temporary;            // the receipt's .tmp file
    std::vector<std::filesystem::path> passed;  // transactions newer than the last, newest first
    std::optional<Transaction> last;            // the newest that is not given back
};

// Takes the test root, a product and a format, and gives what the disk tells of them.
// Fails like `supportdir` and `stands`, or in the library's words.
History survey(const std::filesystem::path& testRoot, const std::string& product,
               const std::string& format);

// Goes back to what stood before the last transaction; where nothing is interrupted but by a .tmp
// file, only moves that. Everything is proved before anything moves.
// Fails with "Backup verification failed; " and the original, "Stale transaction receipt
// preserved; contact support" where no transaction is left, or like `unloaded` and `moveall`.
void goback(const History& history);
