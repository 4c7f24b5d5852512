#include "SubmissionRoutes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <thread>

#include "BearerToken.h"
#include "Eventually.h"
#include "JobViews.h"
#include "TempDir.h"

namespace kvhost {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kToken = "0123456789abcdef";
constexpr const char* kType = "application/json";

class SubmissionRoutesTest : public testing::Test {
protected:
    SubmissionRoutesTest() {
        HostConfig config;
        config.carriers["pager"].name = "pager";
        config.http.takesJobs = true;
        config.http.token = kToken;
        Use(config);
        m_routes.Register(m_server);
        m_nPort = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        EXPECT_TRUE(kvtest::Eventually([this] { return m_server.is_running(); }));
    }
    ~SubmissionRoutesTest() override {
        m_server.stop();
        m_thread.join();
    }

    static json Mail(const std::string& id, const std::string& text = "cold") {
        return {{"id", id}, {"carrier", "pager"}, {"recipient", "ops@example.org"}, {"text", text}};
    }

    void Use(const HostConfig& config) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_config = std::make_shared<const HostConfig>(config);
    }
    HostConfig Config() { return *Current(); }
    std::shared_ptr<const HostConfig> Current() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_config;
    }

    httplib::Client Client(const std::string& token = kToken) const {
        httplib::Client client("127.0.0.1", m_nPort);
        client.set_keep_alive(true);
        if (!token.empty()) {
            client.set_default_headers({{"Authorization", "Bearer " + token}});
        }
        return client;
    }
    httplib::Response Post(const std::string& body, const std::string& type = kType,
                           const std::string& token = kToken) {
        httplib::Client client = Client(token);
        const auto result = client.Post("/v1/jobs", body, type);
        EXPECT_TRUE(result) << to_string(result.error());
        return result ? result.value() : httplib::Response();
    }
    httplib::Response Post(const json& body) { return Post(body.dump()); }
    httplib::Response Get(const std::string& path, const std::string& token = kToken) {
        httplib::Client client = Client(token);
        const auto result = client.Get(path);
        EXPECT_TRUE(result) << to_string(result.error());
        return result ? result.value() : httplib::Response();
    }
    std::vector<JobHistory> Show(const std::string& id) {
        StoreDatabase store(m_folder.path(), StoreDatabase::Access::Existing);
        return JobViews(store).Show(id);
    }

    const kvtest::TempDir m_folder;
    StoreDatabase m_store{m_folder.path(), StoreDatabase::Access::Create};
    std::mutex m_mutex;
    std::shared_ptr<const HostConfig> m_config;
    std::vector<std::string> m_vecTroubles;  ///< guarded by m_mutex
    SubmissionRoutes m_routes{m_folder.path(), [this] { return Current(); },
                              [this](const std::string& text) {
                                  const std::lock_guard<std::mutex> lock(m_mutex);
                                  m_vecTroubles.push_back(text);
                              }};
    httplib::Server m_server;
    int m_nPort = 0;
    std::thread m_thread;
};

TEST_F(SubmissionRoutesTest, AJobIsStoredOnceAndRepeatedAfterwards) {
    const httplib::Response first = Post(Mail("a"));
    EXPECT_EQ(first.status, 201);
    EXPECT_EQ(first.get_header_value("Content-Type"), kType);
    EXPECT_EQ(json::parse(first.body), json({{"id", "a"}, {"status", "stored"}}));
    EXPECT_EQ(Show("a").at(0).text, "cold");
    const httplib::Response second = Post(Mail("a"));
    EXPECT_EQ(second.status, 200);
    EXPECT_EQ(json::parse(second.body), json({{"id", "a"}, {"status", "repeated"}}));
}

TEST_F(SubmissionRoutesTest, AnotherJobUnderTheSameIdIsAConflict) {
    Post(Mail("a"));
    const httplib::Response answer = Post(Mail("a", "hot"));
    EXPECT_EQ(answer.status, 409);
    const json body = json::parse(answer.body);
    EXPECT_EQ(body["status"], "conflict");
    EXPECT_EQ(body["error"], "another submission has this id");
    EXPECT_EQ(body["faults"][0]["field"], "id");
}

