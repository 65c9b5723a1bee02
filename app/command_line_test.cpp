#include "app/command_line.h"

#include <gtest/gtest.h>

#include "tests/support/logged_test.h"

namespace qk {
namespace {

class CommandLineTest : public unit::LoggedTest {};

TEST_F(CommandLineTest, FindsWholeArgumentsFromTheFirstIndex) {
    char* argv[] = {const_cast<char*>("-s"), const_cast<char*>("-s"), const_cast<char*>("-s"),
                    const_cast<char*>("b.xml"), const_cast<char*>("-user")};
    const int argc = 5;
    // Argument 0, the program name, takes part in the first lookup.
    EXPECT_EQ(GetCommandlineArgv(L"-s", argc, argv, 0), 0);
    EXPECT_EQ(GetCommandlineArgv(L"-s", argc, argv, 1), 1);
    EXPECT_EQ(GetCommandlineArgv(L"-s", argc, argv, 3), -1);
    EXPECT_EQ(GetCommandlineArgv(L"-u", argc, argv, 0), -1);  // never a prefix match
    EXPECT_EQ(GetCommandlineArgv(L"-user", argc, argv, 0), 4);
    EXPECT_EQ(GetCommandlineArgv(L"-s", argc, argv, argc), -1);
    EXPECT_EQ(GetCommandlineArgv(L"-s", argc, argv, argc + 3), -1);
}

TEST_F(CommandLineTest, EveryComparisonNarrowsTheOptionAnew) {
    char* argv[] = {const_cast<char*>("quillard"), const_cast<char*>("-k"),
                    const_cast<char*>("-o")};
    const int before = g_iMalloced;
    EXPECT_EQ(GetCommandlineArgv(L"-o", 3, argv, 0), 2);
    EXPECT_EQ(g_iMalloced, before + 3);
}

}  // namespace
}  // namespace qk
