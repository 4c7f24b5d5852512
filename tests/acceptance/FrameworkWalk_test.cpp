#include <gtest/gtest.h>

#include <ostream>

#include "FrameworkKit.h"

using namespace kvframework;
using kvtest::Severity;

namespace {

constexpr const char* kEntering = "Entering KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups()";
constexpr const char* kLeaving =
    "Leaving KvSmartProtocolDriverDelegateIface::ProcessMessageFileGroups() with ";

class FrameworkWalk : public FrameworkTest {
protected:
    FrameworkWalk() : delegate(journal) {}
    ~FrameworkWalk() override {
        delegate.m_vecMsgFileGroups.clear();
        keep(std::exchange(delegate.m_pConn, nullptr));
        closeAllInUse();
    }

    bool walk(const Groups& groups, int pins = 10) {
        delegate.Initialize(&driver, "key", forget(take("key")), groups, pins, &host.log);
        journal.clear();
        driver.journal.clear();
        host.log.clear();
        return delegate.ProcessMessageFileGroups();
    }
    /// The connection breaks when `event` is dispatched, and no other can be made.
    void loseConnectionAfter(const std::string& event) {
        delegate.onDispatch = [this, event](const std::string& each) {
            if (each == event) {
                driver.onTest = [](int) { return false; };
                driver.onCreate = [] { return Create::Fails; };
            }
            return true;
        };
    }
    Texts waiting() const {
        Texts result;
        for (const auto& group : delegate.m_vecMsgFileGroups) {
            std::string names;
            for (const KvMessageFile* each : group) {
                names += (names.empty() ? "" : " ") + each->m_strMsgFileID;
            }
            result.push_back(names);
        }
        return result;
    }

    Journal journal;
    FakeDelegate delegate;
};

/// How a single file is sent, and what is logged about it.
struct Way {
    const char* operation;
    const char* debugLine;
    const char* errorLine;
};
constexpr Way kOneWay{"single", " >>>> Dispatching 1way message jobid:'ID_1'.",
                      " >>>>>> Failed to dispatch 1way message."};
constexpr Way kTwoWay{"2way", " >>>> Dispatching 2way message jobid:'ID_1'.",
                      " >>>>>> Failed to dispatch 2way message."};
constexpr Way kQuery{"query", " >>>> Dispatching query for 2way response jobid:'ID_1'.",
                     " >>>>>> Failed to dispatch query for 2way response."};

struct Kind {
    const char* name;
    bool isQuery, enabled, isTwoWay;
    Way way;

