#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kora {

// One thing wrong with an update archive, in words for the person who made it.
struct PreflightProblem {
    enum class Severity {
        // The daemon's install script would fail or stop on it.
        Error,
        // The script would run, but not as meant: a file it names is not
        // there, or an entry lands somewhere the author did not expect.
        Warning,
    };
    Severity severity;
    std::string text;

    bool operator==(const PreflightProblem&) const = default;
};

// Checks an update archive against the rules the daemon installs it by: it
// unpacks beside itself into the folder named like the archive without its
// extension, reads "update.plist" there and runs its "Actions". Lists every
// problem, not only the first. With `unpackedFolder` (that folder, already
// unpacked), the script is read from it and the files it names are looked for
// on disk rather than among the archive's entries.
std::vector<PreflightProblem> preflightUpdateArchive(
    const std::filesystem::path& archive,
    const std::optional<std::filesystem::path>& unpackedFolder = std::nullopt);

}  // namespace kora
