#include "ipc/ObserverList.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/ipc/IpcTestSupport.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcServerObserver;
using kpl::ipc::ObserverList;

class SilentObserver : public IpcServerObserver {
public:
    void ServerOpened(const char*) override {}
    bool ClientAccepted(kpl::ipc::IpcStreamer*) override { return true; }
    void ServerClosed() override {}
};

class ObserverListTest : public ::testing::Test {
protected:
    std::vector<IpcServerObserver*> All() {
        std::vector<IpcServerObserver*> all;
        EXPECT_TRUE(m_list.ForEach([&](IpcServerObserver* observer) {
            all.push_back(observer);
            return true;
        }));
        return all;
    }

    ObserverList m_list;
    SilentObserver m_a;
    SilentObserver m_b;
    SilentObserver m_c;
};

TEST_F(ObserverListTest, KeepsTheOrderAndEachObserverOnce) {
    EXPECT_TRUE(m_list.Add(&m_b));
    EXPECT_TRUE(m_list.Add(&m_a));
    EXPECT_FALSE(m_list.Add(&m_b));
    EXPECT_FALSE(m_list.Add(nullptr));
    EXPECT_EQ(All(), (std::vector<IpcServerObserver*>{&m_b, &m_a}));
    m_list.Remove(&m_b);
    m_list.Remove(&m_c);
    m_list.Remove(nullptr);
    EXPECT_EQ(All(), (std::vector<IpcServerObserver*>{&m_a}));
}

TEST_F(ObserverListTest, EndsAtTheFirstThatSaysFalse) {
    m_list.Add(&m_a);
    m_list.Add(&m_b);
    m_list.Add(&m_c);
    int calls = 0;
    EXPECT_FALSE(m_list.ForEach([&](IpcServerObserver* observer) {
        ++calls;
        return observer != &m_b;
    }));
    EXPECT_EQ(calls, 2);
}

TEST_F(ObserverListTest, ACallMayAddAndRemoveAlsoItself) {
    m_list.Add(&m_a);
    m_list.Add(&m_b);
    std::vector<IpcServerObserver*> called;
    EXPECT_TRUE(m_list.ForEach([&](IpcServerObserver* observer) {
        called.push_back(observer);
        m_list.Remove(&m_a);
        m_list.Remove(&m_b);
        m_list.Add(&m_c);
        return true;
    }));
    EXPECT_EQ(called, (std::vector<IpcServerObserver*>{&m_a}));
    EXPECT_EQ(All(), (std::vector<IpcServerObserver*>{&m_c}));
}

TEST_F(ObserverListTest, RemoveWaitsForACallOnAnotherThreadAndOnlyForItsOwnObserver) {
    m_list.Add(&m_a);
    m_list.Add(&m_b);
    kpl::os::CEvent inside(false);
    kpl::os::CEvent leave(false);
    std::atomic<bool> left{false};
    std::thread caller([&] {
        m_list.ForEach([&](IpcServerObserver* observer) {
            if (observer == &m_a) {
                inside.Set();
                leave.Wait(-1);
                left = true;
            }
            return true;
        });
    });
    inside.Wait(-1);
    m_list.Remove(&m_b);  // would hang if it waited for the call of the other one
    kpl::test::WatchedThread remover([&] {
        m_list.Remove(&m_a);
        EXPECT_TRUE(left);
    });
    remover.WaitUntilBlocked();
    EXPECT_FALSE(remover.HasEnded());
    leave.Set();
    remover.Join();
    caller.join();
}

TEST_F(ObserverListTest, ARemoverDoesNotWaitForTheCallThatAnotherRemoverWaitsFor) {
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        m_list.Add(&m_a);
        m_list.Add(&m_b);
        kpl::os::CEvent insideA(false);
        kpl::os::CEvent leaveA(false);
        std::atomic<bool> insideB{false};
        kpl::os::CEvent leaveB(false);
        std::thread caller([&] {
            m_list.ForEach([&](IpcServerObserver* observer) {
                (observer == &m_a ? insideA.Set() : void(insideB = true));
                (observer == &m_a ? leaveA : leaveB).Wait(-1);
                return true;
            });
        });
        insideA.Wait(-1);
        std::atomic<bool> removedA{false};
        std::thread first([&] {
            m_list.Remove(&m_a);
            removedA = true;
        });
        std::thread second([&] {
            while (!insideB) {  // at once then, before the first one has run again
            }
            m_list.Remove(&m_b);
        });
        leaveA.Set();
        EXPECT_TRUE(kpl::test::WaitUntil([&] { return removedA.load(); }));
        leaveB.Set();
        caller.join();
        first.join();
        second.join();
    }
}

TEST_F(ObserverListTest, TwoRemoversOfOneObserverBothWaitAndBothReturn) {
    for (int round = 0; round < 200; ++round) {
        m_list.Add(&m_a);
        std::thread caller([&] { m_list.ForEach([](IpcServerObserver*) { return true; }); });
        std::thread remover([&] { m_list.Remove(&m_a); });
        m_list.Remove(&m_a);
        remover.join();
        caller.join();
    }
}

}  // namespace
