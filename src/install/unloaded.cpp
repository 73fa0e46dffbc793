#include "install/unloaded.h"

#include <stdexcept>

#include "platform/child.h"
#include "platform/lsof.h"

void unloaded(const std::filesystem::path& bundle) {
    if (!std::filesystem::exists(bundle)) return;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(bundle)) {
        const std::filesystem::path& path = entry.path();
        // Asked afresh, as in `tree`, and through a link, which is tested under its own path.
        if (!std::filesystem::is_regular_file(std::filesystem::status(path))) continue;
        if (path.parent_path().filename() != "MacOS") continue;
        const ChildEnd end = runchild(lsof(), {"-n", path.string()});
        if (!end.started) throw std::runtime_error("Load check unavailable");
        if (end.status != 1 || end.errorbytes != 0)
            throw std::runtime_error(
                "Plugin is loaded or load check unavailable; save/close hosts first");
    }
}