    friend void PrintTo(const Kind& each, std::ostream* out) { *out << each.name; }
};

class FrameworkWalkKind : public FrameworkWalk, public testing::WithParamInterface<Kind> {
protected:
    KvMessageFile* fileOfKind() {
        KvMessageFile* msgFile = file(kvtest::MessageBuilder().id("ID_1").jobId("another id"));
        msgFile->m_bIs2WayQuery = GetParam().isQuery;
        msgFile->m_b2WayEnabled = GetParam().enabled;
        msgFile->m_bIs2Way = GetParam().isTwoWay;
        return msgFile;
    }
};

TEST_P(FrameworkWalkKind, DecidesWhichOperationSendsASingleFile) {
    EXPECT_TRUE(walk({{fileOfKind()}}));
    EXPECT_EQ(journal.events(), (Texts{std::string(GetParam().way.operation) + " ID_1"}));
    EXPECT_EQ(logged(Severity::Debug), (Texts{GetParam().way.debugLine}));
    EXPECT_EQ(host.log.count(Severity::Error), 0);
}

TEST_P(FrameworkWalkKind, DecidesHowAFailureIsLogged) {
    delegate.onDispatch = [](const std::string&) { return false; };
    EXPECT_TRUE(walk({{fileOfKind()}}));
    EXPECT_EQ(logged(Severity::Error), (Texts{GetParam().way.errorLine}));
    EXPECT_EQ(returned(), (Texts{"ID_1:2"}));
}

INSTANTIATE_TEST_SUITE_P(All, FrameworkWalkKind,
                         testing::Values(Kind{"OneWay", false, false, false, kOneWay},
                                         Kind{"TwoWay", false, true, true, kTwoWay},
                                         Kind{"TwoWayNotEnabled", false, false, true, kOneWay},
                                         Kind{"EnabledOnly", false, true, false, kOneWay},
                                         Kind{"Query", true, false, false, kQuery},
                                         Kind{"QueryBeforeTwoWay", true, true, true, kQuery}),
                         [](const auto& each) { return each.param.name; });

TEST_F(FrameworkWalk, GoesThroughTheGroupsInOrderAndNumbersThemFrom0) {
    EXPECT_TRUE(walk({files("A", 1), {}, files("B", 2), files("C", 1)}));
    EXPECT_EQ(journal.events(), (Texts{"single A_1", "group B_1 B_2", "single C_1"}));
    EXPECT_EQ(logged(Severity::Info),
              (Texts{" >> Processing message group #0.", " >> Processing message group #1.",
                     " >> Processing message group #2.", " >> Processing message group #3."}));
}

TEST_F(FrameworkWalk, WritesItsLinesInOrder) {
    EXPECT_TRUE(walk({files("A", 1), files("B", 2)}));
    EXPECT_EQ(host.log.texts().front(), kEntering);
    EXPECT_EQ(host.log.texts().back(), kLeaving + std::string("TRUE."));
    Texts lines = host.log.texts();
    std::erase_if(lines, [](const std::string& each) {
        return each.find("GetValidatedConnFromCache") != std::string::npos;
    });
    EXPECT_EQ(lines, (Texts{kEntering, " >> Processing message group #0.",
                            " >>>> Dispatching 1way message jobid:'A_1'.", " >> Processing message group #1.",
                            " >>>> Dispatching message group; cycle#1.", kLeaving + std::string("TRUE.")}));
}

TEST_F(FrameworkWalk, TheConnectionIsValidatedBeforeEachSingleFile) {
    EXPECT_TRUE(walk({files("A", 1), files("B", 1), {}}));
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "test 1"}));
}

TEST_F(FrameworkWalk, AGroupOf25GoesInThreeTransactions) {
    EXPECT_TRUE(walk({files("A", 25)}));
    EXPECT_EQ(journal.events(), (Texts{"group A_1 A_2 A_3 A_4 A_5 A_6 A_7 A_8 A_9 A_10",
                                       "group A_11 A_12 A_13 A_14 A_15 A_16 A_17 A_18 A_19 A_20",
                                       "group A_21 A_22 A_23 A_24 A_25"}));
    EXPECT_EQ(logged(Severity::Debug),
              (Texts{" >>>> Dispatching message group; cycle#1.", " >>>> Dispatching message group; cycle#2.",
                     " >>>> Dispatching message group; cycle#3."}));
    EXPECT_EQ(driver.journal.events(), (Texts{"test 1", "test 1", "test 1"}));
}

TEST_F(FrameworkWalk, AFullTransactionHasNoEmptyOneBehindIt) {
    EXPECT_TRUE(walk({files("A", 4)}, 2));
    EXPECT_EQ(journal.events(), (Texts{"group A_1 A_2", "group A_3 A_4"}));
}

TEST_F(FrameworkWalk, TheRestOfAGroupIsAGroupEvenWhenItIsOneFile) {
    EXPECT_TRUE(walk({files("A", 3)}, 2));
    EXPECT_EQ(journal.events(), (Texts{"group A_1 A_2", "group A_3"}));
}

TEST_F(FrameworkWalk, ALimitOfOneSendsGroupsOfOne) {
    EXPECT_TRUE(walk({files("A", 2)}, 1));
    EXPECT_EQ(journal.events(), (Texts{"group A_1", "group A_2"}));
}

