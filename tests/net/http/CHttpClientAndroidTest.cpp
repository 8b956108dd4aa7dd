#include "kpl/net/http/CHttpClientAndroid.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kpl/os/android/JniContext.h"
#include "tests/support/FakeJava.h"
#include "tests/support/LogCapture.h"

namespace {

using kpl::net::http::CHttpClientAndroid;
using kpl::net::http::IHttpClient;
using kpl::os::android::JniContext;
using kpl::test::FakeJava;
using kpl::test::LogCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

using Calls = std::vector<std::string>;

constexpr char kOpenSignature[] =
    "(Ljava/lang/String;Ljava/lang/Object;)Lcom/kapelo/net/CHttpClient;";
constexpr char kPropertySignature[] = "(Ljava/lang/Object;Ljava/lang/String;)Ljava/lang/String;";

class CHttpClientAndroidTest : public testing::Test {
protected:
    CHttpClientAndroidTest() {
        std::vector<std::string> names = {"com/kapelo/net/CHttpClient"};
        JniContext::GetInstance().Initialize(java.Vm(), names);
        client = std::make_unique<CHttpClientAndroid>();
        java.TakeCalls();
        localsBefore = java.LocalCount();
        globalsBefore = java.GlobalCount();
    }

    // Whatever a test did: every reference and text is given back, and no dead one was used.
    ~CHttpClientAndroidTest() override {
        client.reset();
        EXPECT_EQ(java.LocalCount(), localsBefore);
        EXPECT_EQ(java.GlobalCount(), globalsBefore);
        EXPECT_EQ(java.CharsCount(), 0);
        JniContext::GetInstance().Finalize(JniContext::GetInstance().GetJVM());
        EXPECT_THAT(java.Mistakes(), IsEmpty());
    }

    void Open() {
        ASSERT_TRUE(client->Open("http://h/x"));
        java.TakeCalls();
        log.Clear();
    }

    // What the next read of `size` bytes returns; checks the bytes against the sequence from
    // `position` on.
    int ReadAt(size_t position, int size) {
        std::string buffer(static_cast<size_t>(size), '\0');
        const int count = client->Read(buffer.data(), size);
        for (size_t i = 0; static_cast<int>(i) < count; ++i) {
            EXPECT_EQ(buffer[i], FakeJava::ByteAt(position + i)) << "at " << position + i;
        }
        return count;
    }

    LogCapture log;
    FakeJava java;
    std::unique_ptr<CHttpClientAndroid> client;
    int localsBefore = 0;
    int globalsBefore = 0;
};

// Opening.

TEST_F(CHttpClientAndroidTest, OpenCallsJavaAndKeepsGlobalReferences) {
    EXPECT_TRUE(client->Open("http://h/x"));
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre(std::string("GetStaticMethodID(Open ") + kOpenSignature + ")",
                            "NewStringUTF(\"http://h/x\")",
                            "CallStaticObjectMethodA(Open \"http://h/x\" null)",
                            "NewGlobalRef(connection1)", "DeleteLocalRef(connection1)",
                            "NewByteArray(262144)", "NewGlobalRef(bytes)", "DeleteLocalRef(bytes)",
                            "DeleteLocalRef(\"http://h/x\")"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 2);
    EXPECT_EQ(java.LocalCount(), localsBefore);
    ASSERT_EQ(log.Messages().size(), 1u);
    EXPECT_THAT(log.Messages()[0],
                testing::MatchesRegex("CHttpClientAndroid::Open\\(\\): Object=[0-9a-f]+\n"));
}

TEST_F(CHttpClientAndroidTest, OpenOfNothingIsFalseAndKeepsWhatIsOpen) {
    Open();
    EXPECT_FALSE(client->Open(nullptr));
    EXPECT_FALSE(client->Open(""));
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_THAT(client->GetUrl(), StrEq("the GetUrl"));
}

TEST_F(CHttpClientAndroidTest, OpenWithoutTheMethodIsFalse) {
    java.missingMethods = {"Open"};
    EXPECT_FALSE(client->Open("http://h/x"));
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::Open(): ?????? Cannot find method\n"));
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre(std::string("GetStaticMethodID(Open ") + kOpenSignature + ")"));
}

