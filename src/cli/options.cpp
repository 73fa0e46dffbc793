#include "cli/options.h"

#include <stdexcept>
#include <string>

// The library's own operation is not used: one of the two libraries refuses the empty path, which
// here means the working directory.
static std::filesystem::path absoluteform(const std::filesystem::path& path) {
    return path.is_absolute() ? path : std::filesystem::current_path() / path;
}

RunOptions scan(int argc, char** argv) {
    RunOptions options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool valued = i + 1 < argc;
        if (argument == "--package" && valued) {
            options.package = argv[++i];
        } else if (argument == "--test-root" && valued) {
            options.testRoot = absoluteform(argv[++i]);
        } else if (argument == "--remove") {
            options.remove = true;
        } else if (argument == "--dry-run") {
            options.dryRun = true;
        } else {
            throw std::runtime_error("Unknown option: " + argument);
        }
    }
    if (options.package.empty()) throw std::runtime_error("Package directory required");
    options.package = absoluteform(options.package);
    return options;
}