TEST_F(FrameworkWalk, TheCyclesAreCountedInEachGroup) {
    EXPECT_TRUE(walk({files("A", 3), files("B", 2)}, 2));
    EXPECT_EQ(logged(Severity::Debug),
              (Texts{" >>>> Dispatching message group; cycle#1.", " >>>> Dispatching message group; cycle#2.",
                     " >>>> Dispatching message group; cycle#1."}));
}

TEST_F(FrameworkWalk, TheKindOfTheFilesOfALargerGroupDoesNotMatter) {
    std::list<KvMessageFile*> group = files("A", 2);
    group.front()->m_bIs2WayQuery = true;
    group.back()->m_bIs2Way = group.back()->m_b2WayEnabled = true;
    EXPECT_TRUE(walk({group}));
    EXPECT_EQ(journal.events(), (Texts{"group A_1 A_2"}));
}

TEST_F(FrameworkWalk, AFileLeavesItsGroupBeforeItIsSent) {
    Texts seen;
    delegate.onDispatch = [&](const std::string&) {
        for (const std::string& names : waiting()) {
            seen.push_back(names);
        }
        return true;
    };
    EXPECT_TRUE(walk({files("A", 1)}));
    for (const std::string& names : seen) {
        EXPECT_EQ(names, "");
    }
}

TEST_F(FrameworkWalk, AFailureNeverStopsIt) {
    delegate.onDispatch = [](const std::string&) { return false; };
    EXPECT_TRUE(walk({files("A", 1), files("B", 3), files("C", 1)}, 2));
    EXPECT_EQ(journal.events(), (Texts{"single A_1", "group B_1 B_2", "group B_3", "single C_1"}));
    EXPECT_EQ(
        logged(Severity::Error),
        (Texts{" >>>>>> Failed to dispatch 1way message.", " >>>>>> Failed to dispatch message group.",
               " >>>>>> Failed to dispatch message group.", " >>>>>> Failed to dispatch 1way message."}));
}

TEST_F(FrameworkWalk, AReplacedConnectionIsTheOneInHand) {
    driver.onTest = [](int number) { return number != 1; };
    const Groups groups{files("A", 2)};
    EXPECT_TRUE(walk(groups));
    ASSERT_NE(delegate.m_pConn, nullptr);
    EXPECT_EQ(FakeDriver::numberOf(*delegate.m_pConn), 2);
    EXPECT_EQ(driver.created.back().file, groups[0].front());
    EXPECT_EQ(driver.created.back().key, "key");
    EXPECT_EQ(journal.events(), (Texts{"group A_1 A_2"}));
}

TEST_F(FrameworkWalk, EachTransactionNamesItsOwnFirstFileAsTheTemplate) {
    driver.onTest = [](int) { return false; };
    const Groups groups{files("A", 3), files("B", 1)};
    EXPECT_TRUE(walk(groups, 2));
    ASSERT_EQ(driver.created.size(), 4U);
    EXPECT_EQ(driver.created[1].file, groups[0].front());
    EXPECT_EQ(driver.created[2].file, groups[0].back());
    EXPECT_EQ(driver.created[3].file, groups[1].front());
}

TEST_F(FrameworkWalk, StopsWhenTheConnectionIsLostBeforeASingleFile) {
    loseConnectionAfter("single A_1");
    EXPECT_FALSE(walk({files("A", 1), files("B", 1), files("C", 2)}));
    EXPECT_EQ(journal.events(), (Texts{"single A_1"}));
    EXPECT_EQ(
        host.log.countEqual("Unable to get connection object. Incorrect carrier configuration key and/or "
                            "carrier service is unreachable. Dropping current dispatch cycle."),
        1);
    EXPECT_TRUE(host.log.has(Severity::Error,
                             "Unable to get connection object. Incorrect carrier configuration key and/or "
                             "carrier service is unreachable. Dropping current dispatch cycle."));
    EXPECT_EQ(host.log.texts().back(), kLeaving + std::string("FALSE."));
    EXPECT_EQ(delegate.m_pConn, nullptr);
    EXPECT_EQ(waiting(), (Texts{"B_1", "C_1 C_2"}));
}

