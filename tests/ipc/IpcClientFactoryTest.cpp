#include "kpl/ipc/IpcClientFactory.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "kpl/ipc/IpcClientPipeImpl.h"
#include "kpl/tools/DebugLog.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"

namespace {

using kpl::ipc::IpcClient;
using kpl::ipc::IpcClientFactory;
using kpl::ipc::IpcClientPipeImpl;
using kpl::test::ChildProcess;
using kpl::test::LogCapture;
using Messages = std::vector<std::string>;

TEST(IpcClientFactoryTest, ThereIsOneFactory) {
    EXPECT_EQ(IpcClientFactory::GetInstance(), IpcClientFactory::GetInstance());
}

TEST(IpcClientFactoryTest, KindZeroIsTheFifoClient) {
    IpcClient* client = IpcClientFactory::GetInstance()->Create(0);
    ASSERT_NE(client, nullptr);
    EXPECT_NE(dynamic_cast<IpcClientPipeImpl*>(client), nullptr);
    EXPECT_EQ(client->GetStreamer(), nullptr);
    LogCapture log;
    IpcClientFactory::GetInstance()->Destroy(client);
    EXPECT_EQ(log.Messages(), (Messages{"IpcClientPipeImpl::Disconnect(): .....\n",
                                        "IpcClientPipeImpl::~IpcClientPipeImpl(): .....\n"}));
}

TEST(IpcClientFactoryTest, AnyOtherKindIsNullAndForcesTheInvalidImplementationLine) {
    IpcClientFactory* factory = IpcClientFactory::GetInstance();
    LogCapture log(LogCapture::Debug::Off);
    EXPECT_EQ(factory->Create(1), nullptr);
    EXPECT_EQ(factory->Create(-7), nullptr);
    EXPECT_EQ(log.Messages(),
              (Messages{"IpcClientFactory::Create(): ??????? Invalid implementation(1)\n",
                        "IpcClientFactory::Create(): ??????? Invalid implementation(-7)\n"}));
}

TEST(IpcClientFactoryTest, DestroyOfNullForcesTheNullPointerLine) {
    IpcClientFactory* factory = IpcClientFactory::GetInstance();
    LogCapture log(LogCapture::Debug::Off);
    factory->Destroy(nullptr);
    EXPECT_EQ(log.Messages(), (Messages{"IpcClientFactory::Destroy(): ??????? NULL pointer\n"}));
}

TEST(IpcClientFactoryTest, DestroyOfAForeignPointerChangesNothing) {
    IpcClientFactory* factory = IpcClientFactory::GetInstance();
    IpcClientPipeImpl foreign;
    IpcClient* own = factory->Create(0);
    LogCapture log;
    factory->Destroy(&foreign);
    EXPECT_TRUE(log.Messages().empty());
    factory->Destroy(own);
    log.Clear();
    factory->Destroy(own);  // destroyed already: only its address is looked at
    EXPECT_TRUE(log.Messages().empty());
}

TEST(IpcClientFactoryTest, ClientsAreMadeAndDestroyedInManyThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 100; ++i) {
                IpcClient* client = IpcClientFactory::GetInstance()->Create(0);
                ASSERT_NE(client, nullptr);
                IpcClientFactory::GetInstance()->Destroy(client);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

// The whole life of a factory, in a process that ends: it prints to the standard error.
TEST(IpcClientFactoryTest, AtTheEndOfTheProcessEachClientLeftIsReportedAndDeleted) {
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    ChildProcess child([&]() -> int {
        dup2(pipes[1], STDERR_FILENO);
        IpcClientFactory* factory = IpcClientFactory::GetInstance();
        IpcClient* first = factory->Create(0);
        IpcClient* gone = factory->Create(0);
        IpcClient* second = factory->Create(0);
        factory->Destroy(gone);
        fprintf(stderr, "%p %p\n", static_cast<void*>(first), static_cast<void*>(second));
        kpl::tools::EnableDumpLog(true, false);
        exit(0);  // unlike _exit, it destroys the static objects
    });
    close(pipes[1]);
    std::string text;
    char buf[1024];
    ssize_t got = 0;
    while ((got = read(pipes[0], buf, sizeof(buf))) > 0) {
        text.append(buf, static_cast<size_t>(got));
    }
    close(pipes[0]);
    EXPECT_EQ(child.Wait(), 0);
    const std::string first = text.substr(0, text.find(' '));
    const std::string second = text.substr(first.size() + 1, text.find('\n') - first.size() - 1);
    const auto leak = [](const std::string& address) {
        return "D/KPL: IpcClientFactory::~IpcClientFactory(): Memory leak (0x" + address +
               ")\n"
               "D/KPL: IpcClientPipeImpl::Disconnect(): .....\n"
               "D/KPL: IpcClientPipeImpl::~IpcClientPipeImpl(): .....\n";
    };
    EXPECT_EQ(text.substr(text.find('\n') + 1),
              leak(first) + leak(second) + "D/KPL: IpcClientFactory::~IpcClientFactory(): ....\n");
}

}  // namespace
