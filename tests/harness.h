#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

// How a process ended: its exit status, or minus the signal that ended it, and what it wrote.
struct Ended {
    int status;
    std::string out;
    std::string err;
    bool operator==(const Ended&) const = default;
};
std::ostream& operator<<(std::ostream& stream, const Ended& ended);

inline const Ended ready = {0, "READY: verified package; no files changed\n", ""};
inline const std::string loaded =
    "Plugin is loaded or load check unavailable; save/close hosts first";

// What a run that failed with this message gives.
Ended failed(const std::string& message);

using Files = std::map<std::string, std::string>;  // relative path to content

void write(const std::filesystem::path& file, const std::string& content);
std::string slurp(const std::filesystem::path& file);
Files join(std::initializer_list<Files> parts);

// Every entry below a directory: its type, its permission bits if asked for, and its content or
// its link's target.
std::map<std::string, std::string> disk(const std::filesystem::path& root, bool bits = false);

// The message of the failure that an action raises; empty when it raises none.
std::string failure(const std::function<void()>& action);

// A temporary directory of its own, on a path without links, for each test. The tool runs in it,
// with "home" as HOME and ./lsof as its load check.
class Studio : public testing::Test {
  protected:
    Studio();
    ~Studio() override;

    // Writes the files below payload, their CONTENTS.sha256 and PRODUCT.txt; gives the directory.
    std::filesystem::path package(const std::string& name, const std::string& product,
                                  const Files& files) const;

    // Runs a piece of shell in the test's directory.
    void sh(const std::string& code) const;

    // A stand-in for lsof. Its n-th call runs that piece of shell, in the test's directory, and
    // then answers "not loaded" if the piece has not ended it.
    void lsof(const std::map<int, std::string>& calls = {}) const;
    int lsofcalls() const;

    // A name that is no UTF-8, where the file system takes such names.
    std::string oddname() const;

    // Runs the tool; `prepare` is called in the new process ahead of it.
    Ended tool(const std::vector<std::string>& arguments,
               const std::function<void()>& prepare = nullptr,
               const std::filesystem::path& program = INSTALLER) const;

    // Runs it without root's rights, so that permissions count, and under a umask.
    Ended unprivileged(const std::vector<std::string>& arguments, unsigned mask) const;

    std::filesystem::path dir;
};
