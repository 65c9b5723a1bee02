#include "inspect/reverse_xml.h"

#include <cstdint>
#include <cstring>
#include <span>
#include <string>

#include "bridge/display_control.h"
#include "model/customisation.h"
#include "model/type_names.h"
#include "support/diagnostic.h"
#include "support/output_file.h"
#include "support/progress_log.h"
#include "text/value_text.h"

#include "text/wide_string.h"

namespace qk {

namespace {

// The XML's name of a type: "Unknown" where the code has no name.
const wchar_t* TypeAttribute(std::int32_t type) {
    const wchar_t* name = TypeName(type);
    return name != nullptr ? name : L"Unknown";
}

// The XML's name of a privacy setting: empty where the code has no name.
const wchar_t* PrivacyAttribute(std::int32_t privacy) {
    const wchar_t* name = PrivacyName(privacy);
    return name != nullptr ? name : L"";
}

bool HasText(const wchar_t* text) {
    return text != nullptr && text[0] != L'\0';
}

const wchar_t* DriverName(const Driver* driver) {
    return driver ? OrEmpty(driver->strName) : L"";
}

// The document as UTF-16LE bytes, built whole and written in one go.
class Utf16Writer {
  public:
    Utf16Writer() { bytes_ = "\xFF\xFE"; }

    Utf16Writer& operator<<(const wchar_t* text) {
        for (const wchar_t* at = text; *at != L'\0'; ++at)
            Unit(*at);
        return *this;
    }
    // Text inside an attribute value or an element, escaped so it always loads again.
    Utf16Writer& Escaped(const wchar_t* text) {
        for (const wchar_t* at = OrEmpty(text); *at != L'\0'; ++at) {
            switch (*at) {
                case L'&':
                    *this << L"&amp;";
                    break;
                case L'<':
                    *this << L"&lt;";
                    break;
                case L'>':
                    *this << L"&gt;";
                    break;
                case L'"':
                    *this << L"&quot;";
                    break;
                default:
                    Unit(*at);
            }
        }
        return *this;
    }
    Utf16Writer& Attribute(const wchar_t* name, const wchar_t* value) {
        *this << L" " << name << L"=\"";
        Escaped(value);
        return *this << L"\"";
    }
    const std::string& bytes() const { return bytes_; }

