#include "kpl/rpc/RpcExecutorManager.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <atomic>
#include <thread>
#include <vector>

#include "kpl/os/CEvent.h"
#include "kpl/rpc/RpcCommandDemuxer.h"
#include "tests/rpc/CommandBytes.h"
#include "tests/support/LogCapture.h"

namespace {

using namespace kpl::rpc;
using namespace kpl::test;
using Messages = std::vector<std::string>;

// Accepts one function and answers with an int.
class FakeExecutor : public RpcExecutor {
public:
    FakeExecutor(const char* name, int answer) : m_name(name), m_answer(answer) {}
    ~FakeExecutor() override { RpcExecutorManager::GetInstance()->UnregisterExecutor(this); }

    RpcCommandMuxer* Execute(RpcCommandDemuxer* demuxer, RpcCallback* callback) override {
        ++asked;
        lastCallback = callback;
        const char* name = demuxer->GetFunctionName();
        if (name == nullptr || m_name != name) {
            return nullptr;
        }
        EXPECT_TRUE(m_muxer.Push(m_answer));
        EXPECT_GT(m_muxer.Finish(RPC_COMMAND_RESULT, nullptr, demuxer->GetId()), 0);
        return &m_muxer;
    }

    int asked = 0;
    RpcCallback* lastCallback = nullptr;

private:
    std::string m_name;
    int m_answer;
    char m_buf[64] = {};
    RpcCommandMuxer m_muxer{m_buf, sizeof(m_buf)};
};

class FakeCallback : public RpcCallback {
public:
    bool Send(RpcCommandMuxer*, unsigned int) override { return false; }
    void AddRef() override {}
    void Release() override {}
};

std::string Invoke(const char* name) {
    return Command(10001, 5, 2, Param(2, Words({19})) + Param(50, Text(name)));
}

std::string Result(uint32_t value) {
    return Command(10002, 5, 1, Param(2, Words({value})));
}

class RpcExecutorManagerTest : public testing::Test {
protected:
    int Execute(const char* name, RpcCallback* callback = nullptr, int bufLen = 64) {
        const ExactBytes command(Invoke(name));
        RpcCommandDemuxer demuxer(command.Data(), command.Size());
        return m_manager->Execute(&demuxer, callback, m_buf, bufLen);
    }

