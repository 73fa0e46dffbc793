#include "harness.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "package/tree.h"

namespace fs = std::filesystem;

std::ostream& operator<<(std::ostream& stream, const Ended& ended) {
    return stream << "status " << ended.status << ", out \"" << ended.out << "\", err \""
                  << ended.err << '"';
}

Ended failed(const std::string& message) {
    return {3, "", message + '\n'};
}

void write(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

std::string slurp(const fs::path& file) {
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

Files join(std::initializer_list<Files> parts) {
    Files all;
    for (const Files& part : parts) all.insert(part.begin(), part.end());
    return all;
}

std::map<std::string, std::string> disk(const fs::path& root, bool bits) {
    std::map<std::string, std::string> entries;
    if (!fs::exists(root)) return entries;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        std::ostringstream text;
        const auto status = entry.symlink_status();
        if (bits) text << std::oct << static_cast<unsigned>(status.permissions()) << ' ';
        if (fs::is_symlink(status)) {
            text << "link " << fs::read_symlink(entry.path()).string();
        } else if (fs::is_regular_file(status)) {
            text << "file " << slurp(entry.path());
        } else {
            text << (fs::is_directory(status) ? "directory" : "special");
        }
        entries[entry.path().lexically_relative(root).string()] = text.str();
    }
    return entries;
}

std::string failure(const std::function<void()>& action) {
    try {
        action();
        return "";
    } catch (const std::exception& raised) {
        return raised.what();
    }
}

Studio::Studio() {
    std::string name = (fs::canonical(fs::temp_directory_path()) / "studio-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    dir = name;
    fs::permissions(dir, fs::perms(0755));
    fs::create_directory(dir / "home");
    lsof();
}

Studio::~Studio() {
    // A test may have taken permissions away.
    for (const auto& entry : fs::recursive_directory_iterator(dir))
        if (entry.is_directory() && !entry.is_symlink())
            fs::permissions(entry.path(), fs::perms::owner_all);
    fs::remove_all(dir);
}

fs::path Studio::package(const std::string& name, const std::string& product,
                         const Files& files) const {
    const fs::path root = dir / name;
    for (const auto& [path, content] : files) write(root / "payload" / path, content);
    write(root / "CONTENTS.sha256", aslines(tree(root / "payload")));
    write(root / "PRODUCT.txt", product + '\n');
    return root;
}

void Studio::sh(const std::string& code) const {
    write(dir / "script", "set -eu\n" + code + '\n');
    EXPECT_EQ(std::system(("cd '" + dir.string() + "' && sh ./script").c_str()), 0) << code;
    fs::remove(dir / "script");
}

void Studio::lsof(const std::map<int, std::string>& calls) const {
    std::string script = "#!/bin/sh\necho \"$*\" >>calls\ncase $(wc -l <calls | tr -d ' ') in\n";
    for (const auto& [number, piece] : calls)
        script += std::to_string(number) + ") " + piece + " ;;\n";
    write(dir / "lsof", script + "esac\nexit 1\n");
    fs::permissions(dir / "lsof", fs::perms(0755));
    fs::remove(dir / "calls");
}

int Studio::lsofcalls() const {
    const std::string calls = slurp(dir / "calls");
    return static_cast<int>(std::count(calls.begin(), calls.end(), '\n'));
}

std::string Studio::oddname() const {
    const std::string name = "\xFF";
    write(dir / name, "");
    return fs::remove(dir / name) ? name : "\xC3\xA9";
}

Ended Studio::tool(const std::vector<std::string>& arguments, const std::function<void()>& prepare,
                   const fs::path& program) const {
    const fs::path out = dir / "stdout";
    const fs::path err = dir / "stderr";
    std::vector<char*> argv;
    if (*EMULATOR != '\0') argv.push_back(const_cast<char*>(EMULATOR));
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (chdir(dir.c_str()) != 0) _exit(99);
        setenv("HOME", (dir / "home").c_str(), 1);
        dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), 1);
        dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), 2);
        if (prepare) prepare();
        execvp(argv[0], argv.data());
        _exit(98);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const Ended ended = {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), slurp(out),
                         slurp(err)};
    fs::remove(out);
    fs::remove(err);
    return ended;
}

Ended Studio::unprivileged(const std::vector<std::string>& arguments, unsigned mask) const {
    // The build may lie where nobody else can go.
    fs::copy_file(INSTALLER, dir / "program", fs::copy_options::skip_existing);
    const auto prepare = [mask] {
        umask(static_cast<mode_t>(mask));
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(97);
    };
    return tool(arguments, prepare, dir / "program");
}
