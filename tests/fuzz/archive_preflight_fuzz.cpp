#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "preflight/archive_preflight.h"

// Archives of any shape, as the update service is handed them: the preflight
// answers with a list of problems, never a crash or a read past the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::filesystem::path archive = [] {
        const auto folder = std::filesystem::temp_directory_path() /
                            ("korad-preflight-fuzz-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        return folder / "Upd.zip";
    }();
    static const int cleanUp = std::atexit([] {
        std::error_code ignored;
        std::filesystem::remove_all(archive.parent_path(), ignored);
    });
    (void)cleanUp;
    std::ofstream(archive, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    kora::preflightUpdateArchive(archive);
    return 0;
}
