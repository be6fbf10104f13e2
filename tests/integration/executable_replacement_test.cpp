// The helper's file work on a temporary folder, with real executables: korad
// (whose embedded bundle description names com.olvara.Korad) and koractl (which
// has none).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "executable_replacement.h"
#include "platform/logging.h"
#include "support/file_text.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

class AnExecutableReplacement : public testing::Test {
  protected:
    void SetUp() override {
        setLogSink([this](LogChannel, int, const std::string& text) { log_ += text + "\n"; });
        fs::create_directory(sbin());
        writeFileText(target(), "old daemon");
        fs::copy_file(KORAD_BINARY, newDaemon());
    }
    void TearDown() override { setLogSink({}); }

    fs::path sbin() const { return dir_.path() / "sbin"; }
    fs::path target() const { return sbin() / "korad"; }
    fs::path newDaemon() const { return dir_.path() / "new-korad"; }
    std::vector<std::string> folder() const { return folderNames(sbin()); }

    TempDir dir_;
    ExecutableReplacement replacement_{target()};
    std::string log_;
};

TEST_F(AnExecutableReplacement, InstallsAnExecutableWritableOnlyByRootAndKeepsTheCurrentOne) {
    writeFileText(sbin() / "korad.old", "older daemon");
    fs::permissions(newDaemon(), fs::perms::owner_read | fs::perms::owner_write);

    ASSERT_TRUE(replacement_.install("com.olvara.Korad", newDaemon())) << log_;
    EXPECT_TRUE(fileText(target()) == fileText(KORAD_BINARY));
    EXPECT_EQ(fileText(sbin() / "korad.old"), "old daemon");
    EXPECT_EQ(folder(), (std::vector<std::string>{"korad", "korad.old"}));
    struct stat status {};
    ASSERT_EQ(::stat(target().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0755u);

    ASSERT_TRUE(replacement_.rollBack()) << log_;
    EXPECT_EQ(fileText(target()), "old daemon");
    EXPECT_EQ(folder(), std::vector<std::string>{"korad"});
    EXPECT_FALSE(replacement_.rollBack()) << "nothing is left to put back";
    EXPECT_EQ(fileText(target()), "old daemon");
}

TEST_F(AnExecutableReplacement, RefusesWhatIsNotTheDaemonsExecutableAndChangesNothing) {
    writeFileText(dir_.path() / "script", "#!/bin/sh\necho korad\n");
    fs::create_directory(dir_.path() / "folder");
    ASSERT_EQ(::mkfifo((dir_.path() / "fifo").c_str(), 0600), 0);
    // Sparse: one byte more than an executable may have, without the disk space.
    {
        std::ofstream huge(dir_.path() / "huge");
        huge.seekp(ExecutableReplacement::kMaxExecutableBytes);
        huge.put('\0');
    }
    const struct {
        const char* identifier;
        fs::path file;
        const char* why;  // in the log line
    } rows[] = {
        {"com.example.Dialer", newDaemon(), "is the executable of com.olvara.Korad, not of"},
        {"com.olvara.Korad", KORACTL_BINARY, "not an executable with an embedded bundle"},
        {"com.olvara.Korad", dir_.path() / "script", "not an executable with an embedded bundle"},
        {"com.olvara.Korad", dir_.path() / "missing", "is not a readable regular file"},
        {"com.olvara.Korad", dir_.path() / "folder", "is not a readable regular file"},
        {"com.olvara.Korad", dir_.path() / "fifo", "is not a readable regular file"},
        {"com.olvara.Korad", dir_.path() / "huge", "is too large"},
    };
    for (const auto& row : rows) {
        log_.clear();
        EXPECT_FALSE(replacement_.install(row.identifier, row.file)) << row.file;
        EXPECT_NE(log_.find(row.why), std::string::npos) << row.file << ": " << log_;
        EXPECT_EQ(fileText(target()), "old daemon") << row.file;
        EXPECT_EQ(folder(), std::vector<std::string>{"korad"}) << row.file;
    }
}

TEST_F(AnExecutableReplacement, RefusesWhenThereIsNoCurrentExecutableToKeep) {
    fs::remove(target());
    EXPECT_FALSE(replacement_.install("com.olvara.Korad", newDaemon()));
    EXPECT_NE(log_.find("there is no executable at"), std::string::npos) << log_;
    EXPECT_TRUE(folder().empty());
}

}  // namespace
}  // namespace kora
