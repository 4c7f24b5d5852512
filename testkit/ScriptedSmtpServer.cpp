#include "ScriptedSmtpServer.h"

#include <algorithm>
#include <iterator>

#include "SmtpServerEngine.h"

namespace kvtest {

namespace {

template <typename Predicate>
int CountTransactions(const SmtpRecorder& recorder, Predicate predicate) {
    return recorder.read([&](const SmtpRecorder::State& state) {
        return static_cast<int>(std::ranges::count_if(state.transactions, predicate));
    });
}

}  // namespace

ScriptedSmtpServer::ScriptedSmtpServer(const SmtpServerOptions& options)
    : m_engine(std::make_unique<Engine>(options)) {}

ScriptedSmtpServer::~ScriptedSmtpServer() = default;

int ScriptedSmtpServer::port() const {
    return m_engine->port();
}

std::string ScriptedSmtpServer::address() const {
    return "127.0.0.1:" + std::to_string(port());
}

RuleBuilder ScriptedSmtpServer::on(const std::string& step) {
    return {m_engine->script(), step};
}

void ScriptedSmtpServer::cutAfter(std::size_t bytes, Then then, int connection) {
    m_engine->script().add(ByteLimit{bytes, then, connection});
}

void ScriptedSmtpServer::clearScript() {
    m_engine->script().clear();
}

void ScriptedSmtpServer::closeConnections(int connection) {
    m_engine->cut(connection, &ConnectionCut::close);
}

void ScriptedSmtpServer::resetConnections(int connection) {
    m_engine->cut(connection, &ConnectionCut::reset);
}

void ScriptedSmtpServer::stopListening() {
    m_engine->stopListening();
}

void ScriptedSmtpServer::stop() {
    m_engine->stop();
}

int ScriptedSmtpServer::acceptedConnections() const {
    return m_engine->recorder().read(
        [](const SmtpRecorder::State& state) { return static_cast<int>(state.connections.size()); });
}

int ScriptedSmtpServer::openConnections() const {
    return m_engine->recorder().read([](const SmtpRecorder::State& state) { return state.open; });
}

ConnectionRecord ScriptedSmtpServer::connection(int number) const {
    return m_engine->recorder().read([&](const SmtpRecorder::State& state) {
        const bool made = number >= 1 && number <= std::ssize(state.connections);
        return made ? state.connection(number) : ConnectionRecord();
    });
}

std::vector<TransactionRecord> ScriptedSmtpServer::transactions() const {
    return m_engine->recorder().read([](const SmtpRecorder::State& state) { return state.transactions; });
}

std::vector<TransactionRecord> ScriptedSmtpServer::transactionsOf(int connection) const {
    std::vector<TransactionRecord> result = transactions();
    std::erase_if(result, [&](const TransactionRecord& each) { return each.connection != connection; });
    return result;
}

int ScriptedSmtpServer::completedTransactions() const {
    return CountTransactions(m_engine->recorder(),
                             [](const TransactionRecord& transaction) { return transaction.dataComplete; });
}

int ScriptedSmtpServer::acceptedTransactions() const {
    return CountTransactions(m_engine->recorder(),
                             [](const TransactionRecord& transaction) { return transaction.accepted(); });
}

int ScriptedSmtpServer::commandCount(const std::string& step) const {
    return m_engine->recorder().read([&](const SmtpRecorder::State& state) {
        std::ptrdiff_t count = 0;
        for (const ConnectionRecord& connection : state.connections) {
            count += std::ranges::count(connection.commands, step, &CommandRecord::step);
        }
        return static_cast<int>(count);
    });
}

std::string ScriptedSmtpServer::toText() const {
    return m_engine->recorder().read([](const SmtpRecorder::State& state) {
        std::string result;
        for (const ConnectionRecord& connection : state.connections) {
            result += "connection " + std::to_string(connection.number) + "\n" + connection.toText();
        }
        return result;
    });
}

bool ScriptedSmtpServer::waitForConnections(int n, std::chrono::milliseconds bound) const {
    return waitUntil([&] { return acceptedConnections() >= n; }, bound);
}

bool ScriptedSmtpServer::waitForOpenConnections(int exactly, std::chrono::milliseconds bound) const {
    return waitUntil([&] { return openConnections() == exactly; }, bound);
}

bool ScriptedSmtpServer::waitForTransactions(int completed, std::chrono::milliseconds bound) const {
    return waitUntil([&] { return completedTransactions() >= completed; }, bound);
}

bool ScriptedSmtpServer::waitForCommand(const std::string& step, int n,
                                        std::chrono::milliseconds bound) const {
    return waitUntil([&] { return commandCount(step) >= n; }, bound);
}

bool ScriptedSmtpServer::waitUntil(const std::function<bool()>& predicate,
                                   std::chrono::milliseconds bound) const {
    return m_engine->recorder().waitUntil(predicate, bound);
}

}  // namespace kvtest
