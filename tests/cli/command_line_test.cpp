// The command table: help, unknown commands and each command's own --help.
#include <gtest/gtest.h>

#include "tool_test_support.h"

namespace tz3clitest {
namespace {

TEST(CommandLineTest, NoCommandIsAUsageError) {
    const ToolRun run = RunTool({});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(LineCount(run.err), 1);
    EXPECT_EQ(run.err.rfind("tz3: no command given", 0), 0u);
}

TEST(CommandLineTest, UnknownCommandIsAUsageError) {
    const ToolRun run = RunTool({"negative", "a.bmp", "b.bmp"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "tz3: unknown command 'negative' ('tz3 help' lists them)\n");
}

TEST(CommandLineTest, HelpListsEveryCommandOnStandardOutput) {
    const ToolRun run = RunTool({"help"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.err, "");
    for (const char *name : {"info", "sample", "convert", "rgb-rev"}) {
        EXPECT_NE(run.out.find(std::string("  ") + name + " "), std::string::npos) << name;
    }
    EXPECT_EQ(RunTool({"--help"}).out, run.out);
}

TEST(CommandLineTest, CommandHelpShowsItsUsageLine) {
    const ToolRun run = RunTool({"rgb-rev", "--help"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out,
              "usage: tz3 rgb-rev IN OUT [--red] [--green] [--blue] "
              "[--polygon X,Y,X,Y,... | --ellipse L,T,R,B | --mask FILE] [--outside]\n");
}

}  // namespace
}  // namespace tz3clitest
