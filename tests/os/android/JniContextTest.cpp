#include "kpl/os/android/JniContext.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/support/FakeJava.h"
#include "tests/support/LogCapture.h"
#include "tests/support/Process.h"

namespace {

using kpl::os::android::JniContext;
using kpl::test::FakeJava;
using kpl::test::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

class JniContextTest : public testing::Test {
protected:
    ~JniContextTest() override {
        Context().Finalize(Context().GetJVM());
        EXPECT_THAT(java.Mistakes(), IsEmpty());
    }

    static JniContext& Context() { return JniContext::GetInstance(); }

    void Initialize(std::vector<std::string> names) { Context().Initialize(java.Vm(), names); }

    LogCapture log;
    FakeJava java;
};

TEST_F(JniContextTest, LoadJavaClassReturnsAGlobalReferenceAndKeepsTheLocalOne) {
    jclass cls = LoadJavaClass(java.MainEnv(), "a/B");
    EXPECT_NE(cls, nullptr);
    EXPECT_THAT(java.TakeCalls(), ElementsAre("FindClass(a/B)", "NewGlobalRef(a/B)"));
    EXPECT_EQ(java.GlobalCount(), 1);
    EXPECT_EQ(java.LocalCount(), 1);
    FreeJavaClass(java.MainEnv(), cls);
    EXPECT_THAT(java.TakeCalls(), ElementsAre("DeleteGlobalRef(a/B)"));
    EXPECT_EQ(java.GlobalCount(), 0);
}

TEST_F(JniContextTest, LoadJavaClassOfNothingIsNull) {
    EXPECT_EQ(LoadJavaClass(nullptr, "a/B"), nullptr);
    EXPECT_EQ(LoadJavaClass(java.MainEnv(), ""), nullptr);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(JniContextTest, LoadJavaClassReportsAClassThatIsNotFound) {
    java.missingClasses = {"a/B"};
    EXPECT_EQ(LoadJavaClass(java.MainEnv(), "a/B"), nullptr);
    EXPECT_THAT(java.TakeCalls(), ElementsAre("FindClass(a/B)"));
    EXPECT_THAT(log.Messages(), ElementsAre("LoadJavaClass(): ????????? Cannot find class a/B\n"));
}

TEST_F(JniContextTest, FreeJavaClassOfNothingDoesNothing) {
    jclass cls = LoadJavaClass(java.MainEnv(), "a/B");
    java.TakeCalls();
    FreeJavaClass(nullptr, cls);
    FreeJavaClass(java.MainEnv(), nullptr);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
}

TEST_F(JniContextTest, InitializeLoadsTheClassesInOrder) {
    Initialize({"z/Z", "a/A"});
    EXPECT_EQ(Context().GetJVM(), java.Vm());
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetEnv(0x10004)", "FindClass(z/Z)", "NewGlobalRef(z/Z)",
                            "FindClass(a/A)", "NewGlobalRef(a/A)"));
    EXPECT_NE(Context().GetJavaClass("z/Z"), nullptr);
    EXPECT_NE(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_NE(Context().GetJavaClass("a/A"), Context().GetJavaClass("z/Z"));
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(JniContextTest, ANameGivenTwiceIsLoadedOnce) {
    Initialize({"a/A", "a/A"});
    EXPECT_EQ(java.GlobalCount(), 1);
}

TEST_F(JniContextTest, GetJavaClassOfANameNotInTheListIsNull) {
    Initialize({"a/A"});
    EXPECT_EQ(Context().GetJavaClass("a/B"), nullptr);
    EXPECT_EQ(Context().GetJavaClass(""), nullptr);
    EXPECT_EQ(Context().GetJavaClass(nullptr), nullptr);
}

TEST_F(JniContextTest, AClassThatIsNotFoundIsNullAndTheOthersAreLoaded) {
    java.missingClasses = {"a/A"};
    Initialize({"a/A", "b/B"});
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_NE(Context().GetJavaClass("b/B"), nullptr);
    EXPECT_EQ(log.Count("LoadJavaClass(): ????????? Cannot find class a/A\n"), 1);
}

TEST_F(JniContextTest, TheExceptionOfTheFirstMissingClassIsLeftPending) {
    java.missingClasses = {"a/A", "c/C", "e/E"};
    Initialize({"a/A", "b/B", "c/C", "d/D", "e/E"});
    EXPECT_NE(Context().GetJavaClass("b/B"), nullptr);
    EXPECT_NE(Context().GetJavaClass("d/D"), nullptr);
    EXPECT_EQ(java.PendingException(), "NoClassDefFoundError a/A");
    EXPECT_EQ(java.LocalCount(), 2);  // of the two classes, none of an exception
}

TEST_F(JniContextTest, AnExceptionThatWasPendingBeforeInitializeStaysPending) {
    java.missingClasses = {"x/X", "a/A"};
    EXPECT_EQ(LoadJavaClass(java.MainEnv(), "x/X"), nullptr);
    Initialize({"a/A", "b/B"});
    EXPECT_NE(Context().GetJavaClass("b/B"), nullptr);
    EXPECT_EQ(java.PendingException(), "NoClassDefFoundError x/X");
    EXPECT_EQ(java.LocalCount(), 1);
}

TEST_F(JniContextTest, InitializeWithoutAnyFailureThrowsNothing) {
    Initialize({"a/A", "b/B"});
    EXPECT_EQ(java.PendingException(), "");
}

TEST_F(JniContextTest, InitializeTwiceWithTheSameMachineLoadsNothingNew) {
    java.missingClasses = {"a/A"};
    Initialize({"a/A"});
    java.missingClasses.clear();
    java.TakeCalls();
    Initialize({"a/A", "b/B"});
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_EQ(Context().GetJavaClass("b/B"), nullptr);
}

TEST_F(JniContextTest, InitializeWithoutAMachineIsReported) {
    std::vector<std::string> names = {"a/A"};
    Context().Initialize(nullptr, names);
    EXPECT_EQ(Context().GetJVM(), nullptr);
    EXPECT_THAT(log.Messages(), ElementsAre("JniContext::Initialize(): ????????? Invalid JVM\n"));
}

TEST_F(JniContextTest, InitializeOnAThreadThatIsNotAttachedKeepsOnlyTheMachine) {
    java.getEnvResult = JNI_EDETACHED;
    Initialize({"a/A"});
    EXPECT_THAT(log.Messages(),
                ElementsAre("JniContext::Initialize(): ????????? Get JVM environment failed\n"));
    EXPECT_THAT(java.TakeCalls(), ElementsAre("GetEnv(0x10004)"));
    EXPECT_EQ(Context().GetJVM(), java.Vm());
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    java.getEnvResult = JNI_OK;
    // This thread has not become the initialising one.
    EXPECT_EQ(Context().AttachThread(), java.MainEnv());
    EXPECT_THAT(java.TakeCalls(), ElementsAre("AttachCurrentThread()"));
}

TEST_F(JniContextTest, InitializeWithAnotherMachineFinalizesTheOneHeld) {
    FakeJava other;
    std::vector<std::string> names = {"a/A", "b/B"};
    Context().Initialize(other.Vm(), names);
    other.TakeCalls();
    Initialize({"c/C"});
    EXPECT_THAT(other.TakeCalls(),
                ElementsAre("GetEnv(0x10004)", "DeleteGlobalRef(a/A)", "DeleteGlobalRef(b/B)"));
    EXPECT_EQ(Context().GetJVM(), java.Vm());
    EXPECT_EQ(Context().AttachThread(), java.MainEnv());
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_NE(Context().GetJavaClass("c/C"), nullptr);
    EXPECT_THAT(other.Mistakes(), IsEmpty());
}

TEST_F(JniContextTest, FinalizeReleasesTheClassesAndLetsGoOfTheMachine) {
    java.missingClasses = {"b/B"};
    Initialize({"a/A", "b/B"});
    java.TakeCalls();
    log.Clear();
    Context().Finalize(java.Vm());
    EXPECT_THAT(java.TakeCalls(), ElementsAre("GetEnv(0x10004)", "DeleteGlobalRef(a/A)"));
    EXPECT_EQ(Context().GetJVM(), nullptr);
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_EQ(java.GlobalCount(), 0);
    EXPECT_THAT(log.Messages(), IsEmpty());
}

TEST_F(JniContextTest, FinalizeOfAnotherMachineIsReportedAndKeepsAllClasses) {
    FakeJava other;
    Initialize({"a/A"});
    Context().Finalize(other.Vm());
    EXPECT_THAT(log.Messages(), ElementsAre("JniContext::Finalize(): ????????? No matched JVM\n"));
    EXPECT_EQ(Context().GetJVM(), java.Vm());
    EXPECT_NE(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_THAT(other.TakeCalls(), IsEmpty());
}

TEST_F(JniContextTest, FinalizeWithoutAMachineIsReported) {
    Context().Finalize(nullptr);
    EXPECT_THAT(log.Messages(), ElementsAre("JniContext::Finalize(): ????????? Invalid JVM\n"));
}

TEST_F(JniContextTest, FinalizeOnAThreadThatIsNotAttachedIsReportedAndKeepsAllClasses) {
    Initialize({"a/A"});
    java.getEnvResult = JNI_EDETACHED;
    Context().Finalize(java.Vm());
    EXPECT_THAT(log.Messages(),
                ElementsAre("JniContext::Finalize(): ????????? Get JVM environment failed\n"));
    EXPECT_EQ(Context().GetJVM(), java.Vm());
    EXPECT_NE(Context().GetJavaClass("a/A"), nullptr);
    java.getEnvResult = JNI_OK;
}

TEST_F(JniContextTest, AfterFinalizeAMachineCanBeInitializedAgain) {
    Initialize({"a/A"});
    Context().Finalize(java.Vm());
    Initialize({"b/B"});
    EXPECT_EQ(Context().GetJavaClass("a/A"), nullptr);
    EXPECT_NE(Context().GetJavaClass("b/B"), nullptr);
}

TEST_F(JniContextTest, TheInitialisingThreadIsNeitherAttachedNorDetached) {
    Initialize({});
    java.TakeCalls();
    EXPECT_EQ(Context().AttachThread(), java.MainEnv());
    Context().DetachThread();
    EXPECT_EQ(Context().AttachThread(), java.MainEnv());
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
}

TEST_F(JniContextTest, AnyOtherThreadIsAttachedAndDetached) {
    Initialize({"a/A"});
    java.TakeCalls();
    JNIEnv* env = nullptr;
    std::thread([&] {
        env = Context().AttachThread();
        Context().DetachThread();
        EXPECT_NE(Context().GetJavaClass("a/A"), nullptr);
    }).join();
    EXPECT_NE(env, nullptr);
    EXPECT_NE(env, java.MainEnv());
    EXPECT_THAT(java.TakeCalls(), ElementsAre("AttachCurrentThread()", "DetachCurrentThread()"));
}

TEST_F(JniContextTest, AnAttachingThatFailsIsReportedWithEightQuestionMarks) {
    Initialize({});
    java.attachResult = JNI_ENOMEM;
    JNIEnv* env = java.MainEnv();
    std::thread([&] { env = Context().AttachThread(); }).join();
    EXPECT_EQ(env, nullptr);
    EXPECT_THAT(log.Messages(),
                ElementsAre("JniContext::AttachThread(): ???????? JVM attach thread failed!\n"));
}

TEST_F(JniContextTest, WithoutAMachineThereIsNoEnvironmentOnAnyThread) {
    JNIEnv* env = java.MainEnv();
    const auto attach = [&] {
        env = Context().AttachThread();
        Context().DetachThread();
    };
    attach();
    EXPECT_EQ(env, nullptr);
    Initialize({});
    Context().Finalize(java.Vm());
    java.TakeCalls();
    attach();
    EXPECT_EQ(env, nullptr);
    std::thread(attach).join();
    EXPECT_EQ(env, nullptr);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

// What a process that ends after `body` writes to its stderr on the way out.
std::string OutputAtExit(const std::function<void()>& body) {
    int pipeEnds[2] = {-1, -1};
    EXPECT_EQ(pipe(pipeEnds), 0);
    kpl::test::ChildProcess child([&]() -> int {
        dup2(pipeEnds[1], STDERR_FILENO);
        close(pipeEnds[1]);
        body();
        exit(0);
    });
    close(pipeEnds[1]);
    std::string output;
    char chunk[256];
    for (ssize_t got = 1; got > 0;) {
        got = read(pipeEnds[0], chunk, sizeof(chunk));
        output.append(chunk, got > 0 ? static_cast<size_t>(got) : 0);
    }
    close(pipeEnds[0]);
    EXPECT_EQ(child.Wait(), 0);
    return output;
}

TEST(JniContextExitTest, ProcessExitFinalizesTheMachineHeld) {
    const std::string output = OutputAtExit([] {
        static FakeJava* java = nullptr;  // outlives the context
        java = new FakeJava;
        std::vector<std::string> names = {"a/A"};
        JniContext::GetInstance().Initialize(java->Vm(), names);
        java->onCall = [](const std::string& call) {
            dprintf(STDERR_FILENO, "%s\n", call.c_str());
        };
    });
    EXPECT_EQ(output, "GetEnv(0x10004)\nDeleteGlobalRef(a/A)\n");
}

TEST(JniContextExitTest, ProcessExitWithoutAMachineSaysNothing) {
    EXPECT_EQ(OutputAtExit([] { JniContext::GetInstance(); }), "");
}

}  // namespace
