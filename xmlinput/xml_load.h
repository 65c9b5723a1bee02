#pragma once

// Loading a customisation XML file, shared by the reader and the directory
// validator: the file is read once, its encoding and well-formedness are
// checked (a broken file is refused with a diagnostic at the place where its
// text goes wrong), and the checked text is parsed by Mini-XML. The text stays
// with the run's source files, for the places of later diagnostics.

#include <mxml.h>

#include <cstdint>
#include <vector>

namespace qk {

enum class XmlLoadError {
    kNone = 0,
    kCannotOpen,     // the file could not be opened for reading
    kNotWellFormed,  // bad encoding or characters, or not a well-formed document
};

// Owns a loaded document and deletes it when it goes out of scope.
class XmlDocument {
  public:
    explicit XmlDocument(mxml_node_t* top = nullptr) : top_(top) {}
    ~XmlDocument() { Reset(); }
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    XmlDocument(XmlDocument&& other) noexcept : top_(other.top_) { other.top_ = nullptr; }
    XmlDocument& operator=(XmlDocument&& other) noexcept {
        if (this != &other) {
            Reset();
            top_ = other.top_;
            other.top_ = nullptr;
        }
        return *this;
    }

    mxml_node_t* get() const { return top_; }
    explicit operator bool() const { return top_ != nullptr; }
    // Gives the tree up without deleting it.
    mxml_node_t* Release() {
        mxml_node_t* top = top_;
        top_ = nullptr;
        return top;
    }
    void Reset() {
        if (top_ != nullptr) {
            mxmlDelete(top_);
            top_ = nullptr;
        }
    }

  private:
    mxml_node_t* top_;
};

struct LoadedXml {
    XmlDocument document;
    std::uint32_t file = 0;  // the text in the run's source files
    // Where each node that Mini-XML made starts, in document order: start tags,
    // comments, processing instructions (the declaration too), CDATA sections.
    std::vector<std::uint32_t> nodeOffsets;
};

// Loads path (UTF-8, or UTF-16 with a byte-order mark) with no type callback, so
// element text arrives as one MXML_TEXT node per word; the top node is a leading
// declaration, which Mini-XML makes the parent of the rest, or the root. False,
// after a diagnostic, when the file cannot be read or is not well-formed; *why
// (when given) tells which.
bool LoadXmlDocument(const char* path, LoadedXml& loaded, XmlLoadError* why);

}  // namespace qk
