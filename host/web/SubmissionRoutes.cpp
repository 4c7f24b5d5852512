#include "SubmissionRoutes.h"

#include <SQLiteCpp/Exception.h>

#include <algorithm>
#include <utility>

#include "BearerToken.h"
#include "JobViews.h"
#include "StoreError.h"
#include "SubmissionBody.h"
#include "SubmissionReport.h"
#include "TimeText.h"

namespace kvhost {

namespace {

using Status = SubmissionReceipt::Status;
using nlohmann::json;

constexpr const char* kJsonType = "application/json";
constexpr const char* kRetrySeconds = "5";

void Answer(httplib::Response& response, int status, const json& body) {
    response.status = status;
    response.set_header("Cache-Control", "no-store");
    response.set_content(ToLine(body) + "\n", kJsonType);
}

void AnswerError(httplib::Response& response, int status, const std::string& text) {
    Answer(response, status, {{"error", text}, {"faults", json::array()}});
}

/// Whether a request may be served.
enum class Admission { Granted, NoToken, NoJobsTaken };

Admission Admit(const httplib::Request& request, const HostConfig& config) {
    if (!config.http.takesJobs) {
        return Admission::NoJobsTaken;
    }
    return ShowsToken(request.get_header_value("Authorization"), config.http.token) ? Admission::Granted
                                                                                    : Admission::NoToken;
}

void AnswerRefusal(httplib::Response& response, Admission admission) {
    if (admission == Admission::NoJobsTaken) {
        AnswerError(response, 403, "no jobs are taken here; the configuration has http.submit turned off");
    } else {
        response.set_header("WWW-Authenticate", "Bearer");
        AnswerError(response, 401, "expected the header \"Authorization: Bearer TOKEN\" with the token");
    }
}

bool IsJson(const httplib::Request& request) {
    std::string type = request.get_header_value("Content-Type");
    type.erase(std::min(type.find_first_of("; \t"), type.size()));
    std::transform(type.begin(), type.end(), type.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return type == kJsonType;
}

/// Reads the body up to `most` bytes; what is more, or all when most is 0, is read and dropped, because the next
/// request of the connection begins behind it. False when the body is larger or ends early.
bool ReadBody(const httplib::Request& request, const httplib::ContentReader& reader, std::uint64_t most,
              std::string& body, bool& isTooLarge) {
    const auto receive = [&](const char* data, std::size_t size) {
        isTooLarge = isTooLarge || size > most - body.size();
        if (!isTooLarge) {
            body.append(data, size);
        }
        return true;
    };
    if (request.is_multipart_form_data()) {
        return reader([](const httplib::MultipartFormData&) { return true; }, receive);
    }
    return reader(receive);
}

int StatusOf(const SubmissionReceipt& receipt) {
    switch (receipt.status) {
        case Status::Stored:
            return 201;
        case Status::Repeated:
            return 200;
        case Status::Conflict:
            return 409;
        case Status::Refused:
            break;
    }
    return 422;
}

json ReceiptBody(const SubmissionReceipt& receipt) {
    json body = ToJson(receipt);
    if (receipt.status == Status::Conflict) {
        body["error"] = "another submission has this id";
    } else if (receipt.status == Status::Refused) {
        body["error"] = "the submission is refused";
    }
    return body;
}

void AnswerReceipts(httplib::Response& response, const std::vector<SubmissionReceipt>& receipts) {
    json jobs = json::array();
    for (const SubmissionReceipt& receipt : receipts) {
        json job = ReceiptBody(receipt);
        job["http_status"] = StatusOf(receipt);
        jobs.push_back(std::move(job));
    }
    Answer(response, 200, {{"jobs", std::move(jobs)}});
}

json TimeOrNull(const std::optional<StoreTime>& time) {
    return time ? json(TimeText(*time)) : json();
}

json JobBody(const StoredJob& job) {
    const bool isQueued = job.state == JobState::Queued;
    return {{"id", job.id},
            {"carrier", job.carrier},
            {"recipient", job.recipient},
            {"state", JobStateName(job.state)},
            {"attempts", job.attempts},
            {"reason", job.reason},
            {"decision", job.decision},
            {"submitted", TimeText(job.submitted)},
            {"changed", TimeText(job.changed)},
            {"due", isQueued ? json(TimeText(job.due)) : json()},
            {"deadline", TimeOrNull(job.deadline)}};
}

}  // namespace

/// A connection goes back when the request is over, and is closed when the request ended with an exception.
class SubmissionRoutes::Lease {
public:
    explicit Lease(SubmissionRoutes& routes) : m_routes(routes) {
        const std::lock_guard<std::mutex> lock(routes.m_mutex);
        if (!routes.m_vecIdle.empty()) {
            m_pStore = std::move(routes.m_vecIdle.back());
            routes.m_vecIdle.pop_back();
        }
    }