TEST_F(SubmissionRoutesTest, ARefusedJobNamesItsFaults) {
    json mail = Mail("a");
    mail["recipient"] = "a@b\r\nDATA";
    mail["attachments"] = {"/etc/passwd"};
    const httplib::Response answer = Post(mail);
    EXPECT_EQ(answer.status, 422);
    const json body = json::parse(answer.body);
    EXPECT_EQ(body["status"], "refused");
    EXPECT_EQ(body["error"], "the submission is refused");
    ASSERT_EQ(body["faults"].size(), 2U);
    EXPECT_EQ(body["faults"][0]["field"], "attachments[1]");
    EXPECT_THAT(body["faults"][0]["text"].get<std::string>(), HasSubstr("cannot be named over the network"));
    EXPECT_EQ(body["faults"][1]["field"], "recipient");
    EXPECT_THAT(Show("a"), IsEmpty());
}

TEST_F(SubmissionRoutesTest, AnAttachmentComesAsBase64) {
    json mail = Mail("a");
    mail["attachments"] = {{{"name", "note.txt"}, {"content_base64", "aGVsbG8="}}};
    EXPECT_EQ(Post(mail).status, 201);
    EXPECT_EQ(Show("a").at(0).attachments.at(0).size, 5U);
}

TEST_F(SubmissionRoutesTest, AnAbsentIdIsTold) {
    json mail = Mail("a");
    mail.erase("id");
    const httplib::Response answer = Post(mail);
    EXPECT_EQ(answer.status, 201);
    EXPECT_EQ(Show(json::parse(answer.body)["id"].get<std::string>()).size(), 1U);
}

TEST_F(SubmissionRoutesTest, SeveralJobsGetAReceiptEach) {
    Post(Mail("c"));
    Post(Mail("d"));
    const json mails = {Mail("a"), {{"id", "b"}}, Mail("c"), Mail("d", "hot")};
    for (const json& body : {mails, json({{"jobs", mails}})}) {
        const httplib::Response answer = Post(body);
        EXPECT_EQ(answer.status, 200);
        const json jobs = json::parse(answer.body)["jobs"];
        ASSERT_EQ(jobs.size(), 4U);
        EXPECT_EQ(jobs[1]["status"], "refused");
        EXPECT_EQ(jobs[1]["http_status"], 422);
        EXPECT_EQ(jobs[2]["http_status"], 200);
        EXPECT_EQ(jobs[3]["http_status"], 409);
    }
    EXPECT_EQ(Show("a").size(), 1U);
    EXPECT_EQ(json::parse(Post(json::array({Mail("e")})).body)["jobs"][0]["http_status"], 201);
}

TEST_F(SubmissionRoutesTest, WithoutTheTokenNothingIsTakenOrTold) {
    Post(Mail("a"));
    for (const char* token : {"", "wrong", "0123456789abcdeX", "0123456789abcdef0", "0123456789abcde"}) {
        for (const httplib::Response& answer :
             {Post(Mail("b").dump(), kType, token), Get("/v1/jobs/a", token), Get("/v1/jobs/zzz", token)}) {
            EXPECT_EQ(answer.status, 401) << token;
            EXPECT_EQ(answer.get_header_value("WWW-Authenticate"), "Bearer");
            EXPECT_EQ(json::parse(answer.body)["error"],
                      "expected the header \"Authorization: Bearer TOKEN\" with the token");
        }
    }
    EXPECT_THAT(Show("b"), IsEmpty());
}

TEST_F(SubmissionRoutesTest, TheConnectionServesOnAfterARefusedBody) {
    httplib::Client client = Client("");
    const std::string body(300000, 'x');
    ASSERT_EQ(client.Post("/v1/jobs", body, kType)->status, 401);
    client.set_default_headers({{"Authorization", std::string("Bearer ") + kToken}});
    ASSERT_EQ(client.Post("/v1/jobs", body, "text/plain")->status, 415);
    EXPECT_EQ(client.Post("/v1/jobs", Mail("a").dump(), kType)->status, 201);
}

