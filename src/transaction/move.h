#pragma once

#include <filesystem>

// Takes what to rename and to what, whose parent directories it creates.
// Fails in the library's words.
void moveTo(const std::filesystem::path& from, const std::filesystem::path& to);
