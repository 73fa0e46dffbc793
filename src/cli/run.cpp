#include "cli/run.h"

#include <filesystem>
#include <iostream>
#include <set>
#include <string>
#include <utility>

#include "cli/options.h"
#include "install/locations.h"
#include "install/preflight.h"
#include "package/identity.h"
#include "package/manifest.h"
#include "package/safe.h"
#include "platform/signals.h"
#include "transaction/backup.h"
#include "transaction/commit.h"
#include "transaction/receipt.h"
#include "transaction/rollback.h"
#include "transaction/staging.h"
#include "transaction/work.h"

void run(int argc, char** argv) {
    const RunOptions options = readOptions(argc, argv);
    safe(options.package);
    Manifest manifest = read(options.package / "CONTENTS.sha256");
    std::set<BundleKey> bundles = bundlesOf(manifest);
    const std::string product = productOf(options.package);
    checkOneProduct(bundles, product);
    const std::filesystem::path support = supportDir(options.testRoot);
    safe(support);
    const std::string format = oneFormat(bundles);
    const std::filesystem::path receiptPath = ::receiptPath(support, product, format);
    const Manifest receiptManifest = stands(receiptPath) ? read(receiptPath) : Manifest();
    CapturedTrees captured =
        preflight(options.package, options.testRoot, manifest, bundles, receiptManifest);

    if (options.dryRun) {
        std::cout << "READY: verified package; no files changed\n";
        return;
    }

    const std::filesystem::path tx = openTx(support, product);
    const Work work = {.package = options.package,
                       .testRoot = options.testRoot,
                       .receiptPath = receiptPath,
                       .tx = tx,
                       .manifest = std::move(manifest),
                       .bundles = std::move(bundles),
                       .captured = std::move(captured)};
    backup(work);
    if (!options.remove) stage(work);

    Done done;
    blockStops();
    try {
        commit(work, options.remove, done);
        if (options.remove) {
            removeReceipt(work);
        } else {
            writeReceipt(work);
        }
    } catch (...) {
        rollback(work, done);
        throw;
    }

    const char* const finalText =
        options.remove ? "REMOVED to backup: " : "INSTALLED; rollback backup: ";
    std::cout << finalText << work.tx.native() << '\n';
}
