#include "repair/history.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

#include "install/locations.h"
#include "install/unloaded.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/signals.h"
#include "platform/walk.h"
#include "transaction/backup.h"
#include "transaction/move.h"

namespace fs = std::filesystem;

// What an install has written is not older than the place of its copies.
static bool wrote(const fs::path& tx, const fs::path& path) {
    return stands(path) && oldest(path) >= fs::last_write_time(tx / "staged");
}

// Where an install has found no bundle, its receipt tells if it brought one; else only the time. If
// a newer run has put the same there since, that of what this has put aside.
static bool standsnew(const History& history, const fs::path& tx, const BundleKey& key,
                      const Manifest& brought) {
    const fs::path dest = target(history.testRoot, key);
    if (!brought.empty()) return stands(dest) && !sub(brought, key).empty();
    const fs::path under = history.last ? history.last->directory / "original" / key : dest;
    return wrote(tx, stands(under) ? under : dest);
}

static bool standsin(const fs::path& tx, std::initializer_list<const char*> areas,
                     const BundleKey& key) {
    return std::any_of(areas.begin(), areas.end(),
                       [&](const char* area) { return stands(tx / area / key); });
}

// Gives whether the receipt in place is what the transaction wrote: none of its bundles is still
// staged, or was rolled back.
static bool ownreceipt(const History& history, const fs::path& tx,
                       const std::set<BundleKey>& known) {
    for (const BundleKey& key : known)
        if (standsin(tx, {"staged", "failed"}, key)) return false;
    return stands(tx / "staged") && stands(history.receipt) &&
           (stands(tx / "previous-receipt.sha256") || wrote(tx, history.receipt));
}

// Gives nothing for a transaction that changed nothing, or nothing any longer.
static std::optional<Transaction> examine(const History& history, const fs::path& tx) {
    const bool removal = !stands(tx / "staged");
    const char* const name = removal ? "removed-receipt.sha256" : "previous-receipt.sha256";
    const std::set<BundleKey> known = knownbundles(history.product, history.format);
    const bool own = ownreceipt(history, tx, known);
    Transaction found = {.directory = tx,
                         .removal = removal,
                         .oldReceipt = tx / name,
                         .newReceipt = own,
                         .receiptMoved = own || stands(tx / name),
                         .bundles = {},
                         .moved = {},
                         .before = true,
                         .interrupted = false};
    const Manifest brought = own ? readorempty(read, history.receipt) : Manifest();
    // What the run brought has gone aside ahead of its receipt.
    const bool aside = stands(tx / "repaired" / history.receipt.filename());
    bool complete = removal ? !stands(history.receipt) : own;
    for (const BundleKey& key : known) {
        const fs::path dest = target(history.testRoot, key);
        const fs::path backup = tx / "verified-backup" / key;
        const bool saved = stands(backup);
        const bool between =
            standsin(tx, {"staged", "failed", "repaired", "repaired/original"}, key);
        const Manifest content = readorempty(tree, dest);
        const bool asbefore = !content.empty() && content == readorempty(tree, backup);
        const bool left =
            stands(tx / "original" / key) || (saved && found.receiptMoved && !asbefore);
        const bool came =
            !removal && !saved && !between && !aside && standsnew(history, tx, key, brought);
        if (left || came) found.moved.insert(key);
        if (left || came || saved || between) found.bundles.insert(key);
        complete = complete && !between && (left || !removal || !saved);
        found.before = found.before && !came && (!left || asbefore);
    }
    if (found.moved.empty() && !found.receiptMoved) return {};
    found.before = found.before && !found.receiptMoved;
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

// Gives the move that brings the old bundle back. Where its original is damaged and the old receipt
// vouches for the backup, that moves, or what a repair that was killed has put in place stays.
static Move proved(const fs::path& tx, const BundleKey& key, const fs::path& dest,
                   const Manifest& vouched) {
    const fs::path original = tx / "original" / key;
    const fs::path backup = tx / "verified-backup" / key;
    const Manifest content = readorempty(tree, original);
    if (!content.empty() && content == readorempty(tree, backup)) return {original, dest, content};
    for (const fs::path& other : {backup, dest})
        if (!vouched.empty() && readorempty(tree, other) == vouched) return {other, dest, vouched};
    throw std::runtime_error("Backup verification failed; " + original.string() +
                             (!content.empty() && content == vouched
                                  ? " is whole, the backup is not"
                                  : " and the backup differ"));
}

// What is in place goes aside, a .tmp file too, then the bundles come back, then the receipt.
static std::vector<Move> plan(const History& history, const Transaction& last) {
    const fs::path repaired = last.directory / "repaired";
    const Manifest old = readorempty(read, last.receiptMoved ? last.oldReceipt : history.receipt);
    std::vector<Move> moves;
    std::vector<Move> home;
    for (const BundleKey& key : last.moved) {
        const fs::path dest = target(history.testRoot, key);
        const fs::path original = last.directory / "original" / key;
        const bool left = stands(original) || stands(last.directory / "verified-backup" / key);
        const Move back = left ? proved(last.directory, key, dest, sub(old, key)) : Move();
        unloaded(dest);
        if (back.from != dest) {
            moves.push_back({dest, repaired / key, {}});
            home.push_back(back);
        }
        if (back.from != original) home.push_back({original, repaired / "original" / key, {}});
    }
    if (last.receiptMoved)
        moves.push_back({history.receipt, repaired / history.receipt.filename(), {}});
    moves.push_back({history.temporary, repaired / history.temporary.filename(), {}});
    moves.insert(moves.end(), home.begin(), home.end());
    moves.push_back({last.oldReceipt, history.receipt, {}});
    std::erase_if(moves, [](const Move& move) { return !stands(move.from); });
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
    blockstops();
    moveall(moves);
}
