#include "repair/history.h"

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/walk.h"
#include "transaction/backup.h"

namespace fs = std::filesystem;

// What an install has written is not older than the place of its copies. Nothing else tells of a
// bundle that came to where none stood.
static bool wrote(const fs::path& tx, const fs::path& path) {
    return stands(tx / "staged") && stands(path) &&
           oldest(path) >= fs::last_write_time(tx / "staged");
}

// Gives nothing for a transaction that changed nothing, or nothing any longer.
static std::optional<Transaction> examine(const History& history, const fs::path& tx) {
    Transaction found = {tx, !stands(tx / "staged"), {}, {}, {}, false, false};
    bool complete = true;  // every bundle has been moved as it had to be, and none back
    bool before = true;    // every bundle is as it was before
    for (const BundleKey& key : knownbundles(history.product, history.format)) {
        const fs::path dest = target(history.testRoot, key);
        const fs::path backup = tx / "verified-backup" / key;
        const bool left = stands(tx / "original" / key);
        const bool halfway = stands(tx / "staged" / key) || stands(tx / "failed" / key) ||
                             stands(tx / "repaired" / key);
        const bool came = !stands(backup) && !left && !halfway && wrote(tx, dest);
        if (left || came) found.moved.insert(key);
        if (left || came || halfway || stands(backup)) found.bundles.insert(key);
        complete = complete && !halfway && (left || !found.removal || !stands(backup));
        before = before && !came &&
                 (!left || (stands(dest) && ifwhole(tree, dest) == ifwhole(tree, backup)));
    }
    for (const char* const name : {"previous-receipt.sha256", "removed-receipt.sha256"})
        if (stands(tx / name)) found.oldReceipt = tx / name;
    found.newReceipt = !found.removal && stands(history.receipt) &&
                       (!found.oldReceipt.empty() || wrote(tx, history.receipt));
    if (found.moved.empty() && found.oldReceipt.empty() && !found.newReceipt) return {};
    before = before && found.oldReceipt.empty() && !found.newReceipt;
    complete = complete && (found.removal ? !stands(history.receipt) : found.newReceipt);
    found.interrupted = !before && !complete;
    return found;
}

History survey(const fs::path& testRoot, const std::string& product, const std::string& format) {
    const fs::path support = supportdir(testRoot);
    const fs::path receipt = receiptpath(support, product, format);
    History history = {testRoot, product, format, receipt, receipt.string() + ".tmp", {}, {}};
    for (const fs::path& tx : transactions(support, product, format)) {
        history.last = examine(history, tx);
        if (history.last) break;
        history.passed.push_back(tx);
    }
    return history;
}
