#include "repair/history.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <stdexcept>

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/walk.h"

namespace fs = std::filesystem;
using Clock = std::chrono::system_clock;

// Gives when a file, or the oldest file of a bundle, was written. The age of a directory says
// nothing: it changes where somebody only looks.
static Time written(const fs::path& path) {
    Time oldest = Time::max();
    const auto take = [&](const fs::path& file) {
        const auto time = std::chrono::file_clock::to_sys(fs::last_write_time(file));
        oldest = std::min(oldest, std::chrono::time_point_cast<Clock::duration>(time));
    };
    if (!fs::is_directory(path)) take(path);
    if (oldest != Time::max()) return oldest;
    walk(path, false, [&](const Entry& entry) {
        if (entry.type == fs::file_type::regular) take(entry.path);
    });
    return oldest;
}

// The format is not in the name of a run's directory.
static bool holds(const fs::path& directory, const std::string& format) {
    for (const char* const area : {"verified-backup", "staged", "original"})
        if (stands(directory / area / format)) return true;
    const Manifest removed = readorempty(read, directory / "removed-receipt.sha256");
    return !removed.empty() && removed.begin()->first.starts_with(format + '/');
}

using Runs = std::map<Time, fs::path, std::greater<>>;

static Runs runsof(const fs::path& backups, const std::string& product, const std::string& format) {
    Runs runs;
    if (!stands(backups)) return runs;
    const std::string prefix = product + '-';
    for (const std::string& name : names(backups)) {
        Clock::rep ticks = 0;
        const char* const end = name.data() + name.size();
        if (!name.starts_with(prefix)) continue;
        const auto [rest, error] = std::from_chars(name.data() + prefix.size(), end, ticks);
        if (rest == end && error == std::errc() && holds(backups / name, format))
            runs.emplace(Clock::duration(ticks), backups / name);
    }
    if (!runs.empty() && runs.begin()->first > Clock::now())
        throw std::runtime_error("Run lies in the future; check the clock: " +
                                 runs.begin()->second.string());
    return runs;
}

static Bundle find(const History& history, const fs::path& directory, const BundleKey& key) {
    const auto in = [&](const char* area) { return stands(directory / area / key); };
    const fs::path place = target(history.testRoot, key);
    const fs::path backup = directory / "verified-backup" / key;
    return {.key = key,
            .place = place,
            .original = directory / "original" / key,
            .backup = backup,
            .now = readorempty(tree, place),
            .saved = readorempty(tree, backup),
            .waiting = in("staged") || in("failed"),
            .aside = in("repaired") || in("repaired/original")};
}

// Gives whether what a receipt says of a bundle, and when it was written, fits the run's own.
static bool fits(const Run& run, const Bundle& bundle, const Manifest& receipt, Time when) {
    const Manifest listed = sub(receipt, bundle.key);
    const fs::path repaired = run.directory / "repaired" / bundle.key;
    const fs::path& brought = stands(repaired) ? repaired : bundle.place;
    if (stands(bundle.backup) && (listed.empty() || readorempty(tree, brought) != listed))
        return false;
    if (!stands(brought)) return true;
    const Time came = written(brought);
    if (when < run.start) return came <= when;
    return !listed.empty() || receipt.empty() || came < run.start || came > when;
}

static bool isown(const History& history, const Run& run) {
    if (run.removal || !stands(history.receipt) ||
        stands(run.directory / "repaired" / history.receipt.filename()))
        return false;
    for (const Bundle& bundle : run.bundles)
        if (bundle.waiting) return false;
    if (stands(run.oldReceipt)) return true;
    const Time when = written(history.receipt);
    const Manifest receipt = readorempty(read, history.receipt);
    return when >= run.earliest &&
           std::all_of(run.bundles.begin(), run.bundles.end(),
                       [&](const Bundle& bundle) { return fits(run, bundle, receipt, when); });
}

// Gives whether the run brought what is in place of a bundle where nothing stood. The receipt is
// its own or, where that is not in place, the old one.
static bool camewith(const History& history, const Run& run, const Bundle& bundle,
                     const fs::path& receipt) {
    if (run.removal || stands(bundle.backup) || !stands(bundle.place) ||
        stands(run.directory / "repaired" / history.receipt.filename()))
        return false;
    const Manifest content = readorempty(read, receipt);
    const Manifest listed = sub(content, bundle.key);
    if (run.ownReceipt && !content.empty()) return !listed.empty();
    return written(bundle.place) >= run.earliest && (listed.empty() || listed != bundle.now);
}

// Gives nothing for a run that has changed nothing, or nothing any longer.
static std::optional<Run> examine(const History& history, const fs::path& directory, Time start,
                                  Time earliest) {
    const fs::path previous = directory / "previous-receipt.sha256";
    const fs::path removed = directory / "removed-receipt.sha256";
    Run run = {directory, start, earliest, !stands(directory / "staged") && !stands(previous),
               previous,  {}};
    for (const BundleKey& key : knownbundles(history.product, history.format)) {
        run.bundles.push_back(find(history, directory, key));
        // Where its empty directories were tidied away, an install is told by what it brought.
        const Bundle& bundle = run.bundles.back();
        if (stands(bundle.original) && stands(bundle.place) && !stands(removed))
            run.removal = false;
    }
    if (run.removal) run.oldReceipt = removed;
    run.ownReceipt = isown(history, run);
    run.receiptMoved = run.ownReceipt || stands(run.oldReceipt);
    const fs::path& receipt =
        run.ownReceipt || !run.receiptMoved ? history.receipt : run.oldReceipt;
    bool moved = run.receiptMoved;
    bool complete = run.removal ? !stands(history.receipt) : run.ownReceipt;
    // Bundles come in key order, and go in the other.
    bool earlier = false;
    for (Bundle& bundle : run.bundles) {
        const bool same = !bundle.now.empty() && bundle.now == bundle.saved;
        earlier = earlier || bundle.waiting || bundle.aside;
        bundle.taken =
            stands(bundle.original) || (stands(bundle.backup) && run.receiptMoved && !same);
        bundle.brought = !bundle.taken && !earlier && camewith(history, run, bundle, receipt);
        moved = moved || bundle.taken || bundle.brought;
        run.asBefore = run.asBefore && !bundle.brought && (!bundle.taken || same);
        complete = complete && !bundle.waiting && !bundle.aside &&
                   (!run.removal || bundle.taken || !stands(bundle.backup));
    }
    if (!moved) return {};
    run.asBefore = run.asBefore && !run.receiptMoved;
    run.interrupted = !run.asBefore && !complete;
    return run;
}

History survey(const fs::path& testRoot, const std::string& product, const std::string& format) {
    const fs::path support = supportdir(testRoot);
    const fs::path receipt = receiptpath(support, product, format);
    History history = {testRoot, product, format, receipt, receipt.string() + ".tmp", {}, {}, {}};
    const Runs runs = runsof(support / "Backups", product, format);
    if (!runs.empty()) history.newest = runs.begin()->second;
    for (auto place = runs.begin(); place != runs.end();) {
        const auto& [start, directory] = *place++;
        const Time earliest = start - std::chrono::seconds(1);
        const Time older = place == runs.end() ? earliest : place->first;
        const std::optional<Run> run =
            examine(history, directory, start, std::max(earliest, older));
        if (!history.last && !run) history.passed.push_back(directory);
        if (!run) continue;
        if (!history.last) history.last = run;
        // Where it has left all as before, what was before may itself be interrupted.
        history.last->interrupted = run->interrupted;
        if (!run->asBefore) break;
    }
    return history;
}
