#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kora {

// The command-line tools the installation runs, named as install scripts and
// the installer know them ("/bin/cp", "/bin/launchctl", ...), each mapped to
// the program that does the work on this system. The table is the one place
// that knows the mapping; tests point a tool at a recording stub.
class ToolTable {
  public:
    static constexpr const char* kCp = "/bin/cp";
    static constexpr const char* kChmod = "/bin/chmod";
    static constexpr const char* kUnzip = "/usr/bin/unzip";
    static constexpr const char* kLaunchctl = "/bin/launchctl";
    static constexpr const char* kInstaller = "/usr/sbin/installer";

    // An empty table: every tool runs by the path it is named with.
    ToolTable() = default;

    // The production table: cp, chmod and unzip are the system's own;
    // launchctl and installer are our adapters in the daemon's fixed libexec
    // folder, never a program of that name found on the system.
    static ToolTable live();

    // The program to run for a tool name; a name the table does not hold runs
    // as it stands.
    std::filesystem::path pathFor(std::string_view tool) const;
    // Maps (or re-maps) one tool.
    void set(std::string tool, std::filesystem::path program);

  private:
    std::map<std::string, std::filesystem::path, std::less<>> programs_;
};

// Runs a program to its end and hands back what it wrote.
class ToolRunner {
  public:
    using Bytes = std::vector<std::uint8_t>;

    virtual ~ToolRunner() = default;

    // Starts `program` with `arguments` (not including the program itself),
    // standard output and standard input piped, standard error shared with the
    // daemon. The input pipe is closed at once, so a tool that asks a question
    // reads end-of-file instead of waiting forever. Reads the output to its end
    // and waits for the program to exit.
    //
    // `resultCode` receives the exit status; a program killed by a signal gets
    // 128 plus the signal number, as a shell reports it. When the program cannot
    // be started, `resultCode` is -1 and the output is empty.
    virtual Bytes run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                      int& resultCode) = 0;
};

// Runs programs with GSubprocess. While a program runs, the default main
// context keeps turning, so D-Bus callers are answered during a long package
// installation; the caller still sees one blocking call.
class LiveToolRunner : public ToolRunner {
  public:
    Bytes run(const std::filesystem::path& program, const std::vector<std::string>& arguments,
              int& resultCode) override;
};

}  // namespace kora