TEST_F(SubmissionRoutesTest, NoJobsAreTakenWhereTheConfigurationSaysSo) {
    HostConfig config = Config();
    config.http.takesJobs = false;
    Use(config);
    EXPECT_EQ(Post(Mail("a")).status, 403);
    EXPECT_EQ(Get("/v1/jobs/a").status, 403);
}

TEST_F(SubmissionRoutesTest, AConfigurationThatWasReadAnewApplies) {
    HostConfig config = Config();
    config.http.token = "fedcba9876543210";
    config.carriers["mail"].name = "mail";
    Use(config);
    EXPECT_EQ(Post(Mail("a")).status, 401);
    json mail = Mail("a");
    mail["carrier"] = "mail";
    EXPECT_EQ(Post(mail.dump(), kType, "fedcba9876543210").status, 201);
}

TEST_F(SubmissionRoutesTest, ABodyOfAnotherTypeIsRefused) {
    for (const char* type : {"text/plain", "application/x-www-form-urlencoded", "application/jsonx",
                             "multipart/form-data; boundary=x"}) {
        const httplib::Response answer = Post(Mail("a").dump(), type);
        EXPECT_EQ(answer.status, 415) << type;
        EXPECT_THAT(answer.body, HasSubstr("expected the content type application/json")) << type;
    }
    EXPECT_EQ(Post(Mail("a").dump(), "Application/JSON; charset=utf-8").status, 201);
}

TEST_F(SubmissionRoutesTest, ABodyThatIsTooLargeIsRefused) {
    HostConfig config = Config();
    config.http.bodyBytes = 1000;
    Use(config);
    const httplib::Response answer = Post(Mail("a", std::string(1000, 'x')));
    EXPECT_EQ(answer.status, 413);
    EXPECT_EQ(json::parse(answer.body)["error"],
              "expected a body of at most 1000 bytes (http.body_bytes); make several requests of it");
    const std::string rest = Mail("a", "").dump();
    EXPECT_EQ(Post(Mail("a", std::string(1000 - rest.size(), 'x'))).status, 201);
}

TEST_F(SubmissionRoutesTest, ABodyInPiecesHasTheSameLimit) {
    HostConfig config = Config();
    config.http.bodyBytes = 1000;
    Use(config);
    for (const std::size_t size : {std::size_t{10}, std::size_t{5000}}) {
        httplib::Client client = Client();
        const std::string body = Mail("a", std::string(size, 'x')).dump();
        const auto result = client.Post(
            "/v1/jobs",
            [&body](std::size_t, httplib::DataSink& sink) {
                sink.write(body.data(), body.size());
                sink.done();
                return true;
            },
            kType);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, size == 10 ? 201 : 413);
    }
}

TEST_F(SubmissionRoutesTest, WhatIsNoSubmissionIsRefusedWithItsPlace) {
    const auto errorOf = [this](const std::string& body) {
        const httplib::Response answer = Post(body);
        EXPECT_EQ(answer.status, 400) << body;
        const json error = json::parse(answer.body);
        EXPECT_EQ(error["faults"], json::array());
        return error["error"].get<std::string>();
    };
    EXPECT_EQ(errorOf("{\"id\":"),
              "malformed JSON at byte 7, expected a JSON object or an array of them, in UTF-8");
    EXPECT_THAT(errorOf("{\"id\":\"\xff\"}"), HasSubstr("malformed JSON at byte 8"));
    EXPECT_THAT(errorOf(""), HasSubstr("malformed JSON at byte 1"));
    EXPECT_EQ(errorOf("7"), "expected a JSON object or an array of them, found a number");
    EXPECT_EQ(errorOf("[]"), "expected at least one submission, found an empty array");
    EXPECT_EQ(errorOf("{\"jobs\":7}"), "expected an array as the only field \"jobs\"");
    EXPECT_EQ(errorOf("{\"jobs\":[],\"id\":1}"), "expected an array as the only field \"jobs\"");
    EXPECT_EQ(errorOf("{\"n\":1e999}"), "expected submissions, found a number that is too large");
    EXPECT_THAT(errorOf("[{\"id\":\"a\",\"text\":\"\",\"id\":\"b\"}]"),
                HasSubstr("expected every field once, found \"id\" twice"));
    EXPECT_THAT(errorOf(std::string(100000, '[')), HasSubstr("nested more than 8 deep"));
    EXPECT_THAT(errorOf(json(std::vector<int>(1001, 0)).dump()),
                HasSubstr("at most 1000 submissions, found 1001"));
}

