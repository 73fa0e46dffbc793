#include "repair/back.h"

#include <set>
#include <stdexcept>

#include "install/unloaded.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/file.h"
#include "platform/signals.h"
#include "transaction/move.h"

namespace fs = std::filesystem;

// A rename, and what has to be read back of a bundle after it; empty when nothing has.
struct Move {
    fs::path from;
    fs::path to;
    Manifest proof;
};

// Gives the move that brings the old bundle back: the original or, where that is damaged and the
// old receipt vouches for it, the backup.
static Move proved(const Bundle& bundle, const Manifest& vouched) {
    const Manifest content = readOrEmpty(tree, bundle.original);
    if (same(content, bundle.inBackup)) return {bundle.original, bundle.place, content};
    if (same(vouched, bundle.inBackup)) return {bundle.backup, bundle.place, vouched};
    throw std::runtime_error(
        "Backup verification failed; " + bundle.original.string() +
        (same(content, vouched) ? " is whole, the backup is not" : " and the backup differ"));
}

// What is in place moves to `repaired`, the last bundle first, then the receipt; then the bundles
// come back, then the old receipt. Not all of these places need to hold something.
static std::vector<Move> plan(const Run& run, const fs::path& receipt) {
    const fs::path repaired = run.directory / "repaired";
    const Manifest old = readOrEmpty(read, run.receiptMoved ? run.oldReceipt : receipt);
    std::vector<Move> moves;
    std::vector<Move> back;
    for (const Bundle& bundle : run.bundles) {
        if (!bundle.movedOut && !bundle.movedIn) continue;
        if (bundle.movedOut) {
            const Move returned = proved(bundle, sub(old, bundle.key));
            if (returned.from == bundle.backup)
                back.push_back({bundle.original, repaired / "original" / bundle.key, {}});
            back.push_back(returned);
        }
        unloaded(bundle.place);
        moves.insert(moves.begin(), {bundle.place, repaired / bundle.key, {}});
    }
    if (run.receiptMoved) moves.push_back({receipt, repaired / receipt.filename(), {}});
    moves.insert(moves.end(), back.begin(), back.end());
    moves.push_back({run.oldReceipt, receipt, {}});
    return moves;
}

void goBack(const History& history) {
    const bool stale = stands(history.temporary);
    if (stale && history.newest.empty())
        throw std::runtime_error("Stale transaction receipt preserved; contact support");
    blockStops();
    std::vector<Move> moves;
    if (history.last && (history.last->interrupted || !stale))
        moves = plan(*history.last, history.receipt);
    moves.push_back(
        {history.temporary, history.newest / "repaired" / history.temporary.filename(), {}});
    std::erase_if(moves, [](const Move& move) { return !stands(move.from); });
    // Before the first move, each place is free, or will be by then, and each move is possible.
    std::set<fs::path> freed;
    for (const auto& [from, to, proof] : moves) {
        fs::path above = to;
        while (freed.contains(above) || !stands(above)) above = above.parent_path();
        if (above == to || !fs::is_directory(above))
            throw std::runtime_error("New destination appeared; " + above.string());
        checkRename(from, above);
        freed.insert(from);
    }
    for (const auto& [from, to, proof] : moves) {
        moveTo(from, to);
        if (!proof.empty() && tree(to) != proof)
            throw std::runtime_error("Installed readback mismatch");
    }
}
