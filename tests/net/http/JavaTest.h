// What the tests with a Java machine share: every one of them gives back each reference, leaves no
// exception and no warning of -Xcheck:jni.
#ifndef KPL_TESTS_NET_HTTP_JAVATEST_H_
#define KPL_TESTS_NET_HTTP_JAVATEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kpl/os/android/JniContext.h"
#include "tests/net/http/HttpServers.h"
#include "tests/net/http/JavaMachine.h"
#include "tests/support/LogCapture.h"

namespace kpl::test {

class JavaTest : public ::testing::Test {
protected:
    JavaTest() : machine(JavaMachine::Get()) {
        machine.Env()->PushLocalFrame(16);  // what the class look-up leaves goes with it
        std::vector<std::string> names = {"com/kapelo/net/CHttpClient"};
        os::android::JniContext::GetInstance().Initialize(machine.Vm(), names);
        SetTimeouts(10000, 10000);
        machine.LookForExceptions(true);
        machine.FindPropertyMap(false);
        EXPECT_THAT(machine.TakeWarnings(), ::testing::IsEmpty());
        before = machine.CountReferences();
        exceptionsBefore = machine.ExceptionCount();
    }

    // Whatever a test did: every reference is given back, no exception was left, and -Xcheck:jni
    // had nothing to say.
    ~JavaTest() override {
        const JavaMachine::References after = machine.CountReferences();
        EXPECT_EQ(after.local, before.local);
        EXPECT_EQ(after.global, before.global);
        EXPECT_EQ(machine.ExceptionCount(), exceptionsBefore);
        EXPECT_FALSE(machine.Env()->ExceptionCheck());
        EXPECT_THAT(machine.TakeWarnings(), ::testing::IsEmpty());
        os::android::JniContext::GetInstance().Finalize(machine.Vm());
        machine.Env()->PopLocalFrame(nullptr);
    }

    static void SetTimeouts(int connectMs, int readMs) {
        jvalue arguments[2] = {};
        arguments[0].i = connectMs;
        arguments[1].i = readMs;
        JavaClass("com/kapelo/net/CHttpClient")
            .CallVoid("SetTimeouts", "(II)V", {arguments[0], arguments[1]});
    }

    LogCapture log{LogCapture::Debug::Off};
    JavaMachine& machine;
    JavaMachine::References before;
    int exceptionsBefore = 0;
};

// Does not print a difference of megabytes.
inline void ExpectSame(const std::string& actual, const std::string& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    EXPECT_TRUE(actual == expected);
}

class JavaAndNginxTest : public JavaTest {
protected:
    void SetUp() override {
        if (!NginxServer::IsInstalled()) {
            GTEST_SKIP() << "needs nginx and openssl (scripts/setup installs them)";
        }
        server = std::make_unique<NginxServer>();
        trust = std::make_unique<TrustedCertificate>(server->CertificateFile());
        before = machine.CountReferences();
    }

    void TearDown() override {
        const JavaMachine::References after = machine.CountReferences();
        EXPECT_EQ(after.local, before.local);
        EXPECT_EQ(after.global, before.global);
        trust.reset();
        before = machine.CountReferences();
    }

    std::unique_ptr<NginxServer> server;
    std::unique_ptr<TrustedCertificate> trust;
};

}  // namespace kpl::test

#endif  // KPL_TESTS_NET_HTTP_JAVATEST_H_