TEST_F(CHttpClientAndroidTest, OpenIsTrueAlsoWhenJavaReturnsNoConnection) {
    java.nullResults = {"Open"};
    EXPECT_TRUE(client->Open("http://h/x"));
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::Open(): Object=0\n"));
    java.TakeCalls();
    char byte = 0;
    EXPECT_EQ(client->Read(&byte, 1), -1);
    EXPECT_EQ(client->Seek(0, IHttpClient::SEEK_FLAG_BEGIN), -3);
    EXPECT_EQ(client->GetTotalLength(), 0);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    // The buffer of the first open makes room for that of the second.
    EXPECT_TRUE(client->Open("http://h/x"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 1);
}

TEST_F(CHttpClientAndroidTest, OpenWithoutABufferIsFalse) {
    java.nullResults = {"NewByteArray"};
    EXPECT_FALSE(client->Open("http://h/x"));
    EXPECT_EQ(log.Count("CHttpClientAndroid::Open(): ?????? Allocate buffer failed.\n"), 1);
    char byte = 0;
    EXPECT_EQ(client->Read(&byte, 1), -1);
    EXPECT_THAT(client->GetUrl(), StrEq("the GetUrl"));
}

TEST_F(CHttpClientAndroidTest, OpenWithoutMemoryForTheUrlIsFalse) {
    java.nullResults = {"NewStringUTF"};
    EXPECT_FALSE(client->Open("http://h/x"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
}

TEST_F(CHttpClientAndroidTest, OpenWithoutGlobalReferencesIsFalse) {
    java.nullResults = {"NewGlobalRef"};
    EXPECT_FALSE(client->Open("http://h/x"));
    EXPECT_EQ(log.Count("CHttpClientAndroid::Open(): ?????? Allocate buffer failed.\n"), 1);
}

TEST_F(CHttpClientAndroidTest, OpenClosesWhatIsOpen) {
    Open();
    EXPECT_TRUE(client->Open("http://h/y"));
    const Calls calls = java.TakeCalls();
    ASSERT_GE(calls.size(), 6u);
    EXPECT_EQ(calls[0], "GetStaticMethodID(Close (Lcom/kapelo/net/CHttpClient;)V)");
    EXPECT_EQ(calls[1], "CallStaticVoidMethodA(Close connection1)");
    EXPECT_THAT(calls, testing::Contains("CallStaticObjectMethodA(Open \"http://h/y\" null)"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 2);
}

TEST_F(CHttpClientAndroidTest, OpenMayBeGivenATextOfTheSameClient) {
    java.textResults = {{"GetResponseProperty", "http://h/location"},
                        {"GetUrl", "http://h/url"},
                        {"GetConnectedUrl", "http://h/connected"}};
    Open();
    EXPECT_TRUE(client->Open(client->GetResponseProperty("Location")));
    EXPECT_TRUE(client->Open(client->GetUrl()));
    EXPECT_TRUE(client->Open(client->GetConnectedUrl()));
    const Calls calls = java.TakeCalls();
    for (const char* url : {"http://h/location", "http://h/url", "http://h/connected"}) {
        const std::string open = "CallStaticObjectMethodA(Open \"" + std::string(url) + "\" null)";
        EXPECT_THAT(calls, testing::Contains(open));
    }
}

TEST_F(CHttpClientAndroidTest, OpenOverAnOpenOneOnAWorkerThreadWorksOnALivingEnvironment) {
    std::thread([&] {
        EXPECT_TRUE(client->Open("http://h/x"));
        java.TakeCalls();
        EXPECT_TRUE(client->Open("http://h/y"));
        const Calls calls = java.TakeCalls();
        ASSERT_GE(calls.size(), 8u);
        EXPECT_EQ(calls[0], "AttachCurrentThread()");
        EXPECT_EQ(calls[2], "CallStaticVoidMethodA(Close connection1)");
        EXPECT_EQ(calls[5], "DetachCurrentThread()");
        EXPECT_EQ(calls[6], "AttachCurrentThread()");
        EXPECT_EQ(calls.back(), "DetachCurrentThread()");
    }).join();
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 2);
}

TEST_F(CHttpClientAndroidTest, OpenAfterACloseThatFailedLeavesNoReferenceBehind) {
    Open();
    java.readResults = {1000};
    EXPECT_EQ(ReadAt(0, 100), 100);
    java.missingMethods = {"Close"};
    EXPECT_TRUE(client->Open("http://h/y"));
    EXPECT_EQ(log.Count("CHttpClientAndroid::Close(): ?????? Cannot find method\n"), 1);
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 2);
    // Nothing of the old buffer is left to read.
    java.readResults = {50};
    EXPECT_EQ(ReadAt(1000, 50), 50);
}

// Reading.

TEST_F(CHttpClientAndroidTest, ReadTakesTheRestOfTheBufferWithoutCallingJava) {
    Open();
    java.readResults = {1000};
    EXPECT_EQ(ReadAt(0, 100), 100);
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(Read (Lcom/kapelo/net/CHttpClient;[BI)I)",
                            "CallStaticIntMethodA(Read connection1 bytes 262144)",
                            "GetByteArrayRegion(0 100)"));
    EXPECT_EQ(ReadAt(100, 900), 900);
    EXPECT_THAT(java.TakeCalls(), ElementsAre("GetByteArrayRegion(100 900)"));
    EXPECT_THAT(log.Messages(), IsEmpty());
    // The buffer is used up: the next byte comes from Java, to its start.
    java.readResults = {10};
    EXPECT_EQ(ReadAt(1000, 1), 1);
    EXPECT_THAT(java.TakeCalls(), testing::Contains("GetByteArrayRegion(0 1)"));
}

TEST_F(CHttpClientAndroidTest, ReadGoesOnWithJavaWhereTheBufferEnds) {
    Open();
    java.readResults = {10, 5, 100};
    EXPECT_EQ(ReadAt(0, 4), 4);
    EXPECT_EQ(ReadAt(4, 3), 3);
    java.TakeCalls();
    EXPECT_EQ(ReadAt(7, 20), 20);
    EXPECT_THAT(
        java.TakeCalls(),
        ElementsAre(
            "GetByteArrayRegion(7 3)", "GetStaticMethodID(Read (Lcom/kapelo/net/CHttpClient;[BI)I)",
            "CallStaticIntMethodA(Read connection1 bytes 262144)", "GetByteArrayRegion(0 5)",
            "CallStaticIntMethodA(Read connection1 bytes 262144)", "GetByteArrayRegion(0 12)"));
    EXPECT_EQ(ReadAt(27, 88), 88);
}

TEST_F(CHttpClientAndroidTest, ReadInOddPiecesGivesTheSequence) {
    Open();
    java.readResults = {262144, 1, 262143, 65537, 3};
    constexpr size_t kTotal = 262144 + 1 + 262143 + 65537 + 3;
    size_t position = 0;
    for (int size = 1; position < kTotal; size = size * 3 % 70001 + 1) {
        const int count = ReadAt(position, size);
        ASSERT_GT(count, 0);
        position += static_cast<size_t>(count);
    }
    EXPECT_EQ(position, kTotal);
    EXPECT_EQ(ReadAt(position, 1), 0);
}

TEST_F(CHttpClientAndroidTest, ReadReportsTheEndAndReturnsWhatItHas) {
    Open();
    java.readResults = {10};
    EXPECT_EQ(ReadAt(0, 100), 10);
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::Read(): ?????? Ret=0\n"));
    EXPECT_EQ(ReadAt(10, 100), 0);
    java.readResults = {-7};
    EXPECT_EQ(ReadAt(10, 100), -7);
    EXPECT_EQ(log.Count("CHttpClientAndroid::Read(): ?????? Ret=-7\n"), 1);
}

TEST_F(CHttpClientAndroidTest, ReadOfNothingIsMinusTwoAndOfAClosedClientMinusOne) {
    char byte = 0;
    EXPECT_EQ(client->Read(&byte, 1), -1);
    EXPECT_EQ(client->Read(nullptr, 0), -1);
    Open();
    EXPECT_EQ(client->Read(&byte, 0), -2);
    EXPECT_EQ(client->Read(&byte, -1), -2);
    EXPECT_EQ(client->Read(nullptr, 1), -2);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    client->Close();
    EXPECT_EQ(client->Read(&byte, 1), -1);
}

TEST_F(CHttpClientAndroidTest, ReadWithoutTheMethodIsZeroAlsoWhenBytesWereCopied) {
    Open();
    java.readResults = {10};
    EXPECT_EQ(ReadAt(0, 4), 4);
    java.missingMethods = {"Read"};
    EXPECT_EQ(ReadAt(4, 100), 0);
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::Read(): ?????? Cannot find method\n"));
}

TEST_F(CHttpClientAndroidTest, ReadBelievesNoMoreThanTheBufferHolds) {
    Open();
    java.readResults = {262145};
    EXPECT_EQ(ReadAt(0, 262144), 262144);
    EXPECT_EQ(ReadAt(262144, 1), 0);
}

// Seeking.

TEST_F(CHttpClientAndroidTest, ASuccessfulSeekDiscardsTheBuffer) {
    Open();
    java.readResults = {1000, 1000};
    EXPECT_EQ(ReadAt(0, 100), 100);
    java.intResults["Seek"] = 0;
    java.TakeCalls();
    EXPECT_EQ(client->Seek(-12, IHttpClient::SEEK_FLAG_END), 0);
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(Seek (Lcom/kapelo/net/CHttpClient;II)I)",
                            "CallStaticIntMethodA(Seek connection1 -12 2)"));
    EXPECT_EQ(log.Count("CHttpClientAndroid::Seek(): 0\n"), 1);
    EXPECT_EQ(ReadAt(1000, 1), 1);
}

