#include <gtest/gtest.h>

#include <cstring>

#include "support/executable_images.h"
#include "support/installer_fixture.h"
#include "update/kora_installer.h"

namespace kora::test {
namespace {

using Lines = std::vector<std::string>;

fs::perms modeOf(const fs::path& path) {
    return fs::symlink_status(path).permissions();
}

// Every file below a folder with its content, by relative path.
std::map<std::string, std::string> contentsOf(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files[fs::relative(entry.path(), folder).string()] = fileText(entry.path());
        }
    }
    return files;
}

class InstallingApplications : public InstallerTest {
  protected:
    fs::path makeBundle(const fs::path& bundle, const std::map<std::string, std::string>& files) {
        for (const auto& [name, content] : files) writeFileText(bundle / name, content);
        return bundle;
    }
    // Zips `items` of `folder` the way a publisher would.
    fs::path zipOf(const fs::path& folder, const std::string& items) {
        const fs::path archive = temp.path() / "archive.zip";
        int resultCode = -1;
        installer().PerformTask("/bin/sh", {"-c", "cd '" + folder.string() + "' && zip -qr '" +
                                                      archive.string() + "' " + items},
                                resultCode);
        EXPECT_EQ(resultCode, 0);
        return archive;
    }
};

TEST_F(InstallingApplications, ReplacesTheDestinationCompletelyOrNotAtAll) {
    const fs::path source = makeBundle(temp.path() / "new/Tool.app",
                                       {{"Contents/Info.plist", "new"}, {"Contents/MacOS/tool", "v2"}});
    fs::permissions(source / "Contents/MacOS/tool", fs::perms::owner_read);
    const std::string apps = paths.applications;
    makeBundle(apps + "/Tool.app", {{"Contents/Info.plist", "old"}, {"Contents/Old.txt", "stale"}});
    writeFileText(temp.path() / "plainfile", "");

    const struct {
        std::string source, destination;
        bool result;
        std::map<std::string, std::string> installed;
        Lines lines;
    } rows[] = {
        {source, apps + "/Tool.app", true,
         {{"Contents/Info.plist", "new"}, {"Contents/MacOS/tool", "v2"}}, {}},
        {source, apps + "/Deeper/Fresh.app/", true,
         {{"Contents/Info.plist", "new"}, {"Contents/MacOS/tool", "v2"}}, {}},
        // A failed copy leaves the installed application as it was.
        {(temp.path() / "missing.app").string(), apps + "/Kept.app", false, {{"Contents/Info.plist", "kept"}}, {}},
        {source, (temp.path() / "plainfile/Tool.app").string(), false, {},
         {"Error creating folder: " + (temp.path() / "plainfile/Tool.app/").string() + " \n"}},
        {source, "", false, {},
         {"Exception while installing application: the destination \"\" names no application\n"}},
    };
    makeBundle(apps + "/Kept.app", {{"Contents/Info.plist", "kept"}});
    for (const auto& row : rows) {
        lines.clear();
        EXPECT_EQ(installer().InstallApplication(row.source, row.destination), row.result) << row.destination;
        EXPECT_EQ(lines, row.lines);
        if (row.installed.empty()) continue;
        EXPECT_EQ(contentsOf(row.destination), row.installed) << row.destination;
        if (row.result) {
            EXPECT_EQ(modeOf(fs::path(row.destination) / "Contents/MacOS/tool"), fs::perms(0755));
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(apps), {}), 3);  // no copy left beside them
}

TEST_F(InstallingApplications, UnpacksAnArchiveOverItsOwnItemsOnly) {
    const fs::path publisher = temp.path() / "publisher";
    makeBundle(publisher / "Tool.app", {{"Contents/Info.plist", "new"}, {"Contents/MacOS/tool", "v2"}});
    fs::permissions(publisher / "Tool.app/Contents/MacOS/tool", fs::perms::owner_read);
    writeFileText(publisher / "README", "read me");
    const fs::path archive = zipOf(publisher, "Tool.app README");

    const fs::path apps = paths.applications;
    makeBundle(apps / "Tool.app", {{"Contents/Info.plist", "old"}, {"Contents/Old.txt", "stale"}});
    makeBundle(apps / "Other.app", {{"Contents/Info.plist", "other"}});
    fs::permissions(apps / "Other.app/Contents/Info.plist", fs::perms::owner_read);

    EXPECT_TRUE(installer().InstallCompressedApplication(archive, apps));
    EXPECT_EQ(contentsOf(apps), (std::map<std::string, std::string>{
                                    {"README", "read me"},
                                    {"Tool.app/Contents/Info.plist", "new"},
                                    {"Tool.app/Contents/MacOS/tool", "v2"},
                                    {"Other.app/Contents/Info.plist", "other"}}));
    EXPECT_EQ(modeOf(apps / "Tool.app/Contents/MacOS/tool"), fs::perms(0755));
    EXPECT_EQ(modeOf(apps / "README"), fs::perms(0755));
    EXPECT_EQ(modeOf(apps / "Other.app/Contents/Info.plist"), fs::perms::owner_read);
    EXPECT_TRUE(lines.empty());
}

