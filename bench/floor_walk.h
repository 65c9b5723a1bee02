#pragma once

// What every compile must do at least: load a file with Mini-XML and visit
// every node once, reading what the compiler reads (types, names, attributes,
// text), then free the document.
#include <mxml.h>

#include <cstdio>
#include <cstring>

// Adds the file's nodes to nodes and what was read to checksum; false when the
// file cannot be loaded.
inline bool LoadAndWalk(const char* path, unsigned long& nodes, unsigned long& checksum) {
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        std::perror(path);
        return false;
    }
    mxml_node_t* top = mxmlLoadFile(nullptr, file, MXML_NO_CALLBACK);
    std::fclose(file);
    if (top == nullptr) {
        return false;
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
    return true;
}