TEST_F(CHttpClientAndroidTest, AFailedSeekKeepsTheBuffer) {
    Open();
    java.readResults = {1000};
    EXPECT_EQ(ReadAt(0, 100), 100);
    java.intResults["Seek"] = -1;
    EXPECT_EQ(client->Seek(5, IHttpClient::SEEK_FLAG_BEGIN), -1);
    EXPECT_EQ(log.Count("CHttpClientAndroid::Seek(): -1\n"), 1);
    java.TakeCalls();
    EXPECT_EQ(ReadAt(100, 900), 900);
    EXPECT_THAT(java.TakeCalls(), ElementsAre("GetByteArrayRegion(100 900)"));
}

TEST_F(CHttpClientAndroidTest, SeekReturnsAnyResultOfJavaAndPassesAnyFlag) {
    Open();
    java.intResults["Seek"] = 12345;
    EXPECT_EQ(client->Seek(1, IHttpClient::SEEK_FLAG_CURRENT), 12345);
    EXPECT_EQ(client->Seek(2147483647, static_cast<IHttpClient::SeekFlag>(3)), 12345);
    const Calls calls = java.TakeCalls();
    EXPECT_THAT(calls, testing::Contains("CallStaticIntMethodA(Seek connection1 1 1)"));
    EXPECT_THAT(calls, testing::Contains("CallStaticIntMethodA(Seek connection1 2147483647 3)"));
}

