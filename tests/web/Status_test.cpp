#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "StatusJson.h"
#include "StatusPage.h"
#include "VisibleText.h"
#include "WebFixture.h"

namespace kvhosttest {
namespace {

using kvhost::EscapeHtml;
using kvhost::StatusJson;
using kvhost::StatusPage;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class StatusTest : public WebTest {
protected:
    json Json() { return json::parse(StatusJson(m_reporter.Report(kvhost::StoreNow()))); }
    std::string Page() { return StatusPage(m_reporter.Report(kvhost::StoreNow())); }

    void SetTrouble(const std::string& trouble, std::chrono::milliseconds untilProbe) {
        kvhost::RunSnapshot run = RunningSnapshot();
        run.carriers["west"] = {3, true, kvhost::StoreNow() + untilProbe, trouble};
        m_status.Set(run);
    }
};

TEST_F(StatusTest, TheStateOfTheDaemonIsShown) {
    const json status = Json();
    EXPECT_EQ(status["phase"], "running");
    EXPECT_EQ(status["ready"], true);
    EXPECT_EQ(status["why"], "");
    EXPECT_EQ(status["driver"], "SMTP 1.0");
    EXPECT_EQ(status["uptime"], "1 min 30 s");
    EXPECT_THAT(Page(), HasSubstr("<span id=\"phase\" class=\"badge good\">running</span>"));
    EXPECT_THAT(Page(), HasSubstr("<span id=\"driver\">SMTP 1.0</span>"));
}

TEST_F(StatusTest, WhyTheDaemonIsNotReadyIsShown) {
    kvhost::RunSnapshot run = RunningSnapshot();
    run.storeTrouble = "disk <full>";
    m_status.Set(run);
    EXPECT_EQ(Json()["ready"], false);
    EXPECT_EQ(Json()["why"], "the store cannot be used: disk <full>");
    EXPECT_THAT(Page(),
                HasSubstr("class=\"bad\" role=\"status\">the store cannot be used: disk &lt;full&gt;</p>"));
    EXPECT_THAT(Page(), HasSubstr("<span id=\"phase\" class=\"badge bad\">"));
}

TEST_F(StatusTest, JobsAreShownByCarrierAndState) {
    Submit(Mail("a"));
    Submit(Mail("b", "gone"));
    const json status = Json();
    ASSERT_EQ(status["carriers"].size(), 3U);
    EXPECT_EQ(status["carriers"][0]["name"], "east");
    EXPECT_EQ(status["carriers"][0]["jobs"]["queued"], 1);
    EXPECT_EQ(status["carriers"][0]["condition"], "in order");
    EXPECT_EQ(status["carriers"][1]["configured"], false);
    EXPECT_EQ(status["carriers"][1]["condition"], "not in the configuration");
    EXPECT_EQ(status["jobs"]["queued"], 2);
    EXPECT_EQ(status["figures"]["queued"], "2");
    EXPECT_THAT(Page(), HasSubstr("<dd id=\"figure-queued\">2</dd>"));
    EXPECT_THAT(Page(), HasSubstr("<tr><th scope=\"row\">east</th><td class=\"number\">1</td>"));
}

TEST_F(StatusTest, ACarrierInTroubleIsShownWithItsCauseAndItsNextProbe) {
    SetTrouble("connection refused", std::chrono::milliseconds(-1));
    const json carrier = Json()["carriers"][1];
    EXPECT_EQ(carrier["in_trouble"], true);
    EXPECT_EQ(carrier["trouble"], "connection refused");
    EXPECT_EQ(carrier["condition"], "in trouble, next probe now: connection refused");
    EXPECT_THAT(Page(),
                HasSubstr("<td class=\"text bad\">in trouble, next probe now: connection refused</td>"));
    SetTrouble("connection refused", std::chrono::minutes(10) + std::chrono::seconds(30));
    EXPECT_THAT(Json()["carriers"][1]["condition"], HasSubstr("next probe in 10 min"));
}

TEST_F(StatusTest, TheOldestQueuedJobIsShownWithItsAge) {
    EXPECT_EQ(Json()["figures"]["oldest"], "\u2013");
    Submit(Mail("a"));  // the clock of these tests stands in 2023
    EXPECT_THAT(Json()["figures"]["oldest"], testing::ContainsRegex("^[0-9]+ d"));
}

TEST_F(StatusTest, WhatWaitsIsShownWithItsSubject) {
    EXPECT_THAT(Page(), HasSubstr("id=\"waiting-none\">No job is queued"));
    Submit(Mail("a"));
    const json waiting = Json()["waiting"];
    ASSERT_EQ(waiting.size(), 1U);
    EXPECT_EQ(waiting[0]["job"], "a");
    EXPECT_EQ(waiting[0]["subject"], "Boiler");
    EXPECT_EQ(waiting[0]["state"], "queued");
    EXPECT_EQ(waiting[0]["due"], "2023-11-14T22:13:20.000Z");
    EXPECT_THAT(Page(), HasSubstr("<td class=\"text\">Boiler</td>"));
    EXPECT_THAT(Page(), HasSubstr("<td class=\"time\">2023-11-14 22:13:20</td>"));
}

TEST_F(StatusTest, FailuresAreShownWithReasonAndDecision) {
    m_recent.AttemptEnded(FailedAttempt("550 no such user"));
    const json failure = Json()["failures"][0];
    EXPECT_EQ(failure["reason"], "550 no such user");
    EXPECT_EQ(failure["decision"], "given up");
    EXPECT_EQ(failure["state"], "failed");
    EXPECT_EQ(failure["time"], "2023-11-14T22:13:21.500Z");
    EXPECT_THAT(Page(),
                HasSubstr("<td class=\"text\">550 no such user</td><td class=\"text\">given up</td>"));
}

TEST_F(StatusTest, TheLastHourIsDrawn) {
    kvhost::AttemptReport delivered = DeliveredAttempt();
    kvhost::AttemptReport failed = FailedAttempt("no");
    const kvhost::StoreTime now = kvhost::StoreNow();
    delivered.ended = now;
    failed.ended = now;
    for (int i = 0; i < 3; ++i) {
        m_recent.AttemptEnded(delivered);
    }
    m_recent.AttemptEnded(failed);
    const kvhost::StatusReport report = m_reporter.Report(now);
    const std::string page = StatusPage(report);
    EXPECT_EQ(report.hourSummary, "3 delivered, 0 to be retried, 1 failed; at most 4 in a minute");
    EXPECT_THAT(page, HasSubstr("aria-label=\"" + report.hourSummary + "\""));
    EXPECT_THAT(page,
                HasSubstr("<rect class=\"delivered\" x=\"591\" y=\"25.00\" width=\"8\" height=\"75.00\"/>"
                          "<rect class=\"failed\" x=\"591\" y=\"0.00\" width=\"8\" height=\"25.00\"/></g>"));
    const json minute = json::parse(StatusJson(report))["last_hour"][59];
    EXPECT_EQ(minute["delivered"], 3);
    EXPECT_EQ(minute["failed"], 1);
}

TEST_F(StatusTest, AStoreThatCannotBeReadIsTold) {
    kvhost::StoreWatch none(m_dir.file("none"));
    const kvhost::StatusReporter reporter(m_status, none, m_recent, m_pSecrets);
    const kvhost::StatusReport report = reporter.Report(kvhost::StoreNow());
    EXPECT_THAT(StatusPage(report), HasSubstr("The store cannot be read: "));
    EXPECT_EQ(json::parse(StatusJson(report))["figures"]["queued"], "?");
}

const char* const kHostile = "</td><script>alert('x')</script> \"&amp; \xE2\x80\xAE\xff\r\n\x1b[31m";

TEST_F(StatusTest, HostileTextStaysText) {
    kvhost::Submission submission = Mail("<b>job</b>");
    submission.recipients = {"<i>@example.org"};
    submission.subject = kHostile;
    Submit(submission);
    kvhost::AttemptReport report = FailedAttempt(kHostile);
    report.decision = kHostile;
    m_recent.AttemptEnded(report);
    SetTrouble(kHostile, std::chrono::minutes(1));
    const std::string page = Page();
    EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
    EXPECT_THAT(page, Not(HasSubstr("<b>job")));
    EXPECT_THAT(page, Not(HasSubstr("<i>@")));
    EXPECT_THAT(page, Not(HasSubstr("\x1b")));
    EXPECT_THAT(page,
                HasSubstr("<td class=\"text\">&lt;/td&gt;&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt; "
                          "&quot;&amp;amp; \xE2\x80\xAE&lt;FF&gt;&lt;CR&gt;&lt;LF&gt;&lt;ESC&gt;[31m</td>"));
    const json status = Json();
    EXPECT_EQ(status["waiting"][0]["subject"], kvhost::MakeVisible(kHostile));
    EXPECT_EQ(status["failures"][0]["reason"], kvhost::MakeVisible(kHostile));
}

TEST_F(StatusTest, NoScriptStandsInThePage) {
    const std::string page = Page();
    EXPECT_THAT(page, HasSubstr("<script src=\"status.js\" defer></script>"));
    EXPECT_EQ(page.find("<script"), page.rfind("<script"));
    EXPECT_THAT(page, Not(testing::ContainsRegex(" on[a-z]+=| style=|https?://")));
}

TEST(EscapeHtmlTest, WhatMeansSomethingInMarkupIsEscaped) {
    EXPECT_EQ(EscapeHtml("a<b>&\"c'"), "a&lt;b&gt;&amp;&quot;c&#39;");
}

}  // namespace
}  // namespace kvhosttest