    RpcExecutorManager* m_manager = RpcExecutorManager::GetInstance();
    char m_buf[64] = {};
};

TEST_F(RpcExecutorManagerTest, ThereIsOneInstance) {
    EXPECT_EQ(RpcExecutorManager::GetInstance(), m_manager);
}

TEST_F(RpcExecutorManagerTest, TheResultOfTheExecutorIsCopied) {
    FakeExecutor executor("Add", 42);
    EXPECT_TRUE(m_manager->RegisterExecutor(&executor));
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(std::string(m_buf, 28), Result(42));
}

TEST_F(RpcExecutorManagerTest, WithoutExecutorsEveryCommandYieldsMinusOneAndTheLine) {
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(Execute("Add"), -1);
    EXPECT_EQ(log.Messages(),
              Messages{"RpcExecutorManager::Execute(): ??????????? ERROR: Cannot find "
                       "function(Add)\n"});
}

TEST_F(RpcExecutorManagerTest, ACommandWithoutAFunctionNameIsNotFoundEither) {
    const LogCapture log(LogCapture::Debug::Off);
    const ExactBytes command(Command(10001, 5, 0, ""));
    RpcCommandDemuxer demuxer(command.Data(), command.Size());
    EXPECT_EQ(m_manager->Execute(&demuxer, nullptr, m_buf, sizeof(m_buf)), -1);
    EXPECT_EQ(log.Messages(),
              Messages{"RpcExecutorManager::Execute(): ??????????? ERROR: Cannot find "
                       "function((null))\n"});
}

TEST_F(RpcExecutorManagerTest, RegisteringTwiceReturnsTrueThenFalseAndAsksOnce) {
    FakeExecutor executor("Other", 1);
    EXPECT_TRUE(m_manager->RegisterExecutor(&executor));
    EXPECT_FALSE(m_manager->RegisterExecutor(&executor));
    const LogCapture log;
    EXPECT_EQ(Execute("Add"), -1);
    EXPECT_EQ(executor.asked, 1);
}

TEST_F(RpcExecutorManagerTest, OfTwoThatAcceptOnlyTheFirstRegisteredIsCalled) {
    FakeExecutor first("Add", 1);
    FakeExecutor second("Add", 2);
    m_manager->RegisterExecutor(&second);
    m_manager->RegisterExecutor(&first);
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(std::string(m_buf, 28), Result(2));
    EXPECT_EQ(second.asked, 1);
    EXPECT_EQ(first.asked, 0);
}

TEST_F(RpcExecutorManagerTest, ExecutorsAreAskedInTurnUntilOneAccepts) {
    FakeExecutor first("Other", 1);
    FakeExecutor second("Add", 2);
    FakeExecutor third("Add", 3);
    m_manager->RegisterExecutor(&first);
    m_manager->RegisterExecutor(&second);
    m_manager->RegisterExecutor(&third);
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(std::string(m_buf, 28), Result(2));
    EXPECT_EQ(first.asked, 1);
    EXPECT_EQ(third.asked, 0);
}

TEST_F(RpcExecutorManagerTest, UnregisteringKeepsTheOrderOfTheOthers) {
    FakeExecutor first("Add", 1);
    FakeExecutor second("Add", 2);
    FakeExecutor third("Add", 3);
    for (FakeExecutor* executor : {&first, &second, &third}) {
        m_manager->RegisterExecutor(executor);
    }
    EXPECT_TRUE(m_manager->UnregisterExecutor(&first));
    EXPECT_FALSE(m_manager->UnregisterExecutor(&first));
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(std::string(m_buf, 28), Result(2));
    EXPECT_TRUE(m_manager->RegisterExecutor(&first));
    EXPECT_TRUE(m_manager->UnregisterExecutor(&second));
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(std::string(m_buf, 28), Result(3));
}

TEST_F(RpcExecutorManagerTest, NullIsNeverRegistered) {
    EXPECT_FALSE(m_manager->RegisterExecutor(nullptr));
    EXPECT_FALSE(m_manager->UnregisterExecutor(nullptr));
}

TEST_F(RpcExecutorManagerTest, AResultOfExactlyBufLenIsCopiedAndOneByteMoreIsNot) {
    FakeExecutor executor("Add", 42);
    m_manager->RegisterExecutor(&executor);
    EXPECT_EQ(Execute("Add", nullptr, 28), 28);
    memset(m_buf, 'x', sizeof(m_buf));
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(Execute("Add", nullptr, 27), -1);
    EXPECT_EQ(log.Messages(), Messages{"RpcExecutorManager::Execute(): ??????????? ERROR: "
                                       "(Func=Add)(ReturnLen=28)Buffer too small\n"});
    EXPECT_EQ(std::string(m_buf, 64), std::string(64, 'x'));
}

TEST_F(RpcExecutorManagerTest, TheCallbackIsPassedThroughAndMayBeNull) {
    FakeExecutor executor("Add", 1);
    m_manager->RegisterExecutor(&executor);
    FakeCallback callback;
    EXPECT_EQ(Execute("Add", &callback), 28);
    EXPECT_EQ(executor.lastCallback, &callback);
    EXPECT_EQ(Execute("Add", nullptr), 28);
    EXPECT_EQ(executor.lastCallback, nullptr);
}

TEST_F(RpcExecutorManagerTest, InvalidArgumentsYieldMinusOneAndTheLine) {
    const ExactBytes command(Invoke("Add"));
    RpcCommandDemuxer demuxer(command.Data(), command.Size());
    const auto expected = [](const void* demuxerPointer, const void* buf, int bufLen) {
        char text[256];
        snprintf(text, sizeof(text),
                 "RpcExecutorManager::Execute(): ??????????? WARNING: Invalid "
                 "argument(demuxer=%p,buf=%p,bufLen=%d)\n",
                 demuxerPointer, buf, bufLen);
        return std::string(text);
    };
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(m_manager->Execute(nullptr, nullptr, m_buf, 64), -1);
    EXPECT_EQ(m_manager->Execute(&demuxer, nullptr, nullptr, 64), -1);
    EXPECT_EQ(m_manager->Execute(&demuxer, nullptr, m_buf, 0), -1);
    EXPECT_EQ(m_manager->Execute(&demuxer, nullptr, m_buf, -1), -1);
    EXPECT_EQ(log.Messages(),
              (Messages{expected(nullptr, m_buf, 64), expected(&demuxer, nullptr, 64),
                        expected(&demuxer, m_buf, 0), expected(&demuxer, m_buf, -1)}));
}

TEST_F(RpcExecutorManagerTest, WithTheLogEnabledCommandAndResultAreDumped) {
    FakeExecutor executor("Add", 42);
    m_manager->RegisterExecutor(&executor);
    const LogCapture log;
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_EQ(log.Messages(), (Messages{"RpcCommandDemuxer::Dump(): Invoke Add(", "19", ")\n",
                                        "RpcCommandDemuxer::Dump(): Result (", "42", ")\n",
                                        "RpcExecutorManager::Execute(): (Add) Done\n"}));
}

TEST_F(RpcExecutorManagerTest, WithTheLogDisabledASuccessIsSilent) {
    FakeExecutor executor("Add", 42);
    m_manager->RegisterExecutor(&executor);
    const LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(Execute("Add"), 28);
    EXPECT_TRUE(log.Messages().empty());
}

// Says when it runs and returns when it is let go.
class BlockingExecutor : public RpcExecutor {
public:
    ~BlockingExecutor() override { RpcExecutorManager::GetInstance()->UnregisterExecutor(this); }

