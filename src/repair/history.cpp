#include "repair/history.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <functional>
#include <map>
#include <stdexcept>

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "platform/walk.h"

namespace fs = std::filesystem;
using Time = fs::file_time_type;
using Clock = std::chrono::system_clock;
using Runs = std::map<Time, fs::path, std::greater<>>;  // by the time in their names

bool same(const Manifest& one, const Manifest& other) {
    return !one.empty() && one == other;
}

// Gives when a file, or the oldest file of a bundle, was written.
static Time written(const fs::path& path) {
    if (!fs::is_directory(path)) return fs::last_write_time(path);
    Time oldest = Time::max();
    walk(path, false, [&](const Entry& entry) {
        if (entry.type == fs::file_type::regular)
            oldest = std::min(oldest, fs::last_write_time(entry.path));
    });
    return oldest;
}

// The format is not in the name of a run's directory.
static bool holds(const fs::path& directory, const std::string& format) {
    for (const char* const area : {"verified-backup", "staged", "original"})
        if (stands(directory / area / format)) return true;
    const Manifest removed = readOrEmpty(read, directory / "removed-receipt.sha256");
    return !removed.empty() && removed.begin()->first.starts_with(format + '/');
}

static Runs runsOf(const fs::path& backups, const History& history) {
    Runs runs;
    if (!stands(backups)) return runs;
    const std::string prefix = history.product + '-';
    for (const std::string& name : names(backups)) {
        if (!name.starts_with(prefix)) continue;
        Clock::rep ticks = 0;
        const char* const end = name.data() + name.size();
        const auto [rest, error] = std::from_chars(name.data() + prefix.size(), end, ticks);
        if (rest != end || error != std::errc() || !holds(backups / name, history.format)) continue;
        runs.emplace(Time::clock::from_sys(Clock::time_point(Clock::duration(ticks))),
                     backups / name);
    }
    if (!runs.empty() && runs.begin()->first > Time::clock::now())
        throw std::runtime_error("Run lies in the future; check the clock: " +
                                 runs.begin()->second.string());
    return runs;
}

// The table of the receipt: gives whether the one in place is the run's own.
static bool isOwn(const History& history, const Run& run) {
    if (run.removal || !stands(history.receipt) ||
        stands(run.directory / "repaired" / history.receipt.filename()))
        return false;
    for (const Bundle& bundle : run.bundles)
        if (bundle.notInstalled) return false;
    if (stands(run.oldReceipt)) return true;
    const Time when = written(history.receipt);
    if (when < run.earliest) return false;
    for (const Bundle& bundle : run.bundles) {
        fs::path brought = run.directory / "repaired" / bundle.key;
        if (!stands(brought)) brought = bundle.place;
        if (stands(bundle.backup) && !same(bundle.listed, readOrEmpty(tree, brought))) return false;
        if (!stands(brought)) continue;
        const Time came = written(brought);
        if (when < run.start && came > when) return false;
        if (bundle.listed.empty() && !history.damaged && came >= run.start && came <= when)
            return false;
    }
    return true;
}

// The table of the bundle: sets what the run has moved. `earlier` tells whether this bundle, or one
// before it in key order, was not installed or is taken back.
static void judge(const History& history, const Run& run, bool earlier, Bundle& bundle) {
    const fs::path repaired = run.directory / "repaired";
    // Where it is in `original` no longer, one of these tells that the run had moved it out.
    const bool hadMoved = run.receiptMoved || stands(repaired / "original" / bundle.key);
    bundle.movedOut = stands(bundle.original) ||
                      (hadMoved && stands(bundle.backup) && !same(bundle.inPlace, bundle.inBackup));
    if (bundle.movedOut) {
        bundle.movedIn = !bundle.notInstalled && !bundle.takenBack && !run.removal;
    } else if (!stands(bundle.backup) && !earlier && !run.removal && stands(bundle.place) &&
               !stands(repaired / history.receipt.filename())) {
        const Manifest before =
            run.receiptMoved ? sub(readOrEmpty(read, run.oldReceipt), bundle.key) : bundle.listed;
        bundle.movedIn =
            run.ownReceipt && !history.damaged
                ? !bundle.listed.empty()
                : written(bundle.place) >= run.earliest && !same(bundle.inPlace, before);
    }
}

// Gives nothing for a run that has changed nothing, or nothing any longer.
static std::optional<Run> examine(const History& history, const fs::path& directory, Time start,
                                  Time earliest) {
    const fs::path removed = directory / "removed-receipt.sha256";
    Run run = {directory, start, earliest, directory / "previous-receipt.sha256", history.bundles};
    run.removal = !stands(directory / "staged") && !stands(run.oldReceipt);
    for (Bundle& bundle : run.bundles) {
        const auto in = [&](const char* area) { return stands(directory / area / bundle.key); };
        bundle.original = directory / "original" / bundle.key;
        bundle.backup = directory / "verified-backup" / bundle.key;
        bundle.inBackup = readOrEmpty(tree, bundle.backup);
        bundle.notInstalled = in("staged") || in("failed");
        bundle.takenBack = in("repaired") || in("repaired/original");
        // Where its empty directories were tidied away, an install is told by what it brought.
        if (stands(bundle.original) && stands(bundle.place) && !stands(removed))
            run.removal = false;
    }
    if (run.removal) run.oldReceipt = removed;
    run.ownReceipt = isOwn(history, run);
    run.receiptMoved = run.ownReceipt || stands(run.oldReceipt);
    run.asBefore = !run.receiptMoved;
    bool moved = run.receiptMoved;
    bool complete = run.removal ? !stands(history.receipt) : run.ownReceipt;
    bool earlier = false;
    for (Bundle& bundle : run.bundles) {
        earlier = earlier || bundle.notInstalled || bundle.takenBack;
        judge(history, run, earlier, bundle);
        moved = moved || bundle.movedOut || bundle.movedIn;
        run.asBefore = run.asBefore &&
                       (bundle.movedOut ? same(bundle.inPlace, bundle.inBackup) : !bundle.movedIn);
        complete = complete && (!run.removal || bundle.movedOut || !stands(bundle.backup));
    }
    if (!moved) return {};
    run.interrupted = !run.asBefore && (earlier || !complete);
    return run;
}

History survey(const fs::path& testRoot, const std::string& product, const std::string& format) {
    const fs::path support = supportDir(testRoot);
    const fs::path receipt = receiptPath(support, product, format);
    const Manifest listed = readOrEmpty(read, receipt);
    const bool damaged = stands(receipt) && listed.empty();
    History history = {testRoot, product, format, receipt, receipt.string() + ".tmp", damaged};
    for (const BundleKey& key : knownBundles(product, format)) {
        const fs::path place = target(testRoot, key);
        history.bundles.push_back({key, place, readOrEmpty(tree, place), sub(listed, key)});
    }
    const Runs runs = runsOf(support / "Backups", history);
    for (auto next = runs.begin(); next != runs.end();) {
        const auto& [start, directory] = *next++;
        Time earliest = start - std::chrono::seconds(1);
        if (next != runs.end()) earliest = std::max(earliest, next->first);
        const std::optional<Run> run = examine(history, directory, start, earliest);
        if (history.newest.empty()) history.newest = directory;
        if (!history.last && !run) history.passed.push_back(directory);
        if (!run) continue;
        if (!history.last) history.last = run;
        // Where it has left all as before, what was before may itself be interrupted.
        history.last->interrupted = run->interrupted;
        if (!run->asBefore) break;
    }
    return history;
}
