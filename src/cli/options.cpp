#include "cli/options.h"

#include <stdexcept>

// Not std::filesystem::absolute: one of the two libraries refuses the empty path.
std::filesystem::path absoluteForm(const std::filesystem::path& path) {
    return path.is_absolute() ? path : std::filesystem::current_path() / path;
}

void takeOptions(int argc, char** argv, const Valued& valued, const Flags& flags) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = valued.find(argument);
        const auto flag = flags.find(argument);
        if (value != valued.end() && i + 1 < argc) {
            value->second(argv[++i]);
        } else if (flag != flags.end()) {
            *flag->second = true;
        } else {
            throw std::runtime_error("Unknown option: " + argument);
        }
    }
}

RunOptions readOptions(int argc, char** argv) {
    RunOptions options;
    takeOptions(
        argc, argv,
        {{"--package", [&](const char* value) { options.package = value; }},
         {"--test-root", [&](const char* value) { options.testRoot = absoluteForm(value); }}},
        {{"--remove", &options.remove}, {"--dry-run", &options.dryRun}});
    if (options.package.empty()) throw std::runtime_error("Package directory required");
    options.package = absoluteForm(options.package);
    return options;
}