TEST_F(CHttpClientAndroidTest, SeekFailsWithMinusThree) {
    EXPECT_EQ(client->Seek(0, IHttpClient::SEEK_FLAG_BEGIN), -3);
    Open();
    java.missingMethods = {"Seek"};
    EXPECT_EQ(client->Seek(0, IHttpClient::SEEK_FLAG_BEGIN), -3);
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::Seek(): ?????? Cannot find method\n"));
}

// Numbers.

TEST_F(CHttpClientAndroidTest, NumbersComeFromJavaAndAreLogged) {
    Open();
    java.intResults = {{"GetTotalLength", -1}, {"GetResposnseCode", 404}};
    EXPECT_EQ(client->GetTotalLength(), -1);
    EXPECT_EQ(client->GetResposnseCode(), 404);
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(GetTotalLength (Lcom/kapelo/net/CHttpClient;)I)",
                            "CallStaticIntMethodA(GetTotalLength connection1)",
                            "GetStaticMethodID(GetResposnseCode (Lcom/kapelo/net/CHttpClient;)I)",
                            "CallStaticIntMethodA(GetResposnseCode connection1)"));
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::GetTotalLength(): -1\n",
                                            "CHttpClientAndroid::GetResposnseCode(): 404\n"));
}

TEST_F(CHttpClientAndroidTest, IsDataAvailableAsksJavaAndDoesNotCountTheBuffer) {
    EXPECT_FALSE(client->IsDataAvailable());
    Open();
    java.readResults = {1000};
    EXPECT_EQ(ReadAt(0, 1), 1);
    java.TakeCalls();
    EXPECT_FALSE(client->IsDataAvailable());
    EXPECT_THAT(
        java.TakeCalls(),
        ElementsAre("GetStaticMethodID(GetAvailableDataLength (Lcom/kapelo/net/CHttpClient;)I)",
                    "CallStaticIntMethodA(GetAvailableDataLength connection1)"));
    java.intResults["GetAvailableDataLength"] = 12;
    EXPECT_TRUE(client->IsDataAvailable());
    java.intResults["GetAvailableDataLength"] = -1;
    EXPECT_FALSE(client->IsDataAvailable());
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::IsDataAvailable(): 0\n",
                                            "CHttpClientAndroid::IsDataAvailable(): 12\n",
                                            "CHttpClientAndroid::IsDataAvailable(): -1\n"));
}

TEST_F(CHttpClientAndroidTest, NumbersWithoutTheirMethodAreZero) {
    Open();
    java.missingMethods = {"GetTotalLength", "GetResposnseCode", "GetAvailableDataLength"};
    EXPECT_EQ(client->GetTotalLength(), 0);
    EXPECT_EQ(client->GetResposnseCode(), 0);
    EXPECT_FALSE(client->IsDataAvailable());
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::GetTotalLength(): ?????? Cannot find method\n",
                            "CHttpClientAndroid::GetResposnseCode(): ?????? Cannot find method\n",
                            "CHttpClientAndroid::IsDataAvailable(): ?????? Cannot find method\n"));
}

// Texts.

