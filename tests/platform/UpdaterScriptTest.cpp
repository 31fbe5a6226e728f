#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <list>

#include "base/FileIO.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Content = std::map<std::string, std::string>;

void write(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

/// Eight characters at its end are the version.
void writeProgram(const fs::path& root, std::string version) {
    version.resize(8, ' ');
    write(root / "bin/nulo",
          readFile(NULO_BINARY_FOLDER "/updatable_program", 1 << 30).value() + version);
    fs::permissions(root / "bin/nulo", fs::perms(0755));
}

Content contentOf(const fs::path& folder) {
    Content content;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            content[fs::relative(entry.path(), folder)] = readFile(entry.path(), 1 << 30).value();
    return content;
}

void runIn(const fs::path& folder, const std::string& command) {
    outputOf({"bash", "-c", "cd '" + folder.string() + "' && " + command});
}

/// A tree that is installed and runs, and the script that is to replace it by one with a fault.
class Update {
  public:
    explicit Update(const std::string& fault) {
        writeProgram(m_prefix, "old");
        write(m_prefix / "share/doc/nulo/page", "old page");
        write(m_prefix / "bin/neighbour", "not ours");
        if (fault == "folder")
            write(m_prefix / "share/new folder/new 'file'/inner", "in the way");
        m_before = contentOf(m_prefix);
        const fs::path tree = m_home / "archive/nulo-0.2", zip = work / "nulo.zip";
        writeProgram(tree, fault == "broken" ? fault : "new");
        write(tree / "share/doc/nulo/page", "new page");
        write(tree / "share/new folder/new 'file'", "brand new");
        expected = contentOf(tree);
        expected["bin/neighbour"] = "not ours";
        if (!fault.empty())
            expected = m_before;
        if (fault != "broken")
            runIn(tree, "find . -type f -exec sha256sum {} + >../sums && mv ../sums SHA256SUMS");
        if (fault == "sums")
            write(tree / "share/doc/nulo/page", "tampered page");
        if (fault == "link")
            fs::create_symlink("/etc", tree / "share/link");
        if (fault == "program")
            runIn(tree, "rm bin/nulo SHA256SUMS");
        fs::create_directories(work);
        fs::copy_file(NULO_UPDATER, work / "update.sh");
        runIn(m_home / "archive", "zip -qry '" + zip.string() + "' .");
        if (fault == "page")
            write(zip, "<html>404</html>");
        if (fault == "cut")
            fs::resize_file(zip, fs::file_size(zip) / 2);
        ChildProcess::Options options{{"HOME=" + m_home.path().string(), "DISPLAY"}, {}};
        const std::string program = m_prefix / "bin/nulo";
        m_old.emplace(std::vector{program}, options);
        waitUntil([&] { return started().size() == 1; });
        options.environment.push_back("NULO_PID=" + std::to_string(m_old->pid()));
        options.environment.push_back("NULO_EXECUTABLE=" + program);
        m_script.emplace(std::vector<std::string>{"bash", work / "update.sh", work, zip, "0.2"},
                         options);
    }
    ~Update() {
        for (const auto& [pid, version] : started())
            if (pid != m_old->pid() && version != "broken")
                kill(pid, SIGTERM);  // the script let go of it
    }

    void endOldProgram() {
        waitUntil([&] { return log().find("updating") != std::string::npos; });
        EXPECT_EQ(content(), m_before) << "replaced while it runs";
        m_old->signal(SIGTERM);
        m_old->wait(std::chrono::seconds(30));
    }
    int status() { return m_script->wait(std::chrono::seconds(60)).value_or(-1); }
    Content content() const { return contentOf(m_prefix); }
    /// Whether that version, started after the old one, comes to run.
    bool runs(const std::string& version) const {
        return waitUntil([&] {
            const auto all = started();
            return all.size() > 1 && all.back().second == version && kill(all.back().first, 0) == 0;
        });
    }
    std::string log() const {
        return readFile(m_home / "Library/Logs/nulo/update.log", 1 << 20).value_or("");
    }

  private:
    std::vector<std::pair<pid_t, std::string>> started() const {
        std::vector<std::pair<pid_t, std::string>> result;
        std::ifstream lines(m_home / "started");
        std::string version;
        for (pid_t pid = 0; lines >> pid >> version;)
            result.emplace_back(pid, version);
        return result;
    }

    TemporaryFolder m_home;
    const fs::path m_prefix = m_home / "an installation";
    Content m_before;
    std::optional<ChildProcess> m_old, m_script;

  public:
    const fs::path work = m_home / "tmp/nulo-update-X";
    Content expected;
};

// An update that costs the program which works: by a page in place of the archive, one that is cut
// off or changed, one that leads out of its folder, has no program, finds a folder in its way, or
// holds a program that does not start.
TEST(UpdaterScript, replacesTheTreeOrKeepsTheOldOneAndStartsIt) {
    const std::string faults[] = {"", "page", "cut", "sums", "link", "program", "folder", "broken"};
    std::list<Update> updates(std::begin(faults), std::end(faults));
    for (Update& update : updates)
        update.endOldProgram();
    for (std::size_t i = 0; Update & update : updates) {
        const bool isWhole = faults[i++].empty();
        EXPECT_EQ(update.status(), isWhole ? 0 : 1) << update.log();
        EXPECT_EQ(update.log().find("FAILED: ") == std::string::npos, isWhole);
        EXPECT_EQ(update.content(), update.expected) << update.log();
        EXPECT_TRUE(update.runs(isWhole ? "new" : "old")) << update.log();
        EXPECT_FALSE(fs::exists(update.work));
    }
}

}  // namespace
}  // namespace nulo