TEST_F(SubmissionRoutesTest, FieldsOfTwoObjectsMayHaveOneName) {
    EXPECT_EQ(Post(json::array({Mail("a"), Mail("b")})).status, 200);
    json mail = Mail("c");
    mail["attachments"] = {{{"name", "n"}, {"content_base64", ""}}, {{"name", "n"}, {"content_base64", ""}}};
    EXPECT_EQ(Post(mail).status, 201);
}

TEST_F(SubmissionRoutesTest, AJobTellsHowItStands) {
    json mail = Mail("a");
    mail["deadline"] = "2099-01-01T00:00:00Z";
    mail["not_before"] = "2098-01-01T00:00:00Z";
    Post(mail);
    const httplib::Response answer = Get("/v1/jobs/a");
    EXPECT_EQ(answer.status, 200);
    const json jobs = json::parse(answer.body)["jobs"];
    ASSERT_EQ(jobs.size(), 1U);
    json job = jobs[0];
    for (const char* time : {"submitted", "changed"}) {
        EXPECT_THAT(job[time].get<std::string>(), testing::MatchesRegex("20.*T.*Z"));
        job.erase(time);
    }
    EXPECT_EQ(job, json({{"id", "a"},
                         {"carrier", "pager"},
                         {"recipient", "ops@example.org"},
                         {"state", "queued"},
                         {"attempts", 0},
                         {"reason", ""},
                         {"decision", ""},
                         {"due", "2098-01-01T00:00:00.000Z"},
                         {"deadline", "2099-01-01T00:00:00.000Z"}}));
}

TEST_F(SubmissionRoutesTest, ASubmissionTellsAllItsJobsAndEachHasAName) {
    json mail = Mail("a b");
    mail.erase("recipient");
    mail["recipients"] = {"x@example.org", "y@example.org"};
    Post(mail);
    EXPECT_EQ(json::parse(Get("/v1/jobs/a%20b").body)["jobs"].size(), 2U);
    for (const char* path : {"/v1/jobs/a%20b/2", "/v1/jobs/a%20b%2F2"}) {
        const json jobs = json::parse(Get(path).body)["jobs"];
        ASSERT_EQ(jobs.size(), 1U);
        EXPECT_EQ(jobs[0]["recipient"], "y@example.org");
    }
}

TEST_F(SubmissionRoutesTest, AnUnknownJobIsNotFound) {
    const httplib::Response answer = Get("/v1/jobs/none");
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(json::parse(answer.body),
              json({{"error", "there is no job and no submission of this id"}, {"faults", json::array()}}));
}

