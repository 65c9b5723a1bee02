#include "xmlinput/xml_load.h"

#include "text/utf8.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace qk {

namespace {

bool g_loadReportedError = false;

// Mini-XML's error callback during a load: the message still goes to standard
// error as Mini-XML would print it, and the load is marked as failed.
void RecordLoadError(const char* message) {
    std::fprintf(stderr, "mxml: %s\n", message != nullptr ? message : "");
    g_loadReportedError = true;
}

class ErrorCallbackScope {
  public:
    ErrorCallbackScope() {
        g_loadReportedError = false;
        mxmlSetErrorCallback(RecordLoadError);
    }
    ~ErrorCallbackScope() { mxmlSetErrorCallback(nullptr); }
    ErrorCallbackScope(const ErrorCallbackScope&) = delete;
    ErrorCallbackScope& operator=(const ErrorCallbackScope&) = delete;
};

bool ReadWholeFile(const char* path, std::string& bytes) {
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    // Read in place at the file's size, without a bounce buffer or regrowth;
    // a file that grew since is still read to its end.
    struct stat info {};
    std::size_t room = 65536;
    if (fstat(fileno(file), &info) == 0 && info.st_size > 0) {
        room = static_cast<std::size_t>(info.st_size) + 1;
    }
    std::size_t filled = 0;
    for (;;) {
        bytes.resize(filled + room);
        const std::size_t got = std::fread(bytes.data() + filled, 1, room, file);
        filled += got;
        if (got < room) {
            break;
        }
    }
    bytes.resize(filled);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    return !failed;
}

// The file's text as UTF-8 (Mini-XML hands names over in UTF-8); UTF-8 bytes
// are taken over, not copied. False for a UTF-16 file that does not hold whole
// code units.
bool DecodeToUtf8(std::string& bytes, std::string& text) {
    const auto byteAt = [&bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const bool little = bytes.size() >= 2 && byteAt(0) == 0xFF && byteAt(1) == 0xFE;
    const bool big = bytes.size() >= 2 && byteAt(0) == 0xFE && byteAt(1) == 0xFF;
    if (!little && !big) {
        text.swap(bytes);
        return true;
    }
    if (bytes.size() % 2 != 0) {
        return false;
    }
    text.clear();
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 2; at + 1 < bytes.size(); at += 2) {
        const std::uint32_t unit =
            little ? (byteAt(at) | (byteAt(at + 1) << 8)) : ((byteAt(at) << 8) | byteAt(at + 1));
        std::uint32_t point = unit;
        if (unit >= 0xD800 && unit <= 0xDBFF && at + 3 < bytes.size()) {
            const std::uint32_t low = little ? (byteAt(at + 2) | (byteAt(at + 3) << 8))
                                             : ((byteAt(at + 2) << 8) | byteAt(at + 3));
            if (low >= 0xDC00 && low <= 0xDFFF) {
                point = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                at += 2;
            }
        }
        AppendUtf8(text, point);
    }
    return true;
}

bool IsXmlSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && IsXmlSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// The node whose closing markup must end the file: the last element below a
// leading declaration, or the top node itself.
mxml_node_t* OutermostNode(mxml_node_t* top) {
    const char* name = mxmlGetElement(top);
    if (name == nullptr || name[0] != '?') {
        return top;
    }
    for (mxml_node_t* child = mxmlGetLastChild(top); child != nullptr;
         child = mxmlGetPrevSibling(child)) {
        if (mxmlGetType(child) == MXML_ELEMENT) {
            return child;
        }
    }
    return top;
}

// Mini-XML keeps a document that stops inside its last tag; the text must end
// with the closing markup of the outermost node.
bool EndsWithClosingMarkup(std::string_view text, mxml_node_t* top) {
    mxml_node_t* last = OutermostNode(top);
    const char* raw = mxmlGetElement(last);
    if (raw == nullptr) {
        return false;
    }
    const std::string_view name(raw);
    text = TrimEnd(text);
    if (name.starts_with("!--")) {
        return text.ends_with("-->");
    }
    if (name.starts_with("![CDATA[")) {
        return text.ends_with("]]>");
    }
    if (!text.ends_with('>')) {
        return false;
    }
    if (name.starts_with('?') || name.starts_with('!')) {
        return true;
    }
    text.remove_suffix(1);
    text = TrimEnd(text);
    if (text.ends_with(name) && text.substr(0, text.size() - name.size()).ends_with("</")) {
        return true;
    }
    return mxmlGetFirstChild(last) == nullptr && text.ends_with('/');
}

}  // namespace

mxml_node_t* LoadXmlDocument(const char* path, XmlLoadError* why) {
    XmlLoadError ignored = XmlLoadError::kNone;
    XmlLoadError& result = why != nullptr ? *why : ignored;
    result = XmlLoadError::kNone;
    if (path == nullptr) {
        result = XmlLoadError::kCannotOpen;
        return nullptr;
    }
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        result = XmlLoadError::kCannotOpen;
        return nullptr;
    }
    XmlDocument document;
    {
        const ErrorCallbackScope scope;
        document = XmlDocument(mxmlLoadFile(nullptr, file, MXML_NO_CALLBACK));
        std::fclose(file);
        if (!document || g_loadReportedError) {
            result = XmlLoadError::kNotWellFormed;
            return nullptr;
        }
    }
    std::string bytes;
    std::string text;
    if (!ReadWholeFile(path, bytes) || !DecodeToUtf8(bytes, text) ||
        !EndsWithClosingMarkup(text, document.get())) {
        result = XmlLoadError::kNotWellFormed;
        return nullptr;
    }
    return document.Release();
}

}  // namespace qk
