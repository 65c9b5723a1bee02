// The least any compile can cost: load each file with Mini-XML and visit every
// node once, reading what the compiler reads (types, names, attributes, text).
#include <mxml.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
    unsigned long nodes = 0;
    unsigned long checksum = 0;
    for (int index = 1; index < argc; ++index) {
        std::FILE* file = std::fopen(argv[index], "r");
        if (file == nullptr) {
            std::perror(argv[index]);
            return 1;
        }
        mxml_node_t* top = mxmlLoadFile(nullptr, file, MXML_NO_CALLBACK);
        std::fclose(file);
        if (top == nullptr) {
            return 1;
        }
        for (mxml_node_t* node = mxmlWalkNext(top, top, MXML_DESCEND); node != nullptr;
             node = mxmlWalkNext(node, top, MXML_DESCEND)) {
            ++nodes;
            if (mxmlGetType(node) == MXML_ELEMENT) {
                checksum += std::strlen(mxmlGetElement(node));
                for (int attribute = 0; attribute < mxmlElementGetAttrCount(node); ++attribute) {
                    const char* name = nullptr;
                    const char* value = mxmlElementGetAttrByIndex(node, attribute, &name);
                    checksum += std::strlen(name) + std::strlen(value);
                }
            } else if (mxmlGetType(node) == MXML_TEXT) {
                int whitespace = 0;
                checksum += std::strlen(mxmlGetText(node, &whitespace));
            }
        }
        mxmlDelete(top);
    }
    std::printf("%lu nodes %lu\n", nodes, checksum);
    return 0;
}
