#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <vector>

#include "hostile/HostileDelivery.h"
#include "hostile/VirtualTime.h"

// The replies of a whole session, cut at every byte. What one read returns is a reply of its own for the driver, so
// from a cut on the conversation runs one reply behind. What must come of that is computed here from that rule alone.

namespace {

using namespace kvtest;
using Texts = std::vector<std::string>;

/// The replies to a client that authenticates and sends one mail, from its greeting (in clear) or its second EHLO
/// (inside TLS) on. Short ones, so that all pairs of cuts can be tried.
Texts SessionReplies(bool insideTls, const char* offer = "250-a\r\n250 AUTH PLAIN\r\n") {
    Texts replies = insideTls ? Texts{} : Texts{"220 a\r\n"};
    for (const char* reply :
         {offer, "334 \r\n", "235 a\r\n", "250 a\r\n", "250 a\r\n", "250 a\r\n", "354 a\r\n", "250 a\r\n"}) {
        replies.emplace_back(reply);
    }
    return replies;
}

bool OffersPlain(const std::string& reply) {
    std::istringstream lines(reply);
    for (std::string line; std::getline(lines, line);) {
        if (line.find("AUTH") != std::string::npos && line.find("PLAIN") != std::string::npos) {
            return true;
        }
    }
    return false;
}

/// What a driver that takes each of `reads` for a whole reply comes to.
class DescribedReading {
public:
    DescribedReading(const Texts& reads, bool insideTls) : m_reads(reads), m_insideTls(insideTls) {}

    Outcome outcome() {
        if (!connects()) {
            return NotConnected();
        }
        if (isRefused(next())) {
            return Completed();  // the probe: another connection takes the place of this one
        }
        for (int step = 0; step < 4; ++step) {  // MAIL, RCPT, DATA, end of data
            const std::string reply = next();
            if (isRefused(reply)) {
                return Failed(reply.size() > 3 ? reply.substr(4) : "");
            }
        }
        return Completed();
    }

private:
    static bool isRefused(const std::string& reply) { return reply[0] == '4' || reply[0] == '5'; }

    std::string next() { return m_next < m_reads.size() ? m_reads[m_next++] : "250 more\r\n"; }

    bool connects() {
        if (!m_insideTls && isRefused(next())) {
            return false;
        }
        std::string offer = next();
        if (isRefused(offer)) {
            offer = next();  // HELO
        }
        if (isRefused(offer)) {
            return false;
        }
        return !OffersPlain(offer) || (!isRefused(next()) && !isRefused(next()));
    }

    const Texts& m_reads;
    const bool m_insideTls;
    std::size_t m_next = 0;
};

/// Plays sessions on a server of its own: each turn of the client is answered with the next of the given pieces, on
/// the first connection of a session; further ones are ordinary.
class SessionPlayer {
public:
    explicit SessionPlayer(bool insideTls) : m_insideTls(insideTls), m_server(OfferingAccount(insideTls)) {
        m_server.on(step::Any).answer([this](const CommandContext& context) { return answer(context); });
    }

    void play(const Texts& pieces, bool slowly = false) {
        m_pieces = pieces;
        m_slowly = slowly;
        m_next = 0;
        m_connection = m_server.acceptedConnections() + 1;
        const Outcome expected = DescribedReading(pieces, m_insideTls).outcome();
        const Outcome outcome = Deliver(m_server, WithAccount(JobFor(m_server, m_insideTls)));
        EXPECT_EQ(outcome, expected) << testing::PrintToString(pieces);
        ++m_played;
    }
    int played() const { return m_played; }

private:
    Reply answer(const CommandContext& context) {
        if (context.connection != m_connection || context.insideTls != m_insideTls) {
            return context.defaultReply;
        }
        if (m_slowly) {
            SilentFor(std::chrono::seconds(1));
        }
        const std::size_t turn = m_next++;
        return turn < m_pieces.size() ? m_pieces[turn] : "250 more\r\n";
    }

