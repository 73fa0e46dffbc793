#include "install/unloaded.h"

#include <stdexcept>

#include "platform/child.h"
#include "platform/lsof.h"
#include "platform/walk.h"

void unloaded(const std::filesystem::path& bundle) {
    if (!std::filesystem::exists(bundle)) return;
    walk(bundle, [](const std::filesystem::path& path, std::filesystem::file_status status) {
        // A link to a file is tested as well, under its own path.
        if (std::filesystem::is_symlink(status)) status = std::filesystem::status(path);
        if (!std::filesystem::is_regular_file(status)) return;
        if (path.parent_path().filename() != "MacOS") return;
        const ChildEnd end = runchild(lsof(), {"-n", path.string()});
        if (!end.started) throw std::runtime_error("Load check unavailable");
        if (end.status != 1 || end.errorbytes != 0)
            throw std::runtime_error(
                "Plugin is loaded or load check unavailable; save/close hosts first");
    });
}
