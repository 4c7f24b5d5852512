#include "CarrierTrial.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <memory>

#include "ProbeError.h"
#include "SecurityNames.h"
#include "VisibleText.h"

namespace kvhost {

namespace {

constexpr std::size_t kDriversRead = 1000;  // bytes that the driver takes for a reply at most

bool Has(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

/// The port that is configured, else the one that the driver takes.
int PortOf(const std::string& server) {
    const std::size_t colon = server.find(':');
    int port = 0;
    if (colon != std::string::npos) {
        std::from_chars(server.data() + colon + 1, server.data() + server.size(), port);
        return port;
    }
    const servent* const service = ::getservbyname("smtp", "tcp");
    return service != nullptr ? ntohs(static_cast<std::uint16_t>(service->s_port)) : 25;
}

std::string AddressText(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return std::string(text.data()) + ":" + std::to_string(ntohs(address.sin_port));
}

using Addresses = std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)>;

Addresses LookUp(const std::string& host) {
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = ::getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (error != 0) {
        throw ProbeError("no IPv4 address for " + host + ": " + ::gai_strerror(error));
    }
    return {found, ::freeaddrinfo};
}

}  // namespace

CarrierTrial::CarrierTrial(const Carrier& carrier, Milliseconds limit)
    : m_carrier(carrier),
      m_mask({{carrier.user, carrier.password}}),
      m_wire(limit),
      m_strHost(carrier.server.substr(0, carrier.server.find(':'))) {
    m_report.carrier = Shown(carrier.name);
    m_report.server = Shown(carrier.server);
    m_report.security = SecurityName(carrier.security);
}

ProbeReport CarrierTrial::Run() {
    try {
        Take("address", &CarrierTrial::FindAddress);
        Take("connect", &CarrierTrial::Connect);
        Take("greeting", &CarrierTrial::ReadGreeting);
        Take("EHLO", &CarrierTrial::SayEhlo);
        Take("STARTTLS", WantsTls() ? &CarrierTrial::StartTls : &CarrierTrial::SkipTls);
        if (m_wire.Tls() != nullptr) {
            Take("EHLO in TLS", &CarrierTrial::SayEhlo);
        }
        Take("AUTH", &CarrierTrial::Authenticate);
        Take("QUIT", &CarrierTrial::SayQuit);
    } catch (const Stop&) {
        // The step that failed tells the rest.
    }
    return m_report;
}

/// Adds the step that `work` fills in, and ends the probe when it failed.
void CarrierTrial::Take(const char* name, Work work) {
    ProbeStep step;
    step.name = name;
    const auto begin = std::chrono::steady_clock::now();
    try {
        (this->*work)(step);
    } catch (const ProbeError& error) {
        step.status = ProbeStatus::Failed;
        step.text = Shown(error.what());
    }
    step.took = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - begin);
    m_report.steps.push_back(step);
    if (step.status == ProbeStatus::Failed) {
        throw Stop();
    }
}

void CarrierTrial::FailUnless(bool isGood, ProbeStep& step, const std::string& text) const {
    if (!isGood) {
        step.status = ProbeStatus::Failed;
        step.text = Shown(text);
    }
}

void CarrierTrial::Warn(ProbeStep& step, const std::string& text) const {
    step.status = step.status == ProbeStatus::Ok ? ProbeStatus::Warning : step.status;
    step.details.push_back(Shown(text));
}

void CarrierTrial::FindAddress(ProbeStep& step) {
    const Addresses addresses = LookUp(m_strHost);
    std::memcpy(&m_address, addresses->ai_addr, sizeof(m_address));
    m_address.sin_port = htons(static_cast<std::uint16_t>(PortOf(m_carrier.server)));
    step.text = AddressText(m_address);
    if (addresses->ai_next != nullptr) {
        step.details.emplace_back("the first of several; the driver uses one alone, and no IPv6");
    }
}

void CarrierTrial::Connect(ProbeStep& step) {
    const auto begin = std::chrono::steady_clock::now();
    m_wire.Connect(m_address);
    const auto took = std::chrono::steady_clock::now() - begin;
    step.text = "in " + DurationText(std::chrono::duration_cast<Milliseconds>(took));
}

void CarrierTrial::ReadGreeting(ProbeStep& step) {
    const ProbeReply reply = Reply(step);
    step.text = Shown(reply.Text());
    FailUnless(!reply.IsRefusal(), step, "the server takes no mail now: " + reply.Text());
}

void CarrierTrial::SayEhlo(ProbeStep& step) {
    ProbeReply reply = Ask(step, "EHLO [127.0.0.1]\r\n");
    if (reply.IsRefusal()) {
        Warn(step, "refused, so the driver says HELO, and knows of no extensions: " + reply.Text());
        reply = Ask(step, "HELO [127.0.0.1]\r\n");
    }
    step.text = Shown(reply.lines.front());
    FailUnless(!reply.IsRefusal(), step, "the server refuses EHLO and HELO: " + reply.Text());
    NoteOffers(reply);
    for (const std::string& extension : m_report.extensions) {
        step.details.push_back(extension);
    }
}

/// As the driver does: parts of lines in their exact case, and what was offered once counts for good.
void CarrierTrial::NoteOffers(const ProbeReply& reply) {
    m_report.extensions.clear();
    for (const std::string& line : reply.lines) {
        if (Has(line, "STARTTLS")) {
            m_setOffers.insert("STARTTLS");
        } else if (Has(line, "AUTH")) {
            for (const char* mechanism : {"PLAIN", "LOGIN"}) {
                if (Has(line, mechanism)) {
                    m_setOffers.insert(mechanism);
                }
            }
        }
        if (&line != &reply.lines.front()) {
            m_report.extensions.push_back(Shown(line.substr(std::min<std::size_t>(4, line.size()))));
        }
    }
}

void CarrierTrial::SayQuit(ProbeStep& step) {
    try {
        step.text = Shown(Ask(step, "QUIT\r\n").Text());
    } catch (const ProbeError& error) {
        Warn(step, std::string(error.what()) + "; the driver never says QUIT");
    }
}

ProbeReply CarrierTrial::Ask(ProbeStep& step, const std::string& line) {
    m_wire.Send(line);
    return Reply(step);
}

ProbeReply CarrierTrial::Reply(ProbeStep& step) {
    ProbeReply reply = m_wire.ReadReply();
    if (reply.pieces > 1 || reply.bytes > kDriversRead) {
        Warn(step,
             "the reply came in " + std::to_string(reply.pieces) + " pieces and has " +
                 std::to_string(reply.bytes) +
                 " bytes: the driver takes what one read brings, 1000 bytes at most, for the whole reply, "
                 "and misreads this one");
    }
    return reply;
}

std::string CarrierTrial::Shown(std::string_view text) const {
    return MakeVisible(m_mask.Apply(text));
}

}  // namespace kvhost
