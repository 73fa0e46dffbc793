#include "install/unloaded.h"

#include <stdexcept>

#include "platform/child.h"
#include "platform/lsof.h"
#include "platform/walk.h"

using std::filesystem::file_type;

void unloaded(const std::filesystem::path& bundle) {
    if (!std::filesystem::exists(bundle)) return;
    walk(bundle, true, [](const Entry& entry) {
        // A link to a file is checked too, by its own path.
        if (entry.type != file_type::regular &&
            (entry.type != file_type::symlink || !std::filesystem::is_regular_file(entry.path)))
            return;
        if (std::filesystem::path(entry.path).parent_path().filename() != "MacOS") return;
        const ChildEnd end = runChild(lsof(), {"-n", entry.path});
        if (!end.started) throw std::runtime_error("Load check unavailable");
        if (end.status != 1 || end.errorBytes != 0)
            throw std::runtime_error(
                "Plugin is loaded or load check unavailable; save/close hosts first");
    });
}
