#include "xmlinput/tree_room.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <mxml.h>

#include <string>

namespace qk {
namespace {

std::string Times(const std::string& piece, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        out += piece;
    }
    return out;
}

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
        {"EmptyElements", Times("<x/>", 20000)},
        {"ShortAttributes", Times("<x a=\"\"/>", 20000)},
        {"ManyAttributes", "<x " + DistinctAttributes(3000) + "/>"},
        {"ShortWords", "<x>" + Times("a ", 40000) + "</x>"},
        {"Lines", Times("<x a=\"\"/>\n", 20000)},
        {"References", Times("<x>&#65;</x>", 20000)},
        {"Instructions", Times("<?p?>", 20000)},
        {"Customisation",
         Times("<profile Area=\"Heron3\" Usage=\"Evening mood\" Notes=\"Warm and calm\">\n"
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