TEST_F(SubmissionRoutesTest, AStoreThatCannotBeUsedIsToldWithoutItsPath) {
    std::filesystem::remove(m_folder.file("jobs.db"));
    for (const httplib::Response& answer : {Post(Mail("a")), Get("/v1/jobs/a")}) {
        EXPECT_EQ(answer.status, 503);
        EXPECT_EQ(answer.get_header_value("Retry-After"), "5");
        EXPECT_THAT(answer.body, HasSubstr("the job store cannot be used at the moment"));
        EXPECT_THAT(answer.body, testing::Not(HasSubstr(m_folder.path())));
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    EXPECT_THAT(m_vecTroubles,
                testing::ElementsAre(HasSubstr(m_folder.path()), HasSubstr("there is no store")));
}

TEST_F(SubmissionRoutesTest, ManySubmittersAreServedAtTheSameTime) {
    std::vector<std::thread> submitters;
    std::atomic<int> stored{0};
    for (int submitter = 0; submitter < 4; ++submitter) {
        submitters.emplace_back([this, submitter, &stored] {
            httplib::Client client = Client();
            for (int job = 0; job < 10; ++job) {
                const std::string id = std::to_string(submitter) + "-" + std::to_string(job);
                const auto result = client.Post("/v1/jobs", Mail(id).dump(), kType);
                const auto shown = client.Get("/v1/jobs/" + id);
                stored += result && result->status == 201 && shown && shown->status == 200 ? 1 : 0;
            }
        });
    }
    for (std::thread& submitter : submitters) {
        submitter.join();
    }
    EXPECT_EQ(stored, 40);
}

TEST(BearerTokenTest, ATokenIsShownWithItsScheme) {
    EXPECT_TRUE(ShowsToken("Bearer abc", "abc"));
    EXPECT_TRUE(ShowsToken("bEARER   abc", "abc"));
    for (const char* header :
         {"", "abc", "Bearer", "Bearer ", "Basic abc", "Bearer abcd", "Bearer ab", "Bearer Abc"}) {
        EXPECT_FALSE(ShowsToken(header, "abc")) << header;
    }
    EXPECT_FALSE(ShowsToken("Bearer ", ""));
}

/// The description of the interface and the code, as texts.
class OpenApiTest : public testing::Test {
protected:
    static std::string ReadFile(const std::string& path) {
        std::ifstream stream(std::string(KV_SOURCE_DIR) + path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    static std::set<std::string> Matches(const std::string& text, const std::string& pattern) {
        const std::regex regex(pattern);
        std::set<std::string> found;
        for (std::sregex_iterator at(text.begin(), text.end(), regex); at != std::sregex_iterator(); ++at) {
            found.insert((*at)[1].str());
        }
        return found;
    }

    const std::string m_strDescription = ReadFile("/docs/openapi.yaml");
    const std::string m_strCode = ReadFile("/host/web/SubmissionRoutes.cpp");
};

TEST_F(OpenApiTest, EveryStatusOfTheCodeIsDescribedAndNoOther) {
    std::set<std::string> inCode = Matches(m_strCode, "(?:Answer|AnswerError)\\(\\s*response, ([0-9]{3})");
    inCode.merge(Matches(m_strCode, "return ([0-9]{3});"));
    EXPECT_GE(inCode.size(), 10U);
    EXPECT_EQ(Matches(m_strDescription, "\n        \"([0-9]{3})\":"), inCode);
}

TEST_F(OpenApiTest, EveryRouteIsDescribed) {
    EXPECT_EQ(Matches(m_strCode, "server\\.(?:Post|Get)\\((?:R\"\\()?\"?(/v1/[a-z]+)").size(), 1U);
    EXPECT_EQ(Matches(m_strDescription, "\n  (/[^:]*):"),
              (std::set<std::string>{"/v1/jobs", "/v1/jobs/{id}"}));
}

TEST_F(OpenApiTest, EveryFieldOfAJobIsDescribed) {
    const std::string job = m_strDescription.substr(m_strDescription.find("\n    Job:"));
    const std::set<std::string> fields =
        Matches(m_strCode, "\\{\"([a-z]+)\", (?:job\\.|JobState|TimeText|TimeOr|isQueued)");
    EXPECT_GE(fields.size(), 10U);
    for (const std::string& field : fields) {
        EXPECT_THAT(job, HasSubstr("\n        " + field + ":")) << field;
    }
}

TEST_F(OpenApiTest, EveryFieldOfASubmissionIsDescribed) {
    const std::size_t begin = m_strDescription.find("\n    Submission:");
    const std::string submission =
        m_strDescription.substr(begin, m_strDescription.find("\n    Receipt:") - begin);
    const std::string parser = ReadFile("/host/submit/SubmissionParser.cpp");
    const std::set<std::string> fields =
        Matches(parser, "(?:Text|NeededText|Texts|Boolean|Node|ReadTime)\\(\"([a-z_0-9]+)\"");
    EXPECT_GE(fields.size(), 11U);
    for (const std::string& field : fields) {
        // A file cannot be named over the network.
        EXPECT_EQ(submission.find(" " + field + ":") != std::string::npos, field != "path") << field;
    }
}

}  // namespace
}  // namespace kvhost
