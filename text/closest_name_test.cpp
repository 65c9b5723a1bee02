#include "text/closest_name.h"

#include <gtest/gtest.h>

namespace qk {
namespace {

struct HintCase {
    const char* word;
    const char* expected;  // "" for no hint
};

TEST(ClosestName, HintsOnlyWhatWasProbablyMeant) {
    const std::vector<std::string_view> known = {"Smoothing", "Shown",        "Ramp",     "Size",
                                                 "Dword",     "ProfilesOnly", "--strict", "--diff"};
    for (const HintCase& c : {
             HintCase{"Smothing", "Smoothing"},        // one letter left out
             HintCase{"smoothing", "Smoothing"},       // letter case alone
             HintCase{"SMOOTHING", "Smoothing"},       // letter case beats any edit
             HintCase{"Dwrod", "Dword"},               // two neighbours swapped: one edit
             HintCase{"ProfileOnly", "ProfilesOnly"},  // within two edits
             HintCase{"--stirct", "--strict"}, HintCase{"Rmp", "Ramp"},
             HintCase{"Rp", ""},        // too short for a second edit
             HintCase{"Colour", ""},    // nothing close
             HintCase{"Smoothing", ""}  // the name itself needs no hint
         }) {
        EXPECT_EQ(ClosestName(std::string_view(c.word), known), c.expected) << c.word;
    }
    EXPECT_EQ(ClosestName(std::wstring_view(L"Lumen3d"), {L"Lumen3D", L"Orchid"}), L"Lumen3D");
}

}  // namespace
}  // namespace qk
