#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <map>

#include "base/FileIO.h"
#include "rig/process/ChildProcess.h"
#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"

namespace nulo {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// A tree that is installed and runs, and the script that is to replace it.
class UpdaterScriptTest : public testing::Test {
  protected:
    UpdaterScriptTest() {
        fs::create_directories(m_work);
        fs::copy_file(NULO_UPDATER, m_work / "update.sh");
        writeProgram(m_prefix, "old");
        write(m_prefix / "share/doc/nulo/page", "old page");
        write(m_prefix / "bin/neighbour", "not ours");
        m_before = contentOf(m_prefix);
        m_old.emplace(std::vector{(m_prefix / "bin/nulo").string()}, environment());
        waitUntil([&] { return started().size() == 1; });
    }
    ~UpdaterScriptTest() override {
        for (const auto& [pid, version] : started())
            if (pid != m_old->pid() && version != "broken")
                kill(pid, SIGTERM);  // the script let go of it
    }

    static void write(const fs::path& file, const std::string& content) {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
    }
    /// Eight characters at the end are the version.
    static void writeProgram(const fs::path& root, std::string version) {
        version.resize(8, ' ');
        write(root / "bin/nulo",
              readFile(NULO_BINARY_FOLDER "/updatable_program", 1 << 30).value() + version);
        fs::permissions(root / "bin/nulo", fs::perms(0755));
    }
    static std::map<std::string, std::string> contentOf(const fs::path& folder) {
        std::map<std::string, std::string> content;
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            if (entry.is_regular_file())
                content[fs::relative(entry.path(), folder)] =
                    readFile(entry.path(), 1 << 30).value_or("");
        return content;
    }
    std::vector<std::pair<pid_t, std::string>> started() const {
        std::vector<std::pair<pid_t, std::string>> result;
        std::ifstream lines(m_home.path() / "started");
        std::string version;
        for (pid_t pid = 0; lines >> pid >> version;)
            result.emplace_back(pid, version);
        return result;
    }
    ChildProcess::Options environment() const {
        return {{"HOME=" + m_home.path().string(), "DISPLAY"}, m_home / "output"};
    }

    void zipTree() {
        outputOf({"bash", "-c", "cd \"$1\" && zip -qry \"$2\" .", "zip", m_tree.parent_path(),
                  m_work / "nulo.zip"});
    }
    void addSums() {
        outputOf(
            {"bash", "-c",
             "cd \"$1\" && find . -type f -exec sha256sum {} + >../sums && mv ../sums SHA256SUMS",
             "sums", m_tree});
    }
    /// Its exit status, the old program being ended once it waits for that.
    int runScript() {
        auto options = environment();
        options.environment.push_back("NULO_PID=" + std::to_string(m_old->pid()));
        options.environment.push_back("NULO_EXECUTABLE=" + (m_prefix / "bin/nulo").string());
        ChildProcess script({"bash", m_work / "update.sh", m_work, m_work / "nulo.zip", "0.2"},
                            options);
        waitUntil([&] { return log().find("updating") != std::string::npos; });
        EXPECT_EQ(contentOf(m_prefix), m_before) << "replaced while it runs";
        m_old->signal(SIGTERM);
        m_old->wait(std::chrono::seconds(10));
        return script.wait(std::chrono::seconds(30)).value_or(-1);
    }
    std::string log() const {
        return readFile(m_home / "Library/Logs/nulo/update.log", 1 << 20).value_or("");
    }

    TemporaryFolder m_home;
    const fs::path m_prefix = m_home / "an installation";
    const fs::path m_work = m_home / "tmp/nulo-update-X";
    const fs::path m_tree = m_home / "archive/nulo-0.2";
    std::map<std::string, std::string> m_before;
    std::optional<ChildProcess> m_old;
};

TEST_F(UpdaterScriptTest, replacesTheTreeAndStartsTheNewProgram) {
    writeProgram(m_tree, "new");
    write(m_tree / "share/doc/nulo/page", "new page");
    write(m_tree / "share/new folder/new 'file'", "brand new");
    addSums();
    zipTree();
    EXPECT_EQ(runScript(), 0) << log();
    auto expected = contentOf(m_tree);
    expected.erase("SHA256SUMS");
    expected["bin/neighbour"] = "not ours";
    EXPECT_EQ(contentOf(m_prefix), expected) << log();
    ASSERT_EQ(started().size(), 2u) << log();
    EXPECT_EQ(started().back().second, "new");
    EXPECT_EQ(kill(started().back().first, 0), 0) << "it ended with the script";
    EXPECT_FALSE(fs::exists(m_work));
}

class UpdaterScriptFaultTest : public UpdaterScriptTest,
                               public testing::WithParamInterface<const char*> {};

// An update must never cost the program that works.
TEST_P(UpdaterScriptFaultTest, keepsTheOldTreeAndStartsItAgain) {
    const std::string fault = GetParam();
    writeProgram(m_tree, fault == "broken" ? "broken" : "new");
    write(m_tree / "share/doc/nulo/page", "new page");
    write(m_tree / "share/new/file", "brand new");
    if (fault == "sums") {
        addSums();
        write(m_tree / "share/doc/nulo/page", "tampered page");
    }
    if (fault == "link")
        fs::create_symlink("/etc", m_tree / "share/link");
    if (fault == "program")
        fs::remove(m_tree / "bin/nulo");
    if (fault == "folder")
        write(m_prefix / "share/new/file/inner", "in the way");
    m_before = contentOf(m_prefix);
    zipTree();
    if (fault == "page")
        write(m_work / "nulo.zip", "<html>404</html>");
    if (fault == "cut")
        fs::resize_file(m_work / "nulo.zip", fs::file_size(m_work / "nulo.zip") / 2);
    EXPECT_EQ(runScript(), 1) << log();
    EXPECT_THAT(log(), HasSubstr("FAILED: "));
    EXPECT_EQ(contentOf(m_prefix), m_before) << log();
    ASSERT_TRUE(
        waitUntil([&] { return started().size() > 1 && started().back().second == "old"; }));
    EXPECT_EQ(kill(started().back().first, 0), 0);
    EXPECT_FALSE(fs::exists(m_work));
}

INSTANTIATE_TEST_SUITE_P(Each, UpdaterScriptFaultTest,
                         testing::Values("page", "cut", "sums", "link", "program", "folder",
                                         "broken"),
                         [](const auto& fault) { return fault.param; });

}  // namespace
}  // namespace nulo
