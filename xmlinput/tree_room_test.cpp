#include "xmlinput/tree_room.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <mxml.h>

#include <string>

#include "tests/support/generated_sets.h"

namespace qk {
namespace {

std::string DistinctAttributes(int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        out += "a" + std::to_string(i) + "=\"\" ";
    }
    return out;
}

struct Shape {
    const char* name;
    std::string body;
    // For the shapes real sets have, the bound may not be far above the tree.
    bool realistic = false;
};

// The bound holds for the shapes that cost the library most per byte of
// text, and stays near the tree for customisation sets.
TEST(TreeRoom, TheBoundHoldsForEveryShapeOfText) {
    const Shape shapes[] = {
        {"EmptyElements", test::Repeat("<x/>", 20000)},
        {"ShortAttributes", test::Repeat("<x a=\"\"/>", 20000)},
        {"ManyAttributes", "<x " + DistinctAttributes(3000) + "/>"},
        {"ShortWords", "<x>" + test::Repeat("a ", 40000) + "</x>"},
        {"Lines", test::Repeat("<x a=\"\"/>\n", 20000)},
        {"References", test::Repeat("<x>&#65;</x>", 20000)},
        {"Instructions", test::Repeat("<?p?>", 20000)},
        {"Customisation",
         test::Repeat("<profile Area=\"Heron3\" Usage=\"Evening mood\" Notes=\"Warm and calm\">\n"
                      "\t<value Property=\"Gain\">12</value>\n"
                      "\t<value Property=\"Caption\">Caption text that is long enough</value>\n"
                      "</profile>\n",
                      2000),
         true},
    };
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.name);
        const std::string text = "<customisations>" + shape.body + "</customisations>";
        const std::size_t before = mallinfo2().uordblks;
        mxml_node_t* tree = mxmlLoadString(nullptr, text.c_str(), MXML_NO_CALLBACK);
        const std::size_t taken = mallinfo2().uordblks - before;
        ASSERT_NE(tree, nullptr);
        mxmlDelete(tree);
        EXPECT_LE(taken, TreeBytesBound(text));
        if (shape.realistic && taken > 0) {  // sanitizers do not count the heap
            EXPECT_LE(TreeBytesBound(text), 3 * taken);
        }
    }
}

}  // namespace
}  // namespace qk