    StoreDatabase& Store() {
        if (!m_pStore) {
            m_pStore = std::make_unique<StoreDatabase>(m_routes.m_strFolder, StoreDatabase::Access::Existing);
        }
        return *m_pStore;
    }

    void GiveBack() {
        const std::lock_guard<std::mutex> lock(m_routes.m_mutex);
        m_routes.m_vecIdle.push_back(std::move(m_pStore));
    }

private:
    SubmissionRoutes& m_routes;
    std::unique_ptr<StoreDatabase> m_pStore;
};

SubmissionRoutes::SubmissionRoutes(std::string storeFolder, ConfigProvider config, TroubleReport onTrouble)
    : m_strFolder(std::move(storeFolder)), m_config(std::move(config)), m_onTrouble(std::move(onTrouble)) {}

void SubmissionRoutes::Register(httplib::Server& server) {
    server.Post("/v1/jobs",
                [this](const httplib::Request& request, httplib::Response& response,
                       const httplib::ContentReader& reader) { Post(request, response, reader); });
    server.Get(R"(/v1/jobs/(.+))", [this](const httplib::Request& request, httplib::Response& response) {
        Get(request, response);
    });
}

void SubmissionRoutes::Post(const httplib::Request& request, httplib::Response& response,
                            const httplib::ContentReader& reader) {
    const std::shared_ptr<const HostConfig> config = m_config();
    const Admission admission = Admit(request, *config);
    const bool isWanted = admission == Admission::Granted && IsJson(request);
    std::string body;
    bool isTooLarge = false;
    const bool isWhole = ReadBody(request, reader, isWanted ? config->http.bodyBytes : 0, body, isTooLarge);
    if (admission != Admission::Granted) {
        AnswerRefusal(response, admission);
    } else if (!isWanted) {
        AnswerError(response, 415, "expected the content type application/json");
    } else if (isTooLarge || response.status == 413) {
        AnswerError(response, 413,
                    "expected a body of at most " + std::to_string(config->http.bodyBytes) +
                        " bytes (http.body_bytes); make several requests of it");
    } else if (!isWhole) {
        AnswerError(response, 400, "the body could not be read to its end");
    } else {
        Submit(body, *config, response);
    }
}

void SubmissionRoutes::Submit(const std::string& body, const HostConfig& config,
                              httplib::Response& response) {
    const SubmissionBody parsed = ReadSubmissionBody(body);
    if (!parsed.wrong.empty()) {
        AnswerError(response, 400, parsed.wrong);
        return;
    }
    std::vector<SubmissionDraft> drafts;
    for (const json& object : parsed.submissions) {
        drafts.push_back(ParseSubmission(object, config, SubmissionOrigin::Remote, StoreNow()));
    }
    WithStore(response, [&] {
        const std::vector<SubmissionReceipt> receipts = Take(std::move(drafts), config);
        if (parsed.isList) {
            AnswerReceipts(response, receipts);
        } else {
            Answer(response, StatusOf(receipts.front()), ReceiptBody(receipts.front()));
        }
    });
}

std::vector<SubmissionReceipt> SubmissionRoutes::Take(std::vector<SubmissionDraft> drafts,
                                                      const HostConfig& config) {
    Lease lease(*this);
    auto receipts = SubmissionTaker(lease.Store(), config, m_strFolder).Take(std::move(drafts), StoreNow());
    lease.GiveBack();
    return receipts;
}

void SubmissionRoutes::Get(const httplib::Request& request, httplib::Response& response) {
    const std::shared_ptr<const HostConfig> config = m_config();
    const Admission admission = Admit(request, *config);
    if (admission != Admission::Granted) {
        AnswerRefusal(response, admission);
        return;
    }
    WithStore(response, [&] { Show(request.matches[1].str(), response); });
}

void SubmissionRoutes::Show(const std::string& name, httplib::Response& response) {
    Lease lease(*this);
    const std::vector<JobHistory> found = JobViews(lease.Store()).Show(name);
    lease.GiveBack();
    if (found.empty()) {
        AnswerError(response, 404, "there is no job and no submission of this id");
        return;
    }
    json jobs = json::array();
    for (const JobHistory& history : found) {
        jobs.push_back(JobBody(history.job));
    }
    Answer(response, 200, {{"jobs", std::move(jobs)}});
}

void SubmissionRoutes::WithStore(httplib::Response& response, const std::function<void()>& serve) {
    try {
        serve();
    } catch (const StoreError& error) {
        AnswerNoStore(response, error.what());
    } catch (const SQLite::Exception& error) {
        AnswerNoStore(response, error.what());
    }
}

void SubmissionRoutes::AnswerNoStore(httplib::Response& response, const std::string& trouble) {
    if (m_onTrouble) {
        m_onTrouble("a request over HTTP could not be served: " + trouble);
    }
    response.set_header("Retry-After", kRetrySeconds);
    AnswerError(
        response, 503,
        "the job store cannot be used at the moment; nothing was stored, submit the same again later");
}

}  // namespace kvhost
