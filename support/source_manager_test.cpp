#include "support/source_manager.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace qk {
namespace {

// Places resolved one after another (along a line, back, on another line, the
// same place again) come out as each does on its own: the place resolved last
// is only a shortcut.
TEST(SourceManagerTest, PlacesInAnyOrderResolveAsEachAlone) {
    const std::string text = "<a>\n\tx\xC3\xA9y\tz <b c='\xE2\x82\xAC'/>  w w\n<last/>";
    const struct {
        std::uint32_t offset;
        std::uint32_t length;
    } places[] = {{5, 1}, {9, 3}, {9, 3}, {14, 4}, {6, 2}, {26, 1}, {31, 5}, {0, 3}, {29, 1}};
    // Each alone, with its line copied: the text it points into goes with its file.
    std::vector<std::pair<LineColumn, std::string>> alone;
    for (const auto& p : places) {
        ResetSourceManager();
        const std::uint32_t file = AddSourceFile("set.xml", text);
        const LineColumn place = ResolveLocation(RangeLocation(file, p.offset, p.length));
        alone.emplace_back(place, std::string(place.lineText));
    }
    ResetSourceManager();
    const std::uint32_t file = AddSourceFile("set.xml", text);
    for (std::size_t index = 0; index < std::size(places); ++index) {
        const LineColumn along =
            ResolveLocation(RangeLocation(file, places[index].offset, places[index].length));
        const LineColumn& fresh = alone[index].first;
        const std::uint32_t at = places[index].offset;
        EXPECT_EQ(along.line, fresh.line) << at;
        EXPECT_EQ(along.column, fresh.column) << at;
        EXPECT_EQ(along.characterColumn, fresh.characterColumn) << at;
        EXPECT_EQ(along.lineOffset, fresh.lineOffset) << at;
        EXPECT_EQ(along.underlined, fresh.underlined) << at;
        EXPECT_EQ(along.lineText, alone[index].second) << at;
    }
    ResetSourceManager();
}

}  // namespace
}  // namespace qk
