#include "app/start/KeyService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nulo {
namespace {

using keytap::Reason;
using State = KeytapConnection::State;
using Verdict = Finding::Verdict;

// A fault where the service does all that it should beside a running Nulo; advice that is missing;
// a session that waits for a service that will not serve it, although the desktop has another way.
TEST(KeyService, isJudgedByWhatItAnswers) {
    constexpr auto on = KeytapInstallation::on;
    const struct {
        KeytapInstallation installation;
        KeytapConnection::Status status;
        bool nuloRuns;
        Verdict asOnlyWay, besideAnother;
        bool isUsable;
        const char* text;
    } rows[] = {
        {KeytapInstallation::none, {}, false, Verdict::broken, Verdict::good, false, "not inst"},
        {KeytapInstallation::off, {}, false, Verdict::broken, Verdict::weak, false, "socket is"},
        {on, {}, false, Verdict::broken, Verdict::weak, false, "not switched on"},
        {on, {State::asked}, false, Verdict::weak, Verdict::weak, true, "not answered"},
        {on, {State::refused}, false, Verdict::broken, Verdict::weak, false, "does not answer"},
        {on,
         {State::refused, Reason::otherSession},
         true,
         Verdict::broken,
         Verdict::weak,
         false,
         "sit at this machine"},
        {on,
         {State::refused, Reason::secondClient},
         false,
         Verdict::broken,
         Verdict::weak,
         false,
         "another program of yours"},
        {on,
         {State::refused, Reason::secondClient},
         true,
         Verdict::good,
         Verdict::good,
         false,
         "as Nulo is while it runs"},
        {on,
         {State::admitted, Reason::noUinput},
         false,
         Verdict::broken,
         Verdict::weak,
         false,
         "/dev/uinput"},
        {on,
         {State::admitted, Reason::none, true, "no such key"},
         false,
         Verdict::broken,
         Verdict::weak,
         false,
         "no such key"},
        {on,
         {State::admitted, Reason::noKeyboard},
         false,
         Verdict::broken,
         Verdict::weak,
         true,
         "no keyboard"},
        {on,
         {State::admitted, Reason::keyboardTaken, true},
         false,
         Verdict::weak,
         Verdict::weak,
         true,
         "serves this program, but another program has taken a keyboard"},
        {on,
         {State::admitted, Reason::locked},
         false,
         Verdict::good,
         Verdict::good,
         true,
         "not yet: the screen is locked"},
        {on,
         {State::admitted, Reason::none, true},
         false,
         Verdict::good,
         Verdict::good,
         true,
         "serves this program"},
    };
    for (const auto& row : rows) {
        for (const bool isOnlyWay : {true, false}) {
            const Finding finding =
                judgedKeytap(row.installation, row.status, row.nuloRuns, isOnlyWay);
            EXPECT_EQ(finding.verdict, isOnlyWay ? row.asOnlyWay : row.besideAnother) << row.text;
            EXPECT_THAT(finding.text, testing::HasSubstr(row.text));
            EXPECT_EQ(finding.advice.empty(), finding.verdict == Verdict::good) << finding.text;
        }
        EXPECT_EQ(isUsable(row.status), row.isUsable) << row.text;
    }
}

}  // namespace
}  // namespace nulo
