#include <gtest/gtest.h>
#include <sched.h>

#include <atomic>
#include <fstream>

#include "rig/process/TemporaryFolder.h"
#include "rig/process/WaitUntil.h"
#include "service/offline/KeptEngines.h"
#include "service/offline/MeantWords.h"
#include "service/offline/PhysicalCores.h"

namespace nulo::service {
namespace {

std::string times(int count, const std::string& text) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

TEST(MeantWords, loseMarksButNoWords) {
    const std::pair<const char*, const char*> cases[] = {
        {"[BLANK_AUDIO]", ""},
        {" [Musique] Bonjour. (rires) Ça va ? ", "Bonjour. Ça va ?"},
        {"♪ la la la ♪ Bonjour ♪", "Bonjour"},
        {"*Soupir* Oui. (Laughter)", "Oui."},
        {"Le prix (hors taxes) est 2 * 3 * 4.", "Le prix (hors taxes) est 2 * 3 * 4."},
        {"un [crochet qui ne se ferme pas", "un [crochet qui ne se ferme pas"},
        {"♪", ""},
    };
    for (const auto& [heard, meant] : cases)
        EXPECT_EQ(withoutMarks(heard), meant);
}

TEST(MeantWords, areNotRepeatedWithoutAnEnd) {
    const std::pair<std::string, std::string> cases[] = {
        {"Bonjour. " + times(40, "Merci. "), "Bonjour. Merci."},
        {"J'ai dit " + times(9, "que tout va bien, ") + "que tout",
         "J'ai dit que tout va bien, que tout"},
        {times(60, "é"), "é"},
        {times(30, "ありがとう"), "ありがとう"},
        // What people say.
        {"non non non non non non, très très très bien", ""},
        {"0000 0000 0000 0000 0000", ""},
        {times(4, "Je suis venu te dire que je m'en vais. "), ""},
        {"", ""},
    };
    for (const auto& [heard, meant] : cases)
        EXPECT_EQ(withoutEndlessRepetition(heard),
                  meant.empty() ? heard.substr(0, heard.find_last_not_of(' ') + 1) : meant);
}

TEST(MeantWords, knowHowFilmsEnd) {
    for (const char* text : {" Sous-titres réalisés par la communauté.", "Thanks for watching!",
                             "Sous-titrage Société Radio-Canada"})
        EXPECT_TRUE(isFilmEnding(text)) << text;
    for (const char* text : {"", "Merci.", "Merci d'avoir regardé. Je t'appelle demain matin.",
                             "Je fais les sous-titres."})
        EXPECT_FALSE(isFilmEnding(text)) << text;
}

/// As FakeClock, for the thread that looks at it too.
class SharedClock final : public Clock {
  public:
    Instant now() const override { return Instant(std::chrono::hours(1) + passed.load()); }
    WallTime wallTime() const override { return {}; }
    std::atomic<std::chrono::seconds> passed = std::chrono::seconds(0);
};

class KeptEnginesTest : public testing::Test {
  protected:
    struct Engine final : SpeechEngine {
        explicit Engine(KeptEnginesTest& one) : test(one) { ++test.alive, ++test.made; }
        ~Engine() override { --test.alive; }
        Transcript hear(std::span<const std::int16_t>, const SpeechHints&,
                        const StillWanted&) override {
            return {};
        }
        KeptEnginesTest& test;
    };
    const MakeEngine make = [this] {
        return Result<std::unique_ptr<SpeechEngine>>(std::make_unique<Engine>(*this));
    };
    std::atomic<int> alive = 0, made = 0;
    std::atomic<bool> outdated = false;
    SharedClock clock;
};

TEST_F(KeptEnginesTest, areLoadedAheadAndLetGoWhenNobodyComes) {
    using std::chrono::minutes;
    KeptEngines engines(make, clock, minutes(10), [this] { return outdated.load(); });
    EXPECT_FALSE(engines.letGoOfUnused());
    engines.warmUp();
    ASSERT_TRUE(waitUntil([&] { return made == 1; }));
    auto one = engines.take();
    auto other = engines.take();
    EXPECT_EQ(made, 2);  // the first was the one that was being loaded
    clock.passed = minutes(60);
    EXPECT_FALSE(engines.letGoOfUnused());
    EXPECT_EQ(alive, 2);  // they are at work
    engines.putBack(std::move(one).value());
    engines.putBack(std::move(other).value());
    EXPECT_EQ(engines.letGoOfUnused(), minutes(10));
    clock.passed = minutes(69);
    engines.warmUp();  // one is there, and is wanted soon
    clock.passed = minutes(78);
    EXPECT_EQ(engines.letGoOfUnused(), minutes(1));
    clock.passed = minutes(79);
    engines.letGoOfUnused();
    EXPECT_TRUE(waitUntil([&] { return alive == 0; }));
    EXPECT_EQ(made, 2);
}

TEST_F(KeptEnginesTest, stayForTheTakeTheyWereLoadedFor) {
    using std::chrono::seconds;
    KeptEngines engines(make, clock, seconds(0), [this] { return outdated.load(); });
    engines.warmUp();
    ASSERT_TRUE(waitUntil([&] { return made == 1; }));
    auto engine = engines.take();
    engines.putBack(std::move(engine).value());
    EXPECT_FALSE(engines.letGoOfUnused());
    engines.warmUp();
    ASSERT_TRUE(waitUntil([&] { return made == 2; }));
    outdated = true;
    engines.putBack(engines.take().value());
    EXPECT_EQ(made, 3);
    engines.letGoOfUnused();
    EXPECT_TRUE(waitUntil([&] { return alive == 0; }));
}

TEST(PhysicalCores, countsEachOnce) {
    const TemporaryFolder system;
    cpu_set_t mine;
    ASSERT_EQ(sched_getaffinity(0, sizeof mine, &mine), 0);
    const auto all = static_cast<unsigned>(CPU_COUNT(&mine));
    EXPECT_EQ(physicalCores(system.path()), all);  // where nothing is told
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        const auto folder = system / ("devices/system/cpu/cpu" + std::to_string(cpu) + "/topology");
        if (CPU_ISSET(cpu, &mine) && std::filesystem::create_directories(folder))
            std::ofstream(folder / "thread_siblings_list") << "0-1\n";
    }
    EXPECT_EQ(physicalCores(system.path()), 1U);
}

}  // namespace
}  // namespace nulo::service
