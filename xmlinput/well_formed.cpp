#include "xmlinput/well_formed.h"

#include "xmlinput/xml_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <unordered_set>

namespace qk {

namespace {

// Classes of bytes for the scans below.
enum : std::uint16_t {
    kNameStart = 1,  // may start a name
    kName = 2,       // may continue a name
    kSpace = 4,
    kTextStop = 8,     // ends a run of character data: '<', '&', ']'
    kValueStop = 16,   // ends a run of an attribute value: '<', '&' and the quotes
    kNotName = 32,     // ends a run of ASCII name characters
    kNotSpace = 64,    // ends a run of white space
    kCheck = 128,      // a control character or a byte of a non-ASCII one: judged alone
    kMarkupEnd = 256,  // may start the end of a comment, instruction or CDATA section
};

constexpr std::array<std::uint16_t, 256> MakeClasses() {
    std::array<std::uint16_t, 256> classes{};
    for (int c = 'a'; c <= 'z'; ++c) {
        classes[c] = kNameStart | kName;
        classes[c - 'a' + 'A'] = kNameStart | kName;
    }
    for (int c = '0'; c <= '9'; ++c) {
        classes[c] = kName;
    }
    classes[':'] = classes['_'] = kNameStart | kName;
    classes['-'] = classes['.'] = kName;
    classes[' '] = classes['\t'] = classes['\n'] = classes['\r'] = kSpace;
    classes['<'] = classes['&'] = classes[']'] = kTextStop;
    classes['<'] |= kValueStop;
    classes['&'] |= kValueStop;
    classes['"'] = classes['\''] = kValueStop;
    for (int c = 0; c < 0x100; ++c) {
        if (c >= 0x80 || (c < 0x20 && c != '\t' && c != '\n' && c != '\r')) {
            classes[c] = kTextStop | kValueStop | kCheck;  // decoded and judged one by one
        }
    }
    classes['-'] |= kMarkupEnd;
    classes['?'] |= kMarkupEnd;
    classes[']'] |= kMarkupEnd;
    for (auto& kind : classes) {
        kind |= (kind & kName) != 0 ? 0 : kNotName;
        kind |= (kind & kSpace) != 0 ? 0 : kNotSpace;
    }
    return classes;
}

constexpr std::array<std::uint16_t, 256> kClasses = MakeClasses();

std::uint16_t ClassOf(char byte) {
    return kClasses[static_cast<unsigned char>(byte)];
}

// The first place at or after at whose byte has one of the classes in stop
// (the hot loops of the check, kept to locals).
std::size_t SkipUntil(std::string_view text, std::size_t at, std::uint16_t stop) {
    const char* byte = text.data() + at;
    const char* end = text.data() + text.size();
    while (byte < end && (ClassOf(*byte) & stop) == 0) {
        ++byte;
    }
    return static_cast<std::size_t>(byte - text.data());
}

bool IsNameStartPoint(std::uint32_t c) {
    return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
           (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0xEFFFF);
}

bool IsNamePoint(std::uint32_t c) {
    return IsNameStartPoint(c) || c == 0xB7 || (c >= 0x300 && c <= 0x36F) ||
           (c >= 0x203F && c <= 0x2040);
}

constexpr std::uint32_t kInvalid = 0xFFFFFFFF;

// No customisation element carries more than four attributes. The XML library
// compares each attribute with every earlier one of its element, so a file with
// many on one element would take time with the square of their number; past
// this many the file is refused before the library sees it.
constexpr std::size_t kMaxAttributes = 64;

bool IsXmlCharPoint(std::uint32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

class Checker {
  public:
    Checker(std::string_view text, std::vector<std::uint32_t>& nodes, XmlSyntaxError& error)
        : text_(text), nodes_(nodes), error_(error) {}

    bool Document();

  private:
    struct Open {
        std::size_t offset;
        std::string_view name;
    };

    bool AtEnd() const { return at_ >= text_.size(); }
    bool Starts(std::string_view prefix) const { return text_.substr(at_).starts_with(prefix); }
    char Peek() const { return AtEnd() ? '\0' : text_[at_]; }

    bool Fail(std::size_t offset, std::string message, std::size_t length = 1) {
        error_.offset = std::min(offset, text_.size());
        error_.length = length;
        error_.message = std::move(message);
        // A character that is no character is what is wrong there, whatever was expected.
        XmlTextError bad;
        std::uint32_t point = 0;
        std::size_t size = 0;
        if (offset < text_.size() && (ClassOf(text_[offset]) & kCheck) != 0 &&
            !DecodeXmlCharacter(text_, offset, point, size, bad)) {
            error_.message = bad.message;
            error_.length = 1;
        }
        return false;
    }
    // Passes the character at at_ after judging it; false when XML does not allow it.
    bool PassCharacter() {
        XmlTextError bad;
        std::uint32_t point = 0;
        std::size_t length = 0;
        if (!DecodeXmlCharacter(text_, at_, point, length, bad)) {
            return Fail(at_, bad.message);
        }
        at_ += length;
        return true;
    }
    // Moves at_ to the next needle (judging every character on the way); false
    // at the end of the text or at a character XML does not allow.
    bool FindEnd(std::string_view needle);
    bool FailWith(std::size_t offset, std::string message, std::size_t length, const Open& open,
                  std::string related) {
        error_.relatedOffset = open.offset;
        error_.relatedLength = open.name.size() + 1;
        error_.relatedMessage = std::move(related);
        return Fail(offset, std::move(message), length);
    }

    // The character at at_ (decoded when not ASCII) and its length in bytes.
    std::uint32_t PointAt(std::size_t at, std::size_t& length) const;
    bool SkipSpace();
    bool NameAt(std::size_t at) const;
    std::string_view Name();
    std::string Shown(std::size_t at) const;

    bool XmlDeclaration();
    bool Comment();
    bool ProcessingInstruction();
    bool CData();
    bool Reference();
    bool StartTag(bool& empty);
    bool Attribute(std::string_view element);
    bool EndTag();
    bool Content();
    void NoteNode(std::size_t offset) { nodes_.push_back(static_cast<std::uint32_t>(offset)); }

    std::string_view text_;
    std::vector<std::uint32_t>& nodes_;
    XmlSyntaxError& error_;
    std::size_t at_ = 0;
    std::vector<Open> open_;
    // Attribute names of the element being read, to refuse one given twice.
    std::vector<std::pair<std::string_view, std::size_t>> attributes_;
    std::unordered_set<std::string_view> manyAttributes_;
};

std::uint32_t Checker::PointAt(std::size_t at, std::size_t& length) const {
    XmlTextError bad;
    std::uint32_t point = 0;
    return DecodeXmlCharacter(text_, at, point, length, bad) ? point : kInvalid;
}

bool Checker::FindEnd(std::string_view needle) {
    for (;;) {
        at_ = SkipUntil(text_, at_, kCheck | kMarkupEnd);
        if (AtEnd()) {
            return false;
        }
        if ((ClassOf(text_[at_]) & kCheck) != 0) {
            if (!PassCharacter()) {
                return false;
            }
        } else if (Starts(needle)) {
            return true;
        } else {
            ++at_;
        }
    }
}

bool Checker::SkipSpace() {
    const std::size_t from = at_;
    at_ = SkipUntil(text_, at_, kNotSpace);
    return at_ > from;
}

bool Checker::NameAt(std::size_t at) const {
    if (at >= text_.size()) {
        return false;
    }
    if ((ClassOf(text_[at]) & kNameStart) != 0) {
        return true;
    }
    std::size_t length = 0;
    const std::uint32_t point = PointAt(at, length);
    return point >= 0x80 && IsNameStartPoint(point);
}

std::string_view Checker::Name() {
    const std::size_t from = at_;
    while (!AtEnd()) {
        at_ = SkipUntil(text_, at_, kNotName);
        if (AtEnd() || static_cast<unsigned char>(text_[at_]) < 0x80) {
            break;  // an ASCII byte that no name holds
        }
        std::size_t length = 0;
        const std::uint32_t point = PointAt(at_, length);
        if (point < 0x80 || !IsNamePoint(point)) {
            break;
        }
        at_ += length;
    }
    return text_.substr(from, at_ - from);
}

// The character at a place, for a message: 'x', or "the end of the file".
std::string Checker::Shown(std::size_t at) const {
    if (at >= text_.size()) {
        return "the end of the file";
    }
    std::size_t length = 0;
    const std::uint32_t point = PointAt(at, length);
    if (point == '\n' || point == '\r') {
        return "the end of the line";
    }
    return "'" + std::string(text_.substr(at, length)) + "'";
}

bool Checker::Document() {
    if (text_.starts_with("<?xml") && (text_.size() == 5 || (ClassOf(text_[5]) & kSpace) != 0)) {
        NoteNode(0);
        if (!XmlDeclaration()) {
            return false;
        }
    }
    bool rootDone = false;
    for (;;) {
        SkipSpace();
        if (AtEnd()) {
            break;
        }
        if (Peek() != '<') {
            return Fail(at_, rootDone ? "text after the root element: a document has one root "
                                        "element and nothing but comments after it"
                                      : "text before the root element");
        }
        if (Starts("<!--")) {
            if (!Comment()) {
                return false;
            }
        } else if (Starts("<?")) {
            if (!ProcessingInstruction()) {
                return false;
            }
        } else if (Starts("<!DOCTYPE")) {
            return Fail(at_,
                        "document type declarations are not supported: customisation files "
                        "need none",
                        9);
        } else if (Starts("</")) {
            return Fail(at_, "closing tag without an opening tag", 2);
        } else if (rootDone) {
            return Fail(at_, "a second root element: a document has exactly one");
        } else {
            bool empty = false;
            if (!StartTag(empty) || (!empty && !Content())) {
                return false;
            }
            rootDone = true;
        }
    }
    return rootDone || Fail(at_, "the document has no root element");
}

bool Checker::XmlDeclaration() {
    at_ = 5;
    const auto quoted = [this](std::string_view what, auto&& valid) -> bool {
        SkipSpace();
        if (Peek() != '=') {
            return Fail(at_, "expected '=' after " + std::string(what) + " in the XML declaration");
        }
        ++at_;
        SkipSpace();
        const char quote = Peek();
        if (quote != '"' && quote != '\'') {
            return Fail(at_, "the " + std::string(what) + " of the XML declaration must be quoted");
        }
        const std::size_t from = ++at_;
        const std::size_t end = text_.find(quote, from);
        if (end == std::string_view::npos || !valid(text_.substr(from, end - from))) {
            return Fail(from, "the XML declaration's " + std::string(what) + " is not valid");
        }
        at_ = end + 1;
        return true;
    };
    const auto version = [](std::string_view value) {
        return value.size() > 2 && value.starts_with("1.") &&
               std::all_of(value.begin() + 2, value.end(),
                           [](char c) { return c >= '0' && c <= '9'; });
    };
    const auto encoding = [](std::string_view value) {
        return !value.empty() && std::isalpha(static_cast<unsigned char>(value[0])) != 0 &&
               std::all_of(value.begin(), value.end(), [](char c) {
                   return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' ||
                          c == '_' || c == '-';
               });
    };
    const auto standalone = [](std::string_view value) { return value == "yes" || value == "no"; };
    if (!SkipSpace() || !Starts("version")) {
        return Fail(
            at_, "the XML declaration must begin with its version, as in <?xml version=\"1.0\"?>");
    }
    at_ += 7;
    if (!quoted("version", version)) {
        return false;
    }
    bool space = SkipSpace();
    if (space && Starts("encoding")) {
        at_ += 8;
        if (!quoted("encoding", encoding)) {
            return false;
        }
        space = SkipSpace();
    }
    if (space && Starts("standalone")) {
        at_ += 10;
        if (!quoted("standalone", standalone)) {
            return false;
        }
        SkipSpace();
    }
    if (!Starts("?>")) {
        return Fail(at_, "expected '?>' to end the XML declaration, found " + Shown(at_));
    }
    at_ += 2;
    return true;
}

bool Checker::Comment() {
    const std::size_t open = at_;
    NoteNode(open);
    at_ += 4;
    if (!FindEnd("--")) {
        return !AtEnd() ? false : Fail(open, "the comment is not closed: '-->' is missing", 4);
    }
    if (at_ + 2 >= text_.size() || text_[at_ + 2] != '>') {
        return Fail(at_, "'--' is not allowed inside a comment", 2);
    }
    at_ += 3;
    return true;
}

bool Checker::ProcessingInstruction() {
    const std::size_t open = at_;
    NoteNode(open);
    at_ += 2;
    if (!NameAt(at_)) {
        return Fail(at_, "a processing instruction must start with a name after '<?'");
    }
    const std::string_view target = Name();
    if (target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
        (target[2] | 0x20) == 'l') {
        return Fail(open,
                    target == "xml" ? "the XML declaration may only stand at the very start of "
                                      "the file"
                                    : "the name \"" + std::string(target) + "\" is reserved",
                    5);
    }
    if (!SkipSpace() && !Starts("?>")) {
        return Fail(at_, "expected a space or '?>' after the processing instruction's name");
    }
    if (!FindEnd("?>")) {
        return !AtEnd()
                   ? false
                   : Fail(open, "the processing instruction is not closed: '?>' is missing", 2);
    }
    at_ += 2;
    return true;
}

bool Checker::CData() {
    const std::size_t open = at_;
    NoteNode(open);
    at_ += 9;
    if (!FindEnd("]]>")) {
        return !AtEnd() ? false
                        : Fail(open, "the CDATA section is not closed: ']]>' is missing", 9);
    }
    at_ += 3;
    return true;
}

bool Checker::Reference() {
    const std::size_t amp = at_++;
    const auto bad = [&](const std::string& why) {
        return Fail(amp, why + "; write &amp; for a '&' itself");
    };
    if (Peek() == '#') {
        ++at_;
        const bool hex = Peek() == 'x';
        at_ += hex ? 1 : 0;
        std::uint32_t point = 0;
        const std::size_t digits = at_;
        while (!AtEnd() && std::isxdigit(static_cast<unsigned char>(Peek())) != 0 &&
               (hex || std::isdigit(static_cast<unsigned char>(Peek())) != 0)) {
            const char c = Peek();
            const std::uint32_t digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
            point = std::min<std::uint32_t>(point * (hex ? 16 : 10) + digit, 0x110000);
            ++at_;
        }
        if (at_ == digits || Peek() != ';') {
            return bad("a character reference is written &#NUMBER; or &#xHEX;");
        }
        ++at_;
        if (!IsXmlCharPoint(point)) {
            return Fail(amp, "the character reference names a character XML does not allow",
                        at_ - amp);
        }
        return true;
    }
    if (!NameAt(at_)) {
        return bad("'&' must start an entity such as &amp; or &lt;");
    }
    const std::string_view name = Name();
    if (Peek() != ';') {
        return bad("the entity &" + std::string(name) + " has no ';' after its name");
    }
    ++at_;
    if (name != "lt" && name != "gt" && name != "amp" && name != "apos" && name != "quot") {
        return Fail(amp,
                    "unknown entity &" + std::string(name) +
                        ";: only &amp; &lt; &gt; &apos; &quot; are defined",
                    at_ - amp);
    }
    return true;
}

bool Checker::StartTag(bool& empty) {
    const std::size_t open = at_;
    NoteNode(open);
    ++at_;
    if (!NameAt(at_)) {
        return Fail(open, "'<' must start a tag; write &lt; for a '<' in text");
    }
    const std::string_view name = Name();
    attributes_.clear();
    manyAttributes_.clear();
    std::size_t count = 0;
    for (;;) {
        const std::size_t lastEnd = at_;
        const bool space = SkipSpace();
        if (Peek() == '>') {
            ++at_;
            open_.push_back({open, name});
            empty = false;
            return true;
        }
        if (Starts("/>")) {
            at_ += 2;
            empty = true;
            return true;
        }
        if (AtEnd() || Peek() == '<') {
            return Fail(lastEnd, "missing '>' at the end of the tag <" + std::string(name) + ">");
        }
        if (!space || !NameAt(at_)) {
            return Fail(at_, "expected '>', '/>' or an attribute name after the tag <" +
                                 std::string(name) + ">, found " + Shown(at_));
        }
        if (++count > kMaxAttributes) {
            const std::size_t nameAt = at_;
            return Fail(nameAt,
                        "<" + std::string(name) + "> has more than " +
                            std::to_string(kMaxAttributes) +
                            " attributes: no customisation element carries more than 4",
                        Name().size());
        }
        if (!Attribute(name)) {
            return false;
        }
    }
}

bool Checker::Attribute(std::string_view element) {
    const std::size_t nameAt = at_;
    const std::string_view name = Name();
    SkipSpace();
    if (Peek() != '=') {
        return Fail(at_, "expected '=' after the attribute name " + std::string(name) + ", found " +
                             Shown(at_));
    }
    ++at_;
    SkipSpace();
    const char quote = Peek();
    if (quote != '"' && quote != '\'') {
        return Fail(
            at_, "the value of the attribute " + std::string(name) + " must stand between quotes");
    }
    const std::size_t valueAt = ++at_;
    for (;;) {
        at_ = SkipUntil(text_, at_, kValueStop);
        if (AtEnd()) {
            return Fail(valueAt - 1, "the value of the attribute " + std::string(name) +
                                         " is not closed: the file ends before its quote");
        }
        const char c = text_[at_];
        if (c == quote) {
            ++at_;
            break;
        }
        if (c == '<') {
            return Fail(at_, "'<' is not allowed in an attribute value; write &lt;");
        }
        if (c == '&') {
            if (!Reference()) {
                return false;
            }
            continue;
        }
        if (!PassCharacter()) {
            return false;
        }
    }
    // Few attributes are compared in a list; many (a hostile file) in a set.
    if (attributes_.size() < 16) {
        for (const auto& [earlier, earlierAt] : attributes_) {
            if (earlier == name) {
                error_.relatedOffset = earlierAt;
                error_.relatedLength = name.size();
                error_.relatedMessage = "first given here";
                return Fail(nameAt,
                            "the attribute " + std::string(name) + " is given twice in <" +
                                std::string(element) + ">",
                            name.size());
            }
        }
        attributes_.emplace_back(name, nameAt);
        if (attributes_.size() == 16) {
            for (const auto& [earlier, earlierAt] : attributes_) {
                manyAttributes_.insert(earlier);
            }
        }
    } else if (!manyAttributes_.insert(name).second) {
        return Fail(nameAt,
                    "the attribute " + std::string(name) + " is given twice in <" +
                        std::string(element) + ">",
                    name.size());
    }
    return true;
}

bool Checker::EndTag() {
    const std::size_t close = at_;
    at_ += 2;
    const Open& open = open_.back();
    const std::string_view name = NameAt(at_) ? Name() : std::string_view();
    if (name != open.name) {
        return FailWith(close,
                        name.empty() ? "expected the name of the element after '</'"
                                     : "closing tag </" + std::string(name) + "> does not match <" +
                                           std::string(open.name) + ">",
                        name.size() + 2, open, "<" + std::string(open.name) + "> is opened here");
    }
    SkipSpace();
    if (Peek() != '>') {
        return Fail(at_, "missing '>' at the end of the closing tag </" + std::string(name) + ">");
    }
    ++at_;
    open_.pop_back();
    return true;
}

bool Checker::Content() {
    while (!open_.empty()) {
        // Character data runs to the next '<' or '&'; "]]>" may not stand in it.
        at_ = SkipUntil(text_, at_, kTextStop);
        if (AtEnd()) {
            const Open& open = open_.back();
            return Fail(open.offset,
                        "<" + std::string(open.name) + "> is not closed: the file ends before </" +
                            std::string(open.name) + ">",
                        open.name.size() + 1);
        }
        const char c = text_[at_];
        bool good = true;
        bool empty = false;
        if (c == ']') {
            if (Starts("]]>")) {
                return Fail(at_, "']]>' is not allowed in text; write ]]&gt;", 3);
            }
            ++at_;
        } else if (c == '&') {
            good = Reference();
        } else if (c != '<') {
            good = PassCharacter();
        } else if (Starts("</")) {
            good = EndTag();
        } else if (Starts("<!--")) {
            good = Comment();
        } else if (Starts("<![CDATA[")) {
            good = CData();
        } else if (Starts("<?")) {
            good = ProcessingInstruction();
        } else if (Starts("<!")) {
            return Fail(at_, "'<!' starts no markup allowed here", 2);
        } else {
            good = StartTag(empty);
        }
        if (!good) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool CheckWellFormed(std::string_view text, std::vector<std::uint32_t>& nodeOffsets,
                     XmlSyntaxError& error) {
    nodeOffsets.clear();
    error = XmlSyntaxError{};
    Checker checker(text, nodeOffsets, error);
    return checker.Document();
}

}  // namespace qk