  private:
    void Put16(std::uint32_t unit) {
        bytes_.push_back(static_cast<char>(unit & 0xFF));
        bytes_.push_back(static_cast<char>((unit >> 8) & 0xFF));
    }
    void Unit(wchar_t character) {
        // Texts already hold UTF-16 units; anything wider is split into its pair.
        auto point = static_cast<std::uint32_t>(character);
        if (point > 0x10FFFF) {
            point = 0xFFFD;
        }
        if (point > 0xFFFF) {
            point -= 0x10000;
            Put16(0xD800 + (point >> 10));
            Put16(0xDC00 + (point & 0x3FF));
        } else {
            Put16(point);
        }
    }
    std::string bytes_;
};

}  // namespace

std::wstring ValueText(const Value& value) {
    const auto* data = static_cast<const std::uint8_t*>(value.lpData);
    const std::uint32_t length = data ? value.iDataLength : 0;
    const std::int32_t type = value.lpProperty ? value.lpProperty->iType : kTypeUnknown;
    auto word = [&](std::size_t bytes) {
        std::uint64_t number = 0;
        if (length != 0)  // no data at all may come as a null block
            std::memcpy(&number, data, length < bytes ? length : bytes);
        return number;
    };
    switch (type) {
        case kTypeBinary: {
            std::wstring text(5ull * length + 1, L'\0');
            WSPrintBinary(data, length, text.data(), static_cast<unsigned>(text.size()));
            text.resize(5ull * length);
            return text;
        }
        case kTypeQword: {
            wchar_t text[19] = L"0x0000000000000000";
            WSPrintQWORD(word(8), text, 19);
            return text;
        }
        case kTypeDword: {
            wchar_t text[11] = L"0x00000000";
            WSPrintDWORD(static_cast<std::uint32_t>(word(4)), text, 11);
            return text;
        }
        case kTypeBoolean: {
            const std::uint64_t flag = word(4);
            return flag == 0 ? L"False" : flag == 1 ? L"True" : L"";
        }
        default: {
            // The bytes go into zeroed units, so trailing bytes of a partial unit
            // still make a character and the text ends at the first zero unit.
            std::wstring text((length + sizeof(wchar_t) - 1) / sizeof(wchar_t), L'\0');
            if (length != 0)
                std::memcpy(text.data(), data, length);
            return text.substr(0, text.find(L'\0'));
        }
    }
}

namespace {

void WriteDocument(const Customisations& root, bool placeholders, Utf16Writer& out) {
    out << L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\n";
    out << L"<customisations";
    out.Attribute(L"Format", root.strFormat).Attribute(L"Release", root.strRelease) << L">\n";

    bool opened = false;
    for (const Area* area = root.lpAreas; area != nullptr; area = area->lpNext) {
        if (area->lpProperties == nullptr && !placeholders)
            continue;
        if (!opened)
            out << L"\t<properties>\n";
        opened = true;
        out << L"\t\t<area";
        out.Attribute(L"Name", DriverName(area->lpDriver))
                .Attribute(L"Privacy",
                           area->lpDriver ? PrivacyAttribute(area->lpDriver->iPrivacy) : L"")
            << L">\n";
        for (const Property* property = area->lpProperties; property != nullptr;
             property = property->lpNext) {
            out << L"\t\t\t<property";
            out.Attribute(L"Type", TypeAttribute(property->iType));
            if (HasText(property->strSet))
                out.Attribute(L"Set", property->strSet);
            out << L">";
            out.Escaped(property->strName) << L"</property>\n";
        }
        out << L"\t\t</area>\n";
    }
    if (opened)
        out << L"\t</properties>\n";

    opened = false;
    for (const Profile* profile = root.lpProfiles; profile != nullptr; profile = profile->lpNext) {
        if (profile->lpValues == nullptr && !placeholders)
            continue;
        if (!opened)
            out << L"\t<profiles>\n";
        opened = true;
        out << L"\t\t<profile";
        out.Attribute(L"Area", DriverName(profile->lpDriver))
            .Attribute(L"Usage", profile->strUsage);
        if (HasText(profile->strNotes))
            out.Attribute(L"Notes", profile->strNotes);
        out << L">\n";
        for (const Value* value = profile->lpValues; value != nullptr; value = value->lpNext) {
            out << L"\t\t\t<value";
            out.Attribute(L"Property", value->lpProperty ? value->lpProperty->strName : nullptr)
                << L">";
            out.Escaped(ValueText(*value).c_str()) << L"</value>\n";
        }
        out << L"\t\t</profile>\n";
    }
    if (opened)
        out << L"\t</profiles>\n";

    opened = false;
    for (const Application* application = root.lpApplications; application != nullptr;
         application = application->lpNext) {
        if (!opened)
            out << L"\t<applications>\n";
        opened = true;
        out << L"\t\t<application";
        if (HasText(application->strTitle))
            out.Attribute(L"Title", application->strTitle);
        if (HasText(application->strFile))
            out.Attribute(L"File", application->strFile);
        if (HasText(application->strVersion))
            out.Attribute(L"Version", application->strVersion);
        if (HasText(application->strPath))
            out.Attribute(L"Path", application->strPath);
        out << L">\n";
        for (const Use* use = application->lpUses; use != nullptr; use = use->lpNext) {
            out << L"\t\t\t<use";
            out.Attribute(L"Area", DriverName(use->lpDriver)) << L">";
            out.Escaped(use->strProfile) << L"</use>\n";
        }
        out << L"\t\t</application>\n";
    }
    if (opened)
        out << L"\t</applications>\n";
    out << L"</customisations>\n";
}

}  // namespace

std::string ReverseXmlBytes(const Customisations& root, int placeholders) {
    Utf16Writer out;
    WriteDocument(root, placeholders == 1, out);
    return out.bytes();
}

int ReverseToXml(int database, int placeholders, const char* path) {
    if (database < kSystemDatabase || database > kOemDatabase) {
        return -1;
    }
    Customisations root{};
    const int result = Call_ZEL_ApplicationProfiles_GetCustomization(database, &root);
    if (result != 0) {
        ReleaseLibraryAnswers();  // whatever the library took before it failed
        Report(Diagnostic::Error("installed-set-unavailable", FileLocation(AddSourceName(path)),
                                 "the installed database cannot be fetched from the "
                                 "display-control library; no XML is written"));
        return result;
    }
    const std::string bytes = ReverseXmlBytes(root, placeholders);
    ReleaseLibraryAnswers();  // the fetched tree is not needed once the text exists
    const OutputResult written =
        WriteOutputFile(path, {.bytes = std::as_bytes(std::span(bytes))}, true);
    if (written.error != OutputError::kNone) {
        LogFormat(L"ERROR, Unable to write XML file: - %s\n", path);
        Report(Diagnostic::Error(
            "cannot-write", FileLocation(AddSourceName(path)),
            "the XML is not written: " +
                (written.error == OutputError::kDanglingLink
                     ? std::string("it is a symbolic link to a file that does not exist")
                 : written.error == OutputError::kPathChanged ? std::string(kPathChangedReason)
                                                              : SystemReason(written.cause))));
        return -1;
    }
    return 0;
}

}  // namespace qk
