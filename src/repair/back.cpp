#include "repair/back.h"

#include <stdexcept>

#include "install/locations.h"
#include "install/unloaded.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/signals.h"
#include "transaction/move.h"

namespace fs = std::filesystem;

// Gives where the old bundle is to be had. Where its original is damaged and the old receipt
// vouches for the backup, that is the backup, or what a repair that was killed has put in place.
static fs::path proved(const fs::path& tx, const BundleKey& key, const fs::path& dest,
                       const Manifest& vouched) {
    fs::path original = tx / "original" / key;
    const fs::path backup = tx / "verified-backup" / key;
    const Manifest content = ifwhole(tree, original);
    if (!content.empty() && content == ifwhole(tree, backup)) return original;
    for (const fs::path& other : {backup, dest})
        if (!vouched.empty() && ifwhole(tree, other) == vouched) return other;
    throw std::runtime_error("Backup verification failed; " + original.string() +
                             (!content.empty() && content == vouched
                                  ? " is whole, the backup is not"
                                  : " and the backup differ"));
}

// What is in place goes aside, a .tmp file too, then the bundles come back, then the receipt.
static std::vector<Move> plan(const History& history, const Transaction& last) {
    const fs::path repaired = last.directory / "repaired";
    const bool receiptmoved = last.newReceipt || !last.oldReceipt.empty();
    const Manifest old = ifwhole(read, receiptmoved ? last.oldReceipt : history.receipt);
    std::vector<Move> moves;
    std::vector<Move> home;
    for (const BundleKey& key : last.moved) {
        const fs::path dest = target(history.testRoot, key);
        const fs::path original = last.directory / "original" / key;
        const bool left = stands(original) || stands(last.directory / "verified-backup" / key);
        const fs::path source = left ? proved(last.directory, key, dest, sub(old, key)) : "";
        unloaded(dest);
        if (source != dest && stands(dest)) moves.push_back({dest, repaired / key, {}});
        if (source != dest && left) home.push_back({source, dest, tree(source)});
        if (source != original && stands(original))
            home.push_back({original, repaired / "original" / key, {}});
    }
    if (receiptmoved && stands(history.receipt))
        moves.push_back({history.receipt, repaired / history.receipt.filename(), {}});
    if (stands(history.temporary))
        moves.push_back({history.temporary, repaired / history.temporary.filename(), {}});
    moves.insert(moves.end(), home.begin(), home.end());
    if (!last.oldReceipt.empty()) moves.push_back({last.oldReceipt, history.receipt, {}});
    return moves;
}

void goback(const History& history) {
    const bool stale = stands(history.temporary);
    std::vector<Move> moves;
    if (history.last && (history.last->interrupted || !stale)) {
        moves = plan(history, *history.last);
    } else if (stale) {
        if (!history.last && history.passed.empty())
            throw std::runtime_error("Stale transaction receipt preserved; contact support");
        const fs::path& tx =
            history.passed.empty() ? history.last->directory : history.passed.front();
        moves = {{history.temporary, tx / "repaired" / history.temporary.filename(), {}}};
    }
    holdends();
    moveall(moves);
}
