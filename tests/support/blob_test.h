#pragma once

// Test-side helpers for the blob tests: a fixture with the blob modules reset,
// and builders that assemble a customisation tree by hand the way the XML
// reader would (tracked copies, every text offered to the word list).

#include <cstdint>
#include <initializer_list>
#include <span>

#include "blob/compact_builder.h"
#include "blob/string_table.h"
#include "blob/version_string.h"
#include "model/customisation.h"
#include "model/file_kind.h"
#include "support/tracked_memory.h"
#include "tests/support/blob_decoder.h"
#include "tests/support/logged_test.h"
#include "text/wide_string.h"

namespace qk::unit {

class BlobTest : public LoggedTest {
  protected:
    void SetUp() override {
        LoggedTest::SetUp();
        ResetBlobModules();
        SetFileKind(kSystemFile);
        CreateCustomisations();
    }
    void TearDown() override {
        ResetBlobModules();
        SetFileKind(kSystemFile);
        LoggedTest::TearDown();
    }
    static void ResetBlobModules() {
        ResetStringTable();
        ResetCompactBuilder();
        ResetVersionString();
    }

    Customisations& Root() { return *g_lpCustomisations; }

    // A tracked copy that is also offered to the word list.
    static wchar_t* Text(const wchar_t* text) {
        if (text == nullptr) {
            return nullptr;
        }
        wchar_t* copy = TrackedCopy(text);
        AddToWordsArray(copy);
        return copy;
    }

    template <typename T>
    static void Append(T*& head, T* record) {
        T** tail = &head;
        while (*tail != nullptr) {
            tail = &(*tail)->lpNext;
        }
        *tail = record;
    }

    void SetHeader(const wchar_t* release) {
        Root().strFormat = Text(L"1");
        Root().strContent = Text(L"System");
        Root().strRelease = Text(release);
    }

    Area* AddArea(const wchar_t* name, std::int32_t privacy = kPrivacyDefined) {
        auto* area = AllocateRecord<Area>();
        area->lpDriver = AllocateRecord<Driver>();
        area->lpDriver->strName = Text(name);
        area->lpDriver->iPrivacy = privacy;
        Append(Root().lpAreas, area);
        return area;
    }
    Property* AddProperty(Area* area, std::int32_t type, const wchar_t* name,
                          const wchar_t* set = nullptr) {
        auto* property = AllocateRecord<Property>();
        property->iType = type;
        property->strName = Text(name);
        property->strSet = Text(set);
        Append(area->lpProperties, property);
        return property;
    }
    Profile* AddProfile(Area* area, const wchar_t* usage, const wchar_t* notes = nullptr) {
        auto* profile = AllocateRecord<Profile>();
        profile->lpDriver = area != nullptr ? area->lpDriver : nullptr;
        profile->strUsage = Text(usage);
        profile->strNotes = Text(notes);
        Append(Root().lpProfiles, profile);
        return profile;
    }
    Value* AddWords(Profile* profile, Property* property,
                    std::initializer_list<std::uint32_t> words) {
        auto* value = AllocateRecord<Value>();
        auto* data =
            static_cast<std::uint32_t*>(Allocate(static_cast<std::uint32_t>(4 * words.size())));
        std::uint32_t i = 0;
        for (std::uint32_t word : words) {
            data[i++] = word;
        }
        value->lpData = data;
        value->iDataLength = i;
        value->lpProperty = property;
        Append(profile->lpValues, value);
        return value;
    }
    Value* AddText(Profile* profile, Property* property, const wchar_t* text) {
        auto* value = AllocateRecord<Value>();
        value->lpData = Text(text);
        value->lpProperty = property;
        Append(profile->lpValues, value);
        return value;
    }
    Application* AddApplication(const wchar_t* title, const wchar_t* file = L"app.bin",
                                const wchar_t* path = L"/opt/app",
                                const wchar_t* version = L"1.0") {
        auto* application = AllocateRecord<Application>();
        application->strTitle = Text(title);
        application->strFile = Text(file);
        application->strPath = Text(path);
        application->strVersion = Text(version);
        Append(Root().lpApplications, application);
        return application;
    }
    Use* AddUse(Application* application, const wchar_t* profile, Area* area) {
        auto* use = AllocateRecord<Use>();
        use->strProfile = Text(profile);
        use->lpDriver = area != nullptr ? area->lpDriver : nullptr;
        Append(application->lpUses, use);
        return use;
    }

    // Builds the image and decodes exactly the bytes a file would hold.
    DecodedBlob Build() {
        CreateCompact();
        return DecodeBlob(BuiltBytes());
    }
    static std::span<const std::uint8_t> BuiltBytes() {
        return {g_lpBlob, static_cast<std::size_t>(g_lpApplicationPtr - g_lpBlob)};
    }
};

}  // namespace qk::unit