TEST_F(CHttpClientAndroidTest, TextsAreCopiedFromJavaAndLogged) {
    Open();
    java.textResults["GetUrl"] = "http://h/x";
    const char* url = client->GetUrl();
    EXPECT_THAT(url, StrEq("http://h/x"));
    EXPECT_THAT(
        java.TakeCalls(),
        ElementsAre("GetStaticMethodID(GetUrl (Lcom/kapelo/net/CHttpClient;)Ljava/lang/String;)",
                    "CallStaticObjectMethodA(GetUrl connection1)",
                    "GetStringUTFChars(\"http://h/x\")", "ReleaseStringUTFChars(\"http://h/x\")",
                    "DeleteLocalRef(\"http://h/x\")"));
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::GetUrl(): http://h/x\n"));
}

TEST_F(CHttpClientAndroidTest, EachTextStaysUntilItsOwnOperationIsCalledAgain) {
    client->SetRequestProperty("Accept", "*/*");
    Open();
    const char* texts[] = {client->GetUrl(), client->GetConnectedUrl(), client->GetResponseText(),
                           client->GetResponseProperty("Server"),
                           client->GetRequestProperty("Accept")};
    EXPECT_THAT(texts, ElementsAre(StrEq("the GetUrl"), StrEq("the GetConnectedUrl"),
                                   StrEq("the GetResponseText"), StrEq("the GetResponseProperty"),
                                   StrEq("the GetRequestProperty")));
    java.TakeCalls();
    client->GetConnectedUrl();
    client->GetResponseText();
    client->GetResponseProperty("Server");
    client->GetRequestProperty("Accept");
    const std::string object = "(Lcom/kapelo/net/CHttpClient;";
    const std::string text = "Ljava/lang/String;";
    Calls lookUps;
    for (const std::string& call : java.TakeCalls()) {
        if (call.rfind("GetStaticMethodID", 0) == 0 || call.rfind("CallStatic", 0) == 0) {
            lookUps.push_back(call);
        }
    }
    EXPECT_THAT(
        lookUps,
        ElementsAre("GetStaticMethodID(GetConnectedUrl " + object + ")" + text + ")",
                    "CallStaticObjectMethodA(GetConnectedUrl connection1)",
                    "GetStaticMethodID(GetResponseText " + object + ")" + text + ")",
                    "CallStaticObjectMethodA(GetResponseText connection1)",
                    "GetStaticMethodID(GetResponseProperty " + object + text + ")" + text + ")",
                    "CallStaticObjectMethodA(GetResponseProperty connection1 \"Server\")",
                    std::string("GetStaticMethodID(GetRequestProperty ") + kPropertySignature + ")",
                    "CallStaticObjectMethodA(GetRequestProperty map \"Accept\")"));
}

TEST_F(CHttpClientAndroidTest, ANullTextFromJavaIsNull) {
    client->SetRequestProperty("Accept", "*/*");
    Open();
    java.nullResults = {"GetUrl", "GetConnectedUrl", "GetResponseText", "GetResponseProperty",
                        "GetRequestProperty"};
    EXPECT_EQ(client->GetUrl(), nullptr);
    EXPECT_EQ(client->GetConnectedUrl(), nullptr);
    EXPECT_EQ(client->GetResponseText(), nullptr);
    EXPECT_EQ(client->GetResponseProperty("Server"), nullptr);
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
    EXPECT_EQ(log.Count("CHttpClientAndroid::GetUrl(): (null)\n"), 1);
}

TEST_F(CHttpClientAndroidTest, ATextThatJavaCannotHandOutIsNull) {
    Open();
    java.nullResults = {"GetStringUTFChars"};
    EXPECT_EQ(client->GetUrl(), nullptr);
}

TEST_F(CHttpClientAndroidTest, TextsWithoutTheirMethodAreNull) {
    client->SetRequestProperty("Accept", "*/*");
    Open();
    java.missingMethods = {"GetUrl", "GetConnectedUrl", "GetResponseText", "GetResponseProperty",
                           "GetRequestProperty"};
    EXPECT_EQ(client->GetUrl(), nullptr);
    EXPECT_EQ(client->GetConnectedUrl(), nullptr);
    EXPECT_EQ(client->GetResponseText(), nullptr);
    EXPECT_EQ(client->GetResponseProperty("Server"), nullptr);
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
    const std::string missing = "(): ?????? Cannot find method\n";
    EXPECT_THAT(log.Messages(), ElementsAre("CHttpClientAndroid::GetUrl" + missing,
                                            "CHttpClientAndroid::GetConnectedUrl" + missing,
                                            "CHttpClientAndroid::GetResponseText" + missing,
                                            "CHttpClientAndroid::GetResponseProperty" + missing,
                                            "CHttpClientAndroid::GetRequestProperty" + missing));
}

