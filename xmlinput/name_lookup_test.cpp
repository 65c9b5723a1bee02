#include "xmlinput/name_lookup.h"

#include <gtest/gtest.h>

namespace qk {
namespace {

// The header rules look at bytes only; an empty text fails each of them.
TEST(NameRules, PassAndFailByTheirCharacterClasses) {
    struct Case {
        const char* text;
        int letters;
        int numbers;
        int integer;
        int name;
    };
    for (const Case& c : {
             Case{"", -1, -1, -1, -1},
             Case{"Heron", 0, -1, -1, 0},
             Case{"Heron Blue", -1, -1, -1, 0},
             Case{" Heron", -1, -1, -1, -1},
             Case{"2026", -1, 0, 0, 0},
             Case{"1.2.3", -1, 0, -1, 0},
             Case{".", -1, 0, -1, 0},
             Case{"1,2", -1, -1, -1, 0},
             Case{"-1", -1, -1, -1, 0},
             Case{"+1", -1, -1, -1, 0},
             Case{"1 ", -1, -1, -1, 0},
             Case{"\xC3\xA9", -1, -1, -1, 0},
         }) {
        EXPECT_EQ(isLetters(c.text), c.letters) << '"' << c.text << '"';
        EXPECT_EQ(isNumbers(c.text), c.numbers) << '"' << c.text << '"';
        EXPECT_EQ(isInteger(c.text), c.integer) << '"' << c.text << '"';
        EXPECT_EQ(isValidNameString(c.text), c.name) << '"' << c.text << '"';
    }
}

}  // namespace
}  // namespace qk
