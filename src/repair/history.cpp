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
// NOLINTNEXTLINE(readability-function-cognitive-complexity): one state, told by many places
static std::optional<Transaction> examine(const History& history, const fs::path& tx) {
    const std::set<BundleKey> known = knownbundles(history.product, history.format);
    Transaction found = {tx, !stands(tx / "staged"), {}, {}, {}, false, true, false};
    for (const char* const name : {"previous-receipt.sha256", "removed-receipt.sha256"})
        if (stands(tx / name)) found.oldReceipt = tx / name;
    const fs::path repaired = tx / "repaired";
    bool complete = true;  // every bundle has been moved as it had to be, and none back
    // Behind all bundles that go aside come the receipts, and only then do old bundles come back.
    bool aside = stands(repaired / history.receipt.filename()) ||
                 stands(repaired / history.temporary.filename());
    for (const BundleKey& key : known) {
        complete = complete && !stands(tx / "staged" / key) && !stands(tx / "failed" / key);
        aside = aside || (stands(repaired / key) && stands(tx / "verified-backup" / key) &&
                          !stands(tx / "original" / key));
    }
    found.newReceipt = complete && !found.removal && stands(history.receipt) &&
                       (!found.oldReceipt.empty() || wrote(tx, history.receipt));
    const bool receiptmoved = found.newReceipt || !found.oldReceipt.empty();
    const Manifest brought = found.newReceipt ? ifwhole(read, history.receipt) : Manifest();
    for (const BundleKey& key : known) {
        const fs::path dest = target(history.testRoot, key);
        const fs::path backup = tx / "verified-backup" / key;
        const bool halfway =
            stands(tx / "staged" / key) || stands(tx / "failed" / key) || stands(repaired / key);
        const bool saved = stands(backup);
        const bool asbefore = saved && stands(dest) && ifwhole(tree, dest) == ifwhole(tree, backup);
        const bool left =
            stands(tx / "original" / key) || (saved && receiptmoved && !halfway && !asbefore);
        const bool came =
            !saved && !left && !halfway && !aside &&
            (found.newReceipt ? !sub(brought, key).empty() && stands(dest) : wrote(tx, dest));
        if (left || came) found.moved.insert(key);
        if (left || came || halfway || saved) found.bundles.insert(key);
        complete = complete && !halfway && (left || !found.removal || !saved);
        found.before = found.before && !came && (!left || asbefore);
    }
    if (found.moved.empty() && !receiptmoved) return {};
    found.before = found.before && !receiptmoved;
    complete = complete && (found.removal ? !stands(history.receipt) : found.newReceipt);
    found.interrupted = !found.before && !complete;
    return found;
}

History survey(const fs::path& testRoot, const std::string& product, const std::string& format) {
    const fs::path support = supportdir(testRoot);
    const fs::path receipt = receiptpath(support, product, format);
    History history = {testRoot, product, format, receipt, receipt.string() + ".tmp", {}, {}};
    for (const fs::path& tx : transactions(support, product, format)) {
        const std::optional<Transaction> found = examine(history, tx);
        if (!history.last && !found) history.passed.push_back(tx);
        if (!found) continue;
        if (!history.last) history.last = found;
        // Where it has left all as before, what was before may itself be interrupted.
        history.last->interrupted = found->interrupted;
        if (!found->before) break;
    }
    return history;
}
