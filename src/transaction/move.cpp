#include "transaction/move.h"

void moveTo(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::create_directories(to.parent_path());
    std::filesystem::rename(from, to);
}
