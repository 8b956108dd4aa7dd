#include "cli/PipeRoot.h"

#include <gtest/gtest.h>

namespace {

using kpl::cli::FifoName;
using kpl::cli::ParseFifoName;

std::string Parsed(const std::string& name) {
    const std::optional<FifoName> parsed = ParseFifoName(name);
    return parsed ? parsed->server + " " + std::to_string(parsed->connection) : "none";
}

TEST(PipeRootTest, NamesAreTakenApart) {
    EXPECT_EQ("Foo -1", Parsed("FooRoot"));
    EXPECT_EQ("Foo 17", Parsed("FooServer17"));
    EXPECT_EQ("Foo 0", Parsed("FooClient0"));
    EXPECT_EQ("Foo 2147483647", Parsed("FooClient2147483647"));
    EXPECT_EQ("RootRoot -1", Parsed("RootRootRoot"));
    EXPECT_EQ("FooServer1 2", Parsed("FooServer1Client2"));
    EXPECT_EQ("Foo7 5", Parsed("Foo7Server5"));
}

TEST(PipeRootTest, OtherNamesAreNone) {
    for (const std::string name :
         {"", "Root", "Foo", "Fooroot", "Server1", "Client1", "FooServer", "FooServer01",
          "FooServer2147483648", "FooServer99999999999999999999", "FooServer-1", "Foo17", "17",
          "FooServer17x"}) {
        EXPECT_EQ("none", Parsed(name)) << name;
    }
}

}  // namespace
