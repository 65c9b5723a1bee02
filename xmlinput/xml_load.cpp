#include "xmlinput/xml_load.h"

#include <cerrno>
#include <new>
#include <string>
#include <string_view>

#include "support/diagnostic.h"
#include "support/out_of_memory.h"
#include "xmlinput/tree_room.h"
#include "xmlinput/well_formed.h"
#include "xmlinput/xml_text.h"

namespace qk {

namespace {

std::string g_loadError;
bool g_loadFailed = false;

// Mini-XML's error callback: the checked text should never give one, so a
// message is kept for a diagnostic and the load counts as failed. Nothing may
// be thrown back through the library.
void RecordLoadError(const char* message) noexcept {
    g_loadFailed = true;
    if (g_loadError.empty()) {
        try {
            g_loadError = message != nullptr ? message : "the XML library refused the file";
        } catch (const std::bad_alloc&) {
        }
    }
}

class ErrorCallbackScope {
  public:
    ErrorCallbackScope() {
        g_loadError.clear();
        g_loadFailed = false;
        mxmlSetErrorCallback(RecordLoadError);
    }
    ~ErrorCallbackScope() { mxmlSetErrorCallback(nullptr); }
    ErrorCallbackScope(const ErrorCallbackScope&) = delete;
    ErrorCallbackScope& operator=(const ErrorCallbackScope&) = delete;
};

// A file's text read again for a late diagnostic (only ever a regular file:
// the text of any other is kept).
bool ReloadText(const std::string& name, std::string& text) {
    XmlTextError error;
    int systemError = 0;
    return ReadXmlText(name.c_str(), text, error, &systemError, XmlReadMode::kRegularFileAgain) !=
           XmlTextResult::kCannotRead;
}

bool Refuse(XmlLoadError& result, XmlLoadError why) {
    result = why;
    return false;
}

}  // namespace

bool LoadXmlDocument(const char* path, LoadedXml& loaded, XmlLoadError* why) {
    XmlLoadError ignored = XmlLoadError::kNone;
    XmlLoadError& result = why != nullptr ? *why : ignored;
    result = XmlLoadError::kNone;
    loaded.document.Reset();
    loaded.file = 0;
    loaded.nodeOffsets.clear();
    if (path == nullptr) {
        return Refuse(result, XmlLoadError::kCannotOpen);
    }
    std::string text;
    XmlTextError textError;
    int systemError = 0;
    bool regular = true;
    const XmlTextResult read =
        ReadXmlText(path, text, textError, &systemError, XmlReadMode::kAnyFile, &regular);
    if (read == XmlTextResult::kCannotRead) {
        Report(Diagnostic::Error("cannot-read", FileLocation(AddSourceName(path)),
                                 "cannot read the file: " + SystemReason(systemError)));
        return Refuse(result, XmlLoadError::kCannotOpen);
    }
    SetSourceReloader(ReloadText);
    loaded.file = AddSourceFile(path, std::move(text), regular);
    const std::string_view source = SourceText(loaded.file);
    if (read == XmlTextResult::kBadEncoding) {
        // Bad UTF-16 makes a file as broken as bad UTF-8 does, and says so alike.
        Report(Diagnostic::Error("bad-encoding", RangeLocation(loaded.file, textError.offset, 1),
                                 "not well-formed XML: " + textError.message));
        return Refuse(result, XmlLoadError::kNotWellFormed);
    }
    XmlSyntaxError syntax;
    if (!CheckWellFormed(source, loaded.nodeOffsets, syntax)) {
        Diagnostic diagnostic = Diagnostic::Error(
            "not-well-formed", RangeLocation(loaded.file, syntax.offset, syntax.length),
            "not well-formed XML: " + syntax.message);
        if (syntax.relatedOffset != XmlSyntaxError::kNone) {
            diagnostic.notes.push_back(
                {RangeLocation(loaded.file, syntax.relatedOffset, syntax.relatedLength),
                 syntax.relatedMessage});
        }
        Report(diagnostic);
        return Refuse(result, XmlLoadError::kNotWellFormed);
    }
    MakeSureOfRoomForTree(source);
    const ErrorCallbackScope scope;
    errno = 0;
    loaded.document = XmlDocument(mxmlLoadString(nullptr, source.data(), MXML_NO_CALLBACK));
    if (!loaded.document || g_loadFailed) {
        loaded.document.Reset();
        if (errno == ENOMEM) {
            // The text was checked: the library ran out of memory building its tree.
            ThrowOutOfMemory();
        }
        Report(Diagnostic::Error("not-well-formed", FileLocation(loaded.file),
                                 "the XML library refused the file: " + g_loadError));
        return Refuse(result, XmlLoadError::kNotWellFormed);
    }
    return true;
}

}  // namespace qk