TEST_F(InstallingApplications, RefusesArchivesThatCannotBeReadAndReportsFoldersItCannotMake) {
    writeFileText(temp.path() / "publisher/Tool.app/Contents/Info.plist", std::string(4096, 'x'));
    const std::string whole = fileText(zipOf(temp.path() / "publisher", "Tool.app"));
    writeFileText(temp.path() / "truncated.zip", whole.substr(0, whole.size() / 2));
    writeFileText(temp.path() / "plainfile", "");
    const struct {
        fs::path archive;
        fs::path destination;
        Lines lines;
    } rows[] = {
        {temp.path() / "missing.zip", temp.path() / "New/Folder", {}},
        {temp.path() / "truncated.zip", temp.path() / "New/Folder", {}},
        {temp.path() / "missing.zip", temp.path() / "plainfile/x",
         {"Error creating folder: " + (temp.path() / "plainfile/x/").string() + "\n"}},
    };
    for (const auto& row : rows) {
        lines.clear();
        EXPECT_FALSE(installer().InstallCompressedApplication(row.archive, row.destination));
        EXPECT_EQ(lines, row.lines);
    }
    EXPECT_TRUE(fs::is_directory(temp.path() / "New/Folder"));
}

class InstallingDaemons : public InstallerTest {
  protected:
    InstallingDaemons() { tools.set("/bin/launchctl", recordingStub("launchctl")); }

    // A real ELF executable with the section added by objcopy.
    fs::path elfWithJob(const std::string& job) {
        writeFileText(temp.path() / "job.plist", job);
        const fs::path binary = temp.path() / "bin/elf-daemon";
        fs::create_directories(binary.parent_path());
        int resultCode = -1;
        installer().PerformTask("/usr/bin/objcopy",
                                {"--add-section", "__TEXT,__launchd_plist=" + (temp.path() / "job.plist").string(),
                                 "/bin/true", binary.string()},
                                resultCode);
        EXPECT_EQ(resultCode, 0);
        return binary;
    }
    fs::path machOWithJob(const std::string& job) {
        const fs::path binary = temp.path() / "bin/macho-daemon";
        const Bytes image = machO(true, {{"__TEXT", "__launchd_plist", job}});
        writeFileText(binary, std::string(image.begin(), image.end()));
        fs::permissions(binary, fs::perms(0750));
        return binary;
    }
    fs::path jobFile() const { return temp.path() / "Library/LaunchDaemons/com.ex.d.plist"; }
    fs::path installed() const { return temp.path() / "Library/PrivilegedHelperTools/com.ex.d"; }
};

// The job a daemon carries, with its program as the publisher built it.
PlistDictionary jobRunning(const std::string& program) {
    return dictionaryOf({{"Label", "com.ex.d"},
                         {"ProgramArguments", PlistValue::Array{program}},
                         {"KeepAlive", true},
                         {"ThrottleInterval", 7},
                         {"MachServices", dictionaryOf({{"com.ex.Bus", true}})}});
}
const std::string kJob = propertyListXml(jobRunning("/old"));

