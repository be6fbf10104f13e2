// The real installer adapter and the real dpkg, installing into a temporary
// root folder a package that the test builds with dpkg-deb.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/file_text.h"
#include "support/program_run.h"
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
        const ProgramRun built = runProgramCaptured({"dpkg-deb", "--build", tree, package});
        EXPECT_EQ(built.status, 0) << built.err;
        return package;
    }

    ProgramRun install(const fs::path& package) const {
        return runProgramCaptured({kInstaller, "-pkg", package, "-target", root()});
    }

    bool rootIsEmpty() const { return fs::is_empty(root()); }

    TempDir dir_;
};

TEST_F(InstallerAdapter, InstallsADebianPackageWithTheTargetAsDpkgsRoot) {
    const fs::path package = buildPackage();
    const ProgramRun run = install(package);
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    EXPECT_EQ(fileText(root() / "opt/korad-adapter-test/hello.txt"), "hello\n");
    const std::string database = fileText(root() / "var/lib/dpkg/status");
    EXPECT_NE(database.find("Package: korad-adapter-test\nStatus: install ok installed\n"),
              std::string::npos)
        << database;

    // The options in the other order: the same package again, reinstalled.
    const ProgramRun again = runProgramCaptured({kInstaller, "-target", root(), "-pkg", package});
    EXPECT_EQ(again.status, 0) << again.err;
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
        const ProgramRun run = install(file);
        EXPECT_EQ(run.status, 1) << row.name;
        EXPECT_EQ(run.err, "installer: " + file.string() + ": " + row.reason +
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
    const ProgramRun run = install(truncated);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("installer: dpkg failed with status 1; " + truncated.string() +
                           " was not installed\n"),
              std::string::npos)
        << run.err;
    EXPECT_FALSE(fs::exists(root() / "opt/korad-adapter-test/hello.txt"));
}

TEST_F(InstallerAdapter, RefusesATargetThatIsNotAFolder) {
    const ProgramRun run =
        runProgramCaptured({kInstaller, "-pkg", buildPackage(), "-target", root() / "missing"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err,
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
        const ProgramRun run = runProgramCaptured(command);
        EXPECT_EQ(run.status, 2) << testing::PrintToString(arguments);
        EXPECT_NE(run.err.find("Usage: installer -pkg FILE -target DIR"), std::string::npos);
    }
    const ProgramRun help = runProgramCaptured({kInstaller, "--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* part :
         {"SYNOPSIS", "-pkg FILE", "-target DIR", "dpkg --root=DIR -i FILE", "EXIT STATUS"})
        EXPECT_NE(help.out.find(part), std::string::npos) << part;
}

}  // namespace
}  // namespace kora
