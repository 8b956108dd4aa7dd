#include <gtest/gtest.h>
#include <signal.h>

#include "tests/examples/Program.h"
#include "tests/support/TempDir.h"

namespace {

using kpl::test::Program;
using kpl::test::ProgramResult;
using kpl::test::RunProgram;
using kpl::test::TempDir;

TEST(CalculatorTest, TheClientGetsItsSum) {
    TempDir root;
    Program server("calculator_server", {root.Path()});
    ASSERT_TRUE(server.WaitForOutput("calculator_server: ready\n"));
    const ProgramResult client = RunProgram("calculator_client", {root.Path()});
    EXPECT_EQ(0, client.code);
    EXPECT_EQ("19 + 23 = 42\n", client.output);
    server.Kill(SIGTERM);
    EXPECT_EQ(0, server.Wait());
    EXPECT_TRUE(root.Entries().empty());
}

TEST(CalculatorTest, WithoutAServerTheClientSaysSo) {
    TempDir root;
    const ProgramResult client = RunProgram("calculator_client", {root.Path()});
    EXPECT_EQ(1, client.code);
    EXPECT_EQ("", client.output);
    EXPECT_NE(std::string::npos, client.errors.find("calculator_client: there is no calculator\n"));
}

TEST(CalculatorTest, WithoutAPipeRootTheServerSaysSo) {
    const ProgramResult server = RunProgram("calculator_server", {"/no/such/directory"});
    EXPECT_EQ(1, server.code);
    EXPECT_EQ("", server.output);
    EXPECT_EQ("calculator_server: cannot make its FIFO\n", server.errors);
}

}  // namespace