// launchctl is the real adapter behind a recording wrapper, writing below a root of its own.
TEST_F(InstallingDaemons, WriteTheJobPointedAtTheInstalledExecutableAndLoadIt) {
    const fs::path root = temp.path() / "root";
    const fs::path unit = root / "etc/systemd/system/com.ex.d.service";
    tools.set("/bin/launchctl", recordingStub("launchctl", {LAUNCHCTL_ADAPTER, "--root", root.string()}));
    enum Previous { None, Both, JobOnly };
    const std::string job = jobFile().string();
    const std::string trying = "Trying to install daemon: com.ex.d to installpath: " + installed().string() + "\n";
    const struct {
        const char* name;
        bool elf;
        Previous previous;
        int loadStatus;
        bool result;
        std::string calls;
        Lines lines;
    } rows[] = {
        {"fresh ELF", true, None, 0, true, "load " + job + "\n",
         {trying, "New plist written\n", "Binary written\n", "Installed deamon successfully\n",
          "Will return from method\n"}},
        {"Mach-O over an installed one", false, Both, 0, true,
         "unload " + job + "\nload " + job + "\n",
         {trying, "Have to clean old files\n", "New plist written\n", "Binary written\n",
          "Installed deamon successfully\n", "Will return from method\n"}},
        {"load fails", false, None, 1, false, "load " + job + "\n",
         {trying, "New plist written\n", "Binary written\n", "Will return from method\n"}},
        {"executable already gone", false, JobOnly, 0, true,
         "unload " + job + "\nload " + job + "\n",
         {trying, "Have to clean old files\n",
          "Error happened during removal of old files: No such file or directory\n",
          "New plist written\n", "Binary written\n", "Installed deamon successfully\n",
          "Will return from method\n"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(temp.path() / "Library");
        fs::remove_all(root);
        fs::remove(temp.path() / "stubs/launchctl.calls");
        fs::remove(temp.path() / "stubs/launchctl.status");
        if (row.previous != None) writeFileText(jobFile(), kJob);
        if (row.previous == Both) writeFileText(installed(), "old binary");
        if (row.loadStatus != 0) setStubStatus("launchctl", row.loadStatus);
        const fs::path binary = row.elf ? elfWithJob(kJob) : machOWithJob(kJob);
        lines.clear();

        EXPECT_EQ(installer().InstallDaemonWithIdentifier("com.ex.d", binary), row.result);
        EXPECT_EQ(stubCalls("launchctl"), row.calls);
        EXPECT_EQ(lines, row.lines);
        EXPECT_EQ(readPropertyListDictionary(jobFile()), jobRunning(installed().string()));
        EXPECT_EQ(fileText(installed()), fileText(binary));
        EXPECT_EQ(modeOf(installed()), modeOf(binary));
        if (!row.result) {
            EXPECT_FALSE(fs::exists(unit));
            continue;
        }
        // The rest of the unit is the conversion's matter (launchctl_job_test).
        EXPECT_NE(fileText(unit).find("\nExecStart=" + installed().string() + "\n"), std::string::npos);
        EXPECT_NE(fileText(root / "usr/share/dbus-1/system-services/com.ex.Bus.service")
                      .find("SystemdService=com.ex.d.service\n"),
                  std::string::npos);
    }
}

TEST_F(InstallingDaemons, LetOnlyTheLoadDecideAndRefuseIdentifiersThatAreNoFileName) {
    const fs::path withoutJob = temp.path() / "plain";
    writeFileText(withoutJob, "no sections here");
    const fs::path arrayJob = machOWithJob(propertyListXml(PlistValue::Array{"x"}));
    const std::string job = jobFile().string();
    const struct {
        std::string identifier;
        fs::path binary;
        bool result;
        std::string calls;
        Lines lines;
    } rows[] = {
        // No description: nothing is written, yet the line says it was.
        {"com.ex.d", withoutJob, true, "load " + job + "\n",
         {"New plist written\n", "Binary written\n", "Installed deamon successfully\n",
          "Will return from method\n"}},
        {"com.ex.d", temp.path() / "missing", true, "load " + job + "\n",
         {"New plist written\n",
          "Error happened during writing the binary: No such file or directory\n",
          "Installed deamon successfully\n", "Will return from method\n"}},
        {"com.ex.d", arrayJob, false, "",
         {"Exception while installing daemon: the job description of " + arrayJob.string() +
          " is not a dictionary\n"}},
        {"../escape", withoutJob, false, "",
         {"Exception while installing daemon: the daemon identifier \"../escape\" names no file\n"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.identifier + " " + row.binary.string());
        fs::remove_all(temp.path() / "Library");
        fs::remove(temp.path() / "stubs/launchctl.calls");
        lines.clear();
        EXPECT_EQ(installer().InstallDaemonWithIdentifier(row.identifier, row.binary), row.result);
        EXPECT_EQ(stubCalls("launchctl"), row.calls);
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(Lines(lines.begin() + 1, lines.end()), row.lines);
        EXPECT_FALSE(fs::exists(jobFile()));
    }
}

}  // namespace
}  // namespace kora::test