    // Written between sessions, when the server has no connection.
    const bool m_insideTls;
    Texts m_pieces;
    bool m_slowly = false;
    std::atomic<int> m_connection{0};
    std::atomic<std::size_t> m_next{0};
    int m_played = 0;
    ScriptedSmtpServer m_server;
};

/// The replies with reply `index` in two pieces.
Texts CutIn(Texts replies, std::size_t index, std::size_t at) {
    const std::string reply = replies[index];
    replies[index] = reply.substr(0, at);
    replies.insert(replies.begin() + static_cast<std::ptrdiff_t>(index) + 1, reply.substr(at));
    return replies;
}

/// As if the second piece of what was cut came together with the next reply.
Texts RunTogether(Texts pieces, std::size_t index) {
    if (index + 2 < pieces.size()) {
        pieces[index + 1] += pieces[index + 2];
        pieces.erase(pieces.begin() + static_cast<std::ptrdiff_t>(index) + 2);
    }
    return pieces;
}

struct Place {
    bool insideTls;
    std::size_t reply;
};

std::string NameOf(const testing::TestParamInfo<Place>& info) {
    return (info.param.insideTls ? "InsideTlsReply" : "InClearReply") + std::to_string(info.param.reply);
}

std::ostream& operator<<(std::ostream& out, const Place& place) {
    return out << "reply " << place.reply << (place.insideTls ? " inside TLS" : " in clear");
}

std::vector<Place> Places(std::size_t behind = 0) {
    std::vector<Place> places;
    for (const bool insideTls : {false, true}) {
        for (std::size_t reply = 0; reply + behind < SessionReplies(insideTls).size(); ++reply) {
            places.push_back({insideTls, reply});
        }
    }
    return places;
}

class SplitRepliesTest : public testing::TestWithParam<Place> {
protected:
    bool InsideTls() const { return GetParam().insideTls; }
    std::size_t Index() const { return GetParam().reply; }
    Texts Replies() const { return SessionReplies(InsideTls()); }
};

TEST_P(SplitRepliesTest, WhereverItIsCutTheJobComesBackOnceAsTheReadsTell) {
    SessionPlayer player(InsideTls());
    for (std::size_t at = 1; at < Replies()[Index()].size(); ++at) {
        const Texts pieces = CutIn(Replies(), Index(), at);
        player.play(pieces);
        player.play(RunTogether(pieces, Index()));
    }
    EXPECT_GT(player.played(), 9);
}

/// In clear the second cut falls into any reply from the first one on; inside TLS, where each session costs a
/// handshake, into the same reply.
TEST_P(SplitRepliesTest, WhereverItIsCutTwiceTheJobComesBackOnceAsTheReadsTell) {
    SessionPlayer player(InsideTls());
    const Texts replies = SessionReplies(InsideTls(), "250 AUTH PLAIN\r\n");
    for (std::size_t at = 1; at < replies[Index()].size(); ++at) {
        const Texts pieces = CutIn(replies, Index(), at);
        const std::size_t last = InsideTls() ? Index() + 2 : pieces.size();
        for (std::size_t second = Index() + 1; second < last; ++second) {
            for (std::size_t again = 1; again < pieces[second].size(); ++again) {
                player.play(CutIn(pieces, second, again));
            }
        }
    }
    EXPECT_GT(player.played(), 9);
}

INSTANTIATE_TEST_SUITE_P(All, SplitRepliesTest, testing::ValuesIn(Places()), NameOf);

class SplitSessionTest : public SplitRepliesTest {};

/// From a cut on, the refusal of a later command is read as the reply to the command behind it.
TEST_P(SplitSessionTest, ARefusalBehindACutIsReadAsTheReplyToTheNextCommand) {
    SessionPlayer player(InsideTls());
    for (std::size_t refused = Index() + 1; refused < Replies().size(); ++refused) {
        Texts replies = Replies();
        replies[refused] = "550 5.1.1 no\r\n";
        for (std::size_t at = 1; at < replies[Index()].size(); at += 2) {
            player.play(CutIn(replies, Index(), at));
        }
    }
    EXPECT_GT(player.played(), 2);
}

INSTANTIATE_TEST_SUITE_P(All, SplitSessionTest, testing::ValuesIn(Places(1)), NameOf);

TEST(SlowRepliesTest, AServerThatSendsOneByteASecondIsReadByteByByteWithoutATimeOut) {
    for (const bool insideTls : {false, true}) {
        Texts bytes;
        for (const std::string& reply : SessionReplies(insideTls)) {
            for (const char byte : reply) {
                bytes.emplace_back(1, byte);
            }
        }
        SessionPlayer player(insideTls);
        const auto before = VirtualTime::Passed();
        const int expired = VirtualTime::ExpiredWaits();
        player.play(bytes, true);
        EXPECT_GT(VirtualTime::Passed(), before);
        EXPECT_EQ(VirtualTime::ExpiredWaits(), expired);
    }
}

}  // namespace
