#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "HostConfig.h"
#include "StoreDatabase.h"
#include "SubmissionTaker.h"

namespace kvhost {

/// Takes jobs in over HTTP and tells how they stand: POST /v1/jobs and GET /v1/jobs/ID, as docs/openapi.yaml describes
/// them. Every request shows the token of the configuration. Thread-safe; outlives the server that it is registered
/// with, or at least its last request.
class SubmissionRoutes {
public:
    /// The configuration as it is now; answers another object once it was read anew. Called by any thread.
    using ConfigProvider = std::function<std::shared_ptr<const HostConfig>()>;

    /// Told what is wrong with the store, for the log: the submitter is not told paths. Called by any thread.
    using TroubleReport = std::function<void(const std::string& text)>;

    /// `storeFolder`: of a store that exists.
    SubmissionRoutes(std::string storeFolder, ConfigProvider config, TroubleReport onTrouble = {});

    void Register(httplib::Server& server);

private:
    /// A connection to the store, for one request at a time.
    class Lease;

    void Post(const httplib::Request& request, httplib::Response& response,
              const httplib::ContentReader& reader);
    void Submit(const std::string& body, const HostConfig& config, httplib::Response& response);
    void Get(const httplib::Request& request, httplib::Response& response);
    void Show(const std::string& name, httplib::Response& response);
    void WithStore(httplib::Response& response, const std::function<void()>& serve);
    void AnswerNoStore(httplib::Response& response, const std::string& trouble);
    std::vector<SubmissionReceipt> Take(std::vector<SubmissionDraft> drafts, const HostConfig& config);

    const std::string m_strFolder;
    const ConfigProvider m_config;
    const TroubleReport m_onTrouble;
    std::mutex m_mutex;                                     ///< guards the connections
    std::vector<std::unique_ptr<StoreDatabase>> m_vecIdle;  ///< connections that no request uses
};

}  // namespace kvhost