TEST_F(CHttpClientAndroidTest, APropertyWithoutANameIsNull) {
    client->SetRequestProperty("Accept", "*/*");
    Open();
    EXPECT_EQ(client->GetResponseProperty(nullptr), nullptr);
    EXPECT_EQ(client->GetResponseProperty(""), nullptr);
    EXPECT_EQ(client->GetRequestProperty(nullptr), nullptr);
    EXPECT_EQ(client->GetRequestProperty(""), nullptr);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    java.nullResults = {"NewStringUTF"};
    EXPECT_EQ(client->GetResponseProperty("Server"), nullptr);
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
}

// Request properties.

TEST_F(CHttpClientAndroidTest, GetRequestPropertyBeforeAnySetRequestPropertyIsNull) {
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
    Open();
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
}

// The machine finds the signature that no Java compiler makes: V stands as a parameter.
TEST_F(CHttpClientAndroidTest, TheFirstSetRequestPropertyCreatesTheMap) {
    client->SetRequestProperty("Accept", "text/plain");
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(CreateRequestPropertyMap (V)Ljava/lang/Object;)",
                            "CallStaticObjectMethod(CreateRequestPropertyMap)", "NewGlobalRef(map)",
                            "DeleteLocalRef(map)",
                            "GetStaticMethodID(SetRequestProperty "
                            "(Ljava/lang/Object;Ljava/lang/String;Ljava/lang/String;)V)",
                            "NewStringUTF(\"Accept\")", "NewStringUTF(\"text/plain\")",
                            "CallStaticVoidMethodA(SetRequestProperty map \"Accept\" "
                            "\"text/plain\")",
                            "DeleteLocalRef(\"text/plain\")", "DeleteLocalRef(\"Accept\")"));
    EXPECT_THAT(log.Messages(), IsEmpty());
    client->SetRequestProperty("Range", nullptr);
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(SetRequestProperty "
                            "(Ljava/lang/Object;Ljava/lang/String;Ljava/lang/String;)V)",
                            "NewStringUTF(\"Range\")", "NewStringUTF(\"\")",
                            "CallStaticVoidMethodA(SetRequestProperty map \"Range\" \"\")",
                            "DeleteLocalRef(\"\")", "DeleteLocalRef(\"Range\")"));
}

TEST_F(CHttpClientAndroidTest, PropertiesTravelWithOpenAndGoWithClose) {
    client->SetRequestProperty("Accept", "text/plain");
    EXPECT_TRUE(client->Open("http://h/x"));
    EXPECT_THAT(java.TakeCalls(),
                testing::Contains("CallStaticObjectMethodA(Open \"http://h/x\" map)"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 3);
    client->Close();
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
    EXPECT_EQ(client->GetRequestProperty("Accept"), nullptr);
    EXPECT_TRUE(client->Open("http://h/x"));
    EXPECT_THAT(java.TakeCalls(),
                testing::Contains("CallStaticObjectMethodA(Open \"http://h/x\" null)"));
}

TEST_F(CHttpClientAndroidTest, CloseOfAClosedClientKeepsThePropertiesAndTheDestructorReleasesThem) {
    client->SetRequestProperty("Accept", "text/plain");
    client->Close();
    EXPECT_THAT(client->GetRequestProperty("Accept"), StrEq("the GetRequestProperty"));
    client.reset();
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
}

TEST_F(CHttpClientAndroidTest, SetRequestPropertyWithoutANameDoesNothing) {
    client->SetRequestProperty(nullptr, "x");
    client->SetRequestProperty("", "x");
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
}

TEST_F(CHttpClientAndroidTest, SetRequestPropertyReportsEachMissingMethodAndAMissingMap) {
    java.missingMethods = {"CreateRequestPropertyMap"};
    client->SetRequestProperty("Accept", "*/*");
    java.missingMethods.clear();
    java.nullResults = {"CreateRequestPropertyMap"};
    client->SetRequestProperty("Accept", "*/*");
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(CreateRequestPropertyMap (V)Ljava/lang/Object;)",
                            "GetStaticMethodID(CreateRequestPropertyMap (V)Ljava/lang/Object;)",
                            "CallStaticObjectMethod(CreateRequestPropertyMap)"));
    java.nullResults.clear();
    java.missingMethods = {"SetRequestProperty"};
    client->SetRequestProperty("Accept", "*/*");
    java.missingMethods.clear();
    java.nullResults = {"NewStringUTF"};
    client->SetRequestProperty("Accept", "*/*");
    for (const std::string& call : java.TakeCalls()) {
        EXPECT_NE(call.rfind("CallStaticVoidMethodA", 0), 0u);
    }
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::SetRequestProperty(): ?????? Cannot find method "
                            "CreateRequestPropertyMap\n",
                            "CHttpClientAndroid::SetRequestProperty(): ?????? Cannot create "
                            "request property map\n",
                            "CHttpClientAndroid::SetRequestProperty(): ?????? Cannot find "
                            "method\n"));
}

