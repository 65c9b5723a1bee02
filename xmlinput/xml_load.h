#pragma once

// Loading a customisation XML file with Mini-XML, shared by the reader and the
// directory validator. Mini-XML accepts some broken files silently (a file cut
// just before its last '>') or with only a message on standard error (odd-sized
// UTF-16); both are refused here, so a caller only ever walks a whole document.

#include <mxml.h>

namespace qk {

enum class XmlLoadError {
    kNone = 0,
    kCannotOpen,     // the file could not be opened for reading
    kNotWellFormed,  // Mini-XML refused it, reported an error, or the document is cut short
};

// Loads path (UTF-8, or UTF-16 with a byte-order mark) with no type callback, so
// element text arrives as one MXML_TEXT node per word. Returns the top node (a
// leading declaration, which Mini-XML makes the parent of the rest) or null, in
// which case *why (when given) tells whether the file could not be opened or is
// not well-formed. Mini-XML's own messages still go to standard error.
mxml_node_t* LoadXmlDocument(const char* path, XmlLoadError* why);

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

}  // namespace qk
