#include "xmlinput/xml_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "support/input_files.h"
#include "support/utf8_encode.h"

namespace qk {

namespace {

bool Fail(XmlTextError& error, std::size_t offset, std::string message) {
    error.offset = offset;
    error.message = std::move(message);
    return false;
}

std::string Hex(std::uint32_t value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

// Whether XML allows the character (tab, line ends, and the rest of Unicode
// but the other controls, surrogates and U+FFFE, U+FFFF).
bool IsXmlChar(std::uint32_t point) {
    if (point < 0x20) {
        return point == 0x9 || point == 0xA || point == 0xD;
    }
    return point <= 0xD7FF || (point >= 0xE000 && point <= 0xFFFD) ||
           (point >= 0x10000 && point <= 0x10FFFF);
}

bool CheckCharacter(std::uint32_t point, std::size_t offset, XmlTextError& error) {
    if (IsXmlChar(point)) {
        return true;
    }
    return Fail(error, offset,
                "character U+" + Hex(point, 4) + " is not allowed in XML" +
                    (point == 0 ? " (is this UTF-16 without a byte-order mark?)" : ""));
}

bool Utf16ToUtf8(std::string_view bytes, bool little, std::string& utf8, XmlTextError& error) {
    if (bytes.size() % 2 != 0) {
        return Fail(error, utf8.size(),
                    "the file ends in the middle of a UTF-16 code unit (it has an odd number of "
                    "bytes)");
    }
    const auto unitAt = [bytes, little](std::size_t at) -> std::uint32_t {
        const auto first = static_cast<unsigned char>(bytes[at]);
        const auto second = static_cast<unsigned char>(bytes[at + 1]);
        return little ? (first | (second << 8)) : ((first << 8) | second);
    };
    utf8.reserve(bytes.size() / 2);
    for (std::size_t at = 0; at < bytes.size(); at += 2) {
        std::uint32_t point = unitAt(at);
        if (point >= 0xDC00 && point <= 0xDFFF) {
            return Fail(error, utf8.size(), "UTF-16 low surrogate without a high one before it");
        }
        if (point >= 0xD800 && point <= 0xDBFF) {
            const std::uint32_t low = at + 3 < bytes.size() ? unitAt(at + 2) : 0;
            if (low < 0xDC00 || low > 0xDFFF) {
                return Fail(error, utf8.size(), "UTF-16 high surrogate without a low one after it");
            }
            point = 0x10000 + ((point - 0xD800) << 10) + (low - 0xDC00);
            at += 2;
        }
        if (!CheckCharacter(point, utf8.size(), error)) {
            return false;
        }
        AppendUtf8(utf8, point);
    }
    return true;
}

}  // namespace

bool DecodeXmlCharacter(std::string_view text, std::size_t at, std::uint32_t& point,
                        std::size_t& length, XmlTextError& error) {
    const auto byteAt = [text](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    const unsigned char lead = byteAt(at);
    length = 1;
    point = lead;
    if (lead < 0x80) {
        return CheckCharacter(point, at, error);
    }
    length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 0;
    if (length == 0 || lead > 0xF4) {
        return Fail(error, at, "byte 0x" + Hex(lead, 2) + " does not start a UTF-8 character");
    }
    if (at + length > text.size()) {
        return Fail(error, at, "the file ends inside a UTF-8 character");
    }
    point = lead & (0x7F >> length);
    for (std::size_t next = 1; next < length; ++next) {
        const unsigned char byte = byteAt(at + next);
        if ((byte & 0xC0) != 0x80) {
            return Fail(
                error, at,
                "UTF-8 character cut short: byte 0x" + Hex(byte, 2) + " cannot continue it");
        }
        point = (point << 6) | (byte & 0x3F);
    }
    static constexpr std::uint32_t kShortest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (point < kShortest[length]) {
        return Fail(error, at, "UTF-8 character written with more bytes than it needs");
    }
    return CheckCharacter(point, at, error);
}

XmlTextResult DecodeXmlText(std::string&& bytes, std::string& utf8, XmlTextError& error) {
    const std::string_view view(bytes);
    const auto byteAt = [view](std::size_t at) { return static_cast<unsigned char>(view[at]); };
    utf8.clear();
    if (view.size() >= 2 &&
        ((byteAt(0) == 0xFF && byteAt(1) == 0xFE) || (byteAt(0) == 0xFE && byteAt(1) == 0xFF))) {
        const bool little = byteAt(0) == 0xFF;
        return Utf16ToUtf8(view.substr(2), little, utf8, error) ? XmlTextResult::kGood
                                                                : XmlTextResult::kBadEncoding;
    }
    if (view.starts_with("\xEF\xBB\xBF")) {
        bytes.erase(0, 3);
    }
    // UTF-8 is checked character by character by the well-formedness check,
    // which passes every byte anyway.
    utf8 = std::move(bytes);
    return XmlTextResult::kGood;
}

XmlTextResult ReadXmlText(const char* path, std::string& utf8, XmlTextError& error,
                          int* systemError, XmlReadMode mode, bool* regular) {
    // Read again, a pipe would wait for a writer that is gone: opened without
    // waiting, anything but a regular file is given up.
    const bool again = mode == XmlReadMode::kRegularFileAgain;
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | (again ? O_NONBLOCK : 0));
    if (descriptor < 0) {
        *systemError = errno;
        return XmlTextResult::kCannotRead;
    }
    struct stat info {};
    if (fstat(descriptor, &info) != 0) {
        *systemError = errno;
        close(descriptor);
        return XmlTextResult::kCannotRead;
    }
    const bool isRegular = S_ISREG(info.st_mode);
    if (regular != nullptr) {
        *regular = isRegular;
    }
    if (!again) {
        RecordInputFile(path, info);  // no output may be written over it
    }
    if (again && !isRegular) {
        *systemError = EINVAL;
        close(descriptor);
        return XmlTextResult::kCannotRead;
    }
    // A regular file is read into a buffer of its size (a directory of
    // thousands of small files must not cost a large buffer each); anything
    // else, and what a file grew by, comes in chunks.
    std::string bytes;
    std::size_t expected = 0;
    if (isRegular && info.st_size > 0) {
        expected = static_cast<std::size_t>(info.st_size);
        bytes.resize(expected);
    }
    std::size_t filled = 0;
    char chunk[16384];
    for (;;) {
        const bool direct = filled < expected;
        char* into = direct ? bytes.data() + filled : chunk;
        const ssize_t got = read(descriptor, into, direct ? expected - filled : sizeof chunk);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            *systemError = errno;
            close(descriptor);
            return XmlTextResult::kCannotRead;
        }
        if (got == 0) {
            break;
        }
        if (!direct) {
            bytes.append(chunk, static_cast<std::size_t>(got));
        }
        filled += static_cast<std::size_t>(got);
    }
    bytes.resize(filled);
    close(descriptor);
    return DecodeXmlText(std::move(bytes), utf8, error);
}

}  // namespace qk