TEST_F(FrameworkWalk, StopsInTheMiddleOfTheThirdOfFiveGroups) {
    loseConnectionAfter("group C_1 C_2");
    EXPECT_FALSE(walk({files("A", 1), files("B", 2), files("C", 5), files("D", 1), files("E", 2)}, 2));
    EXPECT_EQ(journal.events(), (Texts{"single A_1", "group B_1 B_2", "group C_1 C_2"}));
    EXPECT_EQ(waiting(), (Texts{"C_3 C_4 C_5", "D_1", "E_1 E_2"}));
}

TEST_F(FrameworkWalk, DoWorkFailsExactlyWhatWasNotSent) {
    loseConnectionAfter("group C_1 C_2");
    const Groups groups{files("A", 1), files("B", 2), files("C", 5), files("D", 1), files("E", 2)};
    delegate.Initialize(&driver, "key", forget(take("key")), groups, 2, &host.log);
    delegate.DoWork(nullptr);
    EXPECT_EQ(returned(), (Texts{"A_1:3", "B_1:3", "B_2:3", "C_1:3", "C_2:3", "C_3:2", "C_4:2", "C_5:2",
                                 "D_1:2", "E_1:2", "E_2:2"}));
    EXPECT_EQ(testFile(groups[2].back()).failureReasons(), (Texts{kNoConnection}));
    EXPECT_TRUE(testFile(groups[1].back()).failureReasons().empty());
    EXPECT_EQ(host.log.countContaining("Failing message job id: "), 6);
    EXPECT_EQ(driver.m_nTotalConnections, 0U);
    EXPECT_EQ(journal.events().back(), "finalize");
}

TEST_F(FrameworkWalk, ALimitOfZeroSendsEmptyTransactionsWithoutEnd) {
    int cycles = 0;
    delegate.onDispatch = [&](const std::string& event) {
        EXPECT_EQ(event, "group");
        if (++cycles == 20) {
            driver.onTest = [](int) { return false; };
            driver.onCreate = [] { return Create::Fails; };
        }
        return true;
    };
    EXPECT_FALSE(walk({files("A", 2)}, 0));
    EXPECT_EQ(cycles, 20);
    EXPECT_EQ(waiting(), (Texts{"A_1 A_2"}));
    EXPECT_EQ(host.log.countEqual(" >>>> Dispatching message group; cycle#20."), 1);
}

TEST_F(FrameworkWalk, ALimitOfZeroDoesNotTouchSingleFiles) {
    EXPECT_TRUE(walk({files("A", 1)}, 0));
    EXPECT_EQ(journal.events(), (Texts{"single A_1"}));
}

TEST_F(FrameworkWalk, WithoutGroupsTheResultTellsWhetherThereIsAConnection) {
    EXPECT_TRUE(walk({}));
    EXPECT_EQ(host.log.texts(), (Texts{kEntering, kLeaving + std::string("TRUE.")}));
    giveBack(std::exchange(delegate.m_pConn, nullptr));
    EXPECT_FALSE(delegate.ProcessMessageFileGroups());
    EXPECT_EQ(host.log.texts().back(), kLeaving + std::string("FALSE."));
}

TEST_F(FrameworkWalk, WithoutAConnectionTheFirstValidationFindsOne) {
    delegate.Initialize(&driver, "key", nullptr, {files("A", 1)}, 10, &host.log);
    EXPECT_TRUE(delegate.ProcessMessageFileGroups());
    ASSERT_NE(delegate.m_pConn, nullptr);
    EXPECT_EQ(driver.journal.events(), (Texts{"create key"}));
}

}  // namespace