// Closing.

TEST_F(CHttpClientAndroidTest, CloseCallsJavaAndReleasesEverything) {
    Open();
    const char* url = client->GetUrl();
    EXPECT_THAT(url, StrEq("the GetUrl"));
    java.TakeCalls();
    client->Close();
    EXPECT_THAT(java.TakeCalls(),
                ElementsAre("GetStaticMethodID(Close (Lcom/kapelo/net/CHttpClient;)V)",
                            "CallStaticVoidMethodA(Close connection1)", "DeleteGlobalRef(bytes)",
                            "DeleteGlobalRef(connection1)"));
    EXPECT_THAT(url, StrEq(""));
    client->Close();
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
}

TEST_F(CHttpClientAndroidTest, CloseWithoutTheMethodLeavesTheStateAsItIs) {
    Open();
    java.missingMethods = {"Close"};
    client->Close();
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::Close(): ?????? Cannot find method\n"));
    EXPECT_THAT(client->GetUrl(), StrEq("the GetUrl"));
    EXPECT_EQ(java.GlobalCount(), globalsBefore + 2);
    client.reset();  // reports it again; the references go all the same
    EXPECT_EQ(log.Count("CHttpClientAndroid::Close(): ?????? Cannot find method\n"), 2);
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
}

TEST_F(CHttpClientAndroidTest, AClosedClientAsksJavaNothing) {
    EXPECT_EQ(client->GetTotalLength(), 0);
    EXPECT_EQ(client->GetResposnseCode(), 0);
    EXPECT_EQ(client->GetResponseText(), nullptr);
    EXPECT_EQ(client->GetResponseProperty("Server"), nullptr);
    EXPECT_EQ(client->GetUrl(), nullptr);
    EXPECT_EQ(client->GetConnectedUrl(), nullptr);
    EXPECT_FALSE(client->IsDataAvailable());
    client->Close();
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_THAT(log.Messages(), IsEmpty());
}

// Threads.

// Every operation, with the failure value it must give when nothing can be called.
struct Operation {
    const char* name;
    std::function<bool(CHttpClientAndroid&)> failsAsStated;
};

const std::vector<Operation>& OperationsOfAnOpenClient() {
    static const std::vector<Operation> operations = {
        {"Open", [](auto& c) { return !c.Open("http://h/y"); }},
        {"Read",
         [](auto& c) {
             char byte = 0;
             return c.Read(&byte, 1) == -1;
         }},
        {"IsDataAvailable", [](auto& c) { return !c.IsDataAvailable(); }},
        {"Seek", [](auto& c) { return c.Seek(0, IHttpClient::SEEK_FLAG_BEGIN) == -3; }},
        {"GetTotalLength", [](auto& c) { return c.GetTotalLength() == 0; }},
        {"GetResposnseCode", [](auto& c) { return c.GetResposnseCode() == 0; }},
        {"GetResponseText", [](auto& c) { return c.GetResponseText() == nullptr; }},
        {"GetResponseProperty", [](auto& c) { return c.GetResponseProperty("A") == nullptr; }},
        {"SetRequestProperty",
         [](auto& c) {
             c.SetRequestProperty("A", "b");
             return true;
         }},
        {"GetRequestProperty", [](auto& c) { return c.GetRequestProperty("A") == nullptr; }},
        {"GetUrl", [](auto& c) { return c.GetUrl() == nullptr; }},
        {"GetConnectedUrl", [](auto& c) { return c.GetConnectedUrl() == nullptr; }},
        {"Close",
         [](auto& c) {
             c.Close();
             return true;
         }},
    };
    return operations;
}

TEST_F(CHttpClientAndroidTest, EveryOperationAttachesAnyOtherThreadAndDetachesIt) {
    client->SetRequestProperty("A", "b");
    Open();
    java.intResults = {{"GetTotalLength", 1}};
    std::thread([&] {
        for (const Operation& operation : OperationsOfAnOpenClient()) {
            if (operation.name != std::string("Open")) {
                java.readResults = {1};
                operation.failsAsStated(*client);
                const Calls calls = java.TakeCalls();
                ASSERT_GE(calls.size(), 4u) << operation.name;
                EXPECT_EQ(calls.front(), "AttachCurrentThread()") << operation.name;
                EXPECT_EQ(calls.back(), "DetachCurrentThread()") << operation.name;
            }
        }
    }).join();
}

