// The real installer adapter and the real dpkg, installing into a temporary
// root folder a package that the test builds with dpkg-deb.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/file_text.h"
#include "support/temp_dir.h"

namespace kora {
namespace {

namespace fs = std::filesystem;

const std::string kInstaller = ADAPTER_BINARY;

class InstallerAdapter : public testing::Test {
  protected:
    void SetUp() override {
        // dpkg refuses to write a database it does not own unless it runs as root.
        if (::geteuid() != 0) GTEST_SKIP() << "dpkg installs only as root";
        fs::create_directory(root());
    }

    fs::path root() const { return dir_.path() / "root"; }

    // A package holding /opt/korad-adapter-test/hello.txt.
    fs::path buildPackage() {
        const fs::path tree = dir_.path() / "tree";
        writeFileText(tree / "DEBIAN/control",
                      "Package: korad-adapter-test\nVersion: 1.0\nArchitecture: all\n"
                      "Maintainer: Korad tests <tests@example.com>\nDescription: test package\n");
        writeFileText(tree / "opt/korad-adapter-test/hello.txt", "hello\n");
        const fs::path package = dir_.path() / "korad-adapter-test_1.0_all.deb";
        const CommandOutcome built =
            runCommand({"dpkg-deb", "--build", tree, package}, ErrorStream::apart);
        EXPECT_EQ(built.status, 0) << built.errors;
        return package;
    }

    CommandOutcome install(const fs::path& package) const {
        return runCommand({kInstaller, "-pkg", package, "-target", root()}, ErrorStream::apart);
    }

    bool rootIsEmpty() const { return fs::is_empty(root()); }

    TempDir dir_;
};

TEST_F(InstallerAdapter, InstallsADebianPackageWithTheTargetAsDpkgsRoot) {
    const fs::path package = buildPackage();
    const CommandOutcome run = install(package);
    ASSERT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_EQ(fileText(root() / "opt/korad-adapter-test/hello.txt"), "hello\n");
    const std::string database = fileText(root() / "var/lib/dpkg/status");
    EXPECT_NE(database.find("Package: korad-adapter-test\nStatus: install ok installed\n"),
              std::string::npos)
        << database;

    // The options in the other order: the same package again, reinstalled.
    const CommandOutcome again =
        runCommand({kInstaller, "-target", root(), "-pkg", package}, ErrorStream::apart);
    EXPECT_EQ(again.status, 0) << again.errors;
}

TEST_F(InstallerAdapter, RefusesEveryOtherKindOfFileWithoutRunningDpkg) {
    writeFileText(dir_.path() / "text", "not a package\n");
    writeFileText(dir_.path() / "empty", "");
    writeFileText(dir_.path() / "other.a",
                  "!<arch>\nhello.o/        0           0     0     644     0         `\n");
    fs::create_directories(dir_.path() / "Helper.pkg/Contents");  // a macOS package is a folder
    const struct {
        const char* name;
        const char* reason;
    } rows[] = {
        {"text", "not a Debian package"},       {"empty", "not a Debian package"},
        {"other.a", "not a Debian package"},    {"Helper.pkg", "not a Debian package"},
        {"missing.deb", "not a readable file"},
    };
    for (const auto& row : rows) {
        const fs::path file = dir_.path() / row.name;
        const CommandOutcome run = install(file);
        EXPECT_EQ(run.status, 1) << row.name;
        EXPECT_EQ(run.errors, "installer: " + file.string() + ": " + row.reason +
                                  (std::string(row.reason) == "not a Debian package"
                                       ? "; only .deb packages can be installed\n"
                                       : "\n"));
        EXPECT_TRUE(rootIsEmpty()) << row.name << ": dpkg ran";
    }
}

TEST_F(InstallerAdapter, ReportsAPackageThatDpkgCannotInstall) {
    const std::string whole = fileText(buildPackage());
    const fs::path truncated = dir_.path() / "truncated.deb";
    writeFileText(truncated, whole.substr(0, whole.size() / 2));
    const CommandOutcome run = install(truncated);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.errors.find("installer: dpkg failed with status 1; " + truncated.string() +
                              " was not installed\n"),
              std::string::npos)
        << run.errors;
    EXPECT_FALSE(fs::exists(root() / "opt/korad-adapter-test/hello.txt"));
}

TEST_F(InstallerAdapter, RefusesATargetThatIsNotAFolder) {
    const CommandOutcome run = runCommand(
        {kInstaller, "-pkg", buildPackage(), "-target", root() / "missing"}, ErrorStream::apart);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors,
              "installer: " + (root() / "missing").string() + ": the target is not a folder\n");
}

TEST(InstallerCommandLine, AWrongOneExitsWithStatusTwoAndHelpExplainsIt) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"-pkg", "a.deb"},
                                               {"-pkg"},
                                               {"-pkg", "a", "-target", "/", "-pkg", "b"},
                                               {"-verbose", "-pkg", "a", "-target", "/"}}) {
        std::vector<std::string> command{kInstaller};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const CommandOutcome run = runCommand(command, ErrorStream::apart);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(arguments);
        EXPECT_NE(run.errors.find("Usage: installer -pkg FILE -target DIR"), std::string::npos);
    }
    const CommandOutcome help = runCommand({kInstaller, "--help"}, ErrorStream::apart);
    EXPECT_EQ(help.status, 0);
    for (const char* part :
         {"SYNOPSIS", "-pkg FILE", "-target DIR", "dpkg --root=DIR -i FILE", "EXIT STATUS"})
        EXPECT_NE(help.output.find(part), std::string::npos) << part;
}

}  // namespace
}  // namespace kora
