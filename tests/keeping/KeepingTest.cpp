#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "fakes/PartTest.h"
#include "keeping/KeptTakes.h"
#include "keeping/RecentTexts.h"
#include "keeping/TextHistory.h"
#include "support/FileSizeLimit.h"

namespace nulo {
namespace {

class KeepingTest : public PartTest {
  protected:
    /// The folder's files, the oldest entry first.
    std::vector<fs::path> files(const fs::path& folder) const {
        std::vector<fs::path> found;
        std::error_code ignored;
        for (const auto& file : fs::directory_iterator(m_state / folder, ignored))
            found.push_back(file.path());
        std::ranges::sort(found);
        return found;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> found;
        for (const auto& text : m_history.read().texts)
            found.push_back(text.mode + ": " + text.text);
        return found;
    }
    Outcome keep(std::uintmax_t bytes, const TakeRoute& route = {}) {
        m_clock.advance(1ms);
        std::ofstream(m_folder / "take.m4a") << "sound";
        fs::resize_file(m_folder / "take.m4a", bytes);
        return m_takes.keep(m_folder / "take.m4a", route);
    }

    const fs::path m_state = m_folder / "deep/state/nulo";
    const TextHistory m_history{m_state, m_clock};
    const KeptTakes m_takes{m_state, m_clock};
};

// A text cut at its line feed or that others can read, one that stays for ever; a history that a
// single damaged or enormous file takes away, or that fills the memory.
TEST_F(KeepingTest, textsAreReadAsTheyWereSaidWhateverElseLiesThere) {
    ASSERT_TRUE(m_history.add("one\n\"two\"\\ {\t\x1B", "Email"));
    m_clock.advance(1ms);
    ASSERT_TRUE(m_history.add("d\u00E9j\u00E0 \xFF", "Email"));
    const std::vector<std::string> both = {"Email: one\n\"two\"\\ {\t\x1B",
                                           "Email: d\u00E9j\u00E0 \uFFFD"};
    EXPECT_FALSE(m_history.add(std::string(256 * 1024 + 1, 'x'), "Email"));
    EXPECT_EQ(fs::status(files("texts")[0]).permissions(), fs::perms(0600));
    for (const auto& folder : {m_state, m_state / "texts"})
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700));

    const std::string newest = files("texts")[1].replace_extension();
    std::ofstream(newest + "1.json") << R"({"mode": "Email", "text": )";
    std::ofstream(newest + "2.json") << R"({"mode": 1, "text": ""})";
    std::ofstream(newest + "3.json");
    fs::resize_file(newest + "3.json", 1'000'000'000'000);
    mkfifo((newest + "4.json").c_str(), 0600);
    fs::create_symlink("/etc/passwd", newest + "5.json");
    std::ofstream(m_state / "texts/the user's.txt");
    EXPECT_EQ(texts(), both);
    EXPECT_EQ(m_history.read().unreadable, 2u);
    for (int i = 100; i < 597; ++i)
        std::ofstream(newest + std::to_string(i) + ".json") << R"({"mode": "", "text": "more"})";
    EXPECT_THAT(texts(), AllOf(SizeIs(498), Not(Contains(both[0])), Contains(both[1])));
    m_clock.advance(24h * 30 + 1ms);
    EXPECT_THAT(texts(), IsEmpty());
    m_history.dropOld();
    EXPECT_THAT(files("texts"), SizeIs(3));
    EXPECT_FALSE(m_history.clear()) << "not all of it is gone";
}

// A take sent again in another way than it was meant; one that is lost with its route, or that
// stays for ever.
TEST_F(KeepingTest, theNewestTakeComesWithItsRouteWithinTheLimits) {
    using enum TakeRoute::Kind;
    for (const TakeRoute& route :
         {TakeRoute{raw, "mistral", "Vocabulaire : a\n\"b\"", "Brute", std::nullopt, ""},
          TakeRoute{combined, "openai", std::nullopt, "Email", "", "openai"}}) {
        ASSERT_TRUE(keep(5, route));
        EXPECT_EQ(m_takes.newest()->route, route);
    }
    for (const char* damage : {"{", "[]", R"({"route": 7})", R"({"route": "other"})"}) {
        std::ofstream(files("takes").back().replace_extension(".json")) << damage;
        EXPECT_EQ(m_takes.newest()->route, TakeRoute()) << damage;
    }
    for (int i = 0; i < 19; ++i)
        ASSERT_TRUE(keep(5));
    EXPECT_THAT(files("takes"), SizeIs(40));
    m_takes.remove(*m_takes.newest());
    EXPECT_THAT(files("takes"), SizeIs(38));
    ASSERT_TRUE(keep(60'000'000));
    EXPECT_THAT(files("takes"), SizeIs(40));
    ASSERT_TRUE(keep(40'000'001));
    EXPECT_THAT(files("takes"), SizeIs(2));
    EXPECT_FALSE(keep(100'000'001));
    EXPECT_EQ(fs::file_size(m_takes.newest()->entry.file), 40'000'001u);
    m_clock.advance(24h * 7);
    m_takes.dropOld();
    EXPECT_THAT(files("takes"), IsEmpty());
}

// A full disk or a folder that takes nothing: half an entry, or a crash.
TEST_F(KeepingTest, whatCannotBeWrittenLeavesNothingBehind) {
    ASSERT_TRUE(m_history.add("before", "Email"));
    std::ofstream(m_folder / "take.m4a") << std::string(5000, 'x');
    {
        const FileSizeLimit disk(1000);
        EXPECT_THAT(m_history.add(std::string(5000, 'x'), "Email").error().description,
                    HasSubstr("File too large"));
        EXPECT_FALSE(m_takes.keep(m_folder / "take.m4a", {}));
    }
    EXPECT_THAT(texts(), ElementsAre("Email: before"));
    EXPECT_THAT(files("takes"), IsEmpty());
    // /sys takes no folder of anybody's, not even of root's.
    EXPECT_FALSE(TextHistory("/sys/nulo", m_clock).add("x", "Email"));
}

// Two programs that write over each other's texts, or show half of one.
TEST_F(KeepingTest, processesDoNotGetInEachOthersWay) {
    const auto write = [this] {
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(TextHistory(m_state, m_clock).add(std::string(10'000, 'x'), ""));
    };
    std::thread one(write), two(write);
    for (std::size_t seen = 0; seen < 40; seen = m_history.read().texts.size())
        EXPECT_EQ(m_history.read().unreadable, 0u);
    one.join();
    two.join();
}

// A text that is given out in place of another, or memory that a service fills.
TEST(RecentTexts, countsBackToTheTenthAndNoFurther) {
    RecentTexts recent;
    for (int i = 1; i <= 12; ++i)
        recent.add(std::to_string(i));
    const std::optional<std::string> expected[] = {{}, "12", "11", "3", {}};
    for (const std::size_t back : {0, 1, 2, 10, 11})
        EXPECT_EQ(recent.text(back), expected[back > 2 ? back - 7 : back]);
    for (int i = 0; i < 3; ++i)
        recent.add(std::string(8'000'000, 'x'));
    EXPECT_NE(recent.text(2), std::nullopt);
    EXPECT_EQ(recent.text(3), std::nullopt);
}

}  // namespace
}  // namespace nulo