TEST_F(CHttpClientAndroidTest, EveryOperationWithAMissingMethodDetachesTheThread) {
    client->SetRequestProperty("A", "b");
    Open();
    java.missingMethods = {"Open",
                           "Read",
                           "GetAvailableDataLength",
                           "Seek",
                           "Close",
                           "GetTotalLength",
                           "GetResposnseCode",
                           "GetResponseText",
                           "GetResponseProperty",
                           "SetRequestProperty",
                           "GetRequestProperty",
                           "GetUrl",
                           "GetConnectedUrl"};
    std::thread([&] {
        for (const Operation& operation : OperationsOfAnOpenClient()) {
            if (operation.name != std::string("Open")) {
                operation.failsAsStated(*client);
                const Calls calls = java.TakeCalls();
                ASSERT_EQ(calls.size(), 3u) << operation.name;
                EXPECT_EQ(calls.front(), "AttachCurrentThread()") << operation.name;
                EXPECT_EQ(calls.back(), "DetachCurrentThread()") << operation.name;
            }
        }
    }).join();
}

TEST_F(CHttpClientAndroidTest, AThreadThatCannotAttachGetsTheFailureValues) {
    client->SetRequestProperty("A", "b");
    Open();
    java.attachResult = JNI_ERR;
    std::thread([&] {
        for (const Operation& operation : OperationsOfAnOpenClient()) {
            EXPECT_TRUE(operation.failsAsStated(*client)) << operation.name;
            for (const std::string& call : java.TakeCalls()) {
                EXPECT_EQ(call, "AttachCurrentThread()") << operation.name;
            }
        }
    }).join();
    java.attachResult = JNI_OK;
    EXPECT_THAT(client->GetUrl(), StrEq("the GetUrl"));  // Close left everything as it is
}

TEST_F(CHttpClientAndroidTest, WhatOneThreadOpensAnotherCanReadAndAThirdClose) {
    java.readResults = {1000};
    std::thread([&] { EXPECT_TRUE(client->Open("http://h/x")); }).join();
    std::thread([&] { EXPECT_EQ(ReadAt(0, 100), 100); }).join();
    EXPECT_EQ(ReadAt(100, 900), 900);
    std::thread([&] { client->Close(); }).join();
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
}

// Without a machine or a class.

TEST_F(CHttpClientAndroidTest, WithoutTheClassEveryMethodIsMissing) {
    java.missingClasses = {"com/kapelo/net/CHttpClient"};
    JniContext::GetInstance().Finalize(java.Vm());
    std::vector<std::string> names = {"com/kapelo/net/CHttpClient"};
    JniContext::GetInstance().Initialize(java.Vm(), names);
    globalsBefore = 0;
    client = std::make_unique<CHttpClientAndroid>();
    log.Clear();
    EXPECT_FALSE(client->Open("http://h/x"));
    client->SetRequestProperty("A", "b");
    EXPECT_THAT(log.Messages(),
                ElementsAre("CHttpClientAndroid::Open(): ?????? Cannot find method\n",
                            "CHttpClientAndroid::SetRequestProperty(): ?????? Cannot find method "
                            "CreateRequestPropertyMap\n"));
}

TEST_F(CHttpClientAndroidTest, AClientThatOutlivesTheMachineDoesNothing) {
    client->SetRequestProperty("A", "b");
    Open();
    JniContext::GetInstance().Finalize(java.Vm());
    java.TakeCalls();
    log.Clear();
    for (const Operation& operation : OperationsOfAnOpenClient()) {
        EXPECT_TRUE(operation.failsAsStated(*client)) << operation.name;
    }
    EXPECT_THAT(java.TakeCalls(), IsEmpty());
    EXPECT_THAT(log.Messages(), IsEmpty());
    globalsBefore = 3;  // the machine takes them with it
    client.reset();
}

TEST_F(CHttpClientAndroidTest, ManyRoundsOnTheInitialisingThreadLeaveNothingBehind) {
    for (int i = 0; i < 50; ++i) {
        client->SetRequestProperty("A", "b");
        java.readResults = {10};
        EXPECT_TRUE(client->Open("http://h/x"));
        char bytes[20];
        EXPECT_EQ(client->Read(bytes, 20), 10);
        for (const Operation& operation : OperationsOfAnOpenClient()) {
            operation.failsAsStated(*client);
        }
    }
    EXPECT_EQ(java.LocalCount(), localsBefore);
    EXPECT_EQ(java.GlobalCount(), globalsBefore);
}

}  // namespace
