#include "xmlinput/xml_load.h"

#include "support/diagnostics.h"
#include "support/utf8_encode.h"
#include "text/utf8_decode.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

namespace qk {

namespace {

bool g_loadReportedError = false;

// The line a Mini-XML message names ("... on line 12."), or 0.
int LineOf(std::string_view message) {
    const std::size_t at = message.rfind("on line ");
    int line = 0;
    for (std::size_t i = at == std::string_view::npos ? message.size() : at + 8;
         i < message.size() && message[i] >= '0' && message[i] <= '9'; ++i) {
        line = line * 10 + (message[i] - '0');
    }
    return line;
}

// Mini-XML's error callback during a load: the message goes to standard error
// as Mini-XML would print it (under --strict as a diagnostic naming the file
// and line), and the load is marked as failed.
void RecordLoadError(const char* message) {
    const std::string_view text = message != nullptr ? message : "";
    if (IsStrict()) {
        ReportProblem(Severity::kError, WidenForLog(std::string(text).c_str()), LineOf(text));
    } else {
        std::fprintf(stderr, "mxml: %s\n", std::string(text).c_str());
    }
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

// The file's first bytes (for its byte-order mark), its size, and its last
// bytes: enough to check how the text ends without reading the file again.
struct FileEnds {
    std::string head;
    std::string tail;
    std::uint64_t size = 0;
    bool whole = false;  // the tail is the whole file
};

bool ReadAt(std::FILE* file, std::uint64_t offset, std::size_t count, std::string& bytes) {
    bytes.resize(count);
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return false;
    }
    bytes.resize(std::fread(bytes.data(), 1, count, file));
    return std::ferror(file) == 0;
}

// False when the file cannot be read, or is not a regular file with a size
// (those are read whole).
bool ReadEnds(const char* path, std::size_t tailBytes, FileEnds& ends) {
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    struct stat info {};
    bool good = fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0;
    if (good) {
        ends.size = static_cast<std::uint64_t>(info.st_size);
        // A UTF-16 tail starts on a whole code unit.
        std::uint64_t start =
            ends.size > tailBytes ? (ends.size - tailBytes) & ~std::uint64_t{1} : 0;
        ends.whole = start == 0;
        good = ReadAt(file, 0, 2, ends.head) &&
               ReadAt(file, start, static_cast<std::size_t>(ends.size - start), ends.tail);
    }
    std::fclose(file);
    return good;
}

bool ReadWholeFile(const char* path, std::string& bytes) {
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    std::size_t filled = 0;
    for (;;) {
        constexpr std::size_t kRoom = 65536;
        bytes.resize(filled + kRoom);
        const std::size_t got = std::fread(bytes.data() + filled, 1, kRoom, file);
        filled += got;
        if (got < kRoom) {
            break;
        }
    }
    bytes.resize(filled);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    return !failed;
}

enum class Encoding { kUtf8, kUtf16Little, kUtf16Big };

Encoding EncodingOf(std::string_view head) {
    const auto byteAt = [head](std::size_t at) { return static_cast<unsigned char>(head[at]); };
    if (head.size() >= 2 && byteAt(0) == 0xFF && byteAt(1) == 0xFE) {
        return Encoding::kUtf16Little;
    }
    if (head.size() >= 2 && byteAt(0) == 0xFE && byteAt(1) == 0xFF) {
        return Encoding::kUtf16Big;
    }
    return Encoding::kUtf8;
}

// UTF-16 bytes (whole code units, no byte-order mark) as UTF-8 (Mini-XML hands
// names over in UTF-8).
std::string Utf16ToUtf8(std::string_view bytes, bool little) {
    const auto byteAt = [bytes](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const auto unitAt = [&](std::size_t at) -> std::uint32_t {
        return little ? (byteAt(at) | (byteAt(at + 1) << 8)) : ((byteAt(at) << 8) | byteAt(at + 1));
    };
    std::string text;
    text.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at + 1 < bytes.size(); at += 2) {
        const std::uint32_t unit = unitAt(at);
        std::uint32_t point = unit;
        if (unit >= 0xD800 && unit <= 0xDBFF && at + 3 < bytes.size()) {
            const std::uint32_t low = unitAt(at + 2);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                point = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                at += 2;
            }
        }
        AppendUtf8(text, point);
    }
    return text;
}

// The text of `bytes`, which start `offset` bytes into a file of `size` bytes
// in the given encoding, as UTF-8; false for UTF-16 that does not hold whole
// code units.
bool DecodedText(std::string_view bytes, std::uint64_t offset, std::uint64_t size,
                 Encoding encoding, std::string& text) {
    if (encoding == Encoding::kUtf8) {
        text.assign(bytes);
        return true;
    }
    if (size % 2 != 0) {
        return false;
    }
    if (offset == 0) {
        bytes.remove_prefix(std::min<std::size_t>(2, bytes.size()));
    }
    text = Utf16ToUtf8(bytes, encoding == Encoding::kUtf16Little);
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

// Whether the file ends with the document's closing markup. Its last few
// kilobytes decide for any ordinary file; only when they do not (a file that ends
// in much white space, or is not well-formed) is the whole file read to be sure.
bool EndsWhole(const char* path, mxml_node_t* top) {
    constexpr std::size_t kTailBytes = 4096;
    FileEnds ends;
    std::string text;
    if (ReadEnds(path, kTailBytes, ends)) {
        const Encoding encoding = EncodingOf(ends.head);
        const std::uint64_t offset = ends.size - ends.tail.size();
        if (!DecodedText(ends.tail, offset, ends.size, encoding, text)) {
            return false;
        }
        if (EndsWithClosingMarkup(text, top)) {
            return true;
        }
        if (ends.whole) {
            return false;
        }
    }
    std::string bytes;
    if (!ReadWholeFile(path, bytes)) {
        return false;
    }
    return DecodedText(bytes, 0, bytes.size(), EncodingOf(bytes), text) &&
           EndsWithClosingMarkup(text, top);
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
    SetDiagnosticFile(path);
    std::FILE* file = std::fopen(path, "r");
    if (file == nullptr) {
        ReportProblem(Severity::kError, L"cannot be opened for reading");
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
    if (!EndsWhole(path, document.get())) {
        ReportProblem(Severity::kError,
                      L"the document ends before the closing markup of its "
                      L"outermost element");
        result = XmlLoadError::kNotWellFormed;
        return nullptr;
    }
    return document.Release();
}

}  // namespace qk
