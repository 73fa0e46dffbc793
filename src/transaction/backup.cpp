#include "transaction/backup.h"

#include <chrono>
#include <stdexcept>

#include "install/locations.h"
#include "package/safe.h"
#include "package/tree.h"
#include "transaction/copytree.h"

std::filesystem::path openTx(const std::filesystem::path& support, const std::string& product) {
    std::filesystem::create_directories(support);
    const auto ticks = std::chrono::system_clock::now().time_since_epoch().count();
    std::filesystem::path tx = support / "Backups" / (product + '-' + std::to_string(ticks));
    safe(tx);
    if (!std::filesystem::create_directories(tx))
        throw std::runtime_error("Backup transaction already exists");
    return tx;
}

void backup(const Work& work) {
    for (const auto& [key, found] : work.captured) {
        const std::filesystem::path copy = work.tx / "verified-backup" / key;
        copyTree(target(work.testRoot, key), copy);
        if (tree(copy) != found) throw std::runtime_error("Backup verification failed");
    }
}