    RpcCommandMuxer* Execute(RpcCommandDemuxer*, RpcCallback*) override {
        if (++m_inside > 1) {
            overlapped = true;
        }
        entered.Set();
        EXPECT_TRUE(letGo.Wait(10000));
        --m_inside;
        return nullptr;
    }

    kpl::os::CEvent entered{false};
    kpl::os::CEvent letGo{false};
    std::atomic<bool> overlapped{false};

private:
    std::atomic<int> m_inside{0};
};

TEST_F(RpcExecutorManagerTest, OnlyOneCommandIsExecutedAtATime) {
    const LogCapture log;
    BlockingExecutor executor;
    m_manager->RegisterExecutor(&executor);
    const auto run = [] {
        const ExactBytes command(Invoke("Add"));
        RpcCommandDemuxer demuxer(command.Data(), command.Size());
        char buf[64];
        RpcExecutorManager::GetInstance()->Execute(&demuxer, nullptr, buf, sizeof(buf));
    };
    std::thread first(run);
    ASSERT_TRUE(executor.entered.Wait(10000));
    std::thread second(run);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // allow-sleep: room to overlap
    executor.letGo.Set();
    first.join();
    second.join();
    EXPECT_FALSE(executor.overlapped);
}

TEST_F(RpcExecutorManagerTest, UnregisterReturnsOnlyWhenTheExecutorIsNotRunningAnyMore) {
    const LogCapture log;
    BlockingExecutor executor;
    m_manager->RegisterExecutor(&executor);
    std::atomic<bool> unregistered{false};
    std::thread caller([] {
        const ExactBytes command(Invoke("Add"));
        RpcCommandDemuxer demuxer(command.Data(), command.Size());
        char buf[64];
        RpcExecutorManager::GetInstance()->Execute(&demuxer, nullptr, buf, sizeof(buf));
    });
    ASSERT_TRUE(executor.entered.Wait(10000));
    std::thread remover([&] {
        EXPECT_TRUE(m_manager->UnregisterExecutor(&executor));
        unregistered = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // allow-sleep: room to return
    EXPECT_FALSE(unregistered);
    executor.letGo.Set();
    caller.join();
    remover.join();
    EXPECT_TRUE(unregistered);
}

}  // namespace
