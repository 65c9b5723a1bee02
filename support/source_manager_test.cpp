#include "support/source_manager.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>
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
    std::vector<LineColumn> alone;
    for (const auto& p : places) {
        ResetSourceManager();
        const std::uint32_t file = AddSourceFile("set.xml", text);
        alone.push_back(ResolveLocation(RangeLocation(file, p.offset, p.length)));
    }
    ResetSourceManager();
    const std::uint32_t file = AddSourceFile("set.xml", text);
    for (std::size_t index = 0; index < std::size(places); ++index) {
        const LineColumn along =
            ResolveLocation(RangeLocation(file, places[index].offset, places[index].length));
        const LineColumn& fresh = alone[index];
        const std::uint32_t at = places[index].offset;
        EXPECT_EQ(along.line, fresh.line) << at;
        EXPECT_EQ(along.column, fresh.column) << at;
        EXPECT_EQ(along.characterColumn, fresh.characterColumn) << at;
        EXPECT_EQ(along.lineOffset, fresh.lineOffset) << at;
        EXPECT_EQ(along.underlined, fresh.underlined) << at;
        EXPECT_EQ(along.lineText, fresh.lineText) << at;
    }
    ResetSourceManager();
}

}  // namespace
}  // namespace qk
