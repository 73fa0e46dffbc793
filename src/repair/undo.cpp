#include "repair/undo.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "install/unloaded.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/again.h"
#include "platform/signals.h"
#include "repair/state.h"
#include "transaction/move.h"

namespace fs = std::filesystem;

// A rename, and the content that must be read back after it; empty: nothing is read back.
struct Move {
    fs::path from;
    fs::path to;
    Manifest content = {};
};

static void checkWritable(const fs::path& path) {
    const int rights = fs::is_directory(path) ? W_OK | X_OK : W_OK;
    if (again([&] { return ::access(path.c_str(), rights); }) != 0)
        throw fs::filesystem_error("cannot write", path, {errno, std::generic_category()});
}

// Returns if each destination is free, or will be by then, and no lock or right prevents a move.
static void check(const std::vector<Move>& moves) {
    std::set<fs::path> freed;
    for (const Move& move : moves) {
        fs::path above = move.to;
        while (freed.contains(above) || !stands(above)) above = above.parent_path();
        if (above == move.to || !fs::is_directory(above))
            throw std::runtime_error("New destination appeared; " + above.string());
        for (const fs::path& path : {above, move.from, move.from.parent_path()})
            checkWritable(path);
        freed.insert(move.from);
    }
}

static void carryOut(const std::vector<Move>& moves) {
    for (const Move& move : moves) {
        moveTo(move.from, move.to);
        if (!move.content.empty() && contentOf(move.to) != move.content)
            throw std::runtime_error("Installed readback mismatch; " + move.to.string());
    }
}

// Gives the manifest of the last run's own receipt. It is empty if that run was a removal, which
// neither replaces a receipt nor stages a bundle.
static Manifest ownReceipt(const State& state, const Run& last) {
    const bool replaced = last.moved.present && !last.removal;
    if (!replaced && !stands(last.directory / "staged")) return {};
    if (replaced && state.receipt.present && state.receipt.manifest != last.moved.manifest)
        return state.receipt.manifest;
    return receiptAt(state.temporary).manifest;
}

// Gives the content of an original, which must match its backup or the old receipt.
static Manifest verified(const fs::path& original, const fs::path& backup, const Manifest& listed) {
    const std::optional<Manifest> content = contentOf(original);
    if (!content || (content != listed && content != contentOf(backup)))
        throw std::runtime_error("Backup verification failed; " + original.string());
    return *content;
}

// Gives the moves that undo the last run, except the move of an unfinished receipt.
static std::vector<Move> plan(const State& state, const Run& last) {
    const fs::path repaired = last.directory / "repaired";
    const Manifest& old = last.moved.present ? last.moved.manifest : state.receipt.manifest;
    const Manifest own = ownReceipt(state, last);
    std::vector<Move> moves;
    std::vector<Move> back;
    for (const Bundle& bundle : state.bundles) {
        const fs::path original = last.directory / "original" / bundle.key;
        const fs::path backup = last.directory / "verified-backup" / bundle.key;
        const bool returns = stands(original);
        if (!returns && (stands(backup) || sub(own, bundle.key).empty())) continue;
        if (stands(bundle.place)) {
            if (fs::is_directory(bundle.place)) unloaded(bundle.place);
            moves.insert(moves.begin(), {bundle.place, repaired / bundle.key});
        }
        if (returns)
            back.push_back(
                {original, bundle.place, verified(original, backup, sub(old, bundle.key))});
    }
    moves.insert(moves.end(), back.begin(), back.end());
    if (!last.moved.present) return moves;
    if (state.receipt.present)
        moves.push_back({state.receipt.path, repaired / state.receipt.path.filename()});
    moves.push_back({last.moved.path, state.receipt.path});
    return moves;
}

static bool undoRun(const fs::path& testRoot, const State& state, const Run& run) {
    if (run.holds && run.name != state.last->name)
        throw std::runtime_error("Undo this run first: " + state.last->name);
    if (run.holds && state.over)
        throw std::runtime_error("A later run replaced what it left: " + run.name);
    const std::vector<Move> moves = run.holds ? plan(state, run) : std::vector<Move>();
    const Move last = {state.temporary, run.directory / "repaired" / state.temporary.filename()};
    check(moves);
    if (run.holds && state.unfinished && !stands(last.to)) check({last});
    blockStops();
    carryOut(moves);
    const State now = stateOf(testRoot, state.product, state.format);
    // An older interrupted run needs the file, because it lists the bundles of that run.
    if (!now.unfinished || now.interrupted || stands(last.to)) return !moves.empty();
    check({last});
    carryOut({last});
    return true;
}

bool undo(const fs::path& testRoot, const std::string& name) {
    bool found = false;
    bool moved = false;
    for (const State& state : survey(testRoot))
        for (const Run& run : state.runs) {
            if (run.name != name) continue;
            found = true;
            moved = undoRun(testRoot, state, run) || moved;
        }
    if (!found) throw std::runtime_error("No such run: " + name);
    return moved;
}
